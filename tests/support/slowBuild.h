#pragma once

#include "sanitizers.h"

// Whether this build makes a start with a reset take a tenth of a second instead of milliseconds:
// tests of thousands of them then try fewer, and say so.
namespace velatest {

#if defined(__OPTIMIZE__)
constexpr bool slowBuild = underSanitizer;
#else
constexpr bool slowBuild = true;
#endif

}  // namespace velatest
