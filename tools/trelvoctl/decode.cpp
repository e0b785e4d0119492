#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "dump/dump_reader.h"
#include "escape/escape.h"
#include "policy/code_tables.h"
#include "policy/policy_file.h"
#include "trelvoctl/commands.h"
#include "trelvoctl/output.h"

namespace {

constexpr const char* kHelp =
    "Lines are printed as SECONDS LEVEL/TAG(P PID, T TID): MESSAGE. The level is I, W, E or F;\n"
    "D stands for all others, which a dump does not tell apart. Characters that could drive a\n"
    "terminal are printed as \\xNN (a byte) or \\u{N} (a code point), a backslash as \\\\.\n"
    "Times follow from the newest line backwards: where a dump is damaged, the lines that were\n"
    "lost are not accounted for, and the times are the latest that are possible.\n\n";

// The newest whole line is given the time of the newest line of all.
constexpr const char* kTimesNote = "; the times shown are the latest possible";

struct DecodeOptions {
    std::vector<std::string> files;
    std::optional<std::string> policy;
};

// Seconds with three decimals, as the log gave them.
std::string Seconds(int64_t milliseconds) {
    char text[32];
    const int64_t size = std::abs(milliseconds);
    const int length = std::snprintf(text, sizeof text, "%s%" PRId64 ".%03" PRId64,
                                     milliseconds < 0 ? "-" : "", size / 1000, size % 1000);
    return {text, static_cast<size_t>(length)};
}

void PrintRecord(const Record& record, int64_t time_ms, const CodeTables* tables) {
    std::string_view message = record.message;
    if (tables != nullptr) {
        message = tables->Message(record.origin.tag, message).value_or(message);
    }
    Print(Seconds(time_ms) + ' ' + record.level + '/' + Escape(record.origin.tag) + "(P " +
          std::to_string(record.origin.pid) + ", T " + std::to_string(record.origin.tid) +
          "): " + Escape(message) + '\n');
}

// Two passes, since the first time is known only once all deltas are.
ExitCode DecodeDump(ByteSource& source, const std::string& file, const CodeTables* tables) {
    DumpReader reader(source);
    if (tables != nullptr && tables->Version() != reader.PolicyVersion()) {
        Complain(file + ": needs the code tables of policy version '" + reader.PolicyVersion() +
                 "', not those of '" + tables->Version() + "'");
        return ExitCode::kCodeTables;
    }
    const Extent extent = reader.Measure();
    int64_t time_ms = reader.LastLogTime() - extent.span_ms;
    Record record;
    for (uint64_t count = 0; count < extent.records && reader.Next(record); ++count) {
        time_ms += count == 0 ? 0 : record.delta_ms;
        PrintRecord(record, time_ms, tables);
    }
    if (extent.damage) {
        throw DumpError(extent.damage->Offset(),
                        extent.damage->what() + std::string(extent.records == 0 ? "" : kTimesNote));
    }
    return ExitCode::kSuccess;
}

ExitCode DecodeFile(const std::string& file, const CodeTables* tables) {
    const std::string name = file == "-" ? "standard input" : file;
    try {
        FileSource source(file);
        return DecodeDump(source, name, tables);
    } catch (const DumpError& error) {
        Complain(name + ": offset " + std::to_string(error.Offset()) + ": " + error.what());
    } catch (const std::system_error& error) {
        Complain(name + ": " + error.what());
    } catch (const std::bad_alloc&) {
        Complain(name + ": needs more memory than there is");
    }
    return ExitCode::kDamage;
}

ExitCode Decode(const DecodeOptions& options) {
    auto worst = ExitCode::kSuccess;
    std::optional<CodeTables> tables;
    if (options.policy) {
        try {
            tables.emplace(*options.policy);
        } catch (const PolicyError& error) {
            Complain(error.what());
            return ExitCode::kCodeTables;
        }
        for (const std::string& fault : tables->Faults()) {
            Complain(fault + "; its codes are shown as they are");
            worst = ExitCode::kCodeTables;
        }
    }
    for (const std::string& file : options.files) {
        worst = std::max(worst, DecodeFile(file, tables ? &*tables : nullptr));
    }
    return worst;
}

}  // namespace

void AddDecode(CLI::App& app, Action& action) {
    CLI::App* const command = app.add_subcommand("decode", "Print dumps as text");
    const auto options = std::make_shared<DecodeOptions>();
    command
        ->add_option("FILE", options->files,
                     "Dumps, printed one after another; - is standard input")
        ->type_name("")
        ->required();
    command->add_option("--policy", options->policy, "Policy folder with the dump's code tables")
        ->type_name("DIR");
    command->footer(std::string(kHelp) + kExitCodesHelp);
    command->callback([options, &action] { action = [options] { return Decode(*options); }; });
}
