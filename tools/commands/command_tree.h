#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace trelvo {

// What a shell can propose for a value.
enum class Proposal { kNothing, kChoices, kFiles, kFolders };

struct OptionHelp {
    std::vector<std::string> names;  // with their dashes; of an argument the one without
    std::string value;               // what stands for its value; empty: it takes none
    std::string description;
    std::string default_value;
    std::vector<std::string> choices;
    std::vector<std::string> excludes;
    Proposal proposal = Proposal::kNothing;
    bool many = false;
    bool required = false;
};

struct CommandHelp {
    std::string name;
    std::string description;
    std::string text;  // the footer, up to the exit codes
    std::string exit_codes;
    std::vector<OptionHelp> options;
    std::vector<OptionHelp> arguments;
    std::vector<CommandHelp> subcommands;
};

// The declarations of a program and its subcommands, which is where its help, its manual pages and
// its completion come from. Leaves out what is hidden, that is, in the group "".
//
// A value is taken for a folder or a file by the name that stands for it: DIR, FILE, INPUT.
[[nodiscard]] CommandHelp ReadCommandTree(const CLI::App& app);

}  // namespace trelvo
