#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dlogutil/clock_lines.h"
#include "dlogutil/journal_follower.h"
#include "dlogutil/losses.h"
#include "dlogutil/rotating_file.h"

namespace dlogutil {

// Where a capture has come to: all that its successor needs to go on as if nothing had happened.
struct CaptureState {
    JournalPlace journal;
    ClockLines clock;
    LossCounts losses;
    LossCounts said;  // of the losses
    FilePlace file;
    std::string text;  // whole lines, to be written at `file`
};

// The memory in which a capture keeps its state, so that it outlives the process: a file of memory
// that the service holds and hands to one capture after the other.
//
// There are two slots, of which one counts: at whatever instruction the process is killed, the
// state is the last one saved or the one before.
class StateMemory {
public:
    // The file is all zeros when no capture has used it. Throws std::system_error.
    explicit StateMemory(int fd);
    StateMemory(const StateMemory&) = delete;
    StateMemory& operator=(const StateMemory&) = delete;
    ~StateMemory();

    // False when none was saved.
    [[nodiscard]] bool Load(CaptureState& state) const;
    // Throws std::runtime_error when the text is longer than any that a capture makes.
    void Save(const CaptureState& state, std::string_view text);

private:
    struct Slot {
        std::array<char, 512> cursor;
        size_t cursor_size;
        JournalPlace::Counts counts;
        ClockLines clock;
        LossCounts losses;
        LossCounts said;
        FilePlace file;
        size_t text_size;
        std::array<char, size_t{1} << 20> text;
    };
    struct Layout {
        std::atomic<uint32_t> current;  // 1 or 2; 0 for none
        std::array<Slot, 2> slots;
    };

    Layout* layout_;
};

// The socket to the service that started the capture, which is told who the capture is and how.
// Each message is one datagram:
//
//   'C' <pid> NUL <argument> NUL ...      the process has begun
//   'S' alive=0|1 LF reason=<text> LF lost_<cause>=<n> LF ...
class KeeperSocket {
public:
    // -1 for none.
    explicit KeeperSocket(int fd) : fd_(fd) {}

    void SayBegun(int argc, char** argv) const;
    // `fault` is why lines do not reach the file at the moment, empty when they do; `note` is what
    // is to be known all the same. Sends what has changed.
    void SayState(const std::string& fault, const std::string& note, const LossCounts& losses);

private:
    [[nodiscard]] bool Send(const std::string& message) const;

    int fd_;
    std::string said_;
};

// What the service's environment says; -1 where no service started this program. Throws
// std::runtime_error when it names anything but a descriptor of that type (S_IFREG, S_IFSOCK ...).
[[nodiscard]] int InheritedFd(const char* variable, mode_t type);

}  // namespace dlogutil
