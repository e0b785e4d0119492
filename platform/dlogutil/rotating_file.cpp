#include "dlogutil/rotating_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

namespace dlogutil {
namespace {

constexpr std::chrono::seconds kLockLimit{5};
constexpr std::chrono::milliseconds kLockPause{10};

std::error_code LastError() {
    return {errno, std::generic_category()};
}

// False when the lock is still taken after kLockLimit. Asks again and again: flock() knows no
// limit, and only a signal of the whole process could interrupt it.
bool LockFolder(int folder) {
    const auto deadline = std::chrono::steady_clock::now() + kLockLimit;
    while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) ||
            std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(kLockPause);
    }
    return true;
}

// What of these lines to write at once where the file ends at `end`: the lines that end in this
// page, or the one across its end. The kernel shows a longer text page by page, and lets others run
// in between: a reader would take the front of a line for the line, above all on a machine with one
// processor. A line that is written by itself is in two pages a moment later.
std::string_view OfOnePage(std::string_view lines, uint64_t end) {
    static const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const size_t room = page - end % page;
    if (lines.size() <= room) {
        return lines;
    }
    size_t last = lines.rfind('\n', room - 1);
    if (last == std::string_view::npos) {
        last = lines.find('\n', room);
    }
    return lines.substr(0, last == std::string_view::npos ? last : last + 1);
}

}  // namespace

RotatingFile::RotatingFile(uint64_t limit_bytes, int rotated_count, const std::string& path)
    : name_(std::filesystem::path(path).filename()),
      limit_bytes_(limit_bytes),
      rotated_count_(rotated_count) {
    if (name_.empty() || name_ == "." || name_ == "..") {
        throw std::runtime_error(path + ": not a file name");
    }
    // Without a slash at its end, which would follow a link in spite of O_NOFOLLOW.
    const std::string parent = std::filesystem::path(path).parent_path();
    const std::string folder = parent.empty() ? "." : parent;
    folder_path_ = folder + "/";
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        port::ThrowErrno(folder);
    }
    folder_ = port::UniqueFd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!folder_ || fstat(folder_.Get(), &info) != 0) {
        port::ThrowErrno(folder);
    }
    if (info.st_uid != geteuid()) {
        throw std::runtime_error(folder + ": belongs to another user, who must remove it");
    }
    if (!LockFolder(folder_.Get())) {
        throw std::runtime_error(folder + ": another dlogutil writes there");
    }
}

RotatingFile::RotatingFile(const std::string& path, uint64_t limit_bytes, int rotated_count)
    : RotatingFile(limit_bytes, rotated_count, path) {
    BeginAnew();
}

void RotatingFile::Clear(const std::string& path, int rotated_count) {
    RotatingFile file(0, rotated_count, path);
    file.BeginAnew();
}

RotatingFile::RotatingFile(const std::string& path, uint64_t limit_bytes, int rotated_count,
                           const FilePlace& from, std::string& text)
    : RotatingFile(limit_bytes, rotated_count, path) {
    RemoveLeftOver(SocketName(), S_IFSOCK);
    if (LeftOver(FreshName(), S_IFREG) == from.inode) {  // its last rotation lacks the last step
        if (renameat(folder_.Get(), FreshName().c_str(), folder_.Get(), Rotated(1).c_str()) != 0) {
            port::ThrowErrno(folder_path_ + Rotated(1));
        }
    }
    const bool exists = LeftOver(name_, S_IFREG) != 0;
    Take(exists ? port::UniqueFd(openat(folder_.Get(), name_.c_str(),
                                        O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC))
                : Create(name_));
    if (inode_ != from.inode || size_ < from.size) {
        return;  // another file, which the text begins
    }
    const auto written = static_cast<size_t>(std::min<uint64_t>(size_ - from.size, text.size()));
    const size_t whole = std::string_view(text).substr(0, written).rfind('\n') + 1;
    if (size_ != from.size + whole) {
        size_ = reserved_ = from.size + whole;
        if (ftruncate(file_.Get(), static_cast<off_t>(size_)) != 0) {
            port::ThrowErrno(folder_path_ + name_);
        }
    }
    text.erase(0, whole);
}

