#pragma once

#include <cstddef>

// Watches the recorder's buffer mutex from outside: the linker leads all calls of
// pthread_mutex_lock and pthread_mutex_unlock in the service's code through the functions here,
// which take the time only for that one mutex. What a wait for a condition does to the mutex goes
// by unseen, and a lock taken by trying.
namespace bench {

// Begins to watch from now on. The buffer mutex is the first that the recorder locks for a line.
// The thread that calls this is the one of the lines.
void WatchBufferMutex();

struct LockUse {
    double us = 0;        // the longest that a thread other than that of the lines had it
    size_t messages = 0;  // log messages of the thread that had it
};

// What was seen since the last call.
LockUse TakeLockUse();

// To be called for each log message.
void CountMessage();

}  // namespace bench
