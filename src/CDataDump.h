#pragma once

#include <glib.h>

// Turns dump signals into dump files, on one thread that lives as long as the process.
//
// Owns the thread. Borrows the trigger manager's mutex and condition: the mutex is held from
// wake-up to the next wait, so dumps never overlap and triggers queue behind a running dump.
// Lock order: dump mutex, then the data provider's buffer mutex (inside the snapshot).
//
// A dump is announced once its file and the file's name are on the disk; a cut one never has that
// name. A failed step ends that dump only; the thread goes on waiting. A self-initiated dump
// consumes the buffer even when it is then not written (the collecting service has not fetched the
// last).
class CDataDump {
public:
    // Called on the main thread only.
    static CDataDump* Instance();

    CDataDump();
    // Neither wakes nor joins the thread, which ends after the next signal.
    ~CDataDump();
    CDataDump(const CDataDump&) = delete;
    CDataDump& operator=(const CDataDump&) = delete;

    static void* t_Main(void* self);

private:
    static CDataDump* m_pInstance;
    static bool m_bRuning;

    GThread* m_Thread;
};
