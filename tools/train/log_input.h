#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "io/input.h"

namespace trelvo {

class CodeTables;

// One line of an input. The views live until the next line.
struct TrainingLine {
    std::string_view tag;
    int32_t pid = 0;
    int32_t tid = 0;
    std::string_view message;
    int64_t delta_ms = 0;     // negative where time runs backwards, which the recorder refuses
    uint64_t count = 1;       // how many lines this one stands for
    uint64_t text_bytes = 0;  // of the line as text, with its line feed
};

enum class InputFormat {
    kAuto,           // told by the content, see ReadInput
    kCapture,        // what the recorder reads
    kDump,           // what it writes
    kCounts,         // lines of tag TAB message TAB count; the message may hold TABs
    kJournalJson,    // entries as `journalctl -o json` gives them
    kJournalExport,  // or -o export
};

struct InputSummary {
    InputFormat format = InputFormat::kAuto;  // as it was told by the content
    uint64_t lines = 0;                       // taken
    uint64_t passed_over = 0;                 // lines or entries of another form
    uint64_t untranslated = 0;                // messages of a dump that may be codes
    std::string policy_version;               // of a dump
    std::optional<std::string> damage;        // where reading stopped, or the first bad count
};

// Reads a file, or standard input under the name "-", to its end and hands over every line; memory
// does not grow with them. zstd files are read as what they hold. An input that begins with "{" is
// entries of a journal, as is one that begins with "__", unless its first line is a count; one that
// begins with a control character or has a zero byte within its first 64 KiB is a dump; one whose
// first line ends in a TAB and a number, and is not a capture line, is counts; all else is capture
// text.
//
// Messages of a dump are translated by the tables where these are of the dump's policy version.
// Without them a message that is not text is left out, unless the dump knows of no policy.
//
// Throws std::system_error when nothing can be read.
InputSummary ReadInput(const std::string& path, InputFormat format, const CodeTables* tables,
                       const std::function<void(const TrainingLine&)>& sink,
                       FileInput::Observer observer = {});

}  // namespace trelvo
