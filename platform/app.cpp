#include "app.h"

#include <glib-unix.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture_watch.h"
#include "command_line.h"
#include "dump_progress.h"
#include "handles.h"
#include "host.h"
#include "launch_check.h"
#include "launch_interface.h"
#include "launch_server.h"
#include "power.h"
#include "runtime_folder.h"
#include "src/FixedPaths.h"

struct app_control_s {
    port::LaunchArguments extra_data;
};

namespace {

// An atomic instead of a GMainLoop: an exit asked for before the loop runs counts as well.
std::atomic<bool> exit_requested{false};

// How long the end of the service waits for the dumps that are announced, asked for or being
// written.
constexpr gint64 kLastDumpMilliseconds = 5000;

// Carries out the launches, and the end: nothing that was acknowledged is dropped.
class Recording {
public:
    Recording(const ui_app_lifecycle_callback_s& callback, void* user_data,
              port::CaptureWatch& capture)
        : callback_(callback), user_data_(user_data), capture_(capture) {}

    // Returns what is wrong with the request, which then did nothing.
    std::vector<port::Fault> Launch(const port::LaunchArguments& arguments) {
        auto faults = launched_ ? port::CheckLaterLaunch(arguments) : FirstLaunchFaults(arguments);
        if (!faults.empty()) {
            return faults;
        }
        if (launched_ && IsPrivate(arguments.at("DUMP"))) {
            return {{"DUMP", port::Quoted(arguments.at("DUMP")) +
                                 " is seen by the service alone; choose another folder, such as "
                                 "/var/tmp"}};
        }
        if (launched_) {
            before_request_ = port::PublishedProgress();
        }
        const bool first = !std::exchange(launched_, true);
        if (first) {
            capture_.Expect();
        }
        app_control_s request{arguments};
        callback_.app_control(&request, user_data_);
        if (first) {
            has_failed_ = exit_requested;
        }
        return {};
    }

    // Whether the service gave up when it was to start the recording; its log says why.
    [[nodiscard]] bool HasFailed() const { return has_failed_; }

    // A subscriber to power events hears what it would if the machine went down. A second call ends
    // at once.
    void End() {
        capture_.Stop();
        const port::DumpProgress before = port::PublishedProgress();
        const bool second = last_dump_.has_value();
        if (!second && port::AnnouncePowerDown()) {
            last_dump_.emplace(before, kLastDumpMilliseconds, ui_app_exit);
        } else if (!second && before.known && (before_request_ || before.pending)) {
            last_dump_.emplace(before_request_.value_or(before), kLastDumpMilliseconds,
                               ui_app_exit);
        } else {
            ui_app_exit();
        }
    }

    // A launch that passes the check may still not be possible on this machine.
    static std::vector<port::Fault> FirstLaunchFaults(const port::LaunchArguments& arguments) {
        auto faults = port::CheckFirstLaunch(arguments);
        if (faults.empty() && port::HasTrigger(arguments, "poweroff")) {
            if (const std::string fault = port::PowerFault(); !fault.empty()) {
                faults.push_back({"DLOGDUMPMODE", "poweroff needs the system bus: " + fault});
            }
        }
        return faults;
    }

private:
    // Whether the folder lies in the one that the unit has covered by the service's own.
    static bool IsPrivate(const std::string& folder) {
        const char* const covered = std::getenv("TRELVO_PRIVATE_FOLDER");
        std::error_code error;  // an odd folder is told of when the dump is to be written
        const std::string path =
            weakly_canonical(std::filesystem::absolute(folder, error), error).string() + "/";
        return covered != nullptr && path.rfind(std::string(covered) + "/", 0) == 0;
    }

    const ui_app_lifecycle_callback_s& callback_;
    void* user_data_;
    port::CaptureWatch& capture_;
    bool launched_ = false;
    bool has_failed_ = false;
    std::optional<port::DumpProgress> before_request_;  // before the last request for a dump
    std::optional<port::DumpWait> last_dump_;
};

// Ends the recording on a signal, for as long as it lives.
class EndOnSignal {
public:
    EndOnSignal(int signal, Recording& recording)
        : source_(g_unix_signal_add(signal, OnSignal, &recording)) {}
    EndOnSignal(const EndOnSignal&) = delete;
    EndOnSignal& operator=(const EndOnSignal&) = delete;
    ~EndOnSignal() { g_source_remove(source_); }

private:
    static gboolean OnSignal(gpointer recording) {
        static_cast<Recording*>(recording)->End();
        return G_SOURCE_CONTINUE;
    }

