#include "memory.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace {

std::atomic<size_t> allocations = 0;

struct Statm {
    size_t resident = 0;   // bytes
    size_t anonymous = 0;  // those of them that no file stands behind
};

Statm ReadStatm() {
    std::ifstream file("/proc/self/statm");
    size_t all = 0;
    size_t resident = 0;
    size_t shared = 0;
    if (!(file >> all >> resident >> shared)) {
        throw std::runtime_error("/proc/self/statm: cannot be read");
    }
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return {resident * page, (resident - std::min(shared, resident)) * page};
}

size_t CountAnonymousPages() {
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;) {
        size_t kib = 0;
        if (word == "Anonymous:" && file >> kib) {
            return kib << 10;
        }
    }
    throw std::runtime_error("/proc/self/smaps_rollup: cannot be read");
}

}  // namespace

void* operator new(size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
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
    return ReadStatm().resident;
}

MemoryGrowth::MemoryGrowth() {
    malloc_trim(0);
    pages_ = CountAnonymousPages();
    counter_ = ReadStatm().anonymous;
}

size_t MemoryGrowth::Bytes() const {
    const size_t now = ReadStatm().anonymous;
    return now - std::min(now, counter_);
}

size_t MemoryGrowth::TrimmedBytes() const {
    malloc_trim(0);
    const size_t now = CountAnonymousPages();
    return now - std::min(now, pages_);
}

}  // namespace bench
