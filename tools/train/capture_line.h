#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace trelvo {

// One line of a capture file as the recorder splits it. The views are parts of the line.
struct CaptureLine {
    int32_t time_ms = 0;  // since boot, rounded as the recorder rounds it
    char level = 0;
    std::string_view tag;
    int32_t pid = 0;
    int32_t tid = 0;
    std::string_view message;
};

// The line must come without its line feed. Nothing for a line that the recorder passes over, and
// for one with a malformed time or id, at which the recorder stops for good.
//
//   1234.567 I/MY_TAG  (P 1234, T 1240): main.c: run(52) > started
//   time     level/tag   pid     tid     writer's prefix   message
//
// Every delimiter is searched from the start of the line, whatever stands before it, and positions
// of missing ones wrap in unsigned arithmetic: so does the recorder, and a table must be trained
// on the messages that it will look up.
[[nodiscard]] std::optional<CaptureLine> ParseCaptureLine(std::string_view line);

}  // namespace trelvo
