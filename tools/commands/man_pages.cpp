#include "commands/man_pages.h"

#include <sstream>

namespace trelvo {

namespace {

// Text within a line. A plain "-" may be set as a hyphen, which cannot be pasted into a shell.
std::string Roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// A line of text, which must not be taken for a request.
std::string RoffLine(const std::string& line) {
    const bool request = !line.empty() && (line.front() == '.' || line.front() == '\'');
    return (request ? "\\&" : "") + Roff(line) + '\n';
}

// Lines that are indented stand as they are; the others are filled.
std::string RoffText(const std::string& text) {
    std::istringstream lines(text);
    std::string out;
    bool as_is = false;
    bool paragraph = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            paragraph = true;
            continue;
        }
        if ((line.front() == ' ') != as_is) {
            as_is = !as_is;
            out += as_is ? ".PP\n.nf\n" : ".fi\n.PP\n";
            paragraph = false;
        }
        out += paragraph && !out.empty() ? as_is ? "\n" : ".PP\n" : "";
        paragraph = false;
        out += RoffLine(line);
    }
    return out + (as_is ? ".fi\n" : "");
}

std::string Bold(const std::string& text) {
    return "\\fB" + Roff(text) + "\\fR";
}

std::string Italic(const std::string& text) {
    return "\\fI" + Roff(text) + "\\fR";
}

std::string Head(const std::string& name, const std::string& description,
                 const std::string& version) {
    return ".TH \"" + Roff(name) + "\" 1 \"\" \"trelvo " + version + "\"\n.SH NAME\n" + Roff(name) +
           " \\- " + Roff(description) + "\n.SH SYNOPSIS\n";
}

std::string OptionItem(const OptionHelp& option) {
    std::string item = ".TP\n";
    for (const std::string& name : option.names) {
        item += (&name == &option.names.front() ? "" : ", ") + Bold(name);
    }
    item += (option.value.empty() ? "" : " " + Italic(option.value)) + '\n' +
            RoffLine(option.description + ".");
    if (!option.choices.empty()) {
        item += RoffLine("One of " + CLI::detail::join(option.choices, ", ") + ".");
    }
    if (!option.default_value.empty()) {
        item += RoffLine("Default: " + option.default_value + ".");
    }
    if (!option.excludes.empty()) {
        item += RoffLine("Not together with " + CLI::detail::join(option.excludes, ", ") + ".");
    }
    return item;
}

std::string OptionsSection(const CommandHelp& command) {
    std::string section = ".SH OPTIONS\n";
    for (const OptionHelp& option : command.options) {
        section += OptionItem(option);
    }
    return section;
}

// Lines "  NUMBER  MEANING".
std::string ExitStatusSection(const std::string& exit_codes) {
    std::istringstream lines(exit_codes);
    std::string section = ".SH EXIT STATUS\n";
    std::string number;
    for (std::string meaning; lines >> number && std::getline(lines >> std::ws, meaning);) {
        section += ".TP\n" + Bold(number) + '\n' + RoffLine(meaning);
    }
    return section;
}

}  // namespace

std::string ManPage(const CommandHelp& program, const std::string& version) {
    std::string page = Head(program.name, program.description, version) + Bold(program.name) + " " +
                       Italic("COMMAND") + " [" + Italic("ARGUMENT") + " ...]\n.SH DESCRIPTION\n" +
                       RoffText(program.text) + "The commands, each with a manual page:\n";
    for (const CommandHelp& command : program.subcommands) {
        page += ".TP\n" + Bold(program.name + "-" + command.name) + "(1)\n" +
                RoffLine(command.description + ".");
    }
    return page + OptionsSection(program) + ExitStatusSection(program.exit_codes);
}

std::string ManPage(const CommandHelp& program, const CommandHelp& command,
                    const std::string& version) {
    std::string page = Head(program.name + "-" + command.name, command.description, version) +
                       Bold(program.name + " " + command.name) + " [" + Italic("OPTION") + " ...]";
    for (const OptionHelp& argument : command.arguments) {
        const std::string word = Italic(argument.value) + (argument.many ? " ..." : "");
        page += argument.required ? " " + word : " [" + word + "]";
    }
    page += "\n.SH DESCRIPTION\n" + RoffText(command.text);
    for (const OptionHelp& argument : command.arguments) {
        page += ".TP\n" + Italic(argument.value) + '\n' + RoffLine(argument.description + ".");
    }
    return page + OptionsSection(command) + ExitStatusSection(command.exit_codes) +
           ".SH SEE ALSO\n" + Bold(program.name) + "(1)\n";
}

}  // namespace trelvo
