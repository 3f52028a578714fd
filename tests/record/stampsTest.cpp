#include "record/Stamps.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using testing::ElementsAre;
using ZceRecord::Beat;
using ZceRecord::CStamps;

int64_t g_count = 0;
int g_readings = 0;
int64_t ReadFake() {
    ++g_readings;
    return g_count;
}

class Stamps : public testing::Test {
  protected:
    Stamps() {
        g_count = 1'000'000;
        g_readings = 0;
        m_beat.microsecond = 1000;
    }
    // Each poll takes so many counts and finds a message; the stamps, less the 1,000,000.
    std::vector<int64_t> Burst(int messages, int64_t each) {
        std::vector<int64_t> stamps;
        stamps.reserve(static_cast<size_t>(messages));
        for (int k = 0; k < messages; ++k) {
            stamps.push_back(Message(each));
        }
        return stamps;
    }
    int64_t Message(int64_t took) {
        g_count += took;
        m_stamps.BeginPoll();
        return m_stamps.Next<&ReadFake>(m_beat) - 1'000'000;
    }
    void EmptyPoll(int64_t took) {
        g_count += took;
        m_stamps.BeginPoll();
    }

    Beat m_beat;
    CStamps m_stamps;
};

TEST_F(Stamps, AMessageBehindAnEmptyPollHasAReadingOfItsOwn) {
    for (int k = 1; k <= 20; ++k) {
        EmptyPoll(10);
        EXPECT_EQ(Message(10), k * 20);
    }
    EXPECT_EQ(g_readings, 20);
}

TEST_F(Stamps, InABurstAReadingIsForMoreAndMoreUpToEight) {
    EmptyPoll(10);
    EXPECT_THAT(Burst(18, 100), ElementsAre(110, 210, 211, 410, 411, 412, 413, 810, 811, 812, 813,
                                            814, 815, 816, 817, 1610, 1611, 1612));
    EXPECT_EQ(g_readings, 5);
    EmptyPoll(10);  // and from the beginning
    EXPECT_THAT(Burst(3, 100), ElementsAre(1920, 2020, 2021));
}

TEST_F(Stamps, PollsThatTakeLongHaveAReadingEach) {
    EmptyPoll(10);
    EXPECT_THAT(Burst(4, 1001), ElementsAre(1011, 2012, 3013, 4014));
    // Half a microsecond: two would be more than one.
    EXPECT_THAT(Burst(4, 501), ElementsAre(4515, 5016, 5517, 6018));
    EXPECT_EQ(g_readings, 8);
}

TEST_F(Stamps, WhereTheBurstGetsSlowerTheNextReadingIsForLess) {
    EmptyPoll(10);
    Burst(15, 10);  // readings for 1, 2, 4 and 8 messages
    EXPECT_EQ(g_readings, 4);
    Burst(8, 300);  // it takes 370 counts to the first of these
    EXPECT_EQ(g_readings, 5);
    Burst(4, 300);  // the eight took 2400
    EXPECT_EQ(g_readings, 6);
    Burst(8, 300);  // four took 1200, and then two at a time 600
    EXPECT_EQ(g_readings, 6 + 4);
}

TEST_F(Stamps, ABeatInTheMiddleOfABurstIsAReading) {
    EmptyPoll(10);
    Burst(8, 10);
    const int before = g_readings;
    ++m_beat.passes;
    EXPECT_EQ(Message(5'000'000), 5'000'090);
    EXPECT_EQ(g_readings, before + 1);
}

TEST_F(Stamps, BeforeTheMicrosecondIsKnownEachHasAReading) {
    m_beat.microsecond = 0;
    Burst(20, 1);
    EXPECT_EQ(g_readings, 20);
}

TEST_F(Stamps, NoStampIsAsLateAsOneBefore) {
    EmptyPoll(10);
    EXPECT_EQ(Message(0), 10);
    EXPECT_EQ(Message(0), 11);  // the counter stood still
    EXPECT_EQ(Message(-5), 12);
    EmptyPoll(0);
    EXPECT_EQ(Message(0), 13);
}

}  // namespace
