#include "CatchUp.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "FixedPaths.h"

namespace {

// Between two passes while the capture catches up: it may wait for the reader meanwhile.
constexpr int kPoll = 10;  // milliseconds

}  // namespace

CatchUp& CatchUp::Instance() {
    static auto* const instance = new CatchUp();  // used by threads until the process is gone
    return *instance;
}

void CatchUp::Wait(boost::chrono::milliseconds limit) {
    boost::unique_lock<boost::mutex> lock(mutex_);
    state_ = State::kAsked;
    changed_.notify_all();
    changed_.wait_for(lock, limit,
                      [this] { return state_ == State::kIdle || isBusy_ || !isFollowing_; });
    hasCaughtUp_ = state_ == State::kIdle;
    state_ = State::kIdle;
}

bool CatchUp::HasCaughtUp() {
    const boost::lock_guard<boost::mutex> lock(mutex_);
    return hasCaughtUp_;
}

void CatchUp::SetFollowing(bool isFollowing) {
    const boost::lock_guard<boost::mutex> lock(mutex_);
    isFollowing_ = isFollowing;
    changed_.notify_all();
}

void CatchUp::SetBusy(bool isBusy) {
    const boost::lock_guard<boost::mutex> lock(mutex_);
    isBusy_ = isBusy;
    changed_.notify_all();
}

void CatchUp::Pause(boost::chrono::milliseconds pause, bool isComplete) {
    boost::unique_lock<boost::mutex> lock(mutex_);
    if (state_ == State::kReading && isComplete) {
        state_ = State::kIdle;
        changed_.notify_all();
    }
    if (state_ == State::kIdle) {
        connection_ = {};  // of a writer that does not wait any more
        changed_.wait_for(lock, pause, [this] { return state_ == State::kAsked; });
    }
    if (state_ == State::kAsked) {
        switch (Ask()) {
            case Capture::kAsked:
                state_ = State::kCatching;
                break;
            case Capture::kCannot:
                state_ = State::kReading;
                break;
            case Capture::kDown:
                changed_.wait_for(lock, boost::chrono::milliseconds(kPoll));
                break;
        }
        return;
    }
    if (state_ != State::kCatching) {
        return;
    }
    lock.unlock();
    pollfd answer{connection_.Get(), POLLIN, 0};
    const bool isOver = poll(&answer, 1, kPoll) > 0;
    char byte = 0;
    const bool isAnswered = isOver && recv(connection_.Get(), &byte, sizeof byte, 0) == 1;
    lock.lock();
    if (isOver && state_ == State::kCatching) {
        state_ = isAnswered ? State::kReading : State::kAsked;
    }
}

CatchUp::Capture CatchUp::Ask() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, paths::kCaptureSocket, sizeof address.sun_path - 1);
    connection_ = FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!connection_) {
        return Capture::kDown;
    }
    if (connect(connection_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
        0) {
        return Capture::kAsked;
    }
    return errno == ENOENT ? Capture::kCannot : Capture::kDown;
}
