#include "dlogutil/clock_lines.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace dlogutil {
namespace {

constexpr uint64_t kSecond = 1000000;
constexpr uint64_t kMaxDrift = 20000;
constexpr uint64_t kMaxAge = 600 * kSecond;
constexpr uint64_t kMaxLineTime = 2147483647000;  // an int of milliseconds
constexpr size_t kMaxHost = 64;

bool IsInName(char letter) {
    return (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z') ||
           (letter >= '0' && letter <= '9') || letter == '.' || letter == '_' || letter == '-';
}

std::string Seconds(uint64_t usec) {
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "%llu.%06llu",
                                    static_cast<unsigned long long>(usec / kSecond),
                                    static_cast<unsigned long long>(usec % kSecond)));
    return text.data();
}

}  // namespace

bool ClockLines::IsDue(uint64_t usec, uint64_t wall_usec) {
    const auto is_due = [&](const Times& last) {
        // Unsigned: the wall clock may be before 1970 plus the uptime.
        const uint64_t drift = (wall_usec - usec) - (last.wall_usec - last.usec);
        return std::min(drift, 0 - drift) > kMaxDrift || usec >= last.usec + kMaxAge ||
               (usec > kMaxLineTime && usec / kSecond != last.usec / kSecond);
    };
    if (last_ && !is_due(*last_)) {
        return false;
    }
    last_ = {usec, wall_usec};
    return true;
}

std::string ClockMessage(const std::string& boot, std::string host, uint64_t usec,
                         uint64_t wall_usec) {
    host.resize(std::min(host.size(), kMaxHost));
    std::replace_if(
        host.begin(), host.end(), [](char letter) { return !IsInName(letter); }, '?');
    return "boot=" + boot + " host=" + host + " wall=" + Seconds(wall_usec) +
           " monotonic=" + Seconds(usec);
}

}  // namespace dlogutil
