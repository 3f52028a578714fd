#pragma once

#include <cstdint>
#include <ctime>

#include "preload/SteadyCounter.h"
#include "watch/WatchPage.h"

namespace ZceWatch {

constexpr int64_t NS_PER_SECOND = 1'000'000'000;

inline int64_t ClockNs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
}

// The processor's counter where it is a steady one, else the clock.
TickSource FindTickSource();

inline uint64_t ReadTicks(TickSource source) {
    return source == TickSource::Counter ? ZcePreload::ReadSteadyCounter()
                                         : static_cast<uint64_t>(ClockNs(CLOCK_MONOTONIC));
}

// Measures how many ticks a second has, from its making to PerSecond, and 5 ms at least: to 0.01 %.
// By the kernel's own clock, which no library that fakes one can change.
class CTickRate {
  public:
    explicit CTickRate(TickSource source);
    uint64_t PerSecond() const;

  private:
    // The same moment on both clocks.
    struct Moment {
        uint64_t ticks;
        int64_t ns;
    };
    Moment Now() const;

    TickSource m_source;
    Moment m_begin;
};

// A number of ticks in ns, and the other way; never 0 ticks a second.
uint64_t TicksToNs(uint64_t ticks, uint64_t perSecond);
uint64_t NsToTicks(uint64_t ns, uint64_t perSecond);

}  // namespace ZceWatch
