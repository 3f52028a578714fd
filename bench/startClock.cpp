// The clock of the benchmark of starts: a minute of a working day outside trading time, in which
// the library's waits take no time. All else costs what it costs with the host's clock.

#include <cstdlib>

#include "Utils/clockSeam.h"
#include "startBoard.h"

namespace VORBA2::Clock {

namespace {

std::uint64_t ReadNs(clockid_t clock) {
    constexpr std::uint64_t nsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * nsPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

std::time_t WallSeconds() {
    return velabench::startMoment;
}

bool LocalTime(std::time_t at, std::tm& result) {
    tzset();
    return localtime_r(&at, &result) != nullptr;
}

std::uint64_t RealtimeNs() {
    return ReadNs(CLOCK_REALTIME);
}

std::uint64_t MonotonicNs() {
    return ReadNs(CLOCK_MONOTONIC);
}

void SleepSeconds(unsigned int /*seconds*/) {}

}  // namespace VORBA2::Clock
