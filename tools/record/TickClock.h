#pragma once

#include <cstdint>
#include <ctime>
#include <deque>

#include "preload/SteadyCounter.h"

namespace ZceRecord {

// How the polling threads stamp their messages: with the processor's counter where it is a steady
// one, else with the time.

inline int64_t RealTimeNs() {
    constexpr int64_t nsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * nsPerSecond + now.tv_nsec;
}

inline int64_t ReadCounter() {
    return static_cast<int64_t>(ZcePreload::ReadSteadyCounter());
}

// Turns counts into times: both are noted at the same moment again and again, and what lies between
// two of these moments is in between by the same share. So the time follows a clock that is slewed
// or, by a library of its own, runs faster; one that is set jumps somewhere between two moments. It
// never runs backwards unless the clock was set back. One thread.
class CTickClock {
  public:
    // `counts`: whether stamps are counts. If not, they are times already.
    void Use(bool counts) { m_counts = counts; }
    // Notes this moment. What is to be turned lies between the first moment that was noted and the
    // last one.
    void Note();
    void Note(int64_t count, int64_t timeNs);
    int64_t TimeOf(int64_t stamp) const;
    // In counts, by the last two moments; 0: not known.
    int64_t Microsecond() const;

  private:
    struct Moment {
        int64_t count;
        int64_t timeNs;
    };
    static constexpr size_t MOMENTS = 256;

    bool m_counts = false;
    std::deque<Moment> m_moments;
};

}  // namespace ZceRecord
