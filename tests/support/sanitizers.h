#pragma once

// Which sanitizer this is compiled for, by either compiler.
#if defined(__has_feature)
#define VELATEST_HAS_FEATURE(name) __has_feature(name)
#else
#define VELATEST_HAS_FEATURE(name) 0
#endif

namespace velatest {

#if defined(__SANITIZE_ADDRESS__) || VELATEST_HAS_FEATURE(address_sanitizer)
constexpr bool underAddressSanitizer = true;
#else
constexpr bool underAddressSanitizer = false;
#endif

#if defined(__SANITIZE_THREAD__) || VELATEST_HAS_FEATURE(thread_sanitizer)
constexpr bool underThreadSanitizer = true;
#else
constexpr bool underThreadSanitizer = false;
#endif

// The program's own operator new is passed by: that of clang's runtime comes first.
constexpr bool newIsTheSanitizers = VELATEST_HAS_FEATURE(thread_sanitizer);

constexpr bool underSanitizer = underAddressSanitizer || underThreadSanitizer;

}  // namespace velatest
