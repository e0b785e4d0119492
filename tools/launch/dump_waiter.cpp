#include "launch/dump_waiter.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

#include "dump/dump_reader.h"

namespace {

constexpr std::chrono::seconds kAskAgain{2};
constexpr std::string_view kNameStart = "trelvo";
constexpr std::string_view kNameEnd = ".dump";
constexpr std::string_view kCompressedNameEnd = ".dump.zst";
constexpr std::string_view kHiddenStart = ".trelvo-";  // until a dump is whole

std::string LastError() {
    return std::generic_category().message(errno);
}

// Empty when a dump can be written into the folder, as far as its owner and mode say.
std::string FolderFault(const std::string& folder) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        return LastError();
    }
    if (!S_ISDIR(status.st_mode)) {
        return std::generic_category().message(ENOTDIR);
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return LastError();
    }
    return {};
}

// Root's service may use what is reserved for root.
bool IsFull(const std::string& folder) {
    struct statvfs status {};
    return statvfs(folder.c_str(), &status) == 0 &&
           ((geteuid() == 0 ? status.f_bfree : status.f_bavail) == 0 ||
            (status.f_files != 0 && status.f_ffree == 0));
}

bool IsServiceDump(std::string_view name, std::string_view end) {
    return name.size() >= kNameStart.size() + end.size() &&
           name.substr(0, kNameStart.size()) == kNameStart &&
           name.substr(name.size() - end.size()) == end;
}

// Whoever may write to the folder may have put something else there.
void RefuseCutDump(const std::string& folder, const std::string& path) {
    std::string fault;
    try {
        const std::unique_ptr<ByteSource> source = OpenSource(path);
        DumpReader reader(*source);
        if (const Extent extent = reader.Measure(); extent.damage) {
            throw DumpError(*extent.damage);
        }
        return;
    } catch (const DumpError& error) {
        fault = "offset " + std::to_string(error.Offset()) + ": " + error.what();
    } catch (const std::system_error& error) {
        fault = error.what();
    }
    throw DumpWaitError(path + ": " + fault +
                        (IsFull(folder) ? "; the folder's file system is full" : ""));
}

}  // namespace

DumpWaiter::DumpWaiter(const std::string& folder, bool compressed)
    : folder_(folder),
      name_end_(compressed ? kCompressedNameEnd : kNameEnd),
      fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (fd_ < 0) {
        throw DumpWaitError(folder + ": cannot be watched: " + LastError());
    }
    std::string fault = FolderFault(folder);
    if (fault.empty() && inotify_add_watch(fd_, folder.c_str(),
                                           IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE |
                                               IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR) < 0) {
        fault = "cannot be watched: " + LastError();
    }
    if (!fault.empty()) {
        static_cast<void>(close(fd_));
        throw DumpWaitError(folder + ": " + fault);
    }
}

DumpWaiter::~DumpWaiter() {
    static_cast<void>(close(fd_));
}

std::string DumpWaiter::Wait(const std::function<void(std::chrono::seconds left)>& ask,
                             std::chrono::seconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (auto next_ask = Clock::now();;) {
        const auto now = Clock::now();
        if (now >= deadline) {
            ThrowTimeout(timeout);
        }
        if (now >= next_ask && !under_way_) {
            ask(std::chrono::ceil<std::chrono::seconds>(deadline - now));
            next_ask = Clock::now() + kAskAgain;
        }
        if (PollUntil(under_way_ ? deadline : std::min(deadline, next_ask))) {
            if (std::string path = TakeEvents(); !path.empty()) {
                return path;
            }
        }
    }
}

bool DumpWaiter::PollUntil(Clock::time_point time) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    pollfd events{fd_, POLLIN, 0};
    return poll(&events, 1, static_cast<int>(std::max<long>(left, 0))) > 0;
}

std::string DumpWaiter::TakeEvents() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t size = read(fd_, buffer.data(), buffer.size());
    for (ssize_t position = 0; position < size;) {
        inotify_event event;
        std::memcpy(&event, buffer.data() + position, sizeof event);
        const char* const name = buffer.data() + position + sizeof event;
        position += static_cast<ssize_t>(sizeof event + event.len);
        if ((event.mask & (IN_MOVE_SELF | IN_DELETE_SELF | IN_IGNORED)) != 0) {
            throw DumpWaitError(folder_ + ": the folder was moved or removed");
        }
        std::string_view file = event.len == 0 ? "" : name;
        const bool is_hidden = file.substr(0, kHiddenStart.size()) == kHiddenStart;
        if (!is_hidden && !IsServiceDump(file, name_end_)) {
            continue;
        }
        if ((event.mask & IN_CREATE) != 0) {
            under_way_ = true;
            (is_hidden ? hidden_ : linked_) = file;
            continue;
        }
        if (is_hidden && (event.mask & IN_DELETE) != 0 && file == hidden_) {
            // Where a file cannot be renamed without replacing another, the dump is a link to it.
            if (linked_.empty()) {
                throw DumpWaitError(folder_ +
                                    ": the dump could not be written; the service's log says why: "
                                    "journalctl -t LOG_COMPRESSOR");
            }
            file = linked_;
        } else if (is_hidden || (event.mask & IN_DELETE) != 0) {
            continue;
        }
        std::string path = folder_ + "/" + std::string(file);
        RefuseCutDump(folder_, path);
        return path;
    }
    return {};
}

void DumpWaiter::ThrowTimeout(std::chrono::seconds timeout) const {
    if (const std::string fault = FolderFault(folder_); !fault.empty()) {
        throw DumpWaitError(folder_ + ": " + fault);
    }
    if (IsFull(folder_)) {
        throw DumpWaitError(folder_ + ": the file system is full");
    }
    throw DumpWaitError("no dump came into " + folder_ + " within " +
                        std::to_string(timeout.count()) +
                        " s; the service's log says why: journalctl -t LOG_COMPRESSOR");
}
