#include "text/units.h"

#include <array>
#include <cstddef>

namespace trelvo {

std::string SizeText(uint64_t bytes) {
    static constexpr std::array<const char*, 3> kUnits{" KiB", " MiB", " GiB"};
    constexpr uint64_t kStep = 1024;
    if (bytes < kStep) {
        return std::to_string(bytes) + " B";
    }
    size_t unit = 0;
    uint64_t tenths = bytes * 10 / kStep;
    for (; tenths >= 10 * kStep && unit + 1 < kUnits.size(); ++unit) {
        tenths /= kStep;
    }
    return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10) + kUnits.at(unit);
}

std::string SpanText(int64_t milliseconds) {
    constexpr int64_t kMinute = 60;
    constexpr int64_t kHour = 60 * kMinute;
    constexpr int64_t kDay = 24 * kHour;
    const int64_t seconds = milliseconds / 1000;
    const auto two = [seconds](int64_t unit, const char* name, int64_t part,
                               const char* part_name) {
        return std::to_string(seconds / unit) + name + std::to_string(seconds % unit / part) +
               part_name;
    };
    if (seconds >= kDay) {
        return two(kDay, " d ", kHour, " h");
    }
    if (seconds >= kHour) {
        return two(kHour, " h ", kMinute, " min");
    }
    if (seconds >= kMinute) {
        return two(kMinute, " min ", 1, " s");
    }
    const std::string digits = std::to_string(milliseconds % 1000);
    return std::to_string(seconds) + '.' + std::string(3 - digits.size(), '0') + digits + " s";
}

}  // namespace trelvo
