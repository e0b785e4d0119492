#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>

#include "commands/commands.h"
#include "commands/help_formatter.h"
#include "commands/output.h"
#include "text/escape.h"

namespace trelvo {

namespace {

ExitCode Run(int argc, char** argv) {
    CLI::App app("Reads the dumps of the trelvo flight recorder and talks to its service.",
                 "trelvoctl");
    app.set_version_flag("--version", "trelvoctl " TRELVO_VERSION);
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(1);
    app.footer(kExitCodesHelp);
    Action action;
    AddDecode(app, action);
    AddStat(app, action);
    AddPatterns(app, action);
    AddDump(app, action);
    AddLaunch(app, action);
    AddStatus(app, action);
    AddTrain(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        Print(app.help());
        return ExitCode::kSuccess;
    } catch (const CLI::CallForVersion& version) {
        Print(std::string(version.what()) + "\n");
        return ExitCode::kSuccess;
    } catch (const CLI::RequiredError& error) {
        const auto rest = app.remaining();
        const bool unknown = app.get_subcommands().empty() && !rest.empty();
        Complain(unknown ? "unknown command or option '" + rest.front() + "'" : error.what());
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
        result = Run(argc, argv);
        FlushOutput();
    } catch (const OutputError& error) {
        static_cast<void>(std::fprintf(stderr, "trelvoctl: %s\n", error.what()));
        result = ExitCode::kOutput;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "trelvoctl: %s\n", Escape(error.what()).c_str()));
        result = ExitCode::kDamage;
    }
    return static_cast<int>(result);
}

}  // namespace

}  // namespace trelvo

int main(int argc, char** argv) {
    return trelvo::Main(argc, argv);
}
