#pragma once

#include <glib.h>

#include <functional>
#include <string_view>

namespace port {

// What the service last published about its dumps under the key memory/trelvo/status.
struct DumpProgress {
    bool known = false;  // it has published since the process began
    long finished = 0;   // attempts, whatever came of them
    bool pending = false;
};

// Any thread may ask.
[[nodiscard]] DumpProgress PublishedProgress();

// Takes what the service publishes; any thread, and any key. True when it is the first of its kind
// or says that a dump has ended.
bool TakePublished(std::string_view key, std::string_view text);

// Waits on the default main context for the end of a dump that was asked for.
//
// It is over when the service has published that more attempts have finished than `before` and
// that none is pending, or after `limit_ms`. Then `on_end` is called once, on the main context,
// unless this object is gone by then; `on_end` may destroy it.
class DumpWait {
public:
    // `before` was taken before the dump was asked for.
    DumpWait(const DumpProgress& before, gint64 limit_ms, std::function<void()> on_end);
    DumpWait(const DumpWait&) = delete;
    DumpWait& operator=(const DumpWait&) = delete;
    ~DumpWait();

    // Ends the wait when `progress` says so. REQUIRES: called by TakePublished() or the
    // constructor.
    void Look(const DumpProgress& progress);

private:
    static gboolean OnEnd(gpointer self);

    long finished_before_;
    std::function<void()> on_end_;
    GSource* source_;
};

}  // namespace port
