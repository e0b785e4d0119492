#include "dump/clock_line.h"

#include <algorithm>
#include <charconv>

namespace trelvo {

namespace {

bool Take(std::string_view& text, std::string_view word) {
    if (text.substr(0, word.size()) != word) {
        return false;
    }
    text.remove_prefix(word.size());
    return true;
}

// The text before the next blank or the end.
std::string_view TakeWord(std::string_view& text) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(word.size());
    return word;
}

bool IsNumber(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// SECONDS with six decimals, in microseconds.
std::optional<int64_t> TakeMicroseconds(std::string_view& text) {
    constexpr size_t kDecimals = 6;
    constexpr size_t kMostDigits = 11;  // the year 5138
    const std::string_view word = TakeWord(text);
    const size_t point = word.find('.');
    if (point == std::string_view::npos || point > kMostDigits ||
        word.size() != point + 1 + kDecimals || !IsNumber(word.substr(0, point)) ||
        !IsNumber(word.substr(point + 1))) {
        return std::nullopt;
    }
    int64_t seconds = 0;
    int64_t rest = 0;
    std::from_chars(word.data(), word.data() + point, seconds);
    std::from_chars(word.data() + point + 1, word.data() + word.size(), rest);
    return seconds * 1000000 + rest;
}

}  // namespace

std::optional<ClockLine> ReadClockLine(const Record& record) {
    if (record.source.tag != kClockTag || record.level != 'I') {
        return std::nullopt;
    }
    constexpr size_t kIdDigits = 32;
    std::string_view text = record.message;
    ClockLine line;
    if (!Take(text, "boot=")) {
        return std::nullopt;
    }
    line.boot = TakeWord(text);
    if (line.boot.size() != kIdDigits ||
        line.boot.find_first_not_of("0123456789abcdef") != std::string_view::npos ||
        !Take(text, " host=")) {
        return std::nullopt;
    }
    line.host = TakeWord(text);
    if (!Take(text, " wall=")) {
        return std::nullopt;
    }
    const auto wall_us = TakeMicroseconds(text);
    if (!wall_us || !Take(text, " monotonic=")) {
        return std::nullopt;
    }
    const auto monotonic_us = TakeMicroseconds(text);
    if (!monotonic_us || !text.empty()) {
        return std::nullopt;
    }
    constexpr int64_t kHalf = 500;  // rounds
    line.monotonic_ms = *monotonic_us / 1000;
    line.boot_time_ms = (*wall_us - *monotonic_us + kHalf) / 1000;
    return line;
}

}  // namespace trelvo
