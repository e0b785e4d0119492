#include "commands/command_tree.h"

#include <sstream>

namespace trelvo {

namespace {

constexpr std::string_view kExitCodesTitle = "Exit codes:\n";

// The type name is "NAME:CHECK:CHECK"; a check for fixed values describes itself as "{a,b}".
void ReadValue(const std::string& type_name, OptionHelp& help) {
    help.value = type_name.substr(0, type_name.find(':'));
    const size_t open = type_name.find(":{");
    if (open != std::string::npos) {
        std::istringstream choices(
            type_name.substr(open + 2, type_name.find('}', open) - open - 2));
        for (std::string choice; std::getline(choices, choice, ',');) {
            help.choices.push_back(choice);
        }
    }
}

Proposal ProposalFor(const OptionHelp& help) {
    const auto is_named = [&help](const char* word) {
        return help.value.find(word) != std::string::npos;
    };
    if (!help.choices.empty()) {
        return Proposal::kChoices;
    }
    if (is_named("FILE") || is_named("INPUT")) {
        return Proposal::kFiles;
    }
    return is_named("DIR") ? Proposal::kFolders : Proposal::kNothing;
}

OptionHelp ReadOption(const CLI::Option& option) {
    OptionHelp help;
    help.description = option.get_description();
    help.default_value = option.get_default_str();
    help.many = option.get_expected_max() > 1;
    help.required = option.get_required();
    for (const CLI::Option* const other : option.get_excludes()) {
        help.excludes.push_back(other->get_name());
    }
    if (option.get_items_expected_max() != 0) {
        ReadValue(option.get_type_name(), help);
    }
    if (option.get_positional()) {
        help.names = {option.get_name(true)};
        help.value = help.names.front();
    }
    for (const std::string& name : option.get_snames()) {
        help.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        help.names.push_back("--" + name);
    }
    help.proposal = ProposalFor(help);
    return help;
}

}  // namespace

CommandHelp ReadCommandTree(const CLI::App& app) {
    CommandHelp help;
    help.name = app.get_name();
    help.description = app.get_description();
    const std::string footer = app.get_footer();
    const size_t exit_codes = footer.find(kExitCodesTitle);
    help.text = footer.substr(0, exit_codes);
    if (exit_codes != std::string::npos) {
        help.exit_codes = footer.substr(exit_codes + kExitCodesTitle.size());
    }
    for (const CLI::Option* const option : app.get_options()) {
        if (!option->get_group().empty()) {
            auto& list = option->get_positional() ? help.arguments : help.options;
            list.push_back(ReadOption(*option));
        }
    }
    for (const CLI::App* const command : app.get_subcommands(nullptr)) {
        if (!command->get_group().empty()) {
            help.subcommands.push_back(ReadCommandTree(*command));
        }
    }
    return help;
}

}  // namespace trelvo
