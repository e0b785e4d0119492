#include "io/folder_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace trelvo {

FolderWatch::FolderWatch(std::string folder)
    : folder_(std::move(folder)), fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (fd_) {
        watch_ = inotify_add_watch(fd_.Get(), folder_.c_str(),
                                   IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO |
                                       IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR);
    }
    if (watch_ < 0) {
        port::ThrowErrno(folder_);
    }
}

void FolderWatch::WakeFor(const std::string& other_folder) {
    // It may be the watched one, of which all is still told.
    static_cast<void>(
        inotify_add_watch(fd_.Get(), other_folder.c_str(), IN_MOVED_TO | IN_MASK_ADD));
}

void FolderWatch::Wait(std::optional<TimePoint> until) const {
    int left_ms = -1;
    if (until) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*until - std::chrono::steady_clock::now());
        left_ms = static_cast<int>(std::max<int64_t>(left.count(), 0));
    }
    pollfd events{fd_.Get(), POLLIN, 0};
    static_cast<void>(poll(&events, 1, left_ms));
}

// Where a file cannot be renamed without replacing another, the dump is a link to the hidden one,
// which is removed then.
bool FolderWatch::IsDump(const std::string& name) const {
    if (hidden_.empty()) {
        return false;
    }
    const std::filesystem::path folder(folder_);
    std::error_code error;
    return !std::filesystem::exists(folder / hidden_, error) ||
           std::filesystem::equivalent(folder / hidden_, folder / name, error);
}

std::optional<FolderWatch::Event> FolderWatch::Take() {
    for (;;) {
        while (events_.size() >= sizeof(inotify_event)) {
            inotify_event head;
            std::memcpy(&head, events_.data(), sizeof head);
            Event event;
            event.name = head.len == 0 ? "" : events_.data() + sizeof head;
            event.lost = (head.mask & IN_Q_OVERFLOW) != 0;
            event.gone = (head.mask & (IN_MOVE_SELF | IN_DELETE_SELF | IN_IGNORED)) != 0;
            events_.erase(0, sizeof head + head.len);
            if ((head.mask & IN_MOVED_FROM) != 0) {
                if (event.name == hidden_) {
                    hidden_.clear();
                }
                continue;
            }
            if ((head.mask & IN_CREATE) != 0) {
                event.complete = false;
                if (event.name.substr(0, kHiddenStart.size()) == kHiddenStart) {
                    hidden_ = event.name;
                } else if (IsDump(event.name)) {
                    event.complete = true;
                    hidden_.clear();
                }
            }
            if (head.wd == watch_ || event.lost) {
                return event;
            }
        }
        std::array<char, 4096> buffer;
        const ssize_t size = read(fd_.Get(), buffer.data(), buffer.size());
        if (size <= 0) {
            return std::nullopt;
        }
        events_.append(buffer.data(), static_cast<size_t>(size));
    }
}

}  // namespace trelvo
