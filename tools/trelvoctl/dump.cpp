#include <glib.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "launch/dump_waiter.h"
#include "launch/launch_client.h"
#include "trelvoctl/commands.h"
#include "trelvoctl/output.h"

namespace {

constexpr const char* kHelp =
    "Asks the running service for a dump, waits until the file is complete and prints its path.\n"
    "The buffer keeps its records. The request is repeated every other second, since the service\n"
    "loses some; a slow one may therefore write one more dump afterwards. A service that was not\n"
    "launched yet refuses it.\n\n";

struct DumpOptions {
    std::string folder;
    int timeout_seconds = 30;
    bool zstd = false;
};

ExitCode Dump(const DumpOptions& options) {
    std::error_code error;
    const std::string folder = std::filesystem::canonical(options.folder, error).string();
    if (error) {
        Complain("dump: " + options.folder + ": " + error.message());
        return ExitCode::kUsage;
    }
    if (g_utf8_validate(folder.data(), static_cast<gssize>(folder.size()), nullptr) == FALSE) {
        Complain("dump: " + folder + ": the path is not UTF-8");
        return ExitCode::kUsage;
    }
    const std::chrono::seconds timeout(options.timeout_seconds);
    try {
        std::optional<DumpWaiter> waiter;
        try {
            waiter.emplace(folder, options.zstd);
        } catch (const DumpWaitError& fault) {
            Complain(std::string("dump: ") + fault.what());
            return ExitCode::kUsage;
        }
        const std::string socket = LaunchSocket();
        std::map<std::string, std::string> request{{"DUMP", folder}};
        if (options.zstd) {
            request["DUMPFORM"] = "zstd";
        }
        const auto ask = [&](std::chrono::seconds left) { SendLaunch(socket, request, left); };
        Print(waiter->Wait(ask, timeout) + '\n');
    } catch (const LaunchError& fault) {
        Complain(fault.what());
        return ExitCode::kNoService;
    } catch (const DumpWaitError& fault) {
        Complain(fault.what());
        return ExitCode::kNoService;
    }
    return ExitCode::kSuccess;
}

}  // namespace

void AddDump(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("dump", "Ask the running service for a dump and wait for it");
    const auto options = std::make_shared<DumpOptions>();
    command->add_option("DIR", options->folder, "Folder for the dump")->type_name("")->required();
    command->add_option("--timeout", options->timeout_seconds, "Wait no longer for the dump")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->add_flag("--zstd", options->zstd,
                      "Ask for a compressed dump, NAME.dump.zst, in which damage is seen");
    command->footer(std::string(kHelp) + kExitCodesHelp);
    command->callback([options, &action] { action = [options] { return Dump(*options); }; });
}
