#pragma once

#include <cstdint>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace ZcePreload {

// Whether the processor has a counter that runs at one rate at all times and on all its cores.
bool HasSteadyCounter();

// That counter, where there is one. Two threads may read it a little out of order.
inline uint64_t ReadSteadyCounter() {
#if defined(__x86_64__)
    return __rdtsc();
#else
    return 0;
#endif
}

}  // namespace ZcePreload
