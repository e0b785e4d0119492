#include "commands/help_formatter.h"

#include <algorithm>
#include <sstream>

#include "commands/output.h"

namespace trelvo {

namespace {

constexpr size_t kDefaultWidth = 80;

// Breaks a line at blanks. The rest goes under its last column, which two blanks set off, or begins
// at `column` where the one before left no room for them.
std::string Wrapped(std::string line, size_t column, size_t width) {
    const size_t gap = line.rfind("  ", column);
    const size_t indent = gap == std::string::npos ? 0 : gap == 0 ? column : gap + 2;
    std::string out;
    while (line.size() > width) {
        const size_t end = line.rfind(' ', width);
        if (end == std::string::npos || end <= indent) {
            break;  // one long word
        }
        out += line.substr(0, end) + '\n';
        line.replace(0, end + 1, indent, ' ');
    }
    return out + line + '\n';
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
    std::istringstream lines(Formatter::make_help(app, std::move(name), mode));
    const size_t width = TerminalWidth().value_or(kDefaultWidth);
    std::string out;
    for (std::string line; std::getline(lines, line);) {
        out += Wrapped(std::move(line), get_column_width(), width);
    }
    return out;
}

std::string HelpFormatter::make_option_name(const CLI::Option* option, bool is_positional) const {
    std::string names = Formatter::make_option_name(option, is_positional);
    const size_t comma = names.find(',');
    return comma == std::string::npos ? names : names.insert(comma + 1, 1, ' ');
}

std::string HelpFormatter::make_footer(const CLI::App* app) const {
    std::string text = app->get_footer();
    const auto begins_text = [&text](size_t at) {
        return at < text.size() && text[at] != ' ' && text[at] != '\n';
    };
    size_t start = 0;  // of the line
    for (size_t feed = 0; (feed = text.find('\n', start)) != std::string::npos; start = feed + 1) {
        if (begins_text(start) && begins_text(feed + 1)) {
            text[feed] = ' ';
        }
    }
    return text.empty() ? text : text + '\n';
}

}  // namespace trelvo
