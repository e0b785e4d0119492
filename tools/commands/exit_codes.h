#pragma once

namespace trelvo {

// What trelvoctl tells a script; of several faults the highest. The numbers never change.
enum class ExitCode {
    kSuccess = 0,
    kNoService = 1,     // the service did not do what was asked, or does not run
    kNoMatch = 1,       // no line matched --grep
    kUsage = 2,         // the command line was refused, nothing was done
    kDamage = 3,        // input is missing or damaged; all that could be read was printed
    kNotRecording = 3,  // the service runs without recording what is logged
    kCodeTables = 4,    // code tables are missing, or of another policy version than the dump
    kOutput = 5,        // standard output did not take all that was to be printed
};

inline constexpr const char* kExitCodesHelp =
    "Exit codes:\n"
    "  0  all right\n"
    "  1  the service did not do what was asked; no line matched --grep\n"
    "  2  wrong usage\n"
    "  3  input is missing or damaged; all that could be read was printed\n"
    "  4  code tables are missing, or of another policy version than the dump\n"
    "  5  standard output could not be written\n";

}  // namespace trelvo
