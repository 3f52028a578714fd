#pragma once

#include <cstdint>
#include <ctime>

// Every reading of a clock and every sleep of the library goes through these functions. The shared
// library is linked with clockSeam.cpp (the host's clocks); the unit tests link a translation unit
// of their own instead, in which the test moves the time. All of them may be called from any
// thread.
namespace VORBA2::Clock {

// Wall-clock time in whole seconds since the epoch, as time().
std::time_t WallSeconds();

// Local broken-down time of `at` in `result`, as localtime(), TZ looked up at every call. A zone's
// file that is exchanged under its name counts from the next second on.
// Returns false, with `result` untouched, if the time cannot be converted.
bool LocalTime(std::time_t at, std::tm& result);

// Wall-clock time (CLOCK_REALTIME) in ns since the epoch.
std::uint64_t RealtimeNs();

// Monotonic clock (CLOCK_MONOTONIC) in ns.
std::uint64_t MonotonicNs();

// Sleeps the calling thread for `seconds`, in one sleeping call that a signal does not shorten.
void SleepSeconds(unsigned int seconds);

}  // namespace VORBA2::Clock
