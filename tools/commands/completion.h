#pragma once

#include <string>

#include "commands/command_tree.h"

namespace trelvo {

// Scripts that let a shell propose the program's commands, options and values. Each needs nothing
// but the shell.
[[nodiscard]] std::string BashCompletion(const CommandHelp& program);
[[nodiscard]] std::string ZshCompletion(const CommandHelp& program);
[[nodiscard]] std::string FishCompletion(const CommandHelp& program);

}  // namespace trelvo
