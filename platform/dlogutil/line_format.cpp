#include "dlogutil/line_format.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <string_view>

#include "dlogutil/options.h"

namespace dlogutil {
namespace {

constexpr std::size_t kMaxName = 128;
constexpr std::size_t kTagWidth = 8;
constexpr std::string_view kPrefixEnd = " > ";
// A longer prefix is not repeated on the further lines of a message: 64 KiB of it on each of
// thousands of lines would fill any disk.
constexpr std::size_t kMaxPrefix = 512;

bool Has(const Fields& fields, std::string_view field) {
    return fields.find(field) != fields.end();
}

std::string_view Value(const Fields& fields, std::string_view field) {
    const auto found = fields.find(field);
    return found != fields.end() ? std::string_view(found->second) : std::string_view();
}

// A field as a name of bounded length without control characters and outer blanks.
std::string NameOf(const Fields& fields, std::string_view field) {
    std::string name(Value(fields, field).substr(0, kMaxName));
    std::replace_if(
        name.begin(), name.end(),
        [](char letter) { return std::iscntrl(static_cast<unsigned char>(letter)) != 0; }, '_');
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    return name;
}

// Breaks every `delimiter` in `text`: its first letter that is not a blank becomes '_'.
void Defuse(std::string& text, std::string_view delimiter) {
    const std::size_t letter = delimiter.find_first_not_of(' ');
    for (std::size_t at = 0; (at = text.find(delimiter, at)) != std::string::npos;) {
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

std::string_view FirstNumber(const Fields& fields,
                             std::initializer_list<std::string_view> candidates) {
    for (const std::string_view field : candidates) {
        if (IsNumber(Value(fields, field))) {
            return Value(fields, field);
        }
    }
    return "0";
}

std::string Header(const Fields& fields, std::uint64_t usec) {
    std::array<char, 32> time{};
    static_cast<void>(std::snprintf(time.data(), time.size(), "%llu.%03llu ",
                                    static_cast<unsigned long long>(usec / 1000000),
                                    static_cast<unsigned long long>(usec / 1000 % 1000)));
    std::string tag = TagOf(fields);
    tag.resize(std::max(tag.size(), kTagWidth), ' ');
    std::string header(time.data());
    header += LevelOf(fields);
    header += '/';
    header += tag;
    header += "(P";
    header += FirstNumber(fields, {"_PID", "SYSLOG_PID"});
    header += ", T";
    header += FirstNumber(fields, {"TID", "_PID", "SYSLOG_PID"});
    header += "): ";
    return header;
}

// "<file>: <function>(<line>) > " from the code fields, from the program's name without them.
std::string Prefix(const Fields& fields) {
    std::string file = NameOf(fields, "_COMM");
    file = file.empty() ? TagOf(fields) : file;
    std::string function = file;
    std::string_view line = "0";
    if (const std::string_view path = Value(fields, "CODE_FILE"); !path.empty()) {
        file = NameOf({{"CODE_FILE", std::string(path.substr(path.rfind('/') + 1))}}, "CODE_FILE");
        file = file.empty() ? "?" : file;
        function = NameOf(fields, "CODE_FUNC");
        function = function.empty() ? "?" : function;
        line = FirstNumber(fields, {"CODE_LINE"});
    }
    // Together with the blank that stands before it: "> " at its start is a delimiter, too.
    std::string prefix = " " + file + ": " + function + "(";
    Defuse(prefix, kPrefixEnd);
    prefix += line;
    prefix += ')';
    prefix += kPrefixEnd;
    return prefix.substr(1);
}

}  // namespace

std::string TagOf(const Fields& fields) {
    std::string tag = NameOf(fields, "SYSLOG_IDENTIFIER");
    if (tag.empty()) {
        tag = NameOf(fields, "_COMM");
    }
    if (tag.empty()) {
        tag = "unknown";
    }
    const std::size_t size = tag.size();
    tag.resize(std::max(size, kTagWidth), ' ');  // the padding can complete a delimiter
    for (const std::string_view delimiter :
         {std::string_view("(P"), std::string_view(", T"), std::string_view("):"), kPrefixEnd}) {
        Defuse(tag, delimiter);
    }
    tag.resize(size);
    return tag;
}

char LevelOf(const Fields& fields) {
    const std::string_view level = Value(fields, "DLOG_LEVEL");
    if (level.size() == 1 && kLevels.find(level[0]) != std::string_view::npos) {
        return level[0];
    }
    const std::string_view priority = Value(fields, "PRIORITY");
    const bool valid = priority.size() == 1 && priority[0] >= '0' && priority[0] <= '7';
    return valid ? "FFFEWIID"[priority[0] - '0'] : 'I';
}

std::vector<std::string> FormatLines(const Fields& fields, std::uint64_t usec) {
    const std::string header = Header(fields, usec);
    // __dlog_print's messages bring the writer's own prefix; the first line keeps its own.
    const bool has_prefix = Has(fields, "DLOG_LEVEL");
    std::string start = header + Prefix(fields);
    std::vector<std::string> lines;
    std::string_view rest = Value(fields, "MESSAGE").substr(0, kMaxMessage);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view text = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (!text.empty() && text.back() == '\r') {
            text.remove_suffix(1);
        }
        if (text.find_first_not_of(" \t") == std::string_view::npos) {
            continue;
        }
        std::string line = has_prefix && lines.empty() ? header : start;
        line += text;
        if (has_prefix && lines.empty()) {
            const std::size_t prefix_end = line.find(kPrefixEnd, header.size() - 1);
            if (prefix_end < header.size() + kMaxPrefix) {
                start = line.substr(0, prefix_end + kPrefixEnd.size());
            }
        }
        line += '\n';
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace dlogutil
