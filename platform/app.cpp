#include "app.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "capture_watch.h"
#include "command_line.h"
#include "dlogutil/rotating_file.h"
#include "dump_progress.h"
#include "handles.h"
#include "launch_check.h"
#include "launch_interface.h"
#include "launch_server.h"
#include "power.h"
#include "runtime_folder.h"

struct app_control_s {
    port::LaunchArguments extra_data;
};

namespace {

// An atomic instead of a GMainLoop: an exit asked for before the loop runs counts as well.
std::atomic<bool> exit_requested{false};

// Tells the children of the service that it is gone, however it ended: the only write end of a pipe
// ends with the process, and children find the number of the read end in their environment.
class Lifeline {
public:
    Lifeline() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            port::ThrowErrno("pipe");
        }
        read_end_ = port::UniqueFd(ends[0]);
        write_end_ = port::UniqueFd(ends[1]);
        // This end is the one that children are to inherit.
        if (fcntl(read_end_.Get(), F_SETFD, 0) != 0 ||
            setenv(kVariable, std::to_string(read_end_.Get()).c_str(), 1) != 0) {
            port::ThrowErrno(kVariable);
        }
    }
    Lifeline(const Lifeline&) = delete;
    Lifeline& operator=(const Lifeline&) = delete;
    ~Lifeline() { static_cast<void>(unsetenv(kVariable)); }

private:
    static constexpr const char* kVariable = "TRELVO_LIFELINE_FD";
    port::UniqueFd read_end_;
    port::UniqueFd write_end_;
};

// How long the end of the service waits for the dumps that were announced or asked for.
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
        if (!std::exchange(launched_, true)) {
            capture_.Expect();
        }
        app_control_s request{arguments};
        callback_.app_control(&request, user_data_);
        return {};
    }

    // A subscriber to power events hears what it would if the machine went down. A second call ends
    // at once.
    void End() {
        capture_.Stop();
        const port::DumpProgress before = port::PublishedProgress();
        const bool second = last_dump_.has_value();
        if (!second && port::AnnouncePowerDown()) {
            last_dump_.emplace(before, kLastDumpMilliseconds, ui_app_exit);
        } else if (!second && before.known && before_request_) {
            last_dump_.emplace(*before_request_, kLastDumpMilliseconds, ui_app_exit);
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
        const std::string path = std::filesystem::path(folder).lexically_normal().string() + "/";
        return covered != nullptr && path.rfind(std::string(covered) + "/", 0) == 0;
    }

    const ui_app_lifecycle_callback_s& callback_;
    void* user_data_;
    port::CaptureWatch& capture_;
    bool launched_ = false;
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

// So that the programs that were built with the service are found before any others.
void PutOwnFolderFirstOnPath() {
    const std::string own = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
    const char* const value = std::getenv("PATH");
    const std::string path = value != nullptr ? value : "";
    if (path != own && path.compare(0, own.size() + 1, own + ":") != 0 &&
        setenv("PATH", (path.empty() ? own : own + ":" + path).c_str(), 1) != 0) {
        port::ThrowErrno("PATH");
    }
}

// Empty when another process holds the lock, which has its holder's id as text. It ends with the
// process, whatever happens to it.
port::UniqueFd TakeLock(const std::string& path) {
    port::UniqueFd lock(
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock) {
        port::ThrowErrno(path);
    }
    if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
        const std::string pid = std::to_string(getpid()) + "\n";
        if (ftruncate(lock.Get(), 0) != 0 ||
            write(lock.Get(), pid.data(), pid.size()) != static_cast<ssize_t>(pid.size())) {
            port::ThrowErrno(path);
        }
        return lock;
    }
    if (errno != EWOULDBLOCK) {
        port::ThrowErrno(path);
    }
    return {};
}

// The reader takes whatever it finds for new, and the capture comes to clearing its files only when
// the reader is under way already. What an earlier capture left would be counted as lines of the
// new one or, after a reboot, have times ahead of all that follow and silence the recorder. The
// device has an empty /tmp after a boot and never starts the service twice.
void ClearCapture() {
    const dlogutil::RotatingFile cleared("/tmp/trelvo/RQB_Buffer", 1, 1);
}

// The service writes every dump to a fixed name in this folder first. In another user's folder that
// user could make the name a link to any file.
void PrepareDumpFolder() {
    const char* const folder = "/tmp/Trelvo_Dump";
    struct stat info {};
    if ((mkdir(folder, S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) != 0 && errno != EEXIST) ||
        lstat(folder, &info) != 0) {
        port::ThrowErrno(folder);
    }
    if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid() ||
        (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw std::runtime_error(std::string(folder) +
                                 ": not a folder that only this user writes to; remove it");
    }
}

// Whatever the launcher's umask: what this service writes is the machine's log. What others may not
// read at all is in folders of mode 0700.
void SetModes(const std::optional<gid_t>& readers) {
    umask(readers ? S_IWGRP | S_IRWXO : S_IRWXG | S_IRWXO);
    if (readers && getegid() != *readers && setgid(*readers) != 0) {
        throw std::runtime_error(
            "[dump] group: this user cannot take that group; start the service with it, under "
            "systemd by Group= in a drop-in");
    }
}

int Run(const port::LaunchArguments& first, const ui_app_lifecycle_callback_s& callback,
        void* user_data) {
    PutOwnFolderFirstOnPath();
    const std::string folder = port::RuntimeFolder();
    const std::string socket = folder + "/" + launch_interface::kSocketFile;
    const port::UniqueFd lock = TakeLock(folder + "/" + launch_interface::kLockFile);
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
    ClearCapture();
    PrepareDumpFolder();
    if (setenv("TRELVO_SERVICE_TAG", "LOG_COMPRESSOR", 1) != 0) {  // read by the capture
        port::ThrowErrno("TRELVO_SERVICE_TAG");
    }
    const Lifeline lifeline;
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
    return APP_ERROR_NONE;
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
        SetModes(line.group);
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
