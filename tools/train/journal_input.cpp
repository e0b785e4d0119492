#include "train/journal_input.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "train/capture_line.h"
#include "train/text_lines.h"

namespace trelvo {

namespace {

using Json = nlohmann::json;
using Sink = std::function<void(const TrainingLine&)>;

// As the capture bounds them.
constexpr size_t kMostMessage = size_t{64} << 10;
constexpr size_t kMostTag = 128;
constexpr size_t kMostLines = 256;

constexpr std::string_view kPrefixEnd = " > ";
constexpr std::string_view kLevels = "VDIWEFS";

enum Field : size_t {
    kMessage,
    kLevel,
    kIdentifier,
    kComm,
    kPid,
    kSyslogPid,
    kTid,
    kTime,
    kFields
};
constexpr std::array<std::string_view, kFields> kNames{
    "MESSAGE",    "DLOG_LEVEL", "SYSLOG_IDENTIFIER",    "_COMM", "_PID",
    "SYSLOG_PID", "TID",        "__MONOTONIC_TIMESTAMP"};

// The first value of each field.
class Entry {
public:
    // Where the value of a field is to go; null for other fields and further values.
    [[nodiscard]] std::string* Place(std::string_view name) {
        const auto field =
            static_cast<size_t>(std::find(kNames.begin(), kNames.end(), name) - kNames.begin());
        return field < kFields && !values_[field] ? &values_[field].emplace() : nullptr;
    }
    void Clear() { values_.fill(std::nullopt); }
    [[nodiscard]] bool IsEmpty() const {
        return std::none_of(values_.begin(), values_.end(),
                            [](const auto& value) { return value.has_value(); });
    }
    [[nodiscard]] std::string_view operator[](Field field) const {
        return values_[field] ? std::string_view(*values_[field]) : std::string_view();
    }

private:
    std::array<std::optional<std::string>, kFields> values_;
};

// Control characters become '_', as does what a reader would take for the end of the tag.
std::string TagOf(const Entry& entry) {
    constexpr size_t kWidth = 8;  // the capture fills up shorter ones
    std::string tag;
    for (const Field field : {kIdentifier, kComm}) {
        tag = entry[field].substr(0, kMostTag);
        for (char& c : tag) {
            c = static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '_' : c;
        }
        tag.erase(0, tag.find_first_not_of(' '));
        tag.erase(tag.find_last_not_of(' ') + 1);
        if (!tag.empty()) {
            break;
        }
    }
    tag = tag.empty() ? "unknown" : tag;
    const size_t size = tag.size();
    tag.resize(std::max(size, kWidth), ' ');
    for (const std::string_view end :
         {std::string_view("(P"), std::string_view(", T"), std::string_view("):"), kPrefixEnd}) {
        for (size_t at = 0; (at = tag.find(end, at)) != std::string::npos;) {
            tag[at + end.find_first_not_of(' ')] = '_';
        }
    }
    tag.resize(size);
    return tag;
}

std::string_view FirstNumber(const Entry& entry, std::initializer_list<Field> fields) {
    for (const Field field : fields) {
        const std::string_view text = entry[field];
        int32_t value = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (!text.empty() && error == std::errc{} && end == text.data() + text.size()) {
            return text;
        }
    }
    return "0";
}

// Makes the lines that the capture writes, and takes them apart as the recorder does.
class LineMaker {
public:
    LineMaker(InputSummary& summary, const Sink& sink) : summary_(summary), sink_(sink) {}

