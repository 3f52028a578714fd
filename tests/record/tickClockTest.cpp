#include "preload/SteadyCounter.h"
#include "record/TickClock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "nanoseconds.h"

namespace {

using boardtest::SECOND;
using ZceRecord::CTickClock;

class TickClock : public testing::Test {
  protected:
    TickClock() { m_clock.Use(true); }
    CTickClock m_clock;
};

TEST_F(TickClock, ATimeIsAStampOfItsOwnWhereCountsAreNotUsed) {
    CTickClock clock;
    clock.Note(1000, 5);
    clock.Note(2000, 6);
    EXPECT_EQ(clock.TimeOf(1500), 1500);
    clock.Note();
    EXPECT_EQ(clock.TimeOf(-7), -7);
}

TEST_F(TickClock, ACountBetweenTwoMomentsIsInBetweenByTheSameShare) {
    m_clock.Note(1000, 50 * SECOND);
    EXPECT_EQ(m_clock.TimeOf(3000), 50 * SECOND);  // nothing more is known yet
    m_clock.Note(3000, 50 * SECOND + 1000);
    m_clock.Note(4000, 50 * SECOND + 5000);  // from here on the clock runs eight times as fast
    EXPECT_EQ(m_clock.TimeOf(1000), 50 * SECOND);
    EXPECT_EQ(m_clock.TimeOf(2000), 50 * SECOND + 500);
    EXPECT_EQ(m_clock.TimeOf(3000), 50 * SECOND + 1000);
    EXPECT_EQ(m_clock.TimeOf(3001), 50 * SECOND + 1004);
    EXPECT_EQ(m_clock.TimeOf(4000), 50 * SECOND + 5000);
    // Outside of all moments: by the nearest two.
    EXPECT_EQ(m_clock.TimeOf(0), 50 * SECOND - 500);
    EXPECT_EQ(m_clock.TimeOf(4100), 50 * SECOND + 5400);
}

TEST_F(TickClock, AMicrosecondIsMeasuredByTheLastTwoMoments) {
    EXPECT_EQ(m_clock.Microsecond(), 0);
    m_clock.Note(0, 0);
    EXPECT_EQ(m_clock.Microsecond(), 0);
    m_clock.Note(1'000'000, 500'000);
    EXPECT_EQ(m_clock.Microsecond(), 2000);
    m_clock.Note(2'000'000, int64_t{60} * 500'000);  // a clock that runs faster
    EXPECT_EQ(m_clock.Microsecond(), 33);
    m_clock.Note(3'000'000, int64_t{60} * 500'000);  // and one that stands still
    EXPECT_EQ(m_clock.Microsecond(), 0);
}

TEST_F(TickClock, AClockThatIsSetJumpsBetweenTwoMomentsAndIsRightBehindThem) {
    m_clock.Note(0, 100 * SECOND);
    m_clock.Note(1000, 100 * SECOND + 1000);
    m_clock.Note(2000, 40 * SECOND);
    m_clock.Note(3000, 40 * SECOND + 1000);
    EXPECT_EQ(m_clock.TimeOf(900), 100 * SECOND + 900);
    EXPECT_EQ(m_clock.TimeOf(2100), 40 * SECOND + 100);
}

TEST_F(TickClock, ACountThatStandsStillIsNotDividedBy) {
    m_clock.Note(1000, 10);
    m_clock.Note(1000, 20);
    m_clock.Note(900, 30);
    EXPECT_EQ(m_clock.TimeOf(1000), 10);
    m_clock.Note(2000, 1010);
    EXPECT_EQ(m_clock.TimeOf(1500), 510);
}

TEST_F(TickClock, ManyMomentsAreKeptAndNotAll) {
    for (int64_t k = 0; k <= 1000; ++k) {
        m_clock.Note(k * 10, k * 10 * (k < 900 ? 1 : 2));
    }
    EXPECT_EQ(m_clock.TimeOf(9999), 19998);
    EXPECT_EQ(m_clock.TimeOf(8005), 8005);  // 199 moments ago
    EXPECT_EQ(m_clock.TimeOf(5), 5);
}

// A stamp that was read between two readings of the real clock is between them, but for the
// microsecond that is promised.
TEST_F(TickClock, TheTimeIsRightToAMicrosecondAndNeverRunsBackwards) {
    if (!ZcePreload::HasSteadyCounter()) {
        GTEST_SKIP() << "this processor's counter is not steady";
    }
    struct Stamp {
        int64_t before;
        int64_t stamp;
        int64_t after;
    };
    std::vector<Stamp> stamps;
    int64_t last = 0;
    for (int pass = 0; pass < 20; ++pass) {
        m_clock.Note();
        for (const Stamp& one : stamps) {
            const int64_t time = m_clock.TimeOf(one.stamp);
            EXPECT_GE(time, one.before - 1000);
            EXPECT_LE(time, one.after + 1000);
            EXPECT_GE(time, last);
            last = time;
        }
        stamps.clear();
        for (int k = 0; k < 50; ++k) {
            const int64_t before = ZceRecord::RealTimeNs();
            const int64_t stamp = ZceRecord::ReadCounter();
            stamps.push_back({before, stamp, ZceRecord::RealTimeNs()});
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_GT(last, 0);
}

}  // namespace
