#include "collect/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace trelvo {

namespace {

// Gives what a call gives that is not interrupted.
template <typename Call>
auto Retry(const Call& call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

}  // namespace

File::File(int folder, const std::string& name, int flags)
    : name_(name),
      fd_(openat(folder, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (fd_ < 0) {
        Throw();
    }
}

File::~File() {
    static_cast<void>(close(fd_));  // Sync has told what there is to tell
}

struct stat File::Status() const {
    struct stat status {};
    if (fstat(fd_, &status) != 0) {
        Throw();
    }
    return status;
}

size_t File::Read(char* data, size_t size) const {
    const ssize_t count = Retry([&] { return read(fd_, data, size); });
    if (count < 0) {
        Throw();
    }
    return static_cast<size_t>(count);
}

void File::Write(const char* data, size_t size) const {
    while (size > 0) {
        const ssize_t count = Retry([&] { return write(fd_, data, size); });
        if (count < 0) {
            Throw();
        }
        data += count;
        size -= static_cast<size_t>(count);
    }
}

void File::Sync() const {
    if (fsync(fd_) != 0) {
        Throw();
    }
}

void File::Throw() const {
    throw std::system_error(errno, std::generic_category(), name_);
}

void ReplaceFile(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    const File file(AT_FDCWD, temporary, O_WRONLY | O_CREAT | O_TRUNC);
    file.Write(text.data(), text.size());
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        file.Throw();
    }
}

}  // namespace trelvo
