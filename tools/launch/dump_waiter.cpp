#include "launch/dump_waiter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/launch_interface.h"

namespace trelvo {

namespace {

constexpr std::chrono::seconds kAskAgain{1};
// What does not come as an event, such as the end of the service, is looked for so often.
constexpr std::chrono::seconds kLookAgain{1};
constexpr std::string_view kNameStart = "trelvo";
constexpr std::string_view kNameEnd = ".dump";
constexpr std::string_view kCompressedNameEnd = ".dump.zst";

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

// Throws DumpWaitError where no dump can be written there.
FolderWatch WatchFor(const std::string& folder) {
    if (const std::string fault = FolderFault(folder); !fault.empty()) {
        throw DumpWaitError(folder + ": " + fault);
    }
    try {
        return FolderWatch(folder);
    } catch (const std::system_error& error) {
        throw DumpWaitError(folder + ": cannot be watched: " + error.code().message());
    }
}

// Root may ask another user's service, to whom the runtime folder then belongs.
uid_t ServiceUser(const std::string& runtime_folder) {
    struct stat status {};
    return geteuid() == 0 && lstat(runtime_folder.c_str(), &status) == 0 ? status.st_uid
                                                                         : geteuid();
}

// Root's service may use what is reserved for root.
bool IsFull(const std::string& folder, uid_t user) {
    struct statvfs status {};
    return statvfs(folder.c_str(), &status) == 0 &&
           ((user == 0 ? status.f_bfree : status.f_bavail) == 0 ||
            (status.f_files != 0 && status.f_ffree == 0));
}

bool IsServiceDump(std::string_view name, std::string_view end) {
    return name.size() >= kNameStart.size() + end.size() &&
           name.substr(0, kNameStart.size()) == kNameStart &&
           name.substr(name.size() - end.size()) == end;
}

// As the service publishes a path: in one line.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

ServiceFile::ServiceFile(const std::string& path, const std::string& runtime_folder)
    : fd_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
    struct stat status {};
    std::string fault;
    if (!fd_ || fstat(fd_.Get(), &status) != 0) {
        fault = LastError();
    } else if (!S_ISREG(status.st_mode)) {
        fault = "not a regular file";
    } else if (status.st_uid != ServiceUser(runtime_folder) && status.st_uid != 0) {
        fault = "belongs to user " + std::to_string(status.st_uid);
    }
    if (!fault.empty()) {
        throw DumpWaitError(path + ": " + fault + ": not what the service has written");
    }
}

std::string ServiceFile::OpenPath() const {
    return "/proc/self/fd/" + std::to_string(fd_.Get());
}

DumpWaiter::DumpWaiter(std::string runtime_folder, std::string folder, bool compressed)
    : runtime_folder_(std::move(runtime_folder)),
      folder_(std::move(folder)),
      name_end_(compressed ? kCompressedNameEnd : kNameEnd),
      watch_(WatchFor(folder_)) {}

std::string DumpWaiter::Wait(const Ask& ask, std::chrono::seconds timeout) {
    const auto deadline = Clock::now() + timeout;
    const ServiceStatus before = ReadServiceStatus(runtime_folder_);
    pid_ = before.pid;
    dumps_ = before.service.Number("dumps").value_or(0);
    auto pause = kAskAgain;
    auto step = Step::kAsk;
    for (auto next_ask = Clock::now(); step != Step::kDone; step = Look()) {
        const auto now = Clock::now();
        if (now >= deadline) {
            ThrowTimeout(timeout);
        }
        if (step == Step::kAsk || (step == Step::kWaitOrAsk && now >= next_ask)) {
            ask(deadline);
            NoteService();
            next_ask = Clock::now() + pause;
            pause *= 2;
        } else {
            const auto until = std::min(deadline, now + kLookAgain);
            watch_.Wait(step == Step::kWaitOrAsk ? std::min(until, next_ask) : until);
        }
    }
    return path_;
}

void DumpWaiter::NoteService() {
    // Before the status is read, so that no change goes unseen. The folder may not be there.
    const std::string file = runtime_folder_ + "/" + launch_interface::kStatusFile;
    watch_.WakeFor(file.substr(0, file.rfind('/')));
    const ServiceStatus status = ReadServiceStatus(runtime_folder_);
    if (status.pid != pid_) {
        pid_ = status.pid;
        dumps_ = 0;
    }
}

DumpWaiter::Step DumpWaiter::Look() {
    TakeEvents();
    const ServiceStatus status = ReadServiceStatus(runtime_folder_);
    if (const auto dumps = status.service.Number("dumps")) {
        return LookAtStatus(status, *dumps);
    }
    if (!seen_.empty()) {
        try {
            static_cast<void>(ServiceFile(seen_, runtime_folder_));
            path_ = seen_;
            return Step::kDone;
        } catch (const DumpWaitError&) {
            seen_.clear();  // somebody else's
        }
    }
    return under_way_ ? Step::kWait : Step::kWaitOrAsk;
}

DumpWaiter::Step DumpWaiter::LookAtStatus(const ServiceStatus& status, int64_t dumps) {
    if (status.pid != pid_) {
        return Step::kAsk;
    }
    if (dumps == dumps_) {
        return dumps == 0 ? Step::kWaitOrAsk : Step::kWait;
    }
    // What has ended while another one is asked for need not be what was asked for here, and a dump
    // that failed does not tell its folder.
    const bool is_pending = status.service.Number("pending") == 1;
    if (TakeEnd(status.service, is_pending)) {
        return Step::kDone;
    }
    if (is_pending) {
        return Step::kWait;
    }
    dumps_ = dumps;
    return Step::kAsk;
}

bool DumpWaiter::TakeEnd(const Fields& service, bool is_pending) {
    if (service.Text("last_dump_trigger") != "request") {
        return false;
    }
    const std::string path = service.Text("last_dump_path").value_or("");
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string expected = (folder_ == "/" ? "" : folder_) + "/" + name;
    const std::string result = service.Text("last_dump_result").value_or("");
    if (path.empty() && is_pending) {
        return false;
    }
    if (path.empty() || result != "written") {
        throw DumpWaitError(folder_ + ": the dump could not be written: " + result);
    }
    if (path != OneLine(expected) || !IsServiceDump(name, name_end_)) {
        return false;
    }
    path_ = expected;
    return true;
}

void DumpWaiter::TakeEvents() {
    while (const auto event = watch_.Take()) {
        if (event->gone) {
            throw DumpWaitError(folder_ + ": the folder was moved or removed");
        }
        const bool is_hidden =
            event->name.substr(0, FolderWatch::kHiddenStart.size()) == FolderWatch::kHiddenStart;
        if (!is_hidden && !IsServiceDump(event->name, name_end_)) {
            continue;
        }
        under_way_ = true;
        if (!is_hidden && event->complete) {
            seen_ = folder_ + "/" + event->name;
        }
    }
}

void DumpWaiter::ThrowTimeout(std::chrono::seconds timeout) const {
    if (const std::string fault = FolderFault(folder_); !fault.empty()) {
        throw DumpWaitError(folder_ + ": " + fault);
    }
    if (IsFull(folder_, ServiceUser(runtime_folder_))) {
        throw DumpWaitError(folder_ + ": the file system is full");
    }
    throw DumpWaitError("no dump came into " + folder_ + " within " +
                        std::to_string(timeout.count()) +
                        " s; the service's log says why: journalctl -t LOG_COMPRESSOR");
}

}  // namespace trelvo
