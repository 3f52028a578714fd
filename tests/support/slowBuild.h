#pragma once

// Whether this build makes a start with a reset take a tenth of a second instead of milliseconds:
// tests of thousands of them then try fewer, and say so.
#if defined(__has_feature)
#define VELATEST_HAS_FEATURE(name) __has_feature(name)
#else
#define VELATEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__) || \
    VELATEST_HAS_FEATURE(address_sanitizer) || VELATEST_HAS_FEATURE(thread_sanitizer)
namespace velatest {
constexpr bool slowBuild = true;
}
#else
namespace velatest {
constexpr bool slowBuild = false;
}
#endif
