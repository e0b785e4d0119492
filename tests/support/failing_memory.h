#pragma once

#include <cstddef>

namespace test_support {

// Bytes that the heap has given out.
size_t HeapInUse();
// The most that the calling thread has asked for at once since this was called before.
size_t TakeLargestAllocation();

// Lets the calling thread's next but `count` allocations fail, once: 0 for the next one. In the
// test program that replaces operator new and zstd's makers of contexts.
void FailAllocationAfter(int count);
// Ends that. False when the allocation that was to fail was not reached.
bool AllocationFailed();

// For what only the test does meanwhile.
class SpareMemory {
public:
    SpareMemory();
    ~SpareMemory();
    SpareMemory(const SpareMemory&) = delete;
    SpareMemory& operator=(const SpareMemory&) = delete;

private:
    int left_;
};

}  // namespace test_support
