#include "memory.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <new>

namespace {

thread_local size_t allocations = 0;

}  // namespace

void* operator new(size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}

namespace bench {

size_t Allocations() {
    return allocations;
}

size_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t all = 0;
    size_t resident = 0;
    statm >> all >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace bench
