#pragma once

#include <initializer_list>
#include <string>

namespace trelvo {

// What trelvoctl tells a script; of several faults the highest. The numbers never change.
enum class ExitCode {
    kSuccess = 0,
    kNoService = 1,     // the service did not do what was asked, or does not run
    kUsage = 2,         // the command line was refused, nothing was done
    kDamage = 3,        // input is missing or damaged; all that could be read was printed
    kNotRecording = 3,  // the service runs without recording what is logged
    kCodeTables = 4,    // code tables are missing, or of another policy version than the dump
    kOutput = 5,        // standard output, or a file to be made, did not take all
    kNoMatch = 6,       // no line matched --grep
    kInternal = 7,      // a fault of the program itself
};

// The end of a command's help: each code that it can end with, and what the code means there.
struct ExitCodeHelp {
    ExitCode code;
    const char* meaning;
};
[[nodiscard]] inline std::string ExitCodesHelp(std::initializer_list<ExitCodeHelp> codes) {
    std::string text = "Exit codes:\n  0  success\n";
    for (const ExitCodeHelp& help : codes) {
        text += "  " + std::to_string(static_cast<int>(help.code)) + "  " + help.meaning + '\n';
    }
    return text + "  7  a fault of trelvoctl itself\n";
}

// What commands that read logs have in common.
inline constexpr ExitCodeHelp kUsageHelp{ExitCode::kUsage, "wrong usage; nothing was done"};
inline constexpr ExitCodeHelp kDamageHelp{
    ExitCode::kDamage, "input is missing or damaged; all that could be read was used"};
inline constexpr ExitCodeHelp kCodeTablesHelp{
    ExitCode::kCodeTables, "code tables are missing, or of another policy version than the dump"};
inline constexpr ExitCodeHelp kOutputHelp{ExitCode::kOutput, "standard output was not written"};
inline constexpr ExitCodeHelp kNoMatchHelp{ExitCode::kNoMatch, "no line matched --grep"};

}  // namespace trelvo
