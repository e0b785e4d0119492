#include "train/capture_line.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

namespace trelvo {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kSpace = " \t\n\v\f\r";

std::string_view Trim(std::string_view text, std::string_view set) {
    text.remove_prefix(std::min(text.find_first_not_of(set), text.size()));
    return text.substr(0, text.find_last_not_of(set) + 1);  // npos + 1 is 0
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// False for a start beyond the end.
bool Cut(std::string_view text, size_t start, size_t count, std::string_view& part) {
    if (start > text.size()) {
        return false;
    }
    part = text.substr(start, count);
    return true;
}

// What the C library reads at the start of the text: also hexadecimal numbers and infinity.
std::optional<float> ReadUnusualReal(std::string_view text) {
    const std::string copy(text);
    char* end = nullptr;
    errno = 0;
    const float value = std::strtof(copy.c_str(), &end);
    if (end == copy.c_str() || errno == ERANGE) {
        return std::nullopt;
    }
    return value;
}

std::optional<float> ReadReal(std::string_view text) {
    if (text.size() > 1 && IsDigit(text[0]) && (IsDigit(text[1]) || text[1] == '.')) {
        float value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error == std::errc{} && (value == 0 || std::isnormal(value))) {
            return value;
        }
    }
    return ReadUnusualReal(text);
}

// Out of range saturates and not-a-number is 0, as on the device.
int32_t Milliseconds(float seconds) {
    constexpr float kLimit = 2147483648.0F;
    const float milliseconds = seconds * 1000.0F;
    if (std::isnan(milliseconds)) {
        return 0;
    }
    if (milliseconds >= kLimit) {
        return std::numeric_limits<int32_t>::max();
    }
    return milliseconds < -kLimit ? std::numeric_limits<int32_t>::min()
                                  : static_cast<int32_t>(milliseconds);
}

// Takes the number at the start, whatever follows it.
bool ReadInteger(std::string_view text, int32_t& value) {
    text = Trim(text, kSpace);
    if (text.size() > 1 && text[0] == '+' && IsDigit(text[1])) {
        text.remove_prefix(1);
    }
    return std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc{};
}

bool IsLogLine(std::string_view line) {
    const size_t prefix_end = line.find(" > ");
    if (prefix_end == std::string_view::npos || line.find("):") == std::string_view::npos) {
        return false;
    }
    const size_t slash = line.substr(0, prefix_end).find('/');
    return slash != std::string_view::npos &&
           line.substr(0, slash).find(' ') != std::string_view::npos;
}

}  // namespace

std::optional<CaptureLine> ParseCaptureLine(std::string_view line) {
    line = Trim(line, kBlanks);
    if (!IsLogLine(line)) {
        return std::nullopt;
    }
    line.remove_prefix(std::min(line.find_first_not_of(kSpace), line.size()));

    const size_t blank = line.find(' ');
    const size_t slash = line.find('/');
    const size_t pid = line.find("(P");
    const size_t tid = line.find(", T");
    const std::optional<float> seconds = ReadReal(line.substr(0, blank));
    std::string_view level;
    std::string_view tag;
    std::string_view pid_text;
    std::string_view tid_text;
    CaptureLine result;
    if (!seconds || !Cut(line, blank + 1, 1, level) ||
        !Cut(line, slash + 1, pid - slash - 1, tag) ||
        !Cut(line, pid + 2, tid - pid - 2, pid_text) ||
        !Cut(line, tid + 3, line.find("):") - tid - 3, tid_text) ||
        !ReadInteger(pid_text, result.pid) || !ReadInteger(tid_text, result.tid) ||
        !Cut(line, line.find(" > ") + 3, std::string_view::npos, result.message)) {
        return std::nullopt;
    }
    result.time_ms = Milliseconds(*seconds);
    result.level = level.empty() ? '\0' : level.front();
    result.tag = Trim(tag, kSpace);
    return result;
}

}  // namespace trelvo
