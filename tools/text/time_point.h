#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace trelvo {

// What a filter was made from cannot be used. what() is one line that quotes it.
class FilterError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct TimePoint {
    enum class Kind {
        kSinceBoot,
        kFromEnd,  // of the log
        kWall,     // since 1970
    };

    int64_t ms = 0;  // before the end: negative or 0
    Kind kind = Kind::kSinceBoot;
};

// A time as people write it:
//   12.5                                          seconds since boot
//   -30s, -5m, -2h, -1d                           before the end of the log
//   2026-11-25 00:54[:10[.123]], also with a T and with Z or +01:00 behind
//   2026-11-25, 00:54[:10], today, yesterday, now, 10 min ago      by the clock on the wall
// in UTC or else in the machine's time zone. Throws FilterError.
[[nodiscard]] TimePoint ParseTimePoint(const std::string& text, bool utc);

// Milliseconds since 1970 of a date, a time of today, or both; nothing for other text.
[[nodiscard]] std::optional<int64_t> ParseWallTime(const std::string& text, bool utc);

}  // namespace trelvo
