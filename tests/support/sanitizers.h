#pragma once

// As gcc says it; clang has features instead.
#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#elif __has_feature(thread_sanitizer)
#define __SANITIZE_THREAD__ 1
#endif
#endif

// A sanitizer takes memory and time of its own: bounds on either hold without one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

#define SKIP_WHERE_SANITIZED()                                                 \
    if (kIsSanitized) {                                                        \
        GTEST_SKIP() << "bounds of memory or time, in a build of a sanitizer"; \
    }                                                                          \
    static_assert(true)
