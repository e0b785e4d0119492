#pragma once

#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "support/process.h"

namespace test_support {

// A system bus of the test's own (DBUS_SYSTEM_BUS_ADDRESS) with a logind on it that only knows
// inhibitors and signals. It answers on GDBus's worker thread, so the test needs no main loop.
class FakeLogind {
public:
    FakeLogind();
    FakeLogind(const FakeLogind&) = delete;
    FakeLogind& operator=(const FakeLogind&) = delete;
    ~FakeLogind();

    // Waits until somebody holds an inhibitor, which also means that the signal subscriptions that
    // it made before are in force. False at the limit.
    [[nodiscard]] bool WaitForInhibitor();
    // Refuses the next inhibitor, as a machine that starts may, and tells of the end of a sleep.
    void RefuseOnce() { refuses_ = true; }
    // Waits until the last inhibitor is released. False at the limit.
    [[nodiscard]] bool WaitForRelease();
    // Sends PrepareForShutdown or PrepareForSleep.
    void Emit(const char* signal, bool starts);

private:
    static GDBusMessage* Filter(GDBusConnection* connection, GDBusMessage* message,
                                gboolean incoming, gpointer self);
    void Inhibit(GDBusMessage* call);

    Process daemon_;
    std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> connection_;
    std::atomic<bool> refuses_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    port::UniqueFd inhibitor_;  // read end of a pipe whose write end the holder has; under mutex_
};

}  // namespace test_support
