#include "capture_watch.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "dlog.h"
#include "launch_check.h"
#include "vconf.h"

namespace port {
namespace {

constexpr const char* kMemoryVariable = "TRELVO_CAPTURE_FD";
constexpr const char* kSocketVariable = "TRELVO_KEEPER_FD";
constexpr const char* kKey = "memory/trelvo/capture";
constexpr const char* kTag = "LOG_COMPRESSOR";
constexpr gint64 kSecond = 1000000;  // microseconds, as all times here
constexpr gint64 kHealthy = 60 * kSecond;
constexpr gint64 kLogPause = 60 * kSecond;
constexpr gint64 kShortestPauseMs = 100;
constexpr gint64 kLongestPauseMs = 30000;
constexpr guint kMissingMs = 5000;
// More than the arguments of a launch, with all that a capture says about itself.
constexpr size_t kMaxMessage = size_t{128} * 1024;

void Export(const char* variable, const UniqueFd& fd) {
    if (!fd || fcntl(fd.Get(), F_SETFD, 0) != 0 ||
        setenv(variable, std::to_string(fd.Get()).c_str(), 1) != 0) {
        ThrowErrno(variable);
    }
}

void Remove(guint& source) {
    if (source != 0) {
        g_source_remove(std::exchange(source, 0));
    }
}

}  // namespace

CaptureWatch::CaptureWatch()
    : memory_(memfd_create("trelvo capture", MFD_CLOEXEC)), pause_ms_(kShortestPauseMs) {
    Export(kMemoryVariable, memory_);
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        ThrowErrno("socket");
    }
    own_end_ = UniqueFd(ends[0]);
    capture_end_ = UniqueFd(ends[1]);
    Export(kSocketVariable, capture_end_);
    static_cast<void>(
        prctl(PR_SET_CHILD_SUBREAPER, 1));  // without it the way of the end is unknown
    message_source_ = g_unix_fd_add(own_end_.Get(), G_IO_IN, OnMessage, this);
}

CaptureWatch::~CaptureWatch() {
    for (guint* const source :
         {&message_source_, &end_source_, &missing_source_, &pause_source_, &publish_source_}) {
        Remove(*source);
    }
    static_cast<void>(unsetenv(kMemoryVariable));
    static_cast<void>(unsetenv(kSocketVariable));
}

void CaptureWatch::Expect() {
    if (pid_ == 0 && command_.empty() && missing_source_ == 0) {
        missing_source_ = g_timeout_add(kMissingMs, OnMissing, this);
    }
}

void CaptureWatch::Stop() {
    is_stopped_ = true;
    Remove(pause_source_);
    Remove(missing_source_);
}

gboolean CaptureWatch::OnMessage(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
    static_cast<CaptureWatch*>(self)->TakeMessages();
    return G_SOURCE_CONTINUE;
}

gboolean CaptureWatch::OnEnd(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
    auto& watch = *static_cast<CaptureWatch*>(self);
    watch.end_source_ = 0;
    watch.TakeEnd();
    return G_SOURCE_REMOVE;
}

gboolean CaptureWatch::OnMissing(gpointer self) {
    auto& watch = *static_cast<CaptureWatch*>(self);
    watch.missing_source_ = 0;
    gchar* const program = g_find_program_in_path("dlogutil");
    watch.SetDead(program != nullptr ? "dlogutil did not start"
                                     : "dlogutil: not found on the PATH");
    watch.Log("the capture is missing: " + watch.reason_ + "; restart the service");
    g_free(program);
    return G_SOURCE_REMOVE;
}

gboolean CaptureWatch::OnPauseOver(gpointer self) {
    auto& watch = *static_cast<CaptureWatch*>(self);
    watch.pause_source_ = 0;
    watch.Start();
    return G_SOURCE_REMOVE;
}

gboolean CaptureWatch::OnPublish(gpointer self) {
    auto& watch = *static_cast<CaptureWatch*>(self);
    watch.publish_source_ = 0;
    watch.Publish();
    return G_SOURCE_REMOVE;
}

