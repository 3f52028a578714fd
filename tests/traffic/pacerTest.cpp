#include "traffic/Pacer.h"

#include <gtest/gtest.h>

namespace {

using ZceBoard::CPacer;

constexpr int64_t MS = 1000000;

TEST(Pacer, GivesTheRateOverTimeWithoutRoundingItAway) {
    CPacer pacer(2500);
    uint64_t events = pacer.Due(0);
    EXPECT_EQ(events, 0U);
    for (int64_t ms = 1; ms <= 1000; ++ms) {
        const uint64_t due = pacer.Due(ms * MS);
        EXPECT_TRUE(due == 2 || due == 3) << due;
        events += due;
    }
    EXPECT_EQ(events, 2500U);
}

TEST(Pacer, ARateBelowOneAMillisecondComesOneByOne) {
    CPacer pacer(7);
    uint64_t events = 0;
    for (int64_t ms = 0; ms <= 10000; ++ms) {
        events += pacer.Due(ms * MS);
    }
    EXPECT_EQ(events, 70U);
}

TEST(Pacer, WhatWasMissedIsCaughtUpInBoundedBatches) {
    CPacer pacer(20000);
    pacer.Due(0);
    EXPECT_EQ(pacer.Due(30 * MS), 200U);  // 600 are due
    EXPECT_TRUE(pacer.HasBacklog());
    EXPECT_EQ(pacer.Due(30 * MS), 200U);
    EXPECT_EQ(pacer.Due(30 * MS), 200U);
    EXPECT_FALSE(pacer.HasBacklog());
    EXPECT_EQ(pacer.Due(30 * MS), 0U);
}

TEST(Pacer, ALongStopIsCaughtUpForATenthOfASecondOnly) {
    CPacer pacer(1000);
    pacer.Due(0);
    uint64_t events = 0;
    for (int k = 0; k < 1000; ++k) {
        events += pacer.Due(int64_t{3600} * 1000 * MS);
    }
    EXPECT_EQ(events, 100U);
}

TEST(Pacer, ForgottenTimeIsNotMadeUpFor) {
    CPacer pacer(1000);
    pacer.Due(0);
    pacer.Due(50 * MS);
    pacer.Forget();
    EXPECT_FALSE(pacer.HasBacklog());
    EXPECT_EQ(pacer.Due(51 * MS), 1U);
}

TEST(Pacer, RateZeroAndAClockThatStandsOrRunsBackGiveNothing) {
    CPacer none(0);
    none.Due(0);
    EXPECT_EQ(none.Due(1000 * MS), 0U);
    EXPECT_FALSE(none.HasBacklog());
    CPacer pacer(1000000);
    pacer.Due(50 * MS);
    EXPECT_EQ(pacer.Due(50 * MS), 0U);
    EXPECT_EQ(pacer.Due(0), 0U);
}

TEST(Pacer, TheLargestBatchHoldsAtTheHighestRate) {
    CPacer pacer(10000000);
    pacer.Due(0);
    EXPECT_EQ(pacer.Due(MS), 4096U);
}

}  // namespace
