#pragma once

#include <cstdlib>

#include "sanitizers.h"

// Whether this build makes a start with a reset take a tenth of a second instead of milliseconds:
// tests of thousands of them then try fewer, and say so.
namespace velatest {

#if defined(NDEBUG)
constexpr bool slowBuild = underSanitizer;
#else
constexpr bool slowBuild = true;
#endif

// VELAZCE_SWEEP_FULL=1 in the environment: the sweeps over the day and the loops over calls that
// fail leave nothing out, in any build.
inline bool SweepsAll() {
    static const bool all = std::getenv("VELAZCE_SWEEP_FULL") != nullptr;
    return all;
}

}  // namespace velatest
