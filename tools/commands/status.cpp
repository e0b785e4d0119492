#include <memory>
#include <string>

#include "commands/commands.h"
#include "commands/output.h"
#include "launch/launch_client.h"
#include "launch/status.h"

namespace trelvo {

namespace {

constexpr const char* kHelp =
    R"(Says whether the service runs and whether what is logged reaches it, with what it holds, what
it has lost and what came of the last dump. What nobody has said is shown as unknown. The
form prometheus is for the text-file collector of a node exporter.

Exit codes:
  0  the service records
  1  the service does not run
  2  wrong usage
  3  the service runs and does not record
  5  standard output could not be written
  7  a fault of trelvoctl itself
)";

ExitCode Status(const std::string& form) {
    std::string folder;
    try {
        folder = RuntimeFolder();
    } catch (const LaunchError& error) {
        Complain(error.what());
        return ExitCode::kNoService;
    }
    const ServiceStatus status = ReadServiceStatus(folder);
    Print(form == "json"         ? StatusJson(status)
          : form == "prometheus" ? StatusMetrics(status)
                                 : StatusText(status));
    if (!status.pid) {
        return ExitCode::kNoService;
    }
    return status.IsRecording() ? ExitCode::kSuccess : ExitCode::kNotRecording;
}

}  // namespace

void AddStatus(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("status", "Say whether the service records, and how it is");
    const auto form = std::make_shared<std::string>("text");
    command->add_option("-o,--output", *form, "Form of the output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json", "prometheus"}))
        ->capture_default_str();
    command->footer(kHelp);
    command->callback([form, &action] { action = [form] { return Status(*form); }; });
}

}  // namespace trelvo