void CaptureWatch::TakeMessages() {
    std::string buffer(kMaxMessage, '\0');
    ssize_t size = 0;
    while ((size = recv(own_end_.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
        const std::string_view message(buffer.data(), static_cast<size_t>(size));
        if (message[0] == 'C') {
            TakeBegin(message.substr(1));
        } else if (message[0] == 'S') {
            std::string losses;
            for (const std::string_view line : SplitWords(message.substr(1), '\n')) {
                if (line.substr(0, 6) == "alive=") {
                    is_alive_ = line == "alive=1";
                } else if (line.substr(0, 7) == "reason=") {
                    reason_ = line.substr(7);
                } else if (line.substr(0, 5) == "lost_") {
                    losses += std::string(line) + "\n";
                }
            }
            // One that fails tells none; its successor counts on.
            losses_ = losses.empty() ? std::move(losses_) : losses;
            has_said_why_ = !is_alive_ && !reason_.empty();
            Publish();
        }
    }
}

void CaptureWatch::TakeBegin(std::string_view message) {
    std::vector<std::string> words;
    for (const std::string_view word : SplitWords(message, '\0')) {
        words.emplace_back(word);
    }
    pid_t pid = 0;
    static_cast<void>(std::from_chars(words[0].data(), words[0].data() + words[0].size(), pid));
    if (pid <= 0 || words.size() < 2) {
        return;
    }
    command_.assign(words.begin() + 1, words.end());
    if (pid_ == 0) {
        Watch(pid);
    }
}

void CaptureWatch::Watch(pid_t pid) {
    Remove(missing_source_);
    Remove(pause_source_);
    pid_ = pid;
    has_said_why_ = false;
    started_ = g_get_monotonic_time();
    process_ = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!process_) {
        if (errno == ESRCH) {
            TakeEnd();
        } else {  // it lives, but nobody will tell of its end
            Log("the capture cannot be watched: " + std::generic_category().message(errno));
        }
        return;
    }
    end_source_ = g_unix_fd_add(process_.Get(), G_IO_IN, OnEnd, this);
}

void CaptureWatch::TakeEnd() {
    TakeMessages();  // its last words
    const End end = WayOfEnd();
    process_ = UniqueFd();
    const bool is_explained = end.is_failure && has_said_why_;
    SetDead(is_explained ? reason_ : "dlogutil " + end.text);
    if (g_get_monotonic_time() - started_ >= kHealthy) {
        pause_ms_ = kShortestPauseMs;
    }
    pid_ = 0;
    if (!is_stopped_) {
        ++unsaid_ends_;
        Log("the capture " + end.text + (is_explained ? ": " + reason_ : "") +
            "; starting it again");
        StartLater();
    }
}

CaptureWatch::End CaptureWatch::WayOfEnd() const {
    siginfo_t info{};
    if (!process_ ||
        waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(process_.Get()), &info,
               WEXITED | WNOHANG) != 0 ||
        info.si_pid == 0) {
        return {"ended", true};
    }
    if (info.si_code == CLD_EXITED) {
        return {"ended with status " + std::to_string(info.si_status), info.si_status != 0};
    }
    return {"was killed by signal " + std::to_string(info.si_status) + " (" +
                strsignal(info.si_status) + ")",
            false};
}

void CaptureWatch::SetDead(const std::string& reason) {
    is_alive_ = false;
    reason_ = reason;
    Publish();
}

void CaptureWatch::StartLater() {
    pause_source_ = g_timeout_add(static_cast<guint>(pause_ms_), OnPauseOver, this);
    pause_ms_ = std::min(2 * pause_ms_, kLongestPauseMs);
}

void CaptureWatch::Start() {
    std::vector<char*> argv;
    for (std::string& word : command_) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    // As the shell starts the first one: what is typed at a terminal does not end it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ++restarts_;
    if (error != 0) {
        SetDead(command_[0] + ": " + std::generic_category().message(error));
        ++unsaid_ends_;
        Log("the capture cannot be started: " + reason_ + "; trying again");
        StartLater();
        return;
    }
    Watch(pid);
}

void CaptureWatch::Log(const std::string& message) {
    const gint64 now = g_get_monotonic_time();
    if (last_log_ && now - *last_log_ < kLogPause) {
        return;
    }
    last_log_ = now;
    const std::string times =
        unsaid_ends_ > 1 ? ", for the last of " + std::to_string(unsaid_ends_) + " times" : "";
    unsaid_ends_ = 0;
    static_cast<void>(__dlog_print(LOG_ID_MAIN, DLOG_WARN, kTag,
                                   "capture_watch.cpp: Log(%d) > %s%s", __LINE__, message.c_str(),
                                   times.c_str()));
}

void CaptureWatch::Publish() {
    const std::string text = "alive=" + std::string(is_alive_ ? "1" : "0") + "\nreason=" + reason_ +
                             "\nrestarts=" + std::to_string(restarts_) + "\n" + losses_;
    if (text == published_ || publish_source_ != 0) {
        return;
    }
    const gint64 now = g_get_monotonic_time();
    if (last_publish_ && now - *last_publish_ < kSecond) {
        publish_source_ = g_timeout_add(
            static_cast<guint>((*last_publish_ + kSecond - now) / 1000 + 1), OnPublish, this);
        return;
    }
    last_publish_ = now;
    if (vconf_set_str(kKey, text.c_str()) == 0) {
        published_ = text;
    }
}

}  // namespace port
