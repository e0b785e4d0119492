#include "command_line.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <cstdio>

#include "configuration.h"
#include "dlog_threshold.h"

namespace port {
namespace {

constexpr const char* kHelp = R"(Usage: trelvo
       trelvo KEY=VALUE ...
       trelvo --check [FILE]

Flight recorder for the system log. Without arguments it records as %s says;
where that file does not exist it waits for 'trelvoctl launch'.

  KEY=VALUE       record as these launch arguments say; see 'man trelvo'
  --check [FILE]  check the configuration file and start nothing
  --help          print this
  --version       print the version

Exit codes:
  0  success
  2  wrong usage, or a configuration with errors; nothing was started
  any other  the service could not start, or failed
)";

// The text may have several lines.
void PrintFaults(std::string_view text) {
    for (const std::string_view line : SplitWords(text, '\n')) {
        std::fprintf(stderr, "trelvo: %.*s\n", static_cast<int>(line.size()), line.data());
    }
}

int Check(const char* file) {
    static_cast<void>(ReadConfiguration(file));
    std::printf("%s: valid\n", file);
    return kExitSuccess;
}

// What the words of the command line ask for, each KEY=VALUE.
CommandLine ReadLaunch(int argc, char** argv) {
    CommandLine result;
    std::vector<Fault> faults;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        const size_t equals = word.find('=');
        if (word == "--check" || word == "--help" || word == "--version") {
            faults.push_back({Quoted(word), "goes with no other words, --check with one FILE"});
        } else if (word.substr(0, 1) == "-") {
            faults.push_back(
                {Quoted(word),
                 "unknown option" + DidYouMean(word, {"--check", "--help", "--version"})});
        } else if (equals == 0 || equals == std::string_view::npos) {
            faults.push_back({Quoted(word), "not KEY=VALUE"});
        } else if (!result.first.emplace(word.substr(0, equals), word.substr(equals + 1)).second) {
            faults.push_back({Quoted(word.substr(0, equals)), "given twice"});
        }
    }
    if (faults.empty()) {
        faults = CheckFirstLaunch(result.first);
    }
    if (!faults.empty()) {
        Complain(faults);
        result.exit = kExitUsage;
    }
    return result;
}

CommandLine ReadFile() {
    CommandLine result;
    std::error_code error;
    if (std::filesystem::exists(kConfigurationFile, error) || error) {
        Configuration configuration = ReadConfiguration(kConfigurationFile);
        result.first = std::move(configuration.launch);
        result.group = configuration.group;
        if (configuration.log_threshold) {
            SetLogThreshold(*configuration.log_threshold);
        }
    }
    return result;
}

}  // namespace

CommandLine ReadCommandLine(int argc, char** argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    try {
        if (argc <= 1) {
            return ReadFile();
        }
        if (option == "--check" && argc <= 3) {
            return {Check(argc == 3 ? argv[2] : kConfigurationFile), {}, {}};
        }
        if (option == "--help" && argc == 2) {
            std::printf(kHelp, kConfigurationFile);
            return {kExitSuccess, {}, {}};
        }
        if (option == "--version" && argc == 2) {
            std::puts("trelvo " TRELVO_VERSION);
            return {kExitSuccess, {}, {}};
        }
        return ReadLaunch(argc, argv);
    } catch (const ConfigurationError& error) {
        PrintFaults(error.what());
        return {kExitUsage, {}, {}};
    }
}

void Complain(const std::vector<Fault>& faults) {
    for (const Fault& fault : faults) {
        PrintFaults(fault.key + ": " + fault.text);
    }
}

}  // namespace port
