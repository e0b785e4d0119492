#pragma once

#include <device/power-internal.h>
#include <glib.h>

#include <mutex>
#include <string>

#include "DumpSnapshot.h"

// Everything that asks for a dump does so here: the timer, the power-off event, the full buffer
// and a launcher's request.
//
// Owns the dump mutex and the dump condition; the dump writer waits on the condition. A trigger
// records in CUtility, under the mutex, which kind of dump it wants and signals. The writer holds
// the mutex for the whole of a dump, so a trigger may block that long, and several triggers during
// one dump may end in a single further one. The condition has no predicate: a signal before the
// writer's first wait is lost.
//
// Lock order: dump mutex, then the data provider's buffer mutex; no trigger may be called with the
// buffer mutex held.
class CTREventManager {
public:
    // Safe without a lock once created, which the main thread does before any worker exists.
    static CTREventManager* GetInstance();

    virtual ~CTREventManager();
    CTREventManager(const CTREventManager&) = delete;
    CTREventManager& operator=(const CTREventManager&) = delete;

    GMutex* GetMutex() { return &m_DumpMutex; }
    GCond* GetCondition() { return &m_DumpCondition; }

    // Enables a dump `seconds` after the most recent trigger of any kind; below 1 is refused and
    // leaves an earlier interval in force. There is no way to disable it again.
    void RegisterDumpTimer(int seconds);
    // Removes the pending timer; the next trigger arms it again.
    void UnRegisterDumpTimer();
    // Restarts the countdown; does nothing while the timer was never enabled.
    void ResetDumpTimer();

    void RegisterDumpOnPowerOff();
    void UnRegisterDumpOnPowerOff();

    // A dump into `path`, which keeps the buffer. An empty path only restarts the timer.
    void RequestDumpOnFile(std::string path, DumpForm form = DumpForm::kPlain);
    void SignalDumpData(std::string path, DumpForm form = DumpForm::kPlain);
    // A dump into the collecting service's folder, which consumes the buffer.
    void RequestDumpOnFullBuffer();
    void RequestDumpOnMatch();
    // `trigger` is what the status calls it.
    void SignalSelfInitiateDumpData(const char* trigger = "self");
    // The form of these, from now on.
    void SetSelfInitiatedForm(DumpForm form);

    static int t_OnPoweroff(_device_power_state_info* info, void* user_data);
    static gboolean t_startTimerDump(void* data);

    void Terminate() {}

private:
    CTREventManager();
    void Initialize();

    static CTREventManager* m_pInstance;
    static std::mutex m_Mutex;          // guards the creation of the singleton
    static unsigned int m_ulDumpTimer;  // GLib source id; 0 when no timer is pending

    int m_TimerInterval = 0;  // seconds
    bool m_TimerEnabled = false;
    GMutex m_DumpMutex;
    GCond m_DumpCondition;
};
