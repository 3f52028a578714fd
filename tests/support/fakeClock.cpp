#include "fakeClock.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "Utils/clockSeam.h"

namespace velatest {

namespace {

constexpr std::uint64_t nsPerSecond = 1'000'000'000;

std::uint64_t EpochNs(unsigned int date, unsigned int time) {
    std::tm local{};
    local.tm_year = static_cast<int>(date / 10000) - 1900;
    local.tm_mon = static_cast<int>(date / 100 % 100) - 1;
    local.tm_mday = static_cast<int>(date % 100);
    local.tm_hour = static_cast<int>(time / 10000);
    local.tm_min = static_cast<int>(time / 100 % 100);
    local.tm_sec = static_cast<int>(time % 100);
    return static_cast<std::uint64_t>(timegm(&local)) * nsPerSecond;
}

// The clock itself and the list of sleeps may be used by several threads at once.
struct State {
    std::atomic<std::uint64_t> wallNs{EpochNs(20261120, 83000)};
    std::atomic<std::uint64_t> monotonicNs{5 * nsPerSecond};
    std::atomic<std::uint64_t> stepNs{0};
    std::atomic<bool> failLocalTime{false};
    std::mutex sleepsMutex;
    std::vector<unsigned int> sleeps;
    std::function<void(unsigned int)> onSleep;
};

State& TheState() {
    static State state;
    return state;
}

std::uint64_t ReadWall() {
    State& state = TheState();
    const std::uint64_t step = state.stepNs;
    return (state.wallNs += step);
}

}  // namespace

void FakeClock::Set(unsigned int date, unsigned int time) {
    TheState().wallNs = EpochNs(date, time);
}

void FakeClock::SetTime(unsigned int time) {
    const auto seconds = static_cast<std::time_t>(TheState().wallNs / nsPerSecond);
    std::tm local{};
    gmtime_r(&seconds, &local);
    const auto date = static_cast<unsigned int>((local.tm_year + 1900) * 10000 +
                                                (local.tm_mon + 1) * 100 + local.tm_mday);
    Set(date, time);
}

void FakeClock::AdvanceNs(std::uint64_t ns) {
    TheState().wallNs += ns;
    TheState().monotonicNs += ns;
}

void FakeClock::AdvanceSeconds(unsigned int seconds) {
    AdvanceNs(seconds * nsPerSecond);
}

void FakeClock::StepPerReadNs(std::uint64_t ns) {
    TheState().stepNs = ns;
}

void FakeClock::FailLocalTime(bool fail) {
    TheState().failLocalTime = fail;
}

const std::vector<unsigned int>& FakeClock::Sleeps() {
    return TheState().sleeps;
}

void FakeClock::ClearSleeps() {
    TheState().sleeps.clear();
}

void FakeClock::OnSleep(std::function<void(unsigned int)> hook) {
    TheState().onSleep = std::move(hook);
}

}  // namespace velatest

namespace VORBA2::Clock {

using velatest::nsPerSecond;
using velatest::ReadWall;
using velatest::TheState;

std::time_t WallSeconds() {
    return static_cast<std::time_t>(ReadWall() / nsPerSecond);
}

bool LocalTime(std::time_t at, std::tm& result) {
    return !TheState().failLocalTime && gmtime_r(&at, &result) != nullptr;
}

std::uint64_t RealtimeNs() {
    return ReadWall();
}

std::uint64_t MonotonicNs() {
    return TheState().monotonicNs;
}

void SleepSeconds(unsigned int seconds) {
    {
        const std::lock_guard<std::mutex> guard(TheState().sleepsMutex);
        TheState().sleeps.push_back(seconds);
    }
    velatest::FakeClock::AdvanceSeconds(seconds);
    if (TheState().onSleep) {
        TheState().onSleep(seconds);
    }
}

}  // namespace VORBA2::Clock
