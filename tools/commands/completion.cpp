#include "commands/completion.h"

#include <string_view>
#include <vector>

namespace trelvo {

namespace {

std::string Join(const std::vector<std::string>& words, const char* separator = " ") {
    return CLI::detail::join(words, separator);
}

// With a backslash before each of these characters.
std::string Escaped(const std::string& text, std::string_view special) {
    std::string out;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) {
            out += '\\';
        }
        out += c;
    }
    return out;
}

// One word of a shell, whatever is in it.
std::string Quoted(const std::string& text) {
    return "'" + CLI::detail::find_and_replace(text, "'", "'\\''") + "'";
}

std::vector<std::string> CommandNames(const CommandHelp& program) {
    std::vector<std::string> names;
    for (const CommandHelp& command : program.subcommands) {
        names.push_back(command.name);
    }
    return names;
}

std::vector<std::string> OptionNames(const CommandHelp& command) {
    std::vector<std::string> names;
    for (const OptionHelp& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

// What compgen is to propose.
std::string BashProposal(const OptionHelp& option) {
    switch (option.proposal) {
        case Proposal::kChoices:
            return "-W " + Quoted(Join(option.choices));
        case Proposal::kFiles:
            return "-f";
        case Proposal::kFolders:
            return "-d";
        case Proposal::kNothing:
            break;
    }
    return "-W ''";
}

std::string BashCommand(const CommandHelp& command) {
    std::string text = "        " + command.name + ")\n            case $previous in\n";
    for (const OptionHelp& option : command.options) {
        if (!option.value.empty()) {
            text += "                " + Join(option.names, " | ") + ") proposal=(" +
                    BashProposal(option) + ") ;;\n";
        }
    }
    text += "                *) options=" + Quoted(Join(OptionNames(command))) + " proposal=(" +
            (command.arguments.empty() ? "-W ''" : BashProposal(command.arguments.front())) +
            ") ;;\n            esac\n            ;;\n";
    return text;
}

std::string ZshProposal(const OptionHelp& option) {
    switch (option.proposal) {
        case Proposal::kChoices:
            return "(" + Join(option.choices) + ")";
        case Proposal::kFiles:
            return "_files";
        case Proposal::kFolders:
            return "_files -/";
        case Proposal::kNothing:
            break;
    }
    return " ";
}

std::string ZshArguments(const CommandHelp& command) {
    const auto plain = [](const std::string& text) { return Escaped(text, "\\[]:"); };
    std::string text;
    for (const OptionHelp& option : command.options) {
        for (const std::string& name : option.names) {
            const std::string others = option.many ? "*" : "(" + Join(option.names) + ")";
            text += " \\\n                " +
                    Quoted(others + name + "[" + plain(option.description) + "]" +
                           (option.value.empty()
                                ? ""
                                : ":" + plain(option.value) + ":" + ZshProposal(option)));
        }
    }
    for (const OptionHelp& argument : command.arguments) {
        text +=
            " \\\n                " + Quoted((argument.many ? "*:" : ":") + plain(argument.value) +
                                             ":" + ZshProposal(argument));
    }
    return text;
}

std::string FishProposal(const OptionHelp& option) {
    switch (option.proposal) {
        case Proposal::kChoices:
            return " -x -a " + Quoted(Join(option.choices));
        case Proposal::kFiles:
            return " -r -F";
        case Proposal::kFolders:
            return " -x -a '(__fish_complete_directories)'";
        case Proposal::kNothing:
            break;
    }
    return option.value.empty() ? "" : " -x";
}

std::string FishOptions(const CommandHelp& command, const std::string& prefix) {
    std::string text;
    for (const OptionHelp& option : command.options) {
        text += prefix;
        for (const std::string& name : option.names) {
            const bool is_long = name.substr(0, 2) == "--";
            text += is_long ? " -l " + name.substr(2) : " -s " + name.substr(1);
        }
        text += FishProposal(option) + " -d " + Quoted(Escaped(option.description, "\\")) + "\n";
    }
    return text;
}

}  // namespace

// Bash splits --option=value into three words.
std::string BashCompletion(const CommandHelp& program) {
    std::string text = "_" + program.name + R"(() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' options='' proposal=() i
    if [[ $current == = ]]; then
        current=''
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    case $command in
        '') options=)" +
                       Quoted(Join(OptionNames(program))) + " proposal=(-W " +
                       Quoted(Join(CommandNames(program))) + ") ;;\n";
    for (const CommandHelp& command : program.subcommands) {
        text += BashCommand(command);
    }
    return text + R"(        *) return ;;
    esac
    if [[ $current == -* && -n $options ]]; then
        proposal=(-W "$options")
    elif [[ ${proposal[0]} == -[df] ]]; then
        compopt -o filenames
    fi
    mapfile -t COMPREPLY < <(compgen "${proposal[@]}" -- "$current")
}
complete -F _)" +
           program.name + " " + program.name + "\n";
}

std::string ZshCompletion(const CommandHelp& program) {
    std::string commands;
    std::string cases;
    for (const CommandHelp& command : program.subcommands) {
        commands +=
            "        " + Quoted(Escaped(command.name, ":") + ":" + command.description) + "\n";
        cases += "        " + command.name + ")\n            _arguments -s" +
                 ZshArguments(command) + "\n            ;;\n";
    }
    return "#compdef " + program.name +
           "\n\nlocal context state line\nlocal -a commands\ncommands=(\n" + commands +
           "    )\n_arguments -C" + ZshArguments(program) +
           " \\\n                '1:command:->command' '*::argument:->argument'\n"
           "case $state in\n    command) _describe command commands ;;\n    argument)\n"
           "        case $line[1] in\n" +
           cases + "        esac\n        ;;\nesac\n";
}

std::string FishCompletion(const CommandHelp& program) {
    const std::string complete = "complete -c " + program.name;
    const std::string first = complete + " -n __fish_use_subcommand";
    std::string text = FishOptions(program, first + " -f");
    for (const CommandHelp& command : program.subcommands) {
        text += first + " -f -a " + command.name + " -d " +
                Quoted(Escaped(command.description, "\\")) + "\n";
        const std::string after =
            complete + " -n '__fish_seen_subcommand_from " + command.name + "'";
        text += after;
        switch (command.arguments.empty() ? Proposal::kNothing
                                          : command.arguments.front().proposal) {
            case Proposal::kFiles:
                text += " -F\n";
                break;
            case Proposal::kFolders:
                text += " -f -a '(__fish_complete_directories)'\n";
                break;
            default:
                text += " -f\n";
        }
        text += FishOptions(command, after);
    }
    return text;
}

}  // namespace trelvo
