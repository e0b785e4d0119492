#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "commands/command_tree.h"
#include "commands/commands.h"
#include "commands/completion.h"
#include "commands/man_pages.h"
#include "commands/output.h"

namespace trelvo {

namespace {

namespace fs = std::filesystem;

// Throws fs::filesystem_error or std::ios_base::failure.
void WriteFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream file;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.open(path, std::ios::binary);
    file << text;
    file.close();
}

// Where a share/ of an installation has them.
void WriteManual(const CommandHelp& program, const fs::path& share) {
    const fs::path pages = share / "man/man1";
    WriteFile(pages / (program.name + ".1"), ManPage(program, TRELVO_VERSION));
    for (const CommandHelp& command : program.subcommands) {
        WriteFile(pages / (program.name + "-" + command.name + ".1"),
                  ManPage(program, command, TRELVO_VERSION));
    }
    WriteFile(share / "bash-completion/completions" / program.name, BashCompletion(program));
    WriteFile(share / "zsh/site-functions" / ("_" + program.name), ZshCompletion(program));
    WriteFile(share / "fish/vendor_completions.d" / (program.name + ".fish"),
              FishCompletion(program));
}

}  // namespace

// Hidden: the build runs it.
void AddManual(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("manual", "Write the manual pages and the completion of shells");
    command->group("");
    const auto folder = std::make_shared<std::string>();
    command->add_option("DIR", *folder, "Folder to write them to, as a share/")
        ->type_name("")
        ->required();
    command->callback([folder, &app, &action] {
        action = [folder, &app] {
            try {
                WriteManual(ReadCommandTree(app), *folder);
            } catch (const std::exception& error) {
                Complain("manual: " + *folder + ": " + error.what());
                return ExitCode::kOutput;
            }
            return ExitCode::kSuccess;
        };
    });
}

}  // namespace trelvo
