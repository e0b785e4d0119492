#include "io/input.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace trelvo {

namespace {

constexpr size_t kPiece = size_t{64} * 1024;

std::system_error LastError() {
    return {errno, std::generic_category()};
}

// The errors that the system has no number for.
class InputErrors : public std::error_category {
public:
    [[nodiscard]] const char* name() const noexcept override { return "input"; }
    [[nodiscard]] std::string message(int /*value*/) const override {
        return "not a regular file; a pipe is read as standard input, '-'";
    }
};

// What to open a path with: a FIFO must not be waited for.
constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

}  // namespace

FileInput::FileInput(const std::string& path, Observer observer)
    : path_(path),
      observer_(std::move(observer)),
      fd_(path == kStandardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                 : open(path.c_str(), kFlags)) {
    if (!fd_) {
        throw LastError();
    }
    struct stat status {};
    const bool is_known = fstat(fd_.Get(), &status) == 0;
    if (is_known && path != kStandardInput) {
        RefuseOthers(status);
    }
    if (is_known && S_ISREG(status.st_mode)) {
        start_ = lseek(fd_.Get(), 0, SEEK_CUR);
        seekable_ = start_ >= 0;
        can_park_ = seekable_ && path != kStandardInput;
        device_ = status.st_dev;
        inode_ = status.st_ino;
        write_time_ = status.st_mtim;
        MemoryCharge::AdmitFile(status);
    }
    if (can_park_) {
        Use();
    }
}

void FileInput::RefuseOthers(const struct stat& status) {
    struct statfs system {};
    std::error_code error;
    if (S_ISDIR(status.st_mode)) {
        error = std::make_error_code(std::errc::is_a_directory);
    } else if (S_ISFIFO(status.st_mode) && fstatfs(fd_.Get(), &system) == 0 &&
               system.f_type == PIPEFS_MAGIC) {
        static_cast<void>(fcntl(fd_.Get(), F_SETFL, 0));  // its bytes are waited for
    } else if (!S_ISREG(status.st_mode)) {
        static const InputErrors errors;
        error = std::error_code(1, errors);
    }
    if (error) {
        throw std::system_error(error);
    }
}

void FileInput::Reopen() {
    fd_ = port::UniqueFd(open(path_.c_str(), kFlags));
    struct stat status {};
    if (!fd_ || fstat(fd_.Get(), &status) != 0) {
        throw LastError();
    }
    if (status.st_dev != device_ || status.st_ino != inode_) {
        throw std::system_error(ESTALE, std::generic_category());
    }
}

size_t FileInput::ReadFile(char* data, size_t size) {
    if (can_park_) {
        Use();
    }
    if (!fd_) {
        Reopen();
    }
    ssize_t count = 0;
    do {
        count = seekable_ ? pread(fd_.Get(), data, size, start_ + static_cast<off_t>(position_))
                          : read(fd_.Get(), data, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        throw LastError();
    }
    if (observer_) {
        observer_(static_cast<size_t>(count));
    }
    return static_cast<size_t>(count);
}

size_t FileInput::Read(char* data, size_t size) {
    if (position_ < kept_size_) {
        const std::string& piece = kept_[static_cast<size_t>(position_ / kPiece)];
        const size_t count = piece.copy(data, size, position_ % kPiece);
        position_ += count;
        return count;
    }
    const bool keeping = !seekable_ && keep_;
    if (keeping) {
        size = std::min<size_t>(size, kPiece - kept_size_ % kPiece);
    }
    const size_t count = ReadFile(data, size);
    position_ += count;
    if (!seekable_) {
        MemoryCharge::Admit(count);
    }
    if (keeping && count > 0) {
        if (kept_size_ % kPiece == 0) {
            kept_.emplace_back().reserve(kPiece);
        }
        kept_.back().append(data, count);
        kept_size_ += count;
        if (!kept_charge_.Set(kept_size_)) {
            throw std::system_error(ENOMEM, std::generic_category());
        }
    }
    return count;
}

}  // namespace trelvo
