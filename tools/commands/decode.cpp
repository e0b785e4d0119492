#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "commands/decoder.h"
#include "commands/output.h"
#include "commands/pager.h"
#include "commands/policy_options.h"

namespace trelvo {

namespace {

constexpr const char* kHelp =
    R"(Several dumps are shown as one log, ordered by the time at which their files were written:
lines that later dumps repeat appear once, and a line of dashes marks a gap, a fresh start, a
restart of the service or a reboot. Files compressed by zstd are read as they are.
The level is I, W, E or F; D stands for all others, which a dump does not tell apart. Bytes
that could drive a terminal are printed as \xNN (a byte) or \u{N} (a code point), a
backslash as \\. Without its code tables a code is printed as <code HEX>.
Where the capture wrote clock lines, times are those of the wall clock, and boots and machines
are told apart by name; clock lines are shown only when a filter names them: trelvo.clock:V.
Other times follow from the newest line backwards: where a dump is damaged, the lines that
were lost are not accounted for, and the times are the latest possible: "≤" marks them.

)";

ExitCode Decode(const DecodeOptions& options) {
    std::optional<Pager> pager;
    if (!options.no_pager && !options.follow) {
        pager.emplace();
    }
    Faults faults;
    auto result = ExitCode::kSuccess;
    faults.Try("decode", [&] { result = Decoder(options).Run(); });
    FlushOutput();
    return std::max(result, faults.Worst());
}

}  // namespace

void AddDecode(CLI::App& app, Action& action) {
    CLI::App* const command = app.add_subcommand("decode", "Print dumps as one log");
    const auto options = std::make_shared<DecodeOptions>();
    command
        ->add_option("FILE", options->words,
                     "Dumps, folders of dumps (*.dump, *.dump.zst), or - for standard input; and "
                     "filters TAG:LEVEL: the lowest level of a tag, * for all tags not named")
        ->type_name("FILE|DIR|TAG:LEVEL")
        ->required();
    AddPolicyOptions(*command, options->policy, options->policies);
    command->add_flag("--force", options->force,
                      "Take the tables of --policy also for dumps of another policy version");
    command->add_option("--pid", options->pids, "Only lines of this process; may be repeated")
        ->type_name("PID")
        ->expected(1)
        ->take_all();
    command->add_option("--tid", options->tids, "Only lines of this thread; may be repeated")
        ->type_name("TID")
        ->expected(1)
        ->take_all();
    command
        ->add_option(
            "--since", options->since,
            "Only lines from this time on, as times are shown: '2026-11-25 00:54:00', 2026-11-25, "
            "00:54, yesterday, '10 min ago'; seconds since boot where these are shown; or back "
            "from the end as -30s, -5m, -2h")
        ->type_name("TIME");
    command->add_option("--until", options->until, "Only lines up to this time")->type_name("TIME");
    command
        ->add_option("-g,--grep", options->grep,
                     "Only lines whose message this regular expression (PCRE) matches")
        ->type_name("REGEX");
    command->add_option("-n,--lines", options->last, "Only the last N lines")->type_name("N");
    auto* const reverse =
        command->add_flag("-r,--reverse", options->reversed, "The newest line first");
    command
        ->add_flag("-f,--follow", options->follow,
                   "Show the dumps of a folder, then wait for further ones")
        ->excludes(reverse);
    command->add_option("-o,--output", options->format, "Format of the lines")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"short", "threadtime", "json", "csv", "export", "raw"}))
        ->capture_default_str();
    command->add_option("--color", options->color, "Colours by level, in the short format")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->capture_default_str();
    command->add_flag("--no-pager", options->no_pager,
                      "Not through $TRELVO_PAGER, $PAGER or less, as on a terminal otherwise");
    auto* const boot_time =
        command
            ->add_option("--boot-time", options->boot_time,
                         "Wall-clock times, for a machine that booted then (ISO 8601)")
            ->type_name("TIME");
    auto* const wall =
        command
            ->add_flag("--wall", options->wall,
                       "Wall-clock times also for dumps without clock lines, as far as the files' "
                       "own times tell")
            ->excludes(boot_time);
    command
        ->add_flag("--monotonic", options->monotonic,
                   "Seconds since boot, also where clock lines tell the wall-clock time")
        ->excludes(boot_time)
        ->excludes(wall);
    command->add_flag("--utc", options->utc, "Wall-clock times in UTC");
    command->add_flag("--one-boot", options->one_boot,
                      "All dumps are of one boot: order them by log time, whatever the times of "
                      "their files are");
    command->footer(kHelp + ExitCodesHelp({kUsageHelp, kDamageHelp, kCodeTablesHelp, kOutputHelp,
                                           kNoMatchHelp}));
    command->callback([options, &action] { action = [options] { return Decode(*options); }; });
}

}  // namespace trelvo
