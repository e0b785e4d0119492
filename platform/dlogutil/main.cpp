// dlogutil [-r KiB] [-n count] [-f file] [-v kerneltime] [TAG:LEVEL ...]
//
// Writes the journal of this boot as log lines, first what is there and then what comes, to a
// rotating file or to standard output. A service that starts it detached hands it a pipe
// (TRELVO_LIFELINE_FD) and it ends when the pipe does.
//
// Exit status: 0 told to end, 1 the capture failed, 2 wrong arguments.

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
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

constexpr int kRetryMilliseconds = 1000;
constexpr int kEntriesAtOnce = 256;

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
        follower_.emplace();
    }

    // Returns when a signal or the lifeline says so.
    void Run() {
        for (;;) {
            const bool more = Forward();
            std::array<pollfd, 4> waits{{{signals_.Get(), POLLIN, 0},
                                         {lifeline_, 0, 0},  // POLLHUP always counts
                                         {follower_->JournalFd(), POLLIN, 0},
                                         {follower_->FoldersFd(), POLLIN, 0}}};
            const int timeout = more ? 0 : (pending_.empty() ? -1 : kRetryMilliseconds);
            if (poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) {
                port::ThrowErrno("poll");
            }
            if (waits[0].revents != 0 || waits[1].revents != 0) {
                return;
            }
            if (waits[2].revents != 0 || waits[3].revents != 0) {
                follower_->Process();
            }
        }
    }

private:
    // Writes the next entries. True when there may be more of them at once.
    bool Forward() {
        for (int i = 0; i < kEntriesAtOnce; ++i) {
            while (!pending_.empty()) {
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
            if (filters_.Passes(dlogutil::TagOf(entry->fields), dlogutil::LevelOf(entry->fields))) {
                for (std::string& line : dlogutil::FormatLines(entry->fields, entry->usec)) {
                    pending_.push_back(std::move(line));
                }
            }
        }
        return true;
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
    bool stalled_ = false;
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
