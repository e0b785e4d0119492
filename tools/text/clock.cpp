#include "text/clock.h"

#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace trelvo {

namespace {

void AppendMilliseconds(int64_t ms, std::string& out) {
    out += '.';
    out += static_cast<char>('0' + ms / 100);
    out += static_cast<char>('0' + ms / 10 % 10);
    out += static_cast<char>('0' + ms % 10);
}

std::string Zone(const tm& time, bool utc) {
    if (utc) {
        return "Z";
    }
    std::array<char, 16> text{};
    const long minutes = std::labs(time.tm_gmtoff) / 60;
    const int size = std::snprintf(text.data(), text.size(), "%c%02ld:%02ld",
                                   time.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return {text.data(), static_cast<size_t>(size)};
}

}  // namespace

void Clock::Append(int64_t ms, const char* pattern, bool zone, std::string& out) {
    // Rounded down also before 1970.
    const int64_t rest = (ms % 1000 + 1000) % 1000;
    const int64_t second = (ms - rest) / 1000;
    if (second != second_) {
        second_ = second;
        const auto seconds = static_cast<time_t>(second);
        tm time{};
        if ((utc_ ? gmtime_r(&seconds, &time) : localtime_r(&seconds, &time)) == nullptr) {
            time = {};  // a year beyond what an int holds
        }
        std::array<char, 64> text{};
        text_.assign(text.data(), std::strftime(text.data(), text.size(), pattern, &time));
        zone_ = Zone(time, utc_);
    }
    out += text_;
    AppendMilliseconds(rest, out);
    if (zone) {
        out += zone_;
    }
}

void AppendSeconds(int64_t ms, std::string& out) {
    if (ms < 0) {
        out += '-';
        ms = -ms;
    }
    std::array<char, 24> digits;
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), ms / 1000);
    static_cast<void>(error);  // the largest number fits
    out.append(digits.data(), end);
    AppendMilliseconds(ms % 1000, out);
}

}  // namespace trelvo
