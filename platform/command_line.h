#pragma once

#include <sys/types.h>

#include <optional>

#include "launch_check.h"

namespace port {

inline constexpr int kExitSuccess = 0;
// Wrong usage, or a configuration that cannot be believed; nothing was started.
inline constexpr int kExitUsage = 2;

struct CommandLine {
    std::optional<int> exit;  // set: the program has nothing more to do and ends with this status
    LaunchArguments first;    // empty: the service waits for a launch
    std::optional<gid_t> group;  // that may read dumps
};

// Reads the service's command line, or the configuration file where there are no words, which also
// sets the threshold of the log. Prints what was asked for on standard output, and a line for each
// fault on standard error.
[[nodiscard]] CommandLine ReadCommandLine(int argc, char** argv);

// Prints a line for each fault on standard error.
void Complain(const std::vector<Fault>& faults);

}  // namespace port
