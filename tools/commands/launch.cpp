#include <glib.h>

#include <chrono>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/output.h"
#include "launch/launch_client.h"

namespace trelvo {

namespace {

struct LaunchOptions {
    std::vector<std::string> words;
    int timeout_seconds = 10;
};

// Adds the launch argument; the result is empty, or says what is wrong with the word.
std::string AddArgument(const std::string& word, std::map<std::string, std::string>& arguments) {
    const size_t equals = word.find('=');
    if (equals == std::string::npos) {
        return "has no '='";
    }
    if (equals == 0) {
        return "has no key before its '='";
    }
    if (g_utf8_validate(word.data(), static_cast<gssize>(word.size()), nullptr) == FALSE) {
        return "is not UTF-8";
    }
    if (!arguments.emplace(word.substr(0, equals), word.substr(equals + 1)).second) {
        return "gives its key a second time";
    }
    return {};
}

ExitCode Launch(const LaunchOptions& options) {
    std::map<std::string, std::string> arguments;
    for (const std::string& word : options.words) {
        if (const std::string fault = AddArgument(word, arguments); !fault.empty()) {
            Complain("launch: '" + word + "' " + fault + "; expected KEY=VALUE");
            return ExitCode::kUsage;
        }
    }
    try {
        SendLaunch(LaunchSocket(), arguments, std::chrono::seconds(options.timeout_seconds));
    } catch (const LaunchRefused& refused) {
        std::istringstream faults(refused.what());
        for (std::string fault; std::getline(faults, fault);) {
            Complain("launch: " + fault);
        }
        return ExitCode::kUsage;
    } catch (const LaunchError& error) {
        Complain(error.what());
        return ExitCode::kNoService;
    }
    return ExitCode::kSuccess;
}

}  // namespace

void AddLaunch(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("launch", "Send a launch request to the running service");
    const auto options = std::make_shared<LaunchOptions>();
    command
        ->add_option("KEY=VALUE", options->words, "Launch arguments, such as DUMP=/var/tmp/dumps")
        ->type_name("")
        ->required();
    command->add_option("--timeout", options->timeout_seconds, "Wait no longer for the service")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->footer(
        ExitCodesHelp({{ExitCode::kNoService, "the service does not run, or did not answer"},
                       {ExitCode::kUsage, "wrong usage, or the service refused it"}}));
    command->callback([options, &action] { action = [options] { return Launch(*options); }; });
}

}  // namespace trelvo
