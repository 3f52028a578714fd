#include "preload/SteadyCounter.h"

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace ZcePreload {

bool HasSteadyCounter() {
#if defined(__x86_64__)
    constexpr unsigned int powerLeaf = 0x80000007;
    constexpr unsigned int steady = 1U << 8;
    unsigned int a = 0;
    unsigned int b = 0;
    unsigned int c = 0;
    unsigned int d = 0;
    return __get_cpuid(powerLeaf, &a, &b, &c, &d) != 0 && (d & steady) != 0;
#else
    return false;
#endif
}

}  // namespace ZcePreload
