#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/help_formatter.h"
#include "commands/output.h"
#include "text/escape.h"

namespace trelvo {

namespace {

// How many letters have to be changed, added or left out to make one word of the other.
size_t Distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

std::string UnknownCommand(const CLI::App& app, const std::string& word) {
    std::string text = "unknown command or option '" + word + "'";
    std::string names;
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::string& name = command->get_name();
        if (Distance(word, name) <= 2) {
            return text + ", did you mean " + name + "?";
        }
        names += (names.empty() ? "" : ", ") + name;
    }
    return text + "; the commands are " + names;
}

ExitCode Run(std::vector<std::string> words) {
    // help COMMAND is COMMAND --help.
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    CLI::App app("Reads the dumps of the trelvo flight recorder and talks to its service.",
                 "trelvoctl");
    app.set_version_flag("-V,--version", "trelvoctl " TRELVO_VERSION);
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.footer("trelvoctl COMMAND --help tells the options and the exit codes of a command.\n");
    Action action;
    AddDecode(app, action);
    AddStat(app, action);
    AddPatterns(app, action);
    AddCompare(app, action);
    AddReport(app, action);
    AddDump(app, action);
    AddLaunch(app, action);
    AddStatus(app, action);
    AddTrain(app, action);
    try {
        std::reverse(words.begin(), words.end());  // as the parser takes them
        app.parse(std::move(words));
    } catch (const CLI::CallForHelp&) {
        const auto rest = app.remaining();
        if (app.get_subcommands().empty() && !rest.empty()) {
            Complain(UnknownCommand(app, rest.front()));
            return ExitCode::kUsage;
        }
        Print(app.help());
        return ExitCode::kSuccess;
    } catch (const CLI::CallForVersion& version) {
        Print(std::string(version.what()) + "\n");
        return ExitCode::kSuccess;
    } catch (const CLI::RequiredError& error) {
        if (!app.get_subcommands().empty()) {
            Complain(error.what());
        } else if (const auto rest = app.remaining(); !rest.empty()) {
            Complain(UnknownCommand(app, rest.front()));
        } else {
            Complain("a command is required");
            static_cast<void>(std::fputs(app.help().c_str(), stderr));
        }
        return ExitCode::kUsage;
    } catch (const CLI::ParseError& error) {
        Complain(error.what());
        return ExitCode::kUsage;
    }
    return action();
}

int Main(int argc, char** argv) {
    auto result = ExitCode::kOutput;
    try {
        // A reader that has seen enough, such as head, ends the program without a word, even where
        // the caller ignores the signal.
        static_cast<void>(std::signal(SIGPIPE, SIG_DFL));
        result = Run({argv + 1, argv + argc});
        FlushOutput();
    } catch (const OutputError& error) {
        static_cast<void>(std::fprintf(stderr, "trelvoctl: %s\n", error.what()));
        result = ExitCode::kOutput;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "trelvoctl: %s\n", Escape(error.what()).c_str()));
        result = ExitCode::kInternal;
    }
    return static_cast<int>(result);
}

}  // namespace

}  // namespace trelvo

int main(int argc, char** argv) {
    return trelvo::Main(argc, argv);
}
