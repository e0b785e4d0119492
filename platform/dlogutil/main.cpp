// dlogutil [-r KiB] [-n count] [-f file] [-v kerneltime] [TAG:LEVEL ...]
//
// Writes the journal of this boot as log lines, first what is there and then what comes, to a
// rotating file or to standard output. Who connects to the socket FILE.sync is told when all that
// was logged before is in the file. A service that starts it detached hands it a pipe
// (TRELVO_LIFELINE_FD) and it ends when the pipe does.
//
// Exit status: 0 told to end, 1 the capture failed, 2 wrong arguments.

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "dlogutil/boot_id.h"
#include "dlogutil/clock_lines.h"
#include "dlogutil/journal_entry.h"
#include "dlogutil/journal_follower.h"
#include "dlogutil/keeper.h"
#include "dlogutil/losses.h"
#include "dlogutil/options.h"
#include "dlogutil/rotating_file.h"
#include "dlogutil/sync_server.h"
#include "handles.h"

namespace {

constexpr int kRetryMilliseconds = 1000;
constexpr int kEntriesAtOnce = 256;
// So much is written at once while the capture is behind.
constexpr size_t kBlock = size_t{64} * 1024;

// A detached program's standard error is rarely seen, so what ends or stalls the capture is said in
// the journal as well.
void Report(const std::string& what) {
    static_cast<void>(std::fprintf(stderr, "dlogutil: %s\n", what.c_str()));
    static_cast<void>(sd_journal_send("MESSAGE=%s", what.c_str(), "PRIORITY=3",
                                      "SYSLOG_IDENTIFIER=dlogutil", nullptr));
}

// Lets the signals that end the program wait until the line under way is written.
port::UniqueFd HoldSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        sigaddset(&signals, signal);
    }
    if (sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
        port::ThrowErrno("signals");
    }
    // Running into a file size limit is an error like a full disk, not the end.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    port::UniqueFd fd(signalfd(-1, &signals, SFD_CLOEXEC));
    if (!fd) {
        port::ThrowErrno("signals");
    }
    return fd;
}

// The road from the journal to the file or standard output. Lines that could not be written wait
// here; no further entries are read until they are: the journal keeps them.
class Capture {
public:
    Capture(const dlogutil::Options& options, dlogutil::KeeperSocket& keeper)
        : filters_(options.filters),
          lifeline_(dlogutil::InheritedFd("TRELVO_LIFELINE_FD", S_IFIFO)),
          keeper_(keeper),
          has_clock_(!filters_.Silences(dlogutil::kClockTag)) {
        // Standard output may be a pipe that nobody reads: there the signals end the program at
        // once, as they do by default.
        if (!options.file.empty()) {
            signals_ = HoldSignals();
            Resume(options);
        }
        // Only a service removes what it has read.
        if (file_ && lifeline_ >= 0) {
            removals_ = port::UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
            if (!removals_ ||
                inotify_add_watch(removals_.Get(), file_->Folder().c_str(), IN_DELETE) < 0) {
                port::ThrowErrno(file_->Folder());
            }
        }
        if (file_) {
            try {
                sync_.emplace(file_->Listen());
            } catch (const std::system_error& error) {  // rather a late dump than no capture
                Report(error.what());
            }
        }
        follower_.emplace(state_.journal);
        Save(pending_);
    }

    // Returns when a signal or the lifeline says so.
    void Run() {
        for (;;) {
            const int timeout = Step();
            // What is new does not matter while lines wait.
            const bool reads = pending_.empty();
            std::vector<pollfd> waits{{signals_.Get(), POLLIN, 0},
                                      {lifeline_, 0, 0},  // POLLHUP always counts
                                      {reads ? follower_->JournalFd() : -1, POLLIN, 0},
                                      {reads ? follower_->FoldersFd() : -1, POLLIN, 0},
                                      {removals_.Get(), POLLIN, 0}};
            if (sync_) {
                sync_->AddTo(waits);
            }
            if (poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) {
                port::ThrowErrno("poll");
            }
            if (waits[0].revents != 0 || waits[1].revents != 0) {
                return;
            }
            has_news_ = has_news_ || !reads || waits[2].revents != 0 || waits[3].revents != 0;
        }
    }

private:
    // Opens the file, where a capture that this one follows had come to.
    void Resume(const dlogutil::Options& options) {
        if (const int fd = dlogutil::InheritedFd("TRELVO_CAPTURE_FD", S_IFREG); fd >= 0) {
            memory_.emplace(fd);
        }
        if (!memory_ || !memory_->Load(state_)) {
            file_.emplace(options.file, options.limit_bytes, options.rotated_count);
            return;
        }
        pending_ = std::exchange(state_.text, {});
        file_.emplace(options.file, options.limit_bytes, options.rotated_count, state_.file,
                      pending_);
        clock_ = state_.clock;
        losses_ = state_.losses;
        loss_report_ = dlogutil::LossReport(state_.said);
    }

