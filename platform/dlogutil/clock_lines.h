#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace dlogutil {

// The times of a line count from the boot, in a format that loses its precision after days. Clock
// lines tell a reader which wall clock they stand for. This decides before which lines one is due:
//
//   before the first line;
//   when the wall clock was set, or the journal took a line late: by more than 20 ms;
//   before a line that comes ten minutes after the last clock line or later;
//   past the time that a line can hold, before the first line of each second.
//
// All times are microseconds.
class ClockLines {
public:
    // `usec` is the line's own time, `wall_usec` its wall clock since the epoch. Where the answer
    // is yes, the caller writes the clock line.
    [[nodiscard]] bool IsDue(uint64_t usec, uint64_t wall_usec);

private:
    struct Times {
        uint64_t usec;
        uint64_t wall_usec;
    };
    std::optional<Times> last_;  // of the last clock line
};

// "boot=<32 hexadecimal digits> host=<name> wall=<s>.<6 digits> monotonic=<s>.<6 digits>". Bytes of
// the host's name outside [A-Za-z0-9._-] become '?', and it is cut at 64.
[[nodiscard]] std::string ClockMessage(const std::string& boot, std::string host, uint64_t usec,
                                       uint64_t wall_usec);

}  // namespace dlogutil
