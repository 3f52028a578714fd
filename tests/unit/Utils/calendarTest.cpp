#include "Utils/calendar.h"

#include <gtest/gtest.h>

#include "fakeClock.h"

namespace {

using velatest::FakeClock;

std::tm Broken(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    return local;
}

TEST(Calendar, DateIsYyyymmdd) {
    EXPECT_EQ(VORBA2::DateNumber(Broken(2026, 11, 5, 1, 2, 3)), 20261105U);
    EXPECT_EQ(VORBA2::DateNumber(Broken(1970, 1, 1, 0, 0, 0)), 19700101U);
    EXPECT_EQ(VORBA2::DateNumber(Broken(2026, 12, 31, 23, 59, 59)), 20261231U);
}

TEST(Calendar, TimeIsHhmmss) {
    EXPECT_EQ(VORBA2::TimeNumber(Broken(2026, 11, 5, 1, 2, 3)), 10203U);
    EXPECT_EQ(VORBA2::TimeNumber(Broken(2026, 11, 5, 0, 0, 0)), 0U);
    EXPECT_EQ(VORBA2::TimeNumber(Broken(2026, 11, 5, 23, 59, 59)), 235959U);
}

TEST(Calendar, NowIsOneReadingOfTheClock) {
    FakeClock::Set(20261231, 235959);
    const auto before = VORBA2::LocalNow();
    ASSERT_TRUE(before.has_value());
    EXPECT_EQ(before->date, 20261231U);
    EXPECT_EQ(before->time, 235959U);
    FakeClock::AdvanceSeconds(1);
    const auto after = VORBA2::LocalNow();
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(after->date, 20270101U);
    EXPECT_EQ(after->time, 0U);
}

TEST(Calendar, ATimeThatCannotBeHadIsNone) {
    FakeClock::FailLocalTime(true);
    EXPECT_FALSE(VORBA2::LocalNow().has_value());
    FakeClock::FailLocalTime(false);
}

}  // namespace
