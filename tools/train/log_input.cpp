#include "train/log_input.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "dump/dump_reader.h"
#include "policy/code_tables.h"
#include "text/escape.h"
#include "train/capture_line.h"
#include "train/journal_input.h"
#include "train/text_lines.h"

namespace trelvo {

namespace {

using Sink = std::function<void(const TrainingLine&)>;

constexpr size_t kProbeSize = size_t{64} * 1024;

bool ReadCount(std::string_view text, TrainingLine& line) {
    if (!text.empty() && text.back() == '\r') {
        text.remove_suffix(1);
    }
    const size_t first = text.find('\t');
    const size_t last = text.rfind('\t');
    if (first == last) {
        return false;
    }
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + last + 1, end, line.count);
    if (error != std::errc{} || stop != end) {
        return false;
    }
    line.tag = text.substr(0, first);
    line.message = text.substr(first + 1, last - first - 1);
    return true;
}

InputFormat Recognise(std::string_view start) {
    if (start.empty()) {
        return InputFormat::kCapture;
    }
    const std::string_view line = start.substr(0, start.find('\n'));
    TrainingLine ignored;
    const bool is_count = ReadCount(line, ignored) && !ParseCaptureLine(line);
    // As a length, with which a dump begins, both would be negative.
    if (start.front() == '{') {
        return InputFormat::kJournalJson;
    }
    if (start.substr(0, 2) == "__" && !is_count) {
        return InputFormat::kJournalExport;
    }
    const auto first_byte = static_cast<uint8_t>(start.front());
    const bool control =
        first_byte < 0x20 && first_byte != '\t' && first_byte != '\r' && first_byte != '\n';
    if (control || start.find('\0') != std::string_view::npos) {
        return InputFormat::kDump;
    }
    return is_count ? InputFormat::kCounts : InputFormat::kCapture;
}

// Leaves the input where it was.
InputFormat Probe(Input& input) {
    std::vector<char> start(kProbeSize);
    size_t size = 0;
    try {
        while (size < start.size()) {
            const size_t count = input.Read(start.data() + size, start.size() - size);
            if (count == 0) {
                break;
            }
            size += count;
        }
    } catch (const DamageError&) {
        // What comes before the damage tells as well; who reads up to it meets it again.
    }
    input.Seek(0);
    return Recognise({start.data(), size});
}

void ReadCapture(Input& input, InputSummary& summary, const Sink& sink) {
    TextLines lines(input);
    int32_t last_time = 0;
    for (std::string_view text; lines.Next(text);) {
        const auto parsed = ParseCaptureLine(text);
        if (!parsed) {
            ++summary.passed_over;
            continue;
        }
        const int64_t delta =
            last_time == 0 ? 0 : static_cast<int64_t>(parsed->time_ms) - last_time;
        if (delta >= 0) {
            last_time = parsed->time_ms;
        }
        ++summary.lines;
        sink({parsed->tag, parsed->pid, parsed->tid, parsed->message, delta, 1, text.size() + 1});
    }
}

void ReadCounts(Input& input, InputSummary& summary, const Sink& sink) {
    TextLines lines(input);
    uint64_t number = 0;
    for (std::string_view text; lines.Next(text);) {
        ++number;
        TrainingLine line;
        if (ReadCount(text, line)) {
            ++summary.lines;
            sink(line);
            continue;
        }
        ++summary.passed_over;
        if (!summary.damage) {
            summary.damage = "line " + std::to_string(number) + ": is not TAG, message and count";
        }
    }
}

// SECONDS LEVEL/TAG(P PID, T TID): MESSAGE, all times taken to be as long as the last.
uint64_t TextSize(const Record& record, std::string_view message, int32_t last_log_time) {
    return std::to_string(last_log_time / 1000).size() + record.source.tag.size() +
           std::to_string(record.source.pid).size() + std::to_string(record.source.tid).size() +
           message.size() + std::string_view(".000 I/(P , T ): \n").size();
}

void ReadDump(Input& input, const CodeTables* tables, InputSummary& summary, const Sink& sink) {
    DumpReader reader(input);
    summary.policy_version = reader.PolicyVersion();
    if (tables != nullptr && tables->Version() != summary.policy_version) {
        tables = nullptr;
    }
    const bool no_codes = summary.policy_version.empty();
    for (Record record; reader.Next(record);) {
        std::string_view message = record.message;
        if (tables != nullptr) {
            message = tables->Message(record.source.tag, message).value_or(message);
        } else if (!no_codes && !IsText(message)) {
            ++summary.untranslated;
            continue;
        }
        ++summary.lines;
        sink({record.source.tag, record.source.pid, record.source.tid, message, record.delta_ms, 1,
              TextSize(record, message, reader.LastLogTime())});
    }
}

}  // namespace

InputSummary ReadInput(const std::string& path, InputFormat format, const CodeTables* tables,
                       const Sink& sink, FileInput::Observer observer) {
    const std::unique_ptr<Input> input = OpenInput(path, std::move(observer));
    InputSummary summary;
    summary.format = format;
    try {
        if (format == InputFormat::kAuto) {
            summary.format = Probe(*input);
        }
        input->ReadOnce();
        switch (summary.format) {
            case InputFormat::kCapture:
                ReadCapture(*input, summary, sink);
                break;
            case InputFormat::kCounts:
                ReadCounts(*input, summary, sink);
                break;
            case InputFormat::kJournalJson:
                ReadJournalJson(*input, summary, sink);
                break;
            case InputFormat::kJournalExport:
                ReadJournalExport(*input, summary, sink);
                break;
            default:
                ReadDump(*input, tables, summary, sink);
        }
    } catch (const DamageError& error) {
        summary.damage = Describe(error);
    } catch (const std::system_error& error) {
        if (summary.lines == 0) {
            throw;
        }
        summary.damage =
            "stopped after " + std::to_string(summary.lines) + " lines: " + error.what();
    }
    return summary;
}

}  // namespace trelvo
