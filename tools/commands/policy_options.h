#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace trelvo {

// --policy and --policies, of which only one can be given: where the dumps' code tables are.
inline void AddPolicyOptions(CLI::App& command, std::optional<std::string>& policy,
                             std::optional<std::string>& policies) {
    CLI::Option* const one =
        command.add_option("--policy", policy, "Policy folder with the dumps' code tables")
            ->type_name("DIR");
    command
        .add_option("--policies", policies,
                    "Folder of policy folders; each dump takes that of its policy version")
        ->type_name("DIR")
        ->excludes(one);
}

}  // namespace trelvo
