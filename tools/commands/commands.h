#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "commands/exit_codes.h"

namespace trelvo {

// What is left to do once the whole command line has been accepted.
using Action = std::function<ExitCode()>;

// Each adds one subcommand, which sets `action`; both must outlive the parsing and the action.
void AddCompare(CLI::App& app, Action& action);
void AddDecode(CLI::App& app, Action& action);
void AddDump(CLI::App& app, Action& action);
void AddLaunch(CLI::App& app, Action& action);
void AddTrain(CLI::App& app, Action& action);
void AddPatterns(CLI::App& app, Action& action);
void AddReport(CLI::App& app, Action& action);
void AddStat(CLI::App& app, Action& action);
void AddStatus(CLI::App& app, Action& action);

}  // namespace trelvo
