#pragma once

#include <string>
#include <string_view>

#include "commands/exit_codes.h"

namespace trelvo {

// What goes wrong while a command runs: told a line at a time on standard error, and remembered as
// the exit code that it comes to.
class Faults {
public:
    void Tell(std::string_view message, ExitCode code);

    // Runs a step. What that throws for a fault of its input is told with the name of the input;
    // false then. Throws what is not such a fault.
    template <typename Step>
    bool Try(const std::string& name, const Step& step) {
        try {
            step();
            return true;
        } catch (...) {
            TellCaught(name);
            return false;
        }
    }

    [[nodiscard]] ExitCode Worst() const { return worst_; }

private:
    void TellCaught(const std::string& name);

    ExitCode worst_ = ExitCode::kSuccess;
};

}  // namespace trelvo
