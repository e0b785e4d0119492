#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "dump/dump_reader.h"

namespace trelvo {

// What a clock line says: a line of the capture's own that holds what no record can, in front of
// the line that it tells the time of (docs/dump-format.md).
struct ClockLine {
    std::string_view boot;  // id, 32 digits; lives as long as the record's message
    std::string_view host;
    int64_t boot_time_ms = 0;  // wall clock less monotonic clock, since 1970
    int64_t monotonic_ms = 0;
};

inline constexpr std::string_view kClockTag = "trelvo.clock";

// From here on a dump tells no times; only clock lines do.
inline constexpr int64_t kTimesEndMs = INT32_MAX;

// More than a dump rounds times by: what is later than its clock line says by more is wrong.
inline constexpr int64_t kClockToleranceMs = 1000;

// Nothing where a record is not exactly what the capture writes.
[[nodiscard]] std::optional<ClockLine> ReadClockLine(const Record& record);

}  // namespace trelvo
