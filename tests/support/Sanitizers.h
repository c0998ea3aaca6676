#pragma once

#include "tests/support/Skipping.h"

/// Which sanitizers this build has, for tests that rely on what one of them takes over.
/// (g++ says it with a macro, clang++ with a feature that g++ has no question for.)
#if defined(__has_feature)
#define ZNORB_HAS_FEATURE(feature) __has_feature(feature)
#else
#define ZNORB_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_THREAD__) || ZNORB_HAS_FEATURE(thread_sanitizer)
#define ZNORB_THREAD_SANITIZER 1
#else
#define ZNORB_THREAD_SANITIZER 0
#endif

#if defined(__SANITIZE_ADDRESS__) || ZNORB_HAS_FEATURE(address_sanitizer)
#define ZNORB_ADDRESS_SANITIZER 1
#else
#define ZNORB_ADDRESS_SANITIZER 0
#endif

namespace ZNORBTEST {

inline constexpr bool underThreadSanitizer = ZNORB_THREAD_SANITIZER != 0;
inline constexpr bool underAddressSanitizer = ZNORB_ADDRESS_SANITIZER != 0;
inline constexpr bool underSanitizer = underThreadSanitizer || underAddressSanitizer;

} // namespace ZNORBTEST
