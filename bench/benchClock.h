#pragma once

#include <cstdint>
#if defined(__x86_64__)
#include <x86intrin.h>
#endif

#include "benchProcess.h"

// The finest clock that both processors of a measurement share.
namespace velabench {

// The processor's time stamp counter, which runs at one pace on all processors of a machine and is
// read when all before it has been done; elsewhere nanoseconds.
inline std::uint64_t Ticks() {
#if defined(__x86_64__)
    unsigned int cpu = 0;
    return __rdtscp(&cpu);
#else
    return static_cast<std::uint64_t>(NowNs());
#endif
}

// Nanoseconds of a tick, measured for some milliseconds by the first call.
double NsOfTick();

// Spins for so many ticks without touching memory.
inline void SpinFor(std::uint64_t ticks) {
    const std::uint64_t begin = Ticks();
    while (Ticks() - begin < ticks) {}
}

}  // namespace velabench
