#include "LineParser.h"

#include <algorithm>

namespace line {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kSpace = " \t\n\v\f\r";

std::string_view TrimLeading(std::string_view text, std::string_view set) {
    return text.substr(std::min(text.find_first_not_of(set), text.size()));
}

std::string_view Trim(std::string_view text, std::string_view set) {
    // find_last_not_of gives npos for a text of `set` only, and npos + 1 is 0.
    return TrimLeading(text.substr(0, text.find_last_not_of(set) + 1), set);
}

int ToInt(std::string_view text) {
    return std::stoi(std::string(Trim(text, kSpace)));
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    return Trim(text, kBlanks);
}

std::string_view TrimLeadingSpace(std::string_view text) {
    return TrimLeading(text, kSpace);
}

std::string_view Before(std::string_view text, std::string_view delimiter) {
    return text.substr(0, text.find(delimiter));
}

std::string_view Slice(const std::string& text, size_t pos, size_t count) {
    if (pos > text.size()) {
        static_cast<void>(text.substr(pos));  // throws, in std::string's own words
    }
    return std::string_view(text).substr(pos, count);
}

bool IsLogLine(std::string_view text) {
    const size_t prefix_end = text.find(" > ");
    if (prefix_end == std::string_view::npos || text.find("):") == std::string_view::npos) {
        return false;
    }
    const size_t slash = text.substr(0, prefix_end).find('/');
    return slash != std::string_view::npos &&
           text.substr(0, slash).find(' ') != std::string_view::npos;
}

int Time(const std::string& text) {
    const float seconds = std::stof(std::string(Before(text, " ")));
    return Saturate<int>(seconds * 1000.0F);
}

char Level(const std::string& text) {
    const std::string_view rest = Slice(text, text.find(' ') + 1);
    return rest.empty() ? '\0' : rest.front();
}

std::string_view Tag(const std::string& text) {
    const size_t slash = text.find('/');
    return Trim(Slice(text, slash + 1, text.find("(P") - slash - 1), kSpace);
}

int Pid(const std::string& text) {
    const size_t open = text.find("(P");
    return ToInt(Slice(text, open + 2, text.find(", T") - open - 2));
}

int Tid(const std::string& text) {
    const size_t comma = text.find(", T");
    return ToInt(Slice(text, comma + 3, text.find("):") - comma - 3));
}

std::string Message(const std::string& text) {
    std::string message(Slice(text, text.find(" > ") + 3));
    message.erase(std::remove(message.begin(), message.end(), '\n'), message.end());
    return message;
}

}  // namespace line
