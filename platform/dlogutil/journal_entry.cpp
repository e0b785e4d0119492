#include "dlogutil/journal_entry.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "dlogutil/options.h"

namespace dlogutil {
namespace {

constexpr size_t kMaxName = 128;
constexpr size_t kTagWidth = 8;
constexpr std::string_view kPrefixEnd = " > ";
// A longer prefix is not repeated on the further lines of a message: 64 KiB of it on each of
// thousands of lines would fill any disk.
constexpr size_t kMaxPrefix = 512;

// A field's value as a name of bounded length without control characters and outer blanks.
std::string NameOf(std::string_view value) {
    std::string name(value.substr(0, kMaxName));
    std::replace_if(
        name.begin(), name.end(),
        [](char letter) { return std::iscntrl(static_cast<unsigned char>(letter)) != 0; }, '_');
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    return name;
}

// Breaks every `delimiter` in `text`: its first letter that is not a blank becomes '_'.
void Defuse(std::string& text, std::string_view delimiter) {
    const size_t letter = delimiter.find_first_not_of(' ');
    for (size_t at = 0; (at = text.find(delimiter, at)) != std::string::npos;) {
        text[at + letter] = '_';
    }
}

// Readers convert the number with a function that throws, so only what fits an int is one; its
// length is limited because leading zeros are not.
bool IsNumber(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && text.size() <= 10 && text[0] != '-' && error == std::errc() &&
           end == text.data() + text.size();
}

std::string_view FirstNumber(const Fields& fields, std::initializer_list<Field> candidates) {
    for (const Field field : candidates) {
        if (IsNumber(fields[field])) {
            return fields[field];
        }
    }
    return "0";
}

std::string Header(const Fields& fields, std::string_view tag, uint64_t usec) {
    const std::string ms = std::to_string(1000 + usec / 1000 % 1000);
    std::string header = std::to_string(usec / 1000000);
    header += '.';
    header.append(ms, 1);
    header += ' ';
    header += LevelOf(fields);
    header += '/';
    header += tag;
    header.append(kTagWidth - std::min(tag.size(), kTagWidth), ' ');
    header += "(P";
    header += FirstNumber(fields, {kPid, kSyslogPid});
    header += ", T";
    header += FirstNumber(fields, {kTid, kPid, kSyslogPid});
    header += "): ";
    return header;
}

// "<file>: <function>(<line>) > " from the code fields, from the program's name without them.
std::string Prefix(const Fields& fields, std::string_view tag) {
    std::string file = NameOf(fields[kComm]);
    file = file.empty() ? std::string(tag) : file;
    std::string function = file;
    std::string_view line = "0";
    if (const std::string_view path = fields[kCodeFile]; !path.empty()) {
        file = NameOf(path.substr(path.rfind('/') + 1));
        file = file.empty() ? "?" : file;
        function = NameOf(fields[kCodeFunc]);
        function = function.empty() ? "?" : function;
        line = FirstNumber(fields, {kCodeLine});
    }
    // Together with the blank that stands before it: "> " at its start is a delimiter, too.
    std::string prefix = " " + file + ": " + function + "(";
    Defuse(prefix, kPrefixEnd);
    prefix += line;
    prefix += ')';
    prefix += kPrefixEnd;
    return prefix.substr(1);
}

bool IsLevel(std::string_view text) {
    return text.size() == 1 && kLevels.find(text[0]) != std::string_view::npos;
}

// Takes the next line from `text`, without its line end. False at the end.
bool NextLine(std::string_view& text, std::string_view& line) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.find_first_not_of(" \t") != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace

void Fields::Take(std::string_view data) {
    for (size_t field = 0; field < kFieldCount; ++field) {
        const std::string_view name = kFieldNames[field];
        if (data.size() > name.size() && data[0] == name[0] && data[name.size()] == '=' &&
            data.substr(0, name.size()) == name) {
            if (!std::exchange(has_[field], true)) {
                values_[field] =
                    data.substr(name.size() + 1, field == kMessage ? kMaxMessage + 1 : kMaxField);
            }
            return;
        }
    }
}

std::string TagOf(const Fields& fields) {
    std::string tag = NameOf(fields[kIdentifier]);
    if (tag.empty()) {
        tag = NameOf(fields[kComm]);
    }
    if (tag.empty()) {
        tag = "unknown";
    }
    const size_t size = tag.size();
    tag.resize(std::max(size, kTagWidth), ' ');  // the padding can complete a delimiter
    for (const std::string_view delimiter :
         {std::string_view("(P"), std::string_view(", T"), std::string_view("):"), kPrefixEnd}) {
        Defuse(tag, delimiter);
    }
    tag.resize(size);
    if (tag == kClockTag) {
        tag[kClockTag.find('.')] = '_';
    }
    return tag;
}

char LevelOf(const Fields& fields) {
    if (IsLevel(fields[kDlogLevel])) {
        return fields[kDlogLevel][0];
    }
    const std::string_view priority = fields[kPriority];
    const bool valid = priority.size() == 1 && priority[0] >= '0' && priority[0] <= '7';
    return valid ? "FFFEWIID"[priority[0] - '0'] : 'I';
}

size_t AppendLines(const Fields& fields, std::string_view tag, uint64_t usec, std::string& lines) {
    const std::string header = Header(fields, tag, usec);
    // __dlog_print's messages bring the writer's own prefix; the first line keeps its own. Anybody
    // may send an empty level or a wrong one, or a message without a prefix, which must not cost a
    // line its prefix: the recorder refuses such lines.
    bool has_prefix = IsLevel(fields[kDlogLevel]);
    std::string start = header + Prefix(fields, tag);
    std::string_view message = fields[kMessage];
    const bool is_cut = message.size() > kMaxMessage;
    message = message.substr(0, kMaxMessage);
    std::string_view text;
    for (size_t count = 0; count < kMaxLines && NextLine(message, text); ++count) {
        const size_t begin = lines.size();
        lines += has_prefix ? header : start;
        lines += text;
        if (std::exchange(has_prefix, false)) {
            const size_t end = lines.find(kPrefixEnd, begin + header.size() - 1);
            if (end == std::string::npos) {
                lines.replace(begin, header.size(), start);
            } else if (end - begin < header.size() + kMaxPrefix) {
                start = lines.substr(begin, end - begin + kPrefixEnd.size());
            }
        }
        lines += '\n';
    }
    size_t left_out = 0;
    while (NextLine(message, text)) {
        ++left_out;
    }
    if (is_cut && left_out == 0) {
        left_out = 1;  // the last line has lost its end
    }
    if (left_out > 0) {
        lines += start;
        lines +=
            is_cut ? "lines of this entry left out: at least " : "lines of this entry left out: ";
        lines += std::to_string(left_out) + "\n";
    }
    return left_out;
}

}  // namespace dlogutil
