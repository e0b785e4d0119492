#pragma once

#include <algorithm>
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

// std::string::substr without the copy; throws what that throws.
[[nodiscard]] inline std::string_view Slice(std::string_view text, size_t pos,
                                            size_t count = std::string_view::npos) {
    if (pos > text.size()) {
        static_cast<void>(std::string(text).substr(pos));  // throws, in std::string's own words
    }
    return {text.data() + pos, std::min(count, text.size() - pos)};
}

// Truncates towards zero. Out of range saturates and not-a-number is 0, which is what the device's
// processors do where the language leaves the conversion undefined.
template <typename Integer, typename Real>
[[nodiscard]] Integer Saturate(Real value) {
    using Limits = std::numeric_limits<Integer>;
    // A Real may not hold the largest Integer; it always holds the power of two above it.
    constexpr Integer half = Limits::max() / 2 + 1;
    constexpr Real limit = static_cast<Real>(half) * 2;
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= limit) {
        return Limits::max();
    }
    return value < -limit ? Limits::min() : static_cast<Integer>(value);
}

// std::stof and std::stoi of white-space trimmed text, without a copy where the text is nothing but
// a few digits (and one point).
[[nodiscard]] float ToFloat(std::string_view text);
[[nodiscard]] int ToInt(std::string_view text);

// A line with its delimiters found once, for all fields. Borrows the text, which must outlive it
// and every field that is a view.
class LogLine {
public:
    explicit LogLine(std::string_view text);

    // True for a line with "):" and " > " and, before the first " > ", a blank ahead of a "/".
    [[nodiscard]] bool IsRecognised() const;

    // The same line for reading its fields, which start behind leading white space.
    [[nodiscard]] LogLine WithoutLeadingSpace() const;

    // The fields. REQUIRES: no leading white space.

    // Milliseconds. Single precision throughout, so large uptimes are rounded to a few
    // milliseconds.
    [[nodiscard]] int Time() const;
    // The character after the first blank; 0 when the line ends there.
    [[nodiscard]] char Level() const;
    [[nodiscard]] std::string_view Tag() const;
    [[nodiscard]] int Pid() const;
    [[nodiscard]] int Tid() const;
    // Without the line feeds in it; `joined` holds the message where there are any.
    [[nodiscard]] std::string_view Message(std::string& joined) const;

private:
    std::string_view text_;
    size_t blank_;    // the first ' '
    size_t slash_;    // "/"
    size_t process_;  // "(P"
    size_t thread_;   // ", T"
    size_t close_;    // "):"
    size_t arrow_;    // " > "
};

}  // namespace line