    guint source_;
};

int Run(const port::LaunchArguments& first, const ui_app_lifecycle_callback_s& callback,
        void* user_data) {
    port::PutOwnProgramsFirstOnPath();
    const std::string folder = port::RuntimeFolder();
    const std::string socket = folder + "/" + launch_interface::kSocketFile;
    const port::UniqueFd lock = port::TakeLock(folder + "/" + launch_interface::kLockFile);
    if (!lock) {
        std::fprintf(stderr, "trelvo: another service is already running, it answers at %s\n",
                     socket.c_str());
        return APP_ERROR_ALREADY_RUNNING;
    }
    // With the lock held, a socket that is still there is a dead service's, as is a status.
    for (const char* const name : {launch_interface::kSocketFile, launch_interface::kStatusFile,
                                   launch_interface::kCaptureFile}) {
        const std::string path = folder + "/" + name;
        if (unlink(path.c_str()) != 0 && errno != ENOENT) {
            port::ThrowErrno(path);
        }
    }
    port::ClearCaptureFiles(paths::kCaptureFile, paths::kRotatedCaptureFiles);
    const port::UniqueFd dump_folder = port::PrepareDumpFolder(paths::kTemporaryFolder);
    if (setenv("TRELVO_SERVICE_TAG", "LOG_COMPRESSOR", 1) != 0) {  // read by the capture
        port::ThrowErrno("TRELVO_SERVICE_TAG");
    }
    const port::Lifeline lifeline;
    port::CaptureWatch capture;
    Recording recording(callback, user_data, capture);
    exit_requested = false;
    const EndOnSignal on_terminate(SIGTERM, recording);
    const EndOnSignal on_interrupt(SIGINT, recording);
    const port::LaunchServer server(socket, [&](const port::LaunchArguments& arguments) {
        return recording.Launch(arguments);
    });
    if (!callback.create(user_data)) {
        return APP_ERROR_IO;
    }
    // Before the loop, so that no request of the socket can come first.
    if (!first.empty() && !exit_requested) {
        port::Complain(recording.Launch(first));
    }
    while (!exit_requested) {
        g_main_context_iteration(nullptr, TRUE);
    }
    callback.terminate(user_data);
    return recording.HasFailed() ? APP_ERROR_IO : APP_ERROR_NONE;
}

}  // namespace

int ui_app_main(int argc, char** argv, ui_app_lifecycle_callback_s* callback, void* user_data) {
    if (callback == nullptr || callback->create == nullptr || callback->terminate == nullptr ||
        callback->app_control == nullptr) {
        return APP_ERROR_INVALID_PARAMETER;
    }
    try {
        const port::CommandLine line = port::ReadCommandLine(argc, argv);
        if (line.exit) {
            return *line.exit;
        }
        if (const auto faults = line.first.empty() ? std::vector<port::Fault>()
                                                   : Recording::FirstLaunchFaults(line.first);
            !faults.empty()) {
            port::Complain(faults);
            return port::kExitUsage;
        }
        if (const auto faults = port::SetModes(line.group); !faults.empty()) {
            port::Complain(faults);
            return port::kExitUsage;
        }
        return Run(line.first, *callback, user_data);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "trelvo: %s\n", error.what());
        return APP_ERROR_IO;
    }
}

void ui_app_exit(void) {
    exit_requested = true;
    g_main_context_wakeup(nullptr);
}

int app_control_get_extra_data(app_control_h app_control, const char* key, char** value) {
    if (app_control == nullptr || key == nullptr || value == nullptr) {
        return APP_CONTROL_ERROR_INVALID_PARAMETER;
    }
    const auto found = app_control->extra_data.find(key);
    if (found == app_control->extra_data.end()) {
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    }
    char* const copy = strdup(found->second.c_str());
    if (copy == nullptr) {
        return APP_CONTROL_ERROR_OUT_OF_MEMORY;
    }
    *value = copy;
    return APP_CONTROL_ERROR_NONE;
}
