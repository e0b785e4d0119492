#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "io/folder_watch.h"
#include "launch/status.h"
#include "platform/handles.h"

namespace trelvo {

// A dump that did not come. what() is one line that says why, as far as that can be seen from here.
class DumpWaitError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A file of the service, opened without following a link or waiting, and kept open: others may
// write to its folder.
class ServiceFile {
public:
    // Throws DumpWaitError where it is not a regular file of the service's user, who is this user
    // or root; for root also the user whose the runtime folder is.
    ServiceFile(const std::string& path, const std::string& runtime_folder);

    // A path to the file that is open, whatever its name stands for by now.
    [[nodiscard]] std::string OpenPath() const;

private:
    port::UniqueFd fd_;
};

// Waits for the service to write the dump that it was asked for. What the service publishes says
// which file that is, or why there is none. Where it publishes nothing, the next dump of its user
// in the folder is taken for the answer.
//
// Owns the watch on the folder, which must be there before the dump is asked for.
class DumpWaiter {
public:
    using Clock = std::chrono::steady_clock;
    // Returns when the service has taken the request.
    using Ask = std::function<void(Clock::time_point deadline)>;

    // The folder is an absolute path. Waits for dumps that are compressed, or for those that are
    // not. Throws DumpWaitError when no dump can be written there.
    DumpWaiter(std::string runtime_folder, std::string folder, bool compressed);

    // Returns the path of the dump. Calls `ask` at once, and again
    // - when another dump has ended in the place of this one, or the service was started again;
    // - after a second, two, four ..., while no dump of this service has ended yet: a request that
    //   comes before its dump writer waits for the first time is lost.
    // Throws DumpWaitError, at the latest after the time-out, and what `ask` throws.
    [[nodiscard]] std::string Wait(const Ask& ask, std::chrono::seconds timeout);

private:
    enum class Step { kWait, kWaitOrAsk, kAsk, kDone };

    // What has happened since the last call.
    [[nodiscard]] Step Look();
    // The same, by what the service has published: `dumps` have ended.
    [[nodiscard]] Step LookAtStatus(const ServiceStatus& status, int64_t dumps);
    // Whether the dump that ended last is the one that was asked for, while another one is pending
    // or not. Throws when it failed.
    [[nodiscard]] bool TakeEnd(const Fields& service, bool is_pending);
    // Which service has taken the request.
    void NoteService();
    void TakeEvents();
    [[noreturn]] void ThrowTimeout(std::chrono::seconds timeout) const;

    std::string runtime_folder_;
    std::string folder_;
    std::string_view name_end_;
    FolderWatch watch_;
    std::optional<pid_t> pid_;  // of the service that was asked
    int64_t dumps_ = 0;         // that had ended before the request, or in its place
    std::string path_;          // of the dump, once it is there
    std::string seen_;          // a dump in the folder, whoever wrote it
    bool under_way_ = false;    // somebody has created a file in the folder
};

}  // namespace trelvo
