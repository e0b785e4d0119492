#define ZSTD_STATIC_LINKING_ONLY
#include "support/failing_memory.h"

#include <dlfcn.h>
#include <malloc.h>
#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <new>
#include <utility>

namespace test_support {
namespace {

constexpr int kNever = INT_MAX;
thread_local size_t largest = 0;
thread_local int left = kNever;  // allocations before the one that fails; negative after it

bool Fails() {
    return left != kNever && left >= 0 && left-- == 0;
}

template <typename Function>
Function* Real(Function* /*hides*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

size_t HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

size_t TakeLargestAllocation() {
    return std::exchange(largest, 0);
}

void FailAllocationAfter(int count) {
    left = count;
}

bool AllocationFailed() {
    const bool has_failed = left < 0;
    left = kNever;
    return has_failed;
}

SpareMemory::SpareMemory() : left_(left) {
    left = kNever;
}

SpareMemory::~SpareMemory() {
    left = left_;
}

}  // namespace test_support

using test_support::Fails;
using test_support::Real;

// Not inlined, where the compiler would take them for a pair that does not match.
[[gnu::noinline]] void* operator new(size_t size) {
    test_support::largest = std::max(test_support::largest, size);
    void* const memory = Fails() ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
// What asks like this can do without.
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}

extern "C" {

ZSTD_CCtx* ZSTD_createCCtx(void) {
    static const auto real = Real(ZSTD_createCCtx, "ZSTD_createCCtx");
    return Fails() ? nullptr : real();
}

ZSTD_DCtx* ZSTD_createDCtx(void) {
    static const auto real = Real(ZSTD_createDCtx, "ZSTD_createDCtx");
    return Fails() ? nullptr : real();
}

ZSTD_CDict* ZSTD_createCDict_advanced(const void* dict, size_t size, ZSTD_dictLoadMethod_e load,
                                      ZSTD_dictContentType_e type, ZSTD_compressionParameters how,
                                      ZSTD_customMem memory) {
    static const auto real = Real(ZSTD_createCDict_advanced, "ZSTD_createCDict_advanced");
    return Fails() ? nullptr : real(dict, size, load, type, how, memory);
}

size_t ZSTD_compress2(ZSTD_CCtx* context, void* out, size_t room, const void* in, size_t size) {
    static const auto real = Real(ZSTD_compress2, "ZSTD_compress2");
    return Fails() ? size_t{0} - ZSTD_error_memory_allocation : real(context, out, room, in, size);
}

}  // extern "C"
