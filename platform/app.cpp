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
#include <string_view>

#include "dlogutil/rotating_file.h"
#include "handles.h"
#include "launch_server.h"
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

// Ends the main loop on a signal, for as long as it lives.
class ExitOnSignal {
public:
    explicit ExitOnSignal(int signal) : source_(g_unix_signal_add(signal, OnSignal, nullptr)) {}
    ExitOnSignal(const ExitOnSignal&) = delete;
    ExitOnSignal& operator=(const ExitOnSignal&) = delete;
    ~ExitOnSignal() { g_source_remove(source_); }

private:
    static gboolean OnSignal(gpointer /*data*/) {
        ui_app_exit();
        return G_SOURCE_CONTINUE;
    }

    guint source_;
};

// The command line's KEY=VALUE words; nothing, and one line on standard error, for any other word.
std::optional<port::LaunchArguments> ReadCommandLine(int argc, char** argv) {
    port::LaunchArguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        const std::size_t equals = word.find('=');
        if (equals == 0 || equals == std::string_view::npos) {
            std::fprintf(stderr, "trelvo: '%s' is not KEY=VALUE\n", argv[i]);
            return std::nullopt;
        }
        arguments[std::string(word.substr(0, equals))] = word.substr(equals + 1);
    }
    return arguments;
}

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

// Empty when another process holds the lock. It ends with the process, whatever happens to it.
port::UniqueFd TakeLock(const std::string& path) {
    port::UniqueFd lock(
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock) {
        port::ThrowErrno(path);
    }
    if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
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

int Run(const port::LaunchArguments& first, const ui_app_lifecycle_callback_s& callback,
        void* user_data) {
    // Whatever the launcher's umask: nobody else may write what this service has written.
    umask(umask(0) | S_IWGRP | S_IWOTH);
    PutOwnFolderFirstOnPath();
    const std::string folder = port::RuntimeFolder();
    const std::string socket = folder + "/launch.sock";
    const port::UniqueFd lock = TakeLock(folder + "/lock");
    if (!lock) {
        std::fprintf(stderr, "trelvo: another service is already running, it answers at %s\n",
                     socket.c_str());
        return APP_ERROR_ALREADY_RUNNING;
    }
    // With the lock held, a socket that is still there is a dead service's.
    if (unlink(socket.c_str()) != 0 && errno != ENOENT) {
        port::ThrowErrno(socket);
    }
    ClearCapture();
    PrepareDumpFolder();
    const Lifeline lifeline;
    const auto launch = [&](const port::LaunchArguments& arguments) {
        app_control_s request{arguments};
        callback.app_control(&request, user_data);
    };
    exit_requested = false;
    const ExitOnSignal on_terminate(SIGTERM);
    const ExitOnSignal on_interrupt(SIGINT);
    const port::LaunchServer server(socket, launch);
    if (!callback.create(user_data)) {
        return APP_ERROR_IO;
    }
    if (!first.empty() && !exit_requested) {
        launch(first);  // before the loop, so that no request of the socket can come first
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
        const auto first = ReadCommandLine(argc, argv);
        return first ? Run(*first, *callback, user_data) : APP_ERROR_INVALID_PARAMETER;
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
