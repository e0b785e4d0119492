#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "dump/dictionary.h"

namespace trelvo {

// What lies between a dump's first line and the line before it; the graver, the later it stands.
enum class Break {
    kNone,   // nothing is missing
    kGap,    // lines that no dump holds
    kFresh,  // the recorder was emptied by a dump or started: whether lines are missing is unknown
    kRestart,  // the service was started again and recorded lines of the same boot once more
    kReboot,   // another boot
};

// A line of the log. The views live until the visitor returns.
struct Line {
    enum class Message {
        kText,        // as it was logged
        kTranslated,  // a code, turned into the text that it stands for
        kCode,        // no text, and no tables to translate it
    };

    int64_t time_ms = 0;                  // of kernel time
    std::optional<int64_t> boot_time_ms;  // since 1970, as far as clock lines tell
    char level = 0;
    Source source;
    Message kind = Message::kText;
    std::string_view message;  // text, or the bytes of a code
    size_t dump = 0;           // place of its dump in the timeline
    bool clock = false;        // the capture's own, which tells the time of those behind it
};

}  // namespace trelvo
