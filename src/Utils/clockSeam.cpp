#include "Utils/clockSeam.h"

#include <cerrno>

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
    return std::time(nullptr);
}

bool LocalTime(std::time_t at, std::tm& result) {
    tzset();  // localtime() does; localtime_r() need not
    std::tm local{};
    if (localtime_r(&at, &local) == nullptr) {
        return false;
    }
    result = local;
    return true;
}

std::uint64_t RealtimeNs() {
    return ReadNs(CLOCK_REALTIME);
}

std::uint64_t MonotonicNs() {
    return ReadNs(CLOCK_MONOTONIC);
}

void SleepSeconds(unsigned int seconds) {
    // Not sleep(): what that returns under an accelerated clock (faketime) is not to be relied on.
    timespec left{static_cast<std::time_t>(seconds), 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {}
}

}  // namespace VORBA2::Clock
