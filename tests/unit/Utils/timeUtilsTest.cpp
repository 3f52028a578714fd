#include <gtest/gtest.h>

#include <cstdint>

#include "VelaZceUtils.h"
#include "fakeClock.h"

namespace {

using velatest::FakeClock;

constexpr std::uint64_t NS_20261120_083000 = 1'795'163'400'000'000'000;

TEST(TradeTime, BoundsOfBothSessionsToTheSecond) {
    const struct {
        unsigned int time;
        bool trading;
    } cases[] = {{0, false},      {85959, false},  {90000, false},  {90001, true},
                 {101500, true},  {113001, true},  {120000, true},  {145959, true},
                 {150000, false}, {150001, false}, {205959, false}, {210000, false},
                 {210001, true},  {232959, true},  {233000, false}, {235959, false}};
    for (const auto& at : cases) {
        FakeClock::SetTime(at.time);
        EXPECT_EQ(ZceIsInTradeTime(), at.trading) << at.time;
    }
}

// Every second of the day against the two sessions counted in seconds.
TEST(TradeTime, EverySecondOfTheDay) {
    FakeClock::SetTime(0);
    for (unsigned int second = 0; second < 86400; ++second) {
        const bool day = second >= 32401 && second <= 53999;
        const bool night = second >= 75601 && second <= 84599;
        ASSERT_EQ(ZceIsInTradeTime(), day || night) << second;
        FakeClock::AdvanceSeconds(1);
    }
}

TEST(TradeTime, UnknownLocalTimeIsOutside) {
    FakeClock::SetTime(100000);
    FakeClock::FailLocalTime(true);
    EXPECT_FALSE(ZceIsInTradeTime());
    FakeClock::FailLocalTime(false);
}

TEST(TimeStamps, WallClockInNanoseconds) {
    FakeClock::Set(20261120, 83000);
    FakeClock::AdvanceNs(7);
    EXPECT_EQ(get_time(), NS_20261120_083000 + 7);
    EXPECT_EQ(TernGetTimeTamp(), NS_20261120_083000 + 7);
}

TEST(TimeStamps, DifferenceIsWallClockNowMinusStart) {
    FakeClock::Set(20261120, 83000);
    const std::uint64_t start = TernGetTimeTamp();
    EXPECT_EQ(TernDiffTimeTamp(start), 0U);
    FakeClock::AdvanceNs(1234567890123);
    EXPECT_EQ(TernDiffTimeTamp(start), 1234567890123U);
    EXPECT_EQ(TernDiffTimeTamp(0), NS_20261120_083000 + 1234567890123U);
}

TEST(TimeStamps, SincePowerOnIsTheMonotonicClock) {
    const std::uint64_t before = get_time_since_powerof();
    FakeClock::Set(20300101, 0);  // the wall clock alone
    EXPECT_EQ(get_time_since_powerof(), before);
    FakeClock::AdvanceNs(5);
    EXPECT_EQ(get_time_since_powerof(), before + 5);
}

TEST(NsSleep, SpinsUntilTheEndAndReturnsTheLastReading) {
    FakeClock::Set(20261120, 83000);
    FakeClock::StepPerReadNs(30);
    EXPECT_EQ(NS_Sleep(NS_20261120_083000, 100), NS_20261120_083000 + 120);
    EXPECT_TRUE(FakeClock::Sleeps().empty());
    FakeClock::StepPerReadNs(0);
}

TEST(NsSleep, EndsAsSoonAsTheEndIsReached) {
    FakeClock::Set(20261120, 83000);
    FakeClock::StepPerReadNs(50);
    EXPECT_EQ(NS_Sleep(NS_20261120_083000, 100), NS_20261120_083000 + 100);
    FakeClock::StepPerReadNs(0);
}

TEST(NsSleep, ReadsOnceIfTheEndIsPast) {
    FakeClock::Set(20261120, 83000);
    FakeClock::StepPerReadNs(1);
    EXPECT_EQ(NS_Sleep(NS_20261120_083000 - 10, 5), NS_20261120_083000 + 1);
    FakeClock::StepPerReadNs(0);
}

TEST(RotateDay, FirstCallStoresToday) {
    FakeClock::Set(20261120, 235959);
    unsigned long day = 0;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    EXPECT_EQ(day, 20261120UL);
}

TEST(RotateDay, SameDayIsNoNewDay) {
    FakeClock::Set(20261120, 235959);
    unsigned long day = 20261120;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    EXPECT_EQ(day, 20261120UL);
}

TEST(RotateDay, NewDayBeginsAtMidnight) {
    FakeClock::Set(20261231, 235959);
    unsigned long day = 20261231;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    FakeClock::AdvanceSeconds(1);
    EXPECT_EQ(CheckIsRotateDay(&day), 1);
    EXPECT_EQ(day, 20270101UL);
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
}

TEST(RotateDay, ClockSetBackKeepsTheDay) {
    FakeClock::Set(20261119, 120000);
    unsigned long day = 20261120;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    EXPECT_EQ(day, 20261120UL);
}

TEST(RotateDay, NullAndUnknownLocalTimeChangeNothing) {
    EXPECT_EQ(CheckIsRotateDay(nullptr), 0);
    FakeClock::FailLocalTime(true);
    unsigned long day = 0;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    EXPECT_EQ(day, 0UL);
    day = 5;
    EXPECT_EQ(CheckIsRotateDay(&day), 0);
    EXPECT_EQ(day, 5UL);
    FakeClock::FailLocalTime(false);
}

}  // namespace
