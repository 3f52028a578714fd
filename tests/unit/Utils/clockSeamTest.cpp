#include "Utils/clockSeam.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

// The host's clocks themselves: no fake clock in this program.
namespace {

namespace Clock = VORBA2::Clock;

constexpr std::uint64_t NS_PER_SECOND = 1'000'000'000;
constexpr std::time_t AT = 1'795'163'400;  // 2026-11-20 08:30:00 UTC

TEST(ClockSeam, WallClocksAgreeWithTheHosts) {
    const std::time_t before = std::time(nullptr);
    const std::time_t seconds = Clock::WallSeconds();
    const std::uint64_t ns = Clock::RealtimeNs();
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
    // time() may lag behind the exact clock by a tick of the kernel's.
    EXPECT_GE(ns + NS_PER_SECOND, static_cast<std::uint64_t>(before) * NS_PER_SECOND);
    EXPECT_LT(ns, static_cast<std::uint64_t>(after + 2) * NS_PER_SECOND);
}

TEST(ClockSeam, NanosecondClocksGoOn) {
    const std::uint64_t realtime = Clock::RealtimeNs();
    const std::uint64_t monotonic = Clock::MonotonicNs();
    while (Clock::MonotonicNs() - monotonic < 1000) {}
    EXPECT_GT(Clock::MonotonicNs(), monotonic);
    EXPECT_NE(Clock::RealtimeNs(), realtime);
}

TEST(ClockSeam, LocalTimeLooksUpTheZoneAtEveryCall) {
    std::tm local{};
    setenv("TZ", "VIRT-8", 1);
    ASSERT_TRUE(Clock::LocalTime(AT, local));
    EXPECT_EQ(local.tm_hour, 16);
    EXPECT_EQ(local.tm_min, 30);
    EXPECT_EQ(local.tm_gmtoff, 8 * 3600);
    setenv("TZ", "VIRT+9:30", 1);
    ASSERT_TRUE(Clock::LocalTime(AT, local));
    EXPECT_EQ(local.tm_hour, 23);
    EXPECT_EQ(local.tm_min, 0);
    EXPECT_EQ(local.tm_mday, 19);
    EXPECT_EQ(local.tm_mon, 10);
    EXPECT_EQ(local.tm_year, 126);
}

// A second that was converted before is not converted again: not in another zone, not after
// another second, not in a zone whose name is too long to be remembered.
TEST(ClockSeam, OneSecondHasTheTimeOfTheZoneThatIsSet) {
    const std::string longZone = "<" + std::string(400, 'V') + ">-5";
    const auto expectHour = [](const char* zone, std::time_t at, int hour) {
        ASSERT_EQ(zone == nullptr ? unsetenv("TZ") : setenv("TZ", zone, 1), 0);
        for (int repeated = 0; repeated < 2; ++repeated) {
            std::tm local{};
            ASSERT_TRUE(Clock::LocalTime(at, local));
            EXPECT_EQ(local.tm_hour, hour);
            EXPECT_EQ(local.tm_min, 30);
        }
    };
    expectHour("VIRT-8", AT, 16);
    expectHour("VIRT-8", AT + 3600, 17);
    expectHour("VIRT-8", AT, 16);
    expectHour("", AT, 8);
    expectHour("VIRT-7", AT, 15);
    expectHour(longZone.c_str(), AT, 13);
    expectHour("VIRT-7", AT, 15);
    // Without TZ the host's own zone, which is not seven minutes off.
    ASSERT_EQ(setenv("TZ", "VIRT-0:07", 1), 0);
    std::tm local{};
    ASSERT_TRUE(Clock::LocalTime(AT, local));
    EXPECT_EQ(local.tm_min, 37);
    unsetenv("TZ");
    ASSERT_TRUE(Clock::LocalTime(AT, local));
    EXPECT_EQ(local.tm_min % 15, 0);
    setenv("TZ", "VIRT-7", 1);
    ASSERT_TRUE(Clock::LocalTime(AT, local));
    EXPECT_EQ(local.tm_hour, 15);
}

TEST(ClockSeam, TimeThatCannotBeConvertedLeavesTheResultAlone) {
    std::tm local{};
    local.tm_year = 77;
    EXPECT_FALSE(Clock::LocalTime(INT64_MAX, local));  // beyond the years of an int
    EXPECT_EQ(local.tm_year, 77);
}

TEST(ClockSeam, NoSecondsAreNoSleep) {
    const std::uint64_t before = Clock::MonotonicNs();
    Clock::SleepSeconds(0);
    EXPECT_LT(Clock::MonotonicNs() - before, 30 * NS_PER_SECOND);
}

}  // namespace
