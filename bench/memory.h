#pragma once

#include <cstddef>

namespace bench {

// Calls of operator new by all threads so far; all of the program's go through the counting one.
size_t Allocations();

// Bytes of the process that are in memory.
size_t ResidentBytes();

// How much memory the process has taken from the system, by the pages that are in memory: heap with
// all that the allocator holds on to, stacks and mappings, but not the program's own file. Best in
// a child process that has done nothing yet: it begins with giving back what the heap can spare.
class MemoryGrowth {
public:
    MemoryGrowth();

    // Bytes now, as the kernel's counters have them: to some 100 KiB, in microseconds.
    [[nodiscard]] size_t Bytes() const;
    // Bytes that are still taken when the allocator has given back what it can, by a count of all
    // pages, which takes milliseconds.
    [[nodiscard]] size_t TrimmedBytes() const;

private:
    size_t counter_;
    size_t pages_;
};

}  // namespace bench