bool RotatingFile::HasUnread() const {
    return (size_ == 0 || size_ >= limit_bytes_) &&
           faccessat(folder_.Get(), Rotated(1).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

std::error_code RotatingFile::RotateIfFull() {
    return size_ < limit_bytes_ ? std::error_code() : Rotate();
}

std::error_code RotatingFile::Append(std::string_view& lines) {
    if (const std::error_code error = RotateIfFull()) {
        return error;
    }
    std::string_view part = lines;
    const uint64_t space = limit_bytes_ - size_;
    if (part.size() > space) {  // up to the line that fills the file
        part = part.substr(0, part.find('\n', static_cast<size_t>(space) - 1) + 1);
    }
    // A full file system is met here, where no reader sees half a line.
    const uint64_t end = size_ + part.size();
    if (end > reserved_) {
        if (fallocate(file_.Get(), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(size_),
                      static_cast<off_t>(part.size())) == 0) {
            reserved_ = end;
        } else if (errno == ENOSPC || errno == EDQUOT) {
            return LastError();
        }
    }
    size_t written = 0;
    std::error_code error;
    while (written < part.size() && !error) {
        const std::string_view piece = OfOnePage(part.substr(written), size_ + written);
        const ssize_t count = write(file_.Get(), piece.data(), piece.size());
        if (count != static_cast<ssize_t>(piece.size())) {
            error = count < 0 ? LastError() : std::make_error_code(std::errc::no_space_on_device);
        }
        written += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    size_t whole = part.size();
    if (error) {
        whole = part.substr(0, written).rfind('\n') + 1;
        reserved_ = size_ + whole;
        if (ftruncate(file_.Get(), static_cast<off_t>(reserved_)) != 0) {
            port::ThrowErrno(folder_path_ + name_);
        }
    }
    size_ += whole;
    lines.remove_prefix(whole);
    return error;
}

port::UniqueFd RotatingFile::Listen() const {
    port::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // Relative to the opened folder, which no system call can do for sockets.
    const std::string fresh = SocketName() + ".new";
    const std::string path = "/proc/self/fd/" + std::to_string(folder_.Get()) + "/" + fresh;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        port::ThrowErrno(folder_path_ + SocketName());
    }
    path.copy(address.sun_path, path.size());
    // The mode of the socket becomes that of its name. A name that is taken is not followed.
    // Whoever sees the final name may connect to it.
    static_cast<void>(unlinkat(folder_.Get(), fresh.c_str(), 0));
    if (!listener || fchmod(listener.Get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0 ||
        renameat(folder_.Get(), fresh.c_str(), folder_.Get(), SocketName().c_str()) != 0) {
        port::ThrowErrno(folder_path_ + SocketName());
    }
    return listener;
}

std::string RotatingFile::Rotated(int number) const {
    return name_ + "." + std::to_string(number);
}

std::string RotatingFile::FreshName() const {
    return name_ + ".new";
}

std::string RotatingFile::SocketName() const {
    return name_ + ".sync";
}

void RotatingFile::Take(port::UniqueFd file) {
    struct stat info {};
    if (!file || fstat(file.Get(), &info) != 0) {
        port::ThrowErrno(folder_path_ + name_);
    }
    file_ = std::move(file);
    inode_ = info.st_ino;
    size_ = static_cast<uint64_t>(info.st_size);
    reserved_ = size_;
}

uint64_t RotatingFile::LeftOver(const std::string& name, mode_t type) const {
    struct stat info {};
    if (fstatat(folder_.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return 0;
        }
        port::ThrowErrno(folder_path_ + name);
    }
    if ((info.st_mode & S_IFMT) != type || info.st_uid != geteuid() || info.st_nlink != 1) {
        throw std::runtime_error(folder_path_ + name + ": not a plain " +
                                 (type == S_IFREG ? "file" : "socket") + " of this user's own");
    }
    return info.st_ino;
}

void RotatingFile::RemoveLeftOver(const std::string& name, mode_t type) const {
    if (LeftOver(name, type) != 0 && unlinkat(folder_.Get(), name.c_str(), 0) != 0) {
        port::ThrowErrno(folder_path_ + name);
    }
}

void RotatingFile::BeginAnew() {
    RemoveLeftOver(name_, S_IFREG);
    RemoveLeftOver(FreshName(), S_IFREG);
    RemoveLeftOver(SocketName(), S_IFSOCK);
    for (int number = 1; number <= rotated_count_; ++number) {
        RemoveLeftOver(Rotated(number), S_IFREG);
    }
    Take(Create(name_));
}

port::UniqueFd RotatingFile::Create(const std::string& name) const {
    // O_EXCL: a file that somebody put there in the meantime is not written to.
    return port::UniqueFd(openat(folder_.Get(), name.c_str(),
                                 O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 S_IRUSR | S_IWUSR));
}

// Can be called again after an error, wherever it stopped. The new file takes the old one's place
// by an exchange of their names: a reader that finds no current file gives up the pass and its
// count.
std::error_code RotatingFile::Rotate() {
    // Is only there after an error.
    if (unlinkat(folder_.Get(), FreshName().c_str(), 0) != 0 && errno != ENOENT) {
        return LastError();
    }
    port::UniqueFd fresh = Create(FreshName());
    if (!fresh) {
        return LastError();
    }
    const auto rename = [this](const std::string& from, const std::string& to) {
        // The reader removes rotated files when it has read them.
        return renameat(folder_.Get(), from.c_str(), folder_.Get(), to.c_str()) == 0 ||
               errno == ENOENT;
    };
    for (int number = rotated_count_; number > 1; --number) {
        if (!rename(Rotated(number - 1), Rotated(number))) {
            return LastError();
        }
    }
    const auto exchange = [this] {
        return renameat2(folder_.Get(), FreshName().c_str(), folder_.Get(), name_.c_str(),
                         RENAME_EXCHANGE) == 0;
    };
    bool exchanged = false;
    if (rotated_count_ > 0) {
        exchanged = exchange();
        // Neither is a reason to stop: somebody removed the file, or names cannot be exchanged
        // here.
        if (!exchanged && errno != ENOENT && errno != EINVAL) {
            return LastError();
        }
        if (!rename(exchanged ? FreshName() : name_, Rotated(1))) {
            const std::error_code error = LastError();
            static_cast<void>(exchanged && exchange());
            return error;
        }
    }
    if (!exchanged && !rename(FreshName(), name_)) {
        return LastError();
    }
    Take(std::move(fresh));
    return {};
}

}  // namespace dlogutil
