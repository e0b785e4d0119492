#pragma once

#include <CLI/CLI.hpp>

#include "commands/decoder.h"
#include "commands/policy_options.h"

namespace trelvo {

// FILE, --policy, --policies, --since and --until: which lines a command reads that shows a log in
// another form than decode.
inline void AddLogOptions(CLI::App& command, DecodeOptions& options) {
    command
        .add_option("FILE", options.words,
                    "Dumps, folders of dumps (*.dump, *.dump.zst), or - for standard input; and "
                    "filters TAG:LEVEL, as for decode")
        ->type_name("FILE|DIR|TAG:LEVEL")
        ->required();
    AddPolicyOptions(command, options.policy, options.policies);
    command.add_option("--since", options.since, "Only lines from this time on, as for decode")
        ->type_name("TIME");
    command.add_option("--until", options.until, "Only lines up to this time")->type_name("TIME");
}

}  // namespace trelvo
