#pragma once

// A sanitizer takes memory and time of its own: bounds on either hold without one.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SKIP_WHERE_SANITIZED() GTEST_SKIP() << "bounds of memory or time, in a build of a sanitizer"
#else
#define SKIP_WHERE_SANITIZED() static_cast<void>(0)
#endif
