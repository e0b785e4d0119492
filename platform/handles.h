#pragma once

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace port {

// Owns a file descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~UniqueFd() {
        if (fd_ >= 0) {
            static_cast<void>(close(fd_));
        }
    }

    [[nodiscard]] int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

template <auto Free>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

// Owns what a C library releases with `Free`.
template <typename T, auto Free>
using Handle = std::unique_ptr<T, Releaser<Free>>;

// Throws `what` together with the text of errno.
[[noreturn]] inline void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace port
