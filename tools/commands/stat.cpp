#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/input_files.h"
#include "commands/output.h"
#include "commands/progress.h"
#include "dump/statistics.h"
#include "io/zstd_input.h"
#include "policy/policies.h"
#include "text/clock.h"
#include "text/escape.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kHelp =
    "Of one dump: span, rates, levels, who logs most, what each field of a record takes, and the\n"
    "records over time. Of several: a table with a row each. Sizes are in bytes, and those of "
    "tags\n"
    "and processes are those of their records. \"coded\" counts the records that a code table\n"
    "explains; without tables, those whose message cannot be text. \"as text\" is the size of the\n"
    "decoded lines, unaligned. With -o json, one object a dump, with names as decode -o json has "
    "them.\n"
    "\n";

struct StatOptions {
    std::vector<std::string> inputs;
    std::optional<std::string> policy;
    std::optional<std::string> policies;
    size_t top = 10;
    std::string output = "text";
};

struct DumpFile {
    std::string name;
    std::optional<uint64_t> compressed_bytes;
    bool with_tables = false;
    DumpStatistics statistics;
};

// A tag or process and its records.
using Named = std::pair<std::string, Share>;

double Ratio(uint64_t part, uint64_t whole) {
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

double Percent(uint64_t part, uint64_t whole) {
    return 100 * Ratio(part, whole);
}

// A second; nothing where all records have one time.
std::optional<double> Rate(uint64_t count, int64_t span_ms) {
    if (span_ms <= 0) {
        return std::nullopt;
    }
    return 1000 * static_cast<double>(count) / static_cast<double>(span_ms);
}

std::string RateText(uint64_t count, int64_t span_ms) {
    const auto rate = Rate(count, span_ms);
    return rate ? Format("%.1f", *rate) : "-";
}

double Seconds(int64_t milliseconds) {
    return static_cast<double>(milliseconds) / 1000;
}

std::string WallText(int64_t ms) {
    std::string text;
    Clock(false).Append(ms, "%Y-%m-%dT%H:%M:%S", true, text);
    return text;
}

std::string Bar(const DumpStatistics& statistics) {
    static constexpr std::array<const char*, 8> kLevels{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const auto& timeline = statistics.timeline;
    const uint64_t most = *std::max_element(timeline.begin(), timeline.end());
    std::string bar;
    for (const uint64_t count : timeline) {
        // A blank for none; the lowest level for few.
        bar += count == 0 ? " " : kLevels.at((count * kLevels.size() - 1) / most);
    }
    return bar;
}

// The `top` with most records, those with fewer bytes and later names after the others.
std::vector<Named> Top(std::vector<Named> all, size_t top) {
    std::sort(all.begin(), all.end(), [](const Named& a, const Named& b) {
        return std::tie(b.second.records, b.second.bytes, a.first) <
               std::tie(a.second.records, a.second.bytes, b.first);
    });
    all.resize(std::min(all.size(), top));
    return all;
}

std::vector<Named> TopTags(const DumpStatistics& statistics, size_t top) {
    std::vector<Named> all;
    for (const auto& [tag, share] : statistics.tags) {
        all.emplace_back(tag, share);
    }
    return Top(std::move(all), top);
}

std::vector<Named> TopProcesses(const DumpStatistics& statistics, size_t top) {
    std::vector<Named> all;
    for (const auto& [process, share] : statistics.processes) {
        all.emplace_back(process.first + "," + std::to_string(process.second), share);
    }
    return Top(std::move(all), top);
}

void PrintTop(const char* title, const std::vector<Named>& named, const Share& all) {
    Print(Format("\n%10s %7s %12s %7s  %s\n", "records", "%", "bytes", "%", title));
    for (const auto& [name, share] : named) {
        Print(Format("%10ju %7.1f %12ju %7.1f  ", uintmax_t{share.records},
                     Percent(share.records, all.records), uintmax_t{share.bytes},
                     Percent(share.bytes, all.bytes)) +
              Escape(name) + '\n');
    }
}

void PrintDetails(const DumpFile& dump, size_t top) {
    const DumpStatistics& s = dump.statistics;
    const uint64_t records = s.all.records;
    const auto row = [](const char* name, const std::string& value) {
        Print(Format("  %-15s ", name) + value + '\n');
    };
    Print(Escape(dump.name) + '\n');
    row("policy version", s.policy_version.empty() ? "none" : Escape(s.policy_version));
    row("size",
        Format("%ju", uintmax_t{s.bytes}) +
            (dump.compressed_bytes ? Format(", compressed %ju", uintmax_t{*dump.compressed_bytes})
                                   : ""));
    row("dictionary", Format("%ju, %zu tags, %zu processes", uintmax_t{s.dictionary_bytes},
                             s.tags.size(), s.processes.size()));
    row("span", Format("%.3f s, from %.3f to %.3f", Seconds(s.SpanMs()), Seconds(s.first_ms),
                       Seconds(s.last_ms)));
    if (s.first_boot_time_ms) {
        row("wall clock", WallText(*s.first_boot_time_ms + s.first_ms) + " to " +
                              WallText(*s.last_boot_time_ms + s.last_ms) + ", on " +
                              Escape(s.host));
    }
    row("records", Format("%ju", uintmax_t{records}));
    row("a second", RateText(records, s.SpanMs()) + " records, " +
                        RateText(s.all.bytes, s.SpanMs()) + " bytes");
    std::string levels;
    for (const char level : std::string("DIWEF")) {
        const auto count = s.levels.find(level);
        levels += Format("%s%c %ju", levels.empty() ? "" : "  ", level,
                         uintmax_t{count == s.levels.end() ? 0 : count->second});
    }
    row("levels", levels);
    row("coded",
        Format("%ju records, %.1f %%", uintmax_t{s.coded.records},
               Percent(s.coded.records, records)) +
            (dump.with_tables ? "" : ": those that cannot be text, seen without code tables"));
    row("bytes a record", Format("%.2f = delta %.2f + header %.2f + length %.2f + message %.2f",
                                 Ratio(s.all.bytes, records), Ratio(s.delta_bytes, records),
                                 Ratio(s.header_bytes, records), Ratio(s.length_bytes, records),
                                 Ratio(s.message_bytes, records)));
    row("as text",
        Format("%s%ju, %.2f a line, %.2f times the dump",
               !dump.with_tables && s.coded.records > 0 ? "at least " : "", uintmax_t{s.text_bytes},
               Ratio(s.text_bytes, records), Ratio(s.text_bytes, s.bytes)));
    if (records > 0) {
        row("over time", Bar(s));
        PrintTop("tag", TopTags(s, top), s.all);
        PrintTop("process (tag,pid)", TopProcesses(s, top), s.all);
    }
}

struct Total {
    Share all;
    uint64_t coded = 0;  // records
    uint64_t bytes = 0;
    uint64_t text_bytes = 0;
    int64_t span_ms = 0;
};

void PrintRow(const std::string& name, const Total& total) {
    Print(Format("%10ju %12ju %12.3f %10s %9.2f %6.1f %9.2f  ", uintmax_t{total.all.records},
                 uintmax_t{total.bytes}, Seconds(total.span_ms),
                 RateText(total.all.records, total.span_ms).c_str(),
                 Ratio(total.all.bytes, total.all.records), Percent(total.coded, total.all.records),
                 Ratio(total.text_bytes, total.bytes)) +
          Escape(name) + '\n');
}

void PrintTable(const std::vector<DumpFile>& dumps) {
    Print(Format("%10s %12s %12s %10s %9s %6s %9s  %s\n", "records", "bytes", "span s", "records/s",
                 "bytes/rec", "coded%", "text/dump", "file"));
    Total total;
    for (const DumpFile& dump : dumps) {
        const DumpStatistics& s = dump.statistics;
        PrintRow(dump.name, {s.all, s.coded.records, s.bytes, s.text_bytes, s.SpanMs()});
        total.all += s.all;
        total.coded += s.coded.records;
        total.bytes += s.bytes;
        total.text_bytes += s.text_bytes;
        total.span_ms += s.SpanMs();
    }
    PrintRow("total", total);
}

Json JsonOf(const std::vector<Named>& named, const char* key) {
    Json rows = Json::array();
    for (const auto& [name, share] : named) {
        rows.push_back({{key, name}, {"records", share.records}, {"bytes", share.bytes}});
    }
    return rows;
}

Json JsonOf(const std::optional<double>& rate) {
    return rate ? Json(*rate) : Json(nullptr);
}

void PrintJson(const DumpFile& dump, size_t top) {
    const DumpStatistics& s = dump.statistics;
    Json levels;
    for (const auto& [level, count] : s.levels) {
        levels[std::string(1, level)] = count;
    }
    Json object{
        {"file", dump.name},
        {"policy_version", s.policy_version},
        {"bytes", s.bytes},
        {"compressed_bytes", dump.compressed_bytes ? Json(*dump.compressed_bytes) : Json(nullptr)},
        {"dictionary_bytes", s.dictionary_bytes},
        {"first_ms", s.first_ms},
        {"last_ms", s.last_ms},
        {"span_ms", s.SpanMs()},
        {"host", nullptr},
        {"first_time", nullptr},
        {"last_time", nullptr},
        {"records", s.all.records},
        {"records_per_second", JsonOf(Rate(s.all.records, s.SpanMs()))},
        {"bytes_per_second", JsonOf(Rate(s.all.bytes, s.SpanMs()))},
        {"levels", levels},
        {"coded_by", dump.with_tables ? "tables" : "not text"},
        {"coded_records", s.coded.records},
        {"coded_bytes", s.coded.bytes},
        {"record_bytes",
         {{"delta", s.delta_bytes},
          {"header", s.header_bytes},
          {"length", s.length_bytes},
          {"message", s.message_bytes},
          {"total", s.all.bytes}}},
        {"text_bytes", s.text_bytes},
        {"timeline", s.timeline},
        {"tags", JsonOf(TopTags(s, top), "tag")},
        {"processes", JsonOf(TopProcesses(s, top), "process")},
        {"damage", nullptr},
    };
    if (s.first_boot_time_ms) {
        object["host"] = s.host;
        object["first_time"] = WallText(*s.first_boot_time_ms + s.first_ms);
        object["last_time"] = WallText(*s.last_boot_time_ms + s.last_ms);
    }
    if (s.damage) {
        object["damage"] = {{"offset", s.damage->Offset()}, {"cause", s.damage->what()}};
    }
    std::string line;
    AppendJsonEscaped(object.dump(-1, ' ', false, Json::error_handler_t::replace), line);
    Print(line + '\n');
}

// Nothing where the dump has no statistics; what is wrong with it is told.
std::optional<DumpFile> ReadDump(const std::string& path, Policies& policies, Progress& progress,
                                 Faults& faults) {
    DumpFile dump;
    dump.name = InputName(path);
    const bool is_read = faults.Try(dump.name, [&] {
        const auto input = OpenInput(path, [&progress](size_t size) { progress.Advance(size); });
        if (path != kStandardInput && dynamic_cast<const ZstdInput*>(input.get()) != nullptr) {
            dump.compressed_bytes = std::filesystem::file_size(path);
        }
        const auto reader = OpenDump(*input);
        const CodeTables* const tables = policies.For(reader->PolicyVersion());
        for (const std::string& fault : policies.TakeFaults()) {
            faults.Tell(fault + "; its codes are not recognised", ExitCode::kCodeTables);
        }
        dump.with_tables = tables != nullptr;
        dump.statistics = MeasureDump(*reader, tables);
        if (dump.statistics.damage) {
            faults.Tell(dump.name + ": " + Describe(*dump.statistics.damage), ExitCode::kDamage);
        }
    });
    return is_read ? std::optional(std::move(dump)) : std::nullopt;
}

ExitCode Stat(const StatOptions& options) {
    Faults faults;
    std::vector<DumpFile> dumps;
    faults.Try("stat", [&] {
        Policies policies(options.policy, options.policies, false);
        const std::vector<std::string> files = ExpandInputs(options.inputs, faults);
        Progress progress(2 * TotalSize(files), options.output == "json");  // two passes
        for (const std::string& path : files) {
            auto dump = ReadDump(path, policies, progress, faults);
            if (!dump) {
                continue;
            }
            if (options.output == "json") {
                PrintJson(*dump, options.top);
            } else {
                dumps.push_back(*std::move(dump));
            }
        }
    });
    if (dumps.size() == 1) {
        PrintDetails(dumps.front(), options.top);
    } else if (!dumps.empty()) {
        PrintTable(dumps);
    }
    return faults.Worst();
}

}  // namespace

void AddStat(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("stat", "Tell what dumps hold and what that costs");
    const auto options = std::make_shared<StatOptions>();
    command->add_option("INPUT", options->inputs, "Dumps, folders with dumps; - is standard input")
        ->type_name("")
        ->required();
    auto* const policy =
        command->add_option("--policy", options->policy, "Policy folder with the code tables")
            ->type_name("DIR");
    command
        ->add_option("--policies", options->policies,
                     "Folder with a policy folder for each version")
        ->type_name("DIR")
        ->excludes(policy);
    command->add_option("--top", options->top, "How many tags and processes to list")
        ->type_name("N")
        ->capture_default_str();
    command->add_option("-o,--output", options->output, "Form of the output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    command->footer(kHelp + ExitCodesHelp({kUsageHelp, kDamageHelp, kCodeTablesHelp, kOutputHelp}));
    command->callback([options, &action] { action = [options] { return Stat(*options); }; });
}

}  // namespace trelvo
