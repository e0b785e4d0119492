#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

#include "patterns/pattern_table.h"

namespace trelvo {

// Parts of what the commands that tell about patterns print.

// Wall clock, without the year, where it is known; else seconds since boot.
[[nodiscard]] std::string TimeText(const PatternTime& time, bool utc);
// With `time_ms` since boot, and `time` where the wall clock is known.
[[nodiscard]] nlohmann::ordered_json TimeJson(const PatternTime& time, bool utc);
// With blanks before it (`right`) or behind, up to this many bytes.
[[nodiscard]] std::string Padded(std::string text, size_t width, bool right);
// Escaped; `cut`: with dots behind.
[[nodiscard]] std::string Example(const std::string& example, bool cut);
// As a line of its own, safe for a terminal.
void PrintJsonLine(const nlohmann::ordered_json& object);

}  // namespace trelvo