    // What a successor is to know before `text`, which was read up to here, is written at the
    // file's end.
    void Save(std::string_view text) {
        if (memory_) {
            state_.journal = follower_->Place();
            state_.clock = clock_;
            state_.losses = losses_;
            state_.said = loss_report_.Said();
            state_.file = file_->Place();
            memory_->Save(state_, text);
        }
    }

    // Writes what there is. Returns for how many milliseconds to wait for more, -1 without limit.
    int Step() {
        if (removals_) {
            std::array<char, 4096> drained;
            while (read(removals_.Get(), drained.data(), drained.size()) > 0) {
            }
        }
        if (sync_) {
            sync_->Process();
        }
        const bool answers = sync_ && sync_->NeedsReading();
        has_news_ = has_news_ || answers;
        bool more = false;
        bool failed = false;
        if (WritePending()) {
            try {
                if (std::exchange(has_news_, false)) {
                    follower_->Process();
                }
                more = Read();
                journal_fault_.clear();
            } catch (const dlogutil::JournalError& error) {
                failed = true;
                if (journal_fault_.empty()) {
                    Report(std::string("will try again: ") + error.what());
                }
                journal_fault_ = error.what();
            }
            Save(pending_);
            static_cast<void>(WritePending());
        }
        int timeout = SayLosses();
        const std::string& fault = journal_fault_.empty() ? follower_->Fault() : journal_fault_;
        keeper_.SayState(write_fault_.empty() ? fault : write_fault_, follower_->Note(), losses_);
        const auto shorten = [&timeout](int milliseconds) {
            timeout = timeout < 0 ? milliseconds : std::min(timeout, milliseconds);
        };
        if (failed || !pending_.empty()) {
            shorten(kRetryMilliseconds);
        } else if (more || (sync_ && sync_->NeedsReading())) {
            if (answers && !more) {
                sync_->Answer();
            }
            shorten(0);
        }
        if (sync_ && sync_->Timeout() >= 0) {
            shorten(sync_->Timeout());
        }
        return timeout;
    }

    // Reads the next entries. True when there may be more of them at once.
    bool Read() {
        for (int i = 0; i < kEntriesAtOnce && pending_.size() < kBlock; ++i) {
            if (!follower_->Next(entry_)) {
                return false;
            }
            if (sync_ && sync_->TakeMarker(entry_.fields)) {
                continue;
            }
            const std::string tag = dlogutil::TagOf(entry_.fields);
            if (!filters_.Passes(tag, dlogutil::LevelOf(entry_.fields))) {
                continue;
            }
            if (entry_.error && !entry_.fields.Has(dlogutil::kMessage)) {
                ++losses_.unreadable;
                AppendOwnLine(tag, LOG_WARNING,
                              "an entry left out, it cannot be read: " + entry_.error.message());
            } else {
                AppendClockLine();
                losses_.left_out +=
                    dlogutil::AppendLines(entry_.fields, tag, entry_.usec, pending_);
            }
        }
        return true;
    }

    // Before an entry's lines, where they would not tell their wall clock otherwise.
    void AppendClockLine() {
        if (has_clock_ && clock_.IsDue(entry_.usec, entry_.wall_usec)) {
            std::array<char, HOST_NAME_MAX + 1> host{};
            static_cast<void>(gethostname(host.data(), host.size() - 1));
            AppendOwnLine(
                dlogutil::kClockTag, LOG_INFO,
                dlogutil::ClockMessage(boot_, host.data(), entry_.usec, entry_.wall_usec));
        }
    }

    // A line of this program's own at the time of the entry.
    void AppendOwnLine(std::string_view tag, int priority, const std::string& message) {
        dlogutil::Fields fields;
        fields.Take("_COMM=dlogutil");
        fields.Take("_PID=" + std::to_string(getpid()));
        fields.Take("PRIORITY=" + std::to_string(priority));
        fields.Take("MESSAGE=" + message);
        dlogutil::AppendLines(fields, tag, entry_.usec, pending_);
    }

