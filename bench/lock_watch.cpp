#include "lock_watch.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <string>

#include "CDataProvider.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<const pthread_mutex_t*> watched = nullptr;
std::atomic<int64_t> longest_ns = 0;
std::atomic<size_t> messages = 0;

struct ThreadState {
    bool is_learning = false;
    bool feeds_lines = false;
    bool is_holding = false;
    Clock::time_point since;
};
thread_local ThreadState thread;

void KeepLongest(int64_t ns) {
    int64_t before = longest_ns;
    while (ns > before && !longest_ns.compare_exchange_weak(before, ns)) {
    }
}

}  // namespace

extern "C" {

// The names are the linker's.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const int result = __real_pthread_mutex_lock(mutex);
    if (thread.is_learning) {
        thread.is_learning = false;
        watched = mutex;
    }
    if (watched == mutex) {
        thread.is_holding = true;
        thread.since = Clock::now();
    }
    return result;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (watched == mutex && thread.is_holding) {
        thread.is_holding = false;
        if (!thread.feeds_lines) {
            KeepLongest(std::chrono::nanoseconds(Clock::now() - thread.since).count());
        }
    }
    return __real_pthread_mutex_unlock(mutex);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace bench {

void WatchBufferMutex() {
    CDataProvider* const provider = CDataProvider::Instance();
    std::string blank;
    thread.feeds_lines = true;
    thread.is_learning = true;
    provider->m_GetDataDDP(blank);
    static_cast<void>(TakeLockUse());
}

LockUse TakeLockUse() {
    return {static_cast<double>(longest_ns.exchange(0)) / 1000, messages.exchange(0)};
}

void CountMessage() {
    messages += thread.is_holding ? 1 : 0;
}

}  // namespace bench
