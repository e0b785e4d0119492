// dlogutil [-r KiB] [-n count] [-f file] [-v kerneltime] [TAG:LEVEL ...]
//
// Writes the journal of this boot as log lines, first what is there and then what comes, to a
// rotating file or to standard output. A service that starts it detached hands it a pipe
// (TRELVO_LIFELINE_FD) and it ends when the pipe does.
//
// Exit status: 0 told to end, 1 the capture failed, 2 wrong arguments.

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "dlogutil/journal_follower.h"
#include "dlogutil/line_format.h"
#include "dlogutil/options.h"
#include "dlogutil/rotating_file.h"
#include "handles.h"

namespace {

using Clock = std::chrono::steady_clock;  // as the journal's monotonic times

constexpr int kRetryMilliseconds = 1000;
constexpr int kEntriesAtOnce = 256;
// For so long lines wait in the journal for the service to read a rotated file. Later than this a
// recorder would show the past; lines are lost instead.
constexpr std::chrono::milliseconds kMaxLag{10000};

// A detached program's standard error is rarely seen, so what ends or stalls the capture is said in
// the journal as well.
void Report(const std::string& what) {
    static_cast<void>(std::fprintf(stderr, "dlogutil: %s\n", what.c_str()));
    static_cast<void>(sd_journal_send("MESSAGE=%s", what.c_str(), "PRIORITY=3",
                                      "SYSLOG_IDENTIFIER=dlogutil", nullptr));
}

// The pipe that ends with the service; -1 when no service started this program.
int LifelineFd() {
    const char* const value = std::getenv("TRELVO_LIFELINE_FD");
    if (value == nullptr) {
        return -1;
    }
    const std::string_view text = value;
    int fd = -1;
    struct stat info {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), fd);
    if (error != std::errc() || end != text.data() + text.size() || fstat(fd, &info) != 0 ||
        !S_ISFIFO(info.st_mode)) {
        throw std::runtime_error("TRELVO_LIFELINE_FD=" + std::string(text) + ": not a pipe");
    }
    return fd;
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
// here; no further entries are read until they are.
class Capture {
public:
    explicit Capture(const dlogutil::Options& options)
        : filters_(options.filters), lifeline_(LifelineFd()) {
        // Standard output may be a pipe that nobody reads: there the signals end the program at
        // once, as they do by default.
        if (!options.file.empty()) {
            signals_ = HoldSignals();
            file_.emplace(options.file, options.limit_bytes, options.rotated_count);
        }
        // Only a service removes what it has read.
        if (file_ && lifeline_ >= 0) {
            removals_ = port::UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
            if (!removals_ ||
                inotify_add_watch(removals_.Get(), file_->Folder().c_str(), IN_DELETE) < 0) {
                port::ThrowErrno(file_->Folder());
            }
        }
        follower_.emplace();
    }

    // Returns when a signal or the lifeline says so.
    void Run() {
        for (;;) {
            const int timeout = Step();
            std::array<pollfd, 5> waits{{{signals_.Get(), POLLIN, 0},
                                         {lifeline_, 0, 0},  // POLLHUP always counts
                                         {follower_->JournalFd(), POLLIN, 0},
                                         {follower_->FoldersFd(), POLLIN, 0},
                                         {removals_.Get(), POLLIN, 0}}};
            if (poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) {
                port::ThrowErrno("poll");
            }
            if (waits[0].revents != 0 || waits[1].revents != 0) {
                return;
            }
            has_news_ = waits[2].revents != 0 || waits[3].revents != 0;
        }
    }

private:
    // Writes what there is. Returns for how many milliseconds to wait for more, -1 without limit.
    int Step() {
        try {
            if (std::exchange(has_news_, false)) {
                follower_->Process();
            }
            if (removals_) {
                std::array<char, 4096> drained;
                static_cast<void>(read(removals_.Get(), drained.data(), drained.size()));
            }
            const bool more = Forward();
            journal_failed_ = false;
            return more ? 0 : (pending_.empty() ? -1 : kRetryMilliseconds);
        } catch (const dlogutil::JournalError& error) {
            // The service does not watch its capture: better a late line than none any more.
            if (!std::exchange(journal_failed_, true)) {
                Report(std::string("will try again: ") + error.what());
            }
            return kRetryMilliseconds;
        }
    }

    // Writes the next entries. True when there may be more of them at once.
    bool Forward() {
        for (int i = 0; i < kEntriesAtOnce; ++i) {
            while (!pending_.empty()) {
                if (WaitsForService()) {
                    return false;
                }
                if (const std::error_code error = Write(pending_.front())) {
                    if (!std::exchange(stalled_, true)) {
                        Report("cannot write, will try again: " + error.message());
                    }
                    return false;
                }
                stalled_ = false;
                pending_.pop_front();
            }
            const auto entry = follower_->Next();
            if (!entry) {
                return false;
            }
            logged_ = Clock::time_point(std::chrono::microseconds(entry->usec));
            if (filters_.Passes(dlogutil::TagOf(entry->fields), dlogutil::LevelOf(entry->fields))) {
                for (std::string& line : dlogutil::FormatLines(entry->fields, entry->usec)) {
                    pending_.push_back(std::move(line));
                }
            }
        }
        return true;
    }

    // Whether the next line has to wait until the service has read the rotated file.
    bool WaitsForService() {
        if (!removals_) {
            return false;
        }
        const auto waits = [this] {
            return Clock::now() - logged_ < kMaxLag && file_->HasUnread();
        };
        if (waits()) {
            return true;
        }
        const std::uint64_t before = file_->ReplacedUnread();
        if (file_->RotateIfFull()) {
            return false;  // the same error meets the line itself
        }
        if (file_->ReplacedUnread() == before) {
            loses_ = loses_ && file_->HasUnread();
        } else if (!std::exchange(loses_, true)) {
            Report("the service reads too slowly, a rotated file was replaced: lines are lost");
        }
        return waits();
    }

    std::error_code Write(const std::string& line) {
        if (file_) {
            return file_->Append(line);
        }
        if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size() ||
            std::fflush(stdout) != 0) {
            port::ThrowErrno("standard output");
        }
        return {};
    }

    dlogutil::TagFilters filters_;
    int lifeline_;
    port::UniqueFd signals_;
    std::optional<dlogutil::RotatingFile> file_;
    std::optional<dlogutil::JournalFollower> follower_;
    std::deque<std::string> pending_;
    Clock::time_point logged_;  // when the journal took these lines
    port::UniqueFd removals_;   // readable when a file of the folder was removed
    bool loses_ = false;
    bool stalled_ = false;
    bool has_news_ = false;  // Process() is to be called
    bool journal_failed_ = false;
};

}  // namespace

int main(int argc, char** argv) {
    dlogutil::Options options;
    try {
        options = dlogutil::ParseOptions(argc, argv);
    } catch (const std::invalid_argument& wrong) {
        static_cast<void>(std::fprintf(stderr, "dlogutil: %s\n", wrong.what()));
        return 2;
    }
    try {
        Capture(options).Run();
        return 0;
    } catch (const std::exception& error) {
        Report(error.what());
        return 1;
    }
}