    // Returns for how many milliseconds there is nothing to say, -1 without limit.
    int SayLosses() {
        losses_.removed = follower_->Lost();
        losses_.uncounted = follower_->UncountedGaps();
        const auto now = std::chrono::steady_clock::now();
        if (const auto text = loss_report_.Take(losses_, now)) {
            Report(*text);
        }
        const auto next = loss_report_.Next(losses_);
        return next ? static_cast<int>(
                          std::chrono::ceil<std::chrono::milliseconds>(*next - now).count())
                    : -1;
    }

    // True when all pending lines are written.
    bool WritePending() {
        std::string_view lines = pending_;
        while (!lines.empty() && !WaitsForService()) {
            if (const std::error_code error = Write(lines)) {
                if (write_fault_.empty()) {
                    Report("cannot write, will try again: " + error.message());
                }
                write_fault_ = "cannot write: " + error.message();
                break;
            }
            write_fault_.clear();
        }
        pending_.erase(0, pending_.size() - lines.size());
        return pending_.empty();
    }

    // Whether the next line has to wait until the service has read the rotated file. The one that
    // is full becomes the rotated file at once, so that it is read as well.
    bool WaitsForService() {
        if (!removals_) {
            return false;
        }
        if (file_->HasUnread()) {
            return true;
        }
        // An error meets the line itself as well.
        return !file_->RotateIfFull() && file_->HasUnread();
    }

    std::error_code Write(std::string_view& lines) {
        if (file_) {
            if (const std::error_code error = file_->RotateIfFull()) {
                return error;
            }
            // Each rotation stands between two states: what was written to the old file, and that
            // the rest is for the new one.
            if (file_->Place().inode != state_.file.inode) {
                Save(lines);
            }
            const std::error_code error = file_->Append(lines);
            if (!lines.empty()) {
                Save(lines);
            }
            return error;
        }
        if (std::fwrite(lines.data(), 1, lines.size(), stdout) != lines.size() ||
            std::fflush(stdout) != 0) {
            port::ThrowErrno("standard output");
        }
        lines = {};
        return {};
    }

    dlogutil::TagFilters filters_;
    int lifeline_;
    dlogutil::KeeperSocket& keeper_;
    std::optional<dlogutil::StateMemory> memory_;
    dlogutil::CaptureState state_;  // as saved, without the text
    port::UniqueFd signals_;
    std::optional<dlogutil::RotatingFile> file_;
    std::optional<dlogutil::JournalFollower> follower_;
    std::optional<dlogutil::SyncServer> sync_;
    dlogutil::JournalEntry entry_;
    dlogutil::ClockLines clock_;
    bool has_clock_;
    std::string boot_ = dlogutil::BootId();
    dlogutil::LossCounts losses_;
    dlogutil::LossReport loss_report_;
    std::string pending_;      // whole lines
    port::UniqueFd removals_;  // readable when a file of the folder was removed
    bool has_news_ = false;    // Process() is to be called
    std::string write_fault_;
    std::string journal_fault_;
};

// Anybody may log fields of hundreds of megabytes, which the journal's library may unpack as a
// whole. That fails then, and costs the field, or its entry.
void LimitMemory() {
    constexpr rlim_t kOwnMemory = rlim_t{16} << 20;
    constexpr rlim_t kSanitizer = rlim_t{1} << 40;  // reserves more than this for itself
    std::array<rlim_t, 6> pages{};                  // the last is that of data and stack
    std::ifstream statm("/proc/self/statm");
    for (rlim_t& count : pages) {
        statm >> count;
    }
    const rlim_t used = pages.back() * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    rlimit limit{};
    if (statm && used < kSanitizer && getrlimit(RLIMIT_DATA, &limit) == 0) {
        limit.rlim_cur = std::min(limit.rlim_max, used + kOwnMemory);
        static_cast<void>(setrlimit(RLIMIT_DATA, &limit));
    }
}

}  // namespace

int main(int argc, char** argv) {
    dlogutil::KeeperSocket keeper(-1);
    try {
        keeper = dlogutil::KeeperSocket(dlogutil::InheritedFd("TRELVO_KEEPER_FD", S_IFSOCK));
        keeper.SayBegun(argc, argv);
        const dlogutil::Options options = dlogutil::ParseOptions(argc, argv);
        LimitMemory();
        Capture(options, keeper).Run();
        return 0;
    } catch (const std::invalid_argument& wrong) {
        static_cast<void>(std::fprintf(stderr, "dlogutil: %s\n", wrong.what()));
        keeper.SayState(wrong.what(), "", {});
        return 2;
    } catch (const std::exception& error) {
        Report(error.what());
        keeper.SayState(error.what(), "", {});
        return 1;
    }
}
