#include "commands/pattern_output.h"

#include <algorithm>

#include "commands/output.h"
#include "text/clock.h"
#include "text/escape.h"

namespace trelvo {

std::string TimeText(const PatternTime& time, bool utc) {
    std::string text;
    if (time.boot_time_ms) {
        Clock(utc).Append(time.Ms(), "%m-%d %H:%M:%S", false, text);
    } else {
        AppendSeconds(time.time_ms, text);
    }
    return text;
}

nlohmann::ordered_json TimeJson(const PatternTime& time, bool utc) {
    nlohmann::ordered_json object{{"time_ms", time.time_ms}};
    if (time.boot_time_ms) {
        std::string text;
        Clock(utc).Append(time.Ms(), "%Y-%m-%dT%H:%M:%S", true, text);
        object["time"] = text;
    }
    return object;
}

std::string Padded(std::string text, size_t width, bool right) {
    text.insert(right ? 0 : text.size(), std::max(width, text.size()) - text.size(), ' ');
    return text;
}

std::string Example(const std::string& example, bool cut) {
    return Escape(example) + (cut ? "…" : "");
}

void PrintJsonLine(const nlohmann::ordered_json& object) {
    std::string line;
    AppendJsonEscaped(object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace),
                      line);
    Print(line + '\n');
}

}  // namespace trelvo
