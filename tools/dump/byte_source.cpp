#include "dump/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

std::system_error LastError() {
    return {errno, std::generic_category()};
}

}  // namespace

FileSource::FileSource(const std::string& path, Observer observer)
    : observer_(std::move(observer)),
      fd_(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                      : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) {
        throw LastError();
    }
    struct stat status {};
    if (fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
        start_ = lseek(fd_, 0, SEEK_CUR);
        seekable_ = start_ >= 0;
        write_time_ = status.st_mtim;
    }
}

FileSource::~FileSource() {
    // Nothing was written, so closing has nothing to report.
    static_cast<void>(close(fd_));
}

size_t FileSource::Read(char* data, size_t size) {
    if (position_ < kept_.size()) {
        const size_t count = kept_.copy(data, size, position_);
        position_ += count;
        return count;
    }
    ssize_t count = 0;
    do {
        count = seekable_ ? pread(fd_, data, size, start_ + static_cast<off_t>(position_))
                          : read(fd_, data, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        throw LastError();
    }
    if (!seekable_ && keep_) {
        kept_.append(data, static_cast<size_t>(count));
    }
    if (observer_) {
        observer_(static_cast<size_t>(count));
    }
    position_ += static_cast<uint64_t>(count);
    return static_cast<size_t>(count);
}
