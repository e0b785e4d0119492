#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <string_view>

// The stateless half of the line analysis; CUtility is its front and keeps the last log time.
//
//   1234.567 I/MY_TAG  (P 1234, T 1240): main.c: run(52) > started
//   time     level/tag   pid     tid     writer's prefix   message
//
// Every delimiter is searched from the start of the line. One that is missing is not refused here:
// its position is then the largest unsigned value, and the arithmetic on it wraps, which decides
// what is read instead. Numbers are read as std::stof and std::stoi read them, exceptions included.
namespace line {

// Without blanks and tabs at both ends.
[[nodiscard]] std::string_view TrimBlanks(std::string_view text);

// Without the classic locale's white space at the start.
[[nodiscard]] std::string_view TrimLeadingSpace(std::string_view text);

// The text before the first `delimiter`; all of it when there is none.
[[nodiscard]] std::string_view Before(std::string_view text, std::string_view delimiter);

// text.substr(pos, count) without the copy; throws what std::string::substr throws.
[[nodiscard]] std::string_view Slice(const std::string& text, size_t pos,
                                     size_t count = std::string::npos);

// Truncates towards zero. Out of range saturates and not-a-number is 0, which is what the device's
// processors do where the language leaves the conversion undefined.
template <typename Integer, typename Real>
[[nodiscard]] Integer Saturate(Real value) {
    using Limits = std::numeric_limits<Integer>;
    // The largest Integer may be no Real; the power of two above it always is.
    const Real limit = std::ldexp(Real{1}, Limits::digits);
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= limit) {
        return Limits::max();
    }
    return value < -limit ? Limits::min() : static_cast<Integer>(value);
}

[[nodiscard]] bool IsLogLine(std::string_view text);

// Milliseconds. Single precision throughout, so large uptimes are rounded to a few milliseconds.
[[nodiscard]] int Time(const std::string& text);

// The character after the first blank; 0 when the line ends there.
[[nodiscard]] char Level(const std::string& text);

[[nodiscard]] std::string_view Tag(const std::string& text);
[[nodiscard]] int Pid(const std::string& text);
[[nodiscard]] int Tid(const std::string& text);

// Without the line feeds in it.
[[nodiscard]] std::string Message(const std::string& text);

}  // namespace line
