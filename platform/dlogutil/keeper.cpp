#include "dlogutil/keeper.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "handles.h"

namespace dlogutil {

StateMemory::StateMemory(int fd) {
    // Successors take the bytes as they are.
    static_assert(std::is_trivially_copyable_v<ClockLines>);
    static_assert(std::is_trivially_copyable_v<LossCounts>);
    static_assert(std::atomic<uint32_t>::is_always_lock_free);
    if (ftruncate(fd, sizeof(Layout)) != 0) {
        port::ThrowErrno("the capture's state");
    }
    void* const memory = mmap(nullptr, sizeof(Layout), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        port::ThrowErrno("the capture's state");
    }
    layout_ = static_cast<Layout*>(memory);
}

StateMemory::~StateMemory() {
    static_cast<void>(munmap(layout_, sizeof(Layout)));
}

bool StateMemory::Load(CaptureState& state) const {
    const uint32_t current = layout_->current.load(std::memory_order_acquire);
    if (current == 0) {
        return false;
    }
    const Slot& slot = layout_->slots.at(current - 1);
    state.journal = {{slot.cursor.data(), slot.cursor_size}, slot.counts};
    state.clock = slot.clock;
    state.losses = slot.losses;
    state.said = slot.said;
    state.file = slot.file;
    state.text.assign(slot.text.data(), slot.text_size);
    return true;
}

void StateMemory::Save(const CaptureState& state, std::string_view text) {
    const uint32_t next = layout_->current.load(std::memory_order_relaxed) == 1 ? 2 : 1;
    Slot& slot = layout_->slots.at(next - 1);
    if (state.journal.cursor.size() > slot.cursor.size() || text.size() > slot.text.size()) {
        throw std::runtime_error("the capture's state is too large");
    }
    slot.cursor_size = state.journal.cursor.copy(slot.cursor.data(), slot.cursor.size());
    slot.counts = state.journal.counts;
    slot.clock = state.clock;
    slot.losses = state.losses;
    slot.said = state.said;
    slot.file = state.file;
    slot.text_size = text.copy(slot.text.data(), slot.text.size());
    layout_->current.store(next, std::memory_order_release);
}

void KeeperSocket::SayBegun(int argc, char** argv) const {
    std::string message = "C" + std::to_string(getpid());
    for (int i = 0; i < argc; ++i) {
        message += '\0';
        message += argv[i];
    }
    static_cast<void>(Send(message));
}

void KeeperSocket::SayState(const std::string& fault, const std::string& note,
                            const LossCounts& losses) {
    if (fd_ < 0) {
        return;
    }
    std::string reason = fault.empty() ? note : fault;
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    std::string message =
        std::string("Salive=") + (fault.empty() ? "1" : "0") + "\nreason=" + reason + "\n";
    const auto add = [&message](const char* cause, uint64_t count) {
        if (count > 0) {
            message += std::string("lost_") + cause + "=" + std::to_string(count) + "\n";
        }
    };
    add("removed", losses.removed);
    add("unreadable", losses.unreadable);
    add("left_out", losses.left_out);
    add("uncounted", losses.uncounted);
    if (message != said_ && Send(message)) {
        said_ = message;
    }
}

bool KeeperSocket::Send(const std::string& message) const {
    return send(fd_, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(message.size());
}

int InheritedFd(const char* variable, mode_t type) {
    const char* const value = std::getenv(variable);
    if (value == nullptr) {
        return -1;
    }
    const std::string_view text = value;
    int fd = -1;
    struct stat info {};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), fd);
    if (error != std::errc() || end != text.data() + text.size() || fstat(fd, &info) != 0 ||
        (info.st_mode & S_IFMT) != type) {
        throw std::runtime_error(variable + ("=" + std::string(text)) +
                                 ": not what a service hands on");
    }
    return fd;
}

}  // namespace dlogutil
