#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "commands/commands.h"
#include "commands/output.h"
#include "dump/timeline.h"
#include "launch/dump_waiter.h"
#include "launch/launch_client.h"
#include "launch/status.h"
#include "text/clock.h"
#include "text/escape.h"

namespace trelvo {

namespace {

constexpr const char* kHelp =
    R"(Asks the running service for a dump, waits until it is complete and prints its path. A line
on standard error tells how many lines it holds, their time span, and how old the newest is.
The dump holds all that was logged before the command; the buffer keeps its records. A service
that is just starting is waited for; one that was not launched yet refuses the request.

Exit codes:
  0  the dump is complete and holds what was logged before
  1  no dump: no service, or it could not write one, or not in time
  2  wrong usage, such as a folder that does not exist
  3  there is a dump, but it is damaged, empty, or without what was logged last
  5  standard output could not be written
  7  a fault of trelvoctl itself
)";

using Steady = DumpWaiter::Clock;

// A service that was started by the command before may not have come to its lock yet.
constexpr std::chrono::seconds kGrace{2};
constexpr std::chrono::milliseconds kLookAgain{20};

struct DumpOptions {
    std::string folder;
    int timeout_seconds = 30;
    bool zstd = false;
};

std::chrono::seconds SecondsUntil(Steady::time_point time) {
    return std::max(std::chrono::ceil<std::chrono::seconds>(time - Steady::now()),
                    std::chrono::seconds(1));
}

// Hands over the request, as soon as there is a service that takes it.
void Ask(const std::string& runtime_folder, const std::map<std::string, std::string>& request,
         Steady::time_point deadline) {
    const std::string socket = LaunchSocket();
    const auto grace = std::min(deadline, Steady::now() + kGrace);
    for (;;) {
        try {
            while (ReadServiceStatus(runtime_folder).IsAboutToRead(std::time(nullptr)) &&
                   Steady::now() < deadline) {
                std::this_thread::sleep_for(kLookAgain);
            }
            SendLaunch(socket, request, SecondsUntil(deadline));
            return;
        } catch (const LaunchRefused&) {
            throw;
        } catch (const LaunchError&) {
            const bool runs = ReadServiceStatus(runtime_folder).pid.has_value();
            if (Steady::now() >= (runs ? deadline : grace)) {
                throw;
            }
            std::this_thread::sleep_for(kLookAgain);
        }
    }
}

// What decode would show of it.
struct Contents {
    uint64_t lines = 0;
    Line first;
    Line last;
    int64_t newest_ms = 0;  // also of the capture's own lines, which decode does not show
};

Contents ReadContents(const ServiceFile& file) {
    Timeline timeline(false);
    timeline.Add(
        "", [&file] { return OpenInput(file.OpenPath()); }, nullptr);
    if (const auto& damage = timeline.Parts().front().damage) {
        throw DamageError(*damage);
    }
    Contents contents;
    const auto visit = [&contents](const Line& line, Break /*before*/) {
        contents.newest_ms = line.time_ms;
        if (!line.clock) {
            contents.last.time_ms = line.time_ms;
            contents.last.boot_time_ms = line.boot_time_ms;
            contents.first = contents.lines == 0 ? contents.last : contents.first;
            ++contents.lines;
        }
    };
    timeline.Visit(0, visit, [](const Part& /*part*/) {});
    return contents;
}

std::string TimeText(const Line& line) {
    std::string text;
    if (line.boot_time_ms) {
        Clock(false).Append(*line.boot_time_ms + line.time_ms, "%Y-%m-%d %H:%M:%S", false, text);
    } else {
        AppendSeconds(line.time_ms, text);
    }
    return text;
}

std::string Summary(const Contents& contents, int64_t now_ms) {
    std::string age;
    AppendSeconds(std::max<int64_t>(now_ms - contents.last.time_ms, 0), age);
    return std::to_string(contents.lines) + (contents.lines == 1 ? " line, " : " lines, ") +
           TimeText(contents.first) + " to " + TimeText(contents.last) +
           (contents.last.boot_time_ms ? "" : " s since boot") + "; the newest is " + age +
           " s old";
}

// Why the dump may not hold what it was asked for; empty where nothing is wrong.
std::string Fault(const Contents& contents, const ServiceStatus& before,
                  const ServiceStatus& after) {
    if (after.capture.Number("alive") == 0) {
        return "stale: the service does not record: " +
               after.capture.Text("reason").value_or("its capture is dead");
    }
    if (after.service.Number("last_dump_current") == 0) {
        return "stale: the service could not read in time what was logged last; it may be behind, "
               "or starting: ask again";
    }
    if (contents.lines == 0) {
        return after.service.Number("accepted").value_or(0) == 0
                   ? "empty: the service has recorded nothing yet"
                   : "empty: what was recorded went into earlier dumps by the service itself";
    }
    if (contents.newest_ms < before.service.Number("newest_ms").value_or(0)) {
        return "stale: the service had recorded newer lines before";
    }
    return {};
}

// Tells what is in the dump.
ExitCode Report(const std::string& path, const ServiceStatus& before,
                const std::string& runtime_folder) {
    const ServiceStatus after = ReadServiceStatus(runtime_folder);
    Contents contents;
    try {
        contents = ReadContents(ServiceFile(path, runtime_folder));
    } catch (const DamageError& error) {
        Complain(path + ": " + Describe(error));
        return ExitCode::kDamage;
    } catch (const std::system_error& error) {
        Complain(path + ": " + error.code().message());
        return ExitCode::kDamage;
    }
    Print((isatty(STDOUT_FILENO) != 0 ? Escape(path) : path) + '\n');
    if (contents.lines > 0) {
        Complain(Summary(contents, after.now_ms));
    }
    if (const std::string fault = Fault(contents, before, after); !fault.empty()) {
        Complain(path + ": " + fault);
        return ExitCode::kNotRecording;
    }
    return ExitCode::kSuccess;
}

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
    try {
        const std::string runtime_folder = RuntimeFolder();
        std::optional<DumpWaiter> waiter;
        try {
            waiter.emplace(runtime_folder, folder, options.zstd);
        } catch (const DumpWaitError& fault) {
            Complain(std::string("dump: ") + fault.what());
            return ExitCode::kUsage;
        }
        std::map<std::string, std::string> request{{"DUMP", folder}};
        if (options.zstd) {
            request["DUMPFORM"] = "zstd";
        }
        const ServiceStatus before = ReadServiceStatus(runtime_folder);
        const std::string path = waiter->Wait(
            [&](Steady::time_point deadline) { Ask(runtime_folder, request, deadline); },
            std::chrono::seconds(options.timeout_seconds));
        return Report(path, before, runtime_folder);
    } catch (const LaunchError& fault) {
        Complain(fault.what());
    } catch (const DumpWaitError& fault) {
        Complain(fault.what());
    }
    return ExitCode::kNoService;
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
    command->footer(kHelp);
    command->callback([options, &action] { action = [options] { return Dump(*options); }; });
}

}  // namespace trelvo
