#pragma once

#include <cstddef>

namespace bench {

// Calls of operator new by this thread so far; all of the program's go through the counting one.
size_t Allocations();

// Bytes of the process that are in memory.
size_t ResidentBytes();

}  // namespace bench
