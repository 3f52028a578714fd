// How often a process that polls looks after its board: the board makes a pass a millisecond, the
// process polls at a pace of its own.

#include "vendor/IdleCount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

struct PollingProcess {
    unsigned int pollsAMillisecond;
    ZceBoard::IdleCount idle{};
    bool boardRuns = true;
    unsigned long passes = 0;
    unsigned int now = 0;  // ms
    unsigned int looks = 0;
    unsigned int asked = 0;                // the kernel, whether the board runs
    unsigned int firstFound = 0xFFFFFFFF;  // that it has ended
    unsigned int lastFound = 0;

    // So many milliseconds of polls that find nothing.
    void Poll(unsigned int milliseconds) {
        for (const unsigned int end = now + milliseconds; now < end; ++now) {
            passes += boardRuns ? 1 : 0;
            for (unsigned int poll = 0; poll < pollsAMillisecond; ++poll) {
                if (idle.IsDue()) {
                    Look();
                }
            }
        }
    }
    void Look() {
        ++looks;
        if (idle.Restart(passes)) {
            return;
        }
        ++asked;
        if (!boardRuns) {
            idle.Keep();
            lastFound = now;
            firstFound = std::min(firstFound, now);
        }
    }
};

class LookAfterABoard : public testing::TestWithParam<unsigned int> {
  protected:
    PollingProcess m_process{GetParam()};
};

TEST_P(LookAfterABoard, ComesAboutTenTimesASecond) {
    m_process.Poll(1000);
    m_process.looks = m_process.asked = 0;
    m_process.Poll(2000);
    EXPECT_GE(m_process.looks, 15U);
    EXPECT_LE(m_process.looks, 40U);
    EXPECT_EQ(m_process.asked, 0U) << "the passes tell that it runs";
}

TEST_P(LookAfterABoard, AsksTheKernelAFewTimesUntilThePaceIsFound) {
    m_process.Poll(1000);
    EXPECT_LE(m_process.asked, 20U);
}

TEST_P(LookAfterABoard, NoticesWithinAThirdOfASecondThatItHasEndedAndGoesOnLooking) {
    // At every part of the time from one look to the next.
    for (unsigned int end = 1000; end < 1110; end += 30) {
        PollingProcess process{GetParam()};
        process.Poll(end);
        process.boardRuns = false;
        process.Poll(1000);
        EXPECT_GE(process.firstFound, end);
        EXPECT_LE(process.firstFound, end + 333) << "ended at " << end;
        EXPECT_GE(process.lastFound, end + 1000 - 333) << "so that a new board is seen, too";
    }
}

// From one poll a millisecond, as of a process that rests in between, to as fast as a poll can be.
INSTANTIATE_TEST_SUITE_P(PollsAMillisecond, LookAfterABoard, testing::Values(1U, 6U, 100U, 5000U),
                         [](const auto& pace) { return std::to_string(pace.param); });

}  // namespace
