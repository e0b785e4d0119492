#pragma once

#include <glib.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handles.h"

namespace port {

// Watches the capture that the service starts, and starts it again when it ends: with the same
// arguments, in the environment of the service, after pauses that grow from 0.1 s to 30 s and begin
// anew after a minute of health. Says so in the log, once a minute at most, and publishes under the
// key memory/trelvo/capture, once a second at most, how the capture is:
//
//   alive=0|1  reason=<text>  restarts=<n>  lost_<cause>=<n>
//
// Captures find in their environment two descriptors: TRELVO_CAPTURE_FD, the memory in which each
// keeps its state for its successor, and TRELVO_KEEPER_FD, the socket on which it says how it is.
//
// Works on the default main context; one object in a process. It makes the process the parent of
// orphans, to learn how the capture ended that a shell has started.
class CaptureWatch {
public:
    // Throws std::system_error.
    CaptureWatch();
    CaptureWatch(const CaptureWatch&) = delete;
    CaptureWatch& operator=(const CaptureWatch&) = delete;
    ~CaptureWatch();

    // The service has been told to start the capture, which has to show up soon.
    void Expect();
    // From here on a capture that ends is not started again.
    void Stop();

private:
    struct End {
        std::string text;
        bool is_failure;  // by its own doing, which it may have explained
    };

    static gboolean OnMessage(gint fd, GIOCondition condition, gpointer self);
    static gboolean OnEnd(gint fd, GIOCondition condition, gpointer self);
    static gboolean OnMissing(gpointer self);
    static gboolean OnPauseOver(gpointer self);
    static gboolean OnPublish(gpointer self);

    void TakeMessages();
    void TakeBegin(std::string_view message);
    void Watch(pid_t pid);
    void TakeEnd();
    // How the process that was watched has ended.
    [[nodiscard]] End WayOfEnd() const;
    void SetDead(const std::string& reason);
    void StartLater();
    void Start();
    void Log(const std::string& message);
    void Publish();

    UniqueFd memory_;
    UniqueFd own_end_;
    UniqueFd capture_end_;
    std::vector<std::string> command_;  // empty until the first capture has begun
    pid_t pid_ = 0;                     // 0 while none is watched
    UniqueFd process_;
    gint64 started_ = 0;  // microseconds
    gint64 pause_ms_;
    bool is_stopped_ = false;
    // As the capture says them.
    bool is_alive_ = false;
    std::string reason_;
    bool has_said_why_ = false;  // the one that is watched, that it is not
    std::string losses_;         // lines
    unsigned restarts_ = 0;
    unsigned unsaid_ends_ = 0;
    std::optional<gint64> last_log_;
    std::string published_;
    std::optional<gint64> last_publish_;
    // Sources of the main context, 0 for none.
    guint message_source_ = 0;
    guint end_source_ = 0;
    guint missing_source_ = 0;
    guint pause_source_ = 0;
    guint publish_source_ = 0;
};

}  // namespace port