    void Take(const Entry& entry) {
        const uint64_t before = summary_.lines;
        uint64_t usec = 0;
        const std::string_view time = entry[kTime];
        std::from_chars(time.data(), time.data() + time.size(), usec);
        const std::string ms = std::to_string(1000 + usec / 1000 % 1000);
        const std::string head = std::to_string(usec / 1000000) + '.' + ms.substr(1) + " I/" +
                                 TagOf(entry) + " (P" +
                                 std::string(FirstNumber(entry, {kPid, kSyslogPid})) + ", T" +
                                 std::string(FirstNumber(entry, {kTid, kPid, kSyslogPid})) + "): ";
        // A message of the device's own interface brings a prefix in front of its first line.
        bool has_prefix =
            entry[kLevel].size() == 1 && kLevels.find(entry[kLevel]) != std::string_view::npos;
        std::string_view rest = entry[kMessage].substr(0, kMostMessage);
        for (size_t lines = 0; lines < kMostLines && !rest.empty();) {
            const size_t feed = std::min(rest.find('\n'), rest.size());
            std::string_view text = rest.substr(0, feed);
            rest.remove_prefix(std::min(feed + 1, rest.size()));
            if (!text.empty() && text.back() == '\r') {
                text.remove_suffix(1);
            }
            if (text.find_first_not_of(" \t") == std::string_view::npos) {
                continue;
            }
            ++lines;
            const std::string line = head + std::string(text);
            has_prefix = has_prefix && line.find(kPrefixEnd) != std::string::npos;
            TakeLine(has_prefix ? line : head + "?: ?(0) > " + std::string(text));
            has_prefix = false;
        }
        summary_.passed_over += summary_.lines == before ? 1 : 0;
    }

private:
    void TakeLine(const std::string& text) {
        const auto parsed = ParseCaptureLine(text);
        if (!parsed) {
            return;
        }
        const int64_t delta =
            last_time_ == 0 ? 0 : static_cast<int64_t>(parsed->time_ms) - last_time_;
        last_time_ = delta >= 0 ? parsed->time_ms : last_time_;
        ++summary_.lines;
        sink_({parsed->tag, parsed->pid, parsed->tid, parsed->message, delta, 1, text.size() + 1});
    }

    InputSummary& summary_;
    const Sink& sink_;
    int32_t last_time_ = 0;
};

// A text, or an array of numbers where it holds other bytes; of several values the first.
std::optional<std::string> BytesOf(const Json& values) {
    const Json* value = &values;
    while (value->is_array() && !value->empty() && !value->front().is_number()) {
        value = &value->front();
    }
    if (value->is_string()) {
        return value->get<std::string>();
    }
    if (!value->is_array() || value->empty()) {
        return std::nullopt;
    }
    std::string bytes;
    for (const Json& byte : *value) {
        const bool is_byte = byte.is_number_unsigned() && byte.get<uint64_t>() <= UINT8_MAX;
        bytes += is_byte ? static_cast<char>(byte.get<uint64_t>()) : '?';
    }
    return bytes;
}

}  // namespace

void ReadJournalJson(Input& input, InputSummary& summary, const Sink& sink) {
    TextLines lines(input);
    LineMaker maker(summary, sink);
    Entry entry;
    uint64_t number = 0;
    for (std::string_view text; lines.Next(text);) {
        ++number;
        const Json object = Json::parse(text, nullptr, false);
        if (!object.is_object()) {
            ++summary.passed_over;
            if (!summary.damage) {
                summary.damage = "line " + std::to_string(number) + ": not an entry of a journal";
            }
            continue;
        }
        entry.Clear();
        for (const std::string_view name : kNames) {
            const auto value = object.find(std::string(name));
            if (value == object.end()) {
                continue;
            }
            if (auto bytes = BytesOf(*value)) {
                *entry.Place(name) = *std::move(bytes);
            }
        }
        maker.Take(entry);
    }
}

void ReadJournalExport(Input& input, InputSummary& summary, const Sink& sink) {
    TextLines lines(input);
    LineMaker maker(summary, sink);
    Entry entry;
    uint64_t number = 1;  // of the entry
    std::string value;
    for (std::string_view line; lines.Next(line);) {
        if (line.empty()) {
            if (!entry.IsEmpty()) {
                maker.Take(entry);
                ++number;
            }
            entry.Clear();
            continue;
        }
        const size_t equals = line.find('=');
        std::string* const place = entry.Place(line.substr(0, equals));
        if (equals != std::string_view::npos && lines.IsWhole()) {
            if (place != nullptr) {
                *place = line.substr(equals + 1);
            }
            continue;
        }
        // Otherwise its length in eight bytes, the lowest first, then the value and a line feed.
        uint64_t size = 0;
        bool whole = lines.Take(sizeof size, sizeof size, value);
        for (size_t i = 0; whole && i < value.size(); ++i) {
            size |= uint64_t{static_cast<unsigned char>(value[i])} << (8 * i);
        }
        std::string end;
        whole =
            whole && lines.Take(size, kMostMessage, value) && lines.Take(1, 1, end) && end == "\n";
        if (!whole) {
            summary.damage = "entry " + std::to_string(number) + ": a field is cut off";
            return;
        }
        if (place != nullptr) {
            *place = value;
        }
    }
    if (!entry.IsEmpty()) {
        maker.Take(entry);
    }
}

}  // namespace trelvo
