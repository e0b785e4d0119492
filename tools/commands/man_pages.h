#pragma once

#include <string>

#include "commands/command_tree.h"

namespace trelvo {

// The manual page of a program, in the man macros of roff.
[[nodiscard]] std::string ManPage(const CommandHelp& program, const std::string& version);
// That of one of its subcommands, which is called PROGRAM-SUBCOMMAND.
[[nodiscard]] std::string ManPage(const CommandHelp& program, const CommandHelp& command,
                                  const std::string& version);

}  // namespace trelvo
