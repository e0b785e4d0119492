#include "dump_progress.h"

#include <charconv>
#include <mutex>
#include <set>
#include <utility>

#include "launch_check.h"
#include "src/FixedPaths.h"

namespace port {
namespace {

// Shared by the service's threads, which publish, and the main loop, which waits.
struct Shared {
    std::mutex mutex;
    DumpProgress progress;
    std::set<DumpWait*> waits;
};

// Never destroyed: threads of the service publish until the process is gone.
Shared& State() {
    static auto* const state = new Shared;
    return *state;
}

GSourceFuncs source_functions = {
    nullptr,
    nullptr,
    [](GSource* /*source*/, GSourceFunc callback, gpointer data) { return callback(data); },
    nullptr,
    nullptr,
    nullptr};

}  // namespace

DumpProgress PublishedProgress() {
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    return state.progress;
}

bool TakePublished(std::string_view key, std::string_view text) {
    if (key != paths::kStatusKey) {
        return false;
    }
    DumpProgress progress{true, 0, false};
    for (const std::string_view line : SplitWords(text, '\n')) {
        constexpr std::string_view kDumps = "dumps=";
        if (line.substr(0, kDumps.size()) == kDumps) {
            static_cast<void>(std::from_chars(line.data() + kDumps.size(),
                                              line.data() + line.size(), progress.finished));
        } else if (line == "pending=1") {
            progress.pending = true;
        }
    }
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    const bool is_news = !state.progress.known || state.progress.finished != progress.finished;
    state.progress = progress;
    for (DumpWait* const wait : state.waits) {
        wait->Look(progress);
    }
    return is_news;
}

DumpWait::DumpWait(const DumpProgress& before, gint64 limit_ms, std::function<void()> on_end)
    : finished_before_(before.finished),
      on_end_(std::move(on_end)),
      source_(g_source_new(&source_functions, sizeof(GSource))) {
    g_source_set_callback(source_, OnEnd, this, nullptr);
    g_source_set_ready_time(source_, g_get_monotonic_time() + limit_ms * 1000);
    g_source_attach(source_, nullptr);
    Shared& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.waits.insert(this);
    Look(state.progress);
}

DumpWait::~DumpWait() {
    {
        Shared& state = State();
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.waits.erase(this);
    }
    g_source_destroy(source_);
    g_source_unref(source_);
}

void DumpWait::Look(const DumpProgress& progress) {
    if (progress.known && progress.finished > finished_before_ && !progress.pending) {
        g_source_set_ready_time(source_, 0);
    }
}

gboolean DumpWait::OnEnd(gpointer self) {
    // Moved out, since it may destroy `self`.
    const auto on_end = std::move(static_cast<DumpWait*>(self)->on_end_);
    on_end();
    return G_SOURCE_REMOVE;
}

}  // namespace port
