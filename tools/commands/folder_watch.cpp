#include "commands/folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "commands/input_files.h"

namespace trelvo {

FolderWatch::FolderWatch(std::string folder)
    : folder_(std::move(folder)), fd_(inotify_init1(IN_CLOEXEC)) {
    if (fd_ < 0 || inotify_add_watch(fd_, folder_.c_str(),
                                     IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVE_SELF | IN_DELETE_SELF |
                                         IN_ONLYDIR) < 0) {
        const std::system_error error(errno, std::generic_category(), folder_);
        static_cast<void>(close(fd_));
        throw error;
    }
}

FolderWatch::~FolderWatch() {
    static_cast<void>(close(fd_));
}

std::string FolderWatch::Wait() {
    for (;;) {
        while (events_.size() >= sizeof(inotify_event)) {
            inotify_event event;
            std::memcpy(&event, events_.data(), sizeof event);
            const std::string name = event.len == 0 ? "" : events_.data() + sizeof event;
            events_.erase(0, sizeof event + event.len);
            if ((event.mask & (IN_MOVE_SELF | IN_DELETE_SELF | IN_IGNORED)) != 0) {
                return {};
            }
            if (IsDumpName(name)) {
                return folder_ + "/" + name;
            }
        }
        std::array<char, 4096> buffer;
        const ssize_t size = read(fd_, buffer.data(), buffer.size());
        if (size > 0) {
            events_.append(buffer.data(), static_cast<size_t>(size));
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), folder_);
        }
    }
}

}  // namespace trelvo
