#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/dump_files.h"
#include "commands/input_files.h"
#include "commands/output.h"
#include "commands/policy_options.h"
#include "commands/progress.h"
#include "dump/statistics.h"
#include "dump/timeline.h"
#include "io/zstd_input.h"
#include "policy/policies.h"
#include "text/clock.h"
#include "text/escape.h"
#include "text/units.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kHelp =
    "Of one dump: span, size, levels, lines over time, and who logs most, by tag and by program:\n"
    "the processes that log most of their lines under one tag, with all that they log. Of several\n"
    "dumps: all that as one log, in which each line counts once, and a row for each dump. -v adds\n"
    "what each field of a record takes and every process. \"coded\" counts the lines that a code\n"
    "table explains; without tables, those whose message cannot be text. \"as text\" is the size "
    "of\n"
    "the decoded lines, unaligned. With -o json, one object a dump, with names as decode -o json\n"
    "has them; shared_records are those that other dumps show already.\n"
    "\n";

struct StatOptions {
    std::vector<std::string> inputs;
    std::optional<std::string> policy;
    std::optional<std::string> policies;
    size_t top = 10;
    bool verbose = false;
    std::string output = "text";
};

// One of the dumps, in the order of the timeline's parts.
struct Measured {
    std::string host;
    std::optional<uint64_t> compressed_bytes;
    const CodeTables* tables = nullptr;
    std::optional<uint64_t> once;  // lines that no dump before shows, where that is known
    DumpStatistics statistics;
};

// Several dumps as one log.
struct Total {
    uint64_t lines = 0;
    uint64_t shared = 0;        // lines that dumps repeat
    int64_t span_ms = 0;        // what the dumps cover, without gaps between them
    uint64_t record_bytes = 0;  // of these and all further members: of each dump, repeats included
    uint64_t records = 0;
    uint64_t coded = 0;
    uint64_t bytes = 0;
    uint64_t text_bytes = 0;
    std::map<char, uint64_t> levels;
    Shares tags;
    Processes processes;
};

// A row of a table of who logs most.
struct Named {
    std::string name;
    Share share;
    size_t processes = 1;
};

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
    return rate ? Format(*rate < 1 ? "%.2g" : "%.1f", *rate) : "-";
}

std::string WallText(int64_t ms) {
    std::string text;
    Clock(false).Append(ms, "%Y-%m-%dT%H:%M:%S", true, text);
    return text;
}

std::string TimeText(int64_t ms, const std::optional<int64_t>& boot_time_ms) {
    std::string text;
    if (boot_time_ms) {
        Clock(false).Append(*boot_time_ms + ms, "%Y-%m-%d %H:%M:%S", false, text);
    } else {
        AppendSeconds(ms, text);
    }
    return text;
}

std::string Bar(const DumpStatistics& statistics) {
    static constexpr std::array<const char*, 8> kLevels{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const auto& timeline = statistics.timeline;
    const uint64_t most = *std::max_element(timeline.begin(), timeline.end());
    std::string bar;
    for (const uint64_t count : timeline) {
        // A blank for none; the lowest level for few.
        bar +=
            count == 0 ? " " : kLevels.at(static_cast<size_t>((count * kLevels.size() - 1) / most));
    }
    return bar;
}

// The `top` with most records, those with fewer bytes and later names after the others.
std::vector<Named> Top(std::vector<Named> all, size_t top) {
    std::sort(all.begin(), all.end(), [](const Named& a, const Named& b) {
        return std::tie(b.share.records, b.share.bytes, a.name) <
               std::tie(a.share.records, a.share.bytes, b.name);
    });
    all.resize(std::min(all.size(), top));
    return all;
}

std::vector<Named> TopTags(const Shares& tags, size_t top) {
    std::vector<Named> all;
    for (const auto& [tag, share] : tags) {
        all.push_back({tag, share});
    }
    return Top(std::move(all), top);
}

std::vector<Named> TopPrograms(const Processes& processes, size_t top) {
    std::vector<Named> all;
    for (Program& program : ProgramsOf(processes)) {
        all.push_back({std::move(program.name), program.share, program.processes});
    }
    return Top(std::move(all), top);
}

// By tag and PID.
std::vector<Named> TopProcesses(const Processes& processes, size_t top) {
    std::vector<Named> all;
    for (const auto& [process, tags] : processes) {
        for (const auto& [tag, share] : tags) {
            all.push_back({tag + ',' + std::to_string(process.second), share});
        }
    }
    return Top(std::move(all), top);
}

void PrintRow(const char* name, const std::string& value) {
    Print(Format("  %-15s ", name) + value + '\n');
}

std::string LevelsText(const std::map<char, uint64_t>& levels) {
    std::string text;
    for (const char level : std::string("DIWEF")) {
        const auto count = levels.find(level);
        text += Format("%s%c %ju", text.empty() ? "" : "  ", level,
                       uintmax_t{count == levels.end() ? 0 : count->second});
    }
    return text;
}

// Sizes only where they are known.
void PrintTop(const char* title, const std::vector<Named>& named, const Share& all) {
    const bool sized = all.bytes > 0;
    Print(Format("\n%10s %6s", "lines", "%") + (sized ? Format(" %10s %6s", "size", "%") : "") +
          "  " + title + '\n');
    for (const auto& [name, share, processes] : named) {
        Print(Format("%10ju %6.1f", uintmax_t{share.records}, Percent(share.records, all.records)) +
              (sized ? Format(" %10s %6.1f", SizeText(share.bytes).c_str(),
                              Percent(share.bytes, all.bytes))
                     : "") +
              "  " + Escape(name) + (processes > 1 ? Format(" (%zu processes)", processes) : "") +
              '\n');
    }
}

void PrintHead(const std::string& name, uint64_t lines, int64_t span_ms) {
    Print(Escape(name) + Format(": %ju lines in %s, %s a second\n", uintmax_t{lines},
                                SpanText(span_ms).c_str(), RateText(lines, span_ms).c_str()));
}

void PrintFields(const DumpStatistics& s) {
    const uint64_t records = s.all.records;
    PrintRow("policy version", s.policy_version.empty() ? "none" : Escape(s.policy_version));
    PrintRow("dictionary",
             Format("%s, %zu tags, %zu processes", SizeText(s.dictionary_bytes).c_str(),
                    s.tags.size(), s.processes.size()));
    PrintRow("bytes a record",
             Format("%.2f = delta %.2f + header %.2f + length %.2f + message %.2f",
                    Ratio(s.all.bytes, records), Ratio(s.delta_bytes, records),
                    Ratio(s.header_bytes, records), Ratio(s.length_bytes, records),
                    Ratio(s.message_bytes, records)));
}

void PrintDump(const std::string& name, const Measured& dump, const StatOptions& options) {
    const DumpStatistics& s = dump.statistics;
    const uint64_t records = s.all.records;
    const bool guessed = dump.tables == nullptr && s.coded.records > 0;
    PrintHead(name, records, s.SpanMs());
    PrintRow("time", TimeText(s.first_ms, s.first_boot_time_ms) + " to " +
                         TimeText(s.last_ms, s.last_boot_time_ms) +
                         (s.first_boot_time_ms ? ", on " + Escape(dump.host)
                                               : " seconds after the start of the machine"));
    PrintRow("size",
             SizeText(s.bytes) + Format(", %.2f bytes a line", Ratio(s.all.bytes, records)) +
                 (dump.compressed_bytes ? ", compressed " + SizeText(*dump.compressed_bytes) : ""));
    PrintRow("as text", (guessed ? "at least " : "") + SizeText(s.text_bytes) +
                            Format(", %.2f a line, %.2f times the dump",
                                   Ratio(s.text_bytes, records), Ratio(s.text_bytes, s.bytes)));
    PrintRow("levels", LevelsText(s.levels));
    PrintRow("coded", Format("%ju lines, %.1f %%", uintmax_t{s.coded.records},
                             Percent(s.coded.records, records)) +
                          (guessed ? ": those that cannot be text, seen without code tables" : ""));
    if (options.verbose) {
        PrintFields(s);
    }
    if (records == 0) {
        return;
    }
    PrintRow("over time", Bar(s));
    PrintTop("tag", TopTags(s.tags, options.top), s.all);
    PrintTop("program", TopPrograms(s.processes, options.top), s.all);
    if (options.verbose) {
        PrintTop("process (tag,pid)", TopProcesses(s.processes, options.top), s.all);
    }
}

void PrintTableRow(const std::string& name, uint64_t lines, int64_t span_ms, const Share& records,
                   uint64_t coded, uint64_t bytes, uint64_t text_bytes) {
    Print(Format("%10ju %10s %14s %8s %10.2f %6.1f %9.2f  ", uintmax_t{lines},
                 SizeText(bytes).c_str(), SpanText(span_ms).c_str(),
                 RateText(lines, span_ms).c_str(), Ratio(records.bytes, records.records),
                 Percent(coded, records.records), Ratio(text_bytes, bytes)) +
          Escape(name) + '\n');
}

void PrintTotal(size_t dumps, const Total& total, size_t top) {
    PrintHead(Format("%zu dumps", dumps), total.lines, total.span_ms);
    if (total.shared > 0) {
        PrintRow("repeated", Format("%ju lines that several dumps hold, counted once",
                                    uintmax_t{total.shared}));
    }
    PrintRow("levels", LevelsText(total.levels));
    const Share all{total.lines, 0};
    PrintTop("tag", TopTags(total.tags, top), all);
    PrintTop("program", TopPrograms(total.processes, top), all);
    Print("\n");
}

// Without a total where the dumps could not be read as one log.
void PrintTable(const Timeline& timeline, const std::vector<Measured>& dumps,
                const std::optional<Total>& total, const StatOptions& options) {
    if (total) {
        PrintTotal(dumps.size(), *total, options.top);
    }
    Print(Format("%10s %10s %14s %8s %10s %6s %9s  %s\n", "lines", "size", "span", "a second",
                 "bytes/line", "coded%", "text/dump", "file"));
    for (size_t i = 0; i < dumps.size(); ++i) {
        const DumpStatistics& s = dumps[i].statistics;
        PrintTableRow(timeline.Parts()[i].name, s.all.records, s.SpanMs(), s.all, s.coded.records,
                      s.bytes, s.text_bytes);
    }
    if (total) {
        PrintTableRow("total, each line once", total->lines, total->span_ms,
                      {total->records, total->record_bytes}, total->coded, total->bytes,
                      total->text_bytes);
    }
    for (size_t i = 0; options.verbose && i < dumps.size(); ++i) {
        Print("\n");
        PrintDump(timeline.Parts()[i].name, dumps[i], options);
    }
}

Json JsonOf(const std::vector<Named>& named, const char* key) {
    Json rows = Json::array();
    for (const auto& [name, share, processes] : named) {
        rows.push_back({{key, name}, {"records", share.records}, {"bytes", share.bytes}});
    }
    return rows;
}

Json JsonOf(const std::optional<double>& rate) {
    return rate ? Json(*rate) : Json(nullptr);
}

void PrintJson(const std::string& name, const Measured& dump, size_t top) {
    const DumpStatistics& s = dump.statistics;
    Json levels;
    for (const auto& [level, count] : s.levels) {
        levels[std::string(1, level)] = count;
    }
    Json object{
        {"file", name},
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
        {"shared_records", dump.once ? Json(s.all.records - *dump.once) : Json(nullptr)},
        {"records_per_second", JsonOf(Rate(s.all.records, s.SpanMs()))},
        {"bytes_per_second", JsonOf(Rate(s.all.bytes, s.SpanMs()))},
        {"levels", levels},
        {"coded_by", dump.tables != nullptr ? "tables" : "not text"},
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
        {"tags", JsonOf(TopTags(s.tags, top), "tag")},
        {"programs", JsonOf(TopPrograms(s.processes, top), "program")},
        {"processes", JsonOf(TopProcesses(s.processes, top), "process")},
        {"damage", nullptr},
    };
    if (s.first_boot_time_ms) {
        object["host"] = dump.host;
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

// The dumps of a command line, as one timeline and each for itself.
class Measurement {
public:
    explicit Measurement(const StatOptions& options)
        : policies_(options.policy, options.policies, false),
          paths_(ExpandInputs(options.inputs, faults_)),
          timeline_(paths_.size() > 1),
          // Surveyed, measured, and where there are several, read as one log.
          progress_((paths_.size() > 1 ? 3 : 2) * TotalSize(paths_), false),
          files_([this](size_t size) { progress_.Advance(size); }) {
        for (const DumpFile& file : files_.InOrder(paths_, false, faults_)) {
            faults_.Try(file.name, [&] { Add(file); });
        }
        for (size_t i = 0; i < dumps_.size(); ++i) {
            faults_.Try(timeline_.Parts()[i].name, [&] { Measure(i); });
        }
        if (dumps_.size() > 1) {
            total_.emplace();
            if (!faults_.Try("stat", [&] { Sum(); })) {
                total_.reset();
            }
        }
    }

    void Tell(const StatOptions& options) const {
        if (options.output == "json") {
            for (size_t i = 0; i < dumps_.size(); ++i) {
                PrintJson(timeline_.Parts()[i].name, dumps_[i], options.top);
            }
        } else if (dumps_.size() == 1) {
            PrintDump(timeline_.Parts().front().name, dumps_.front(), options);
        } else if (!dumps_.empty()) {
            PrintTable(timeline_, dumps_, total_, options);
        }
    }

    [[nodiscard]] ExitCode Worst() const { return faults_.Worst(); }

private:
    void Add(const DumpFile& file) {
        Measured dump;
        dump.tables = policies_.For(file.version);
        for (const std::string& fault : policies_.TakeFaults()) {
            faults_.Tell(fault + "; its codes are not recognised", ExitCode::kCodeTables);
        }
        const auto open = [this, path = file.path] { return files_.Open(path); };
        if (dynamic_cast<const ZstdInput*>(open().get()) != nullptr) {
            dump.compressed_bytes = std::filesystem::file_size(file.path);
        }
        timeline_.Add(file.name, open, dump.tables);
        openers_.emplace_back(open);
        dumps_.push_back(std::move(dump));
    }

    void Measure(size_t place) {
        const Part& part = timeline_.Parts()[place];
        Measured& dump = dumps_[place];
        const auto input = openers_[place]();
        DumpReader reader(*input);
        dump.statistics = MeasureDump(reader, part, dump.tables);
        dump.host = timeline_.Host(part.boot);
        if (dumps_.size() == 1) {
            dump.once = dump.statistics.all.records;
        }
        if (part.damage) {
            faults_.Tell(part.name + ": " + Describe(*part.damage), ExitCode::kDamage);
        }
    }

    void Sum() {
        once_.resize(dumps_.size());
        std::map<size_t, int64_t> ends;  // of each boot, so far
        for (size_t i = 0; i < dumps_.size(); ++i) {
            const Part& part = timeline_.Parts()[i];
            const DumpStatistics& s = dumps_[i].statistics;
            total_->records += s.all.records;
            total_->record_bytes += s.all.bytes;
            total_->coded += s.coded.records;
            total_->bytes += s.bytes;
            total_->text_bytes += s.text_bytes;
            const auto end = ends.try_emplace(part.boot, part.start_ms).first;
            total_->span_ms +=
                std::max<int64_t>(part.EndMs() - std::max(part.start_ms, end->second), 0);
            end->second = std::max(end->second, part.EndMs());
        }
        timeline_.Visit(
            0, [this](const Line& line, Break) { Count(line); }, [](const Part&) {});
        total_->shared = total_->records - total_->lines;
        for (size_t i = 0; i < dumps_.size(); ++i) {
            dumps_[i].once = once_[i];
        }
    }

    void Count(const Line& line) {
        static constexpr Share kOne{1, 0};
        ++total_->lines;
        ++total_->levels[line.level];
        ++once_[line.dump];
        const auto of = [&line](auto& tags) -> Share& {
            const auto found = tags.find(line.source.tag);
            return found != tags.end() ? found->second : tags[std::string(line.source.tag)];
        };
        of(total_->tags) += kOne;
        of(total_->processes[{timeline_.Parts()[line.dump].boot, line.source.pid}]) += kOne;
    }

    Faults faults_;
    Policies policies_;
    std::vector<std::string> paths_;
    Timeline timeline_;
    Progress progress_;
    DumpFiles files_;
    std::vector<Timeline::Opener> openers_;
    std::vector<Measured> dumps_;
    std::vector<uint64_t> once_;  // lines of each that no dump before shows
    std::optional<Total> total_;
};

ExitCode Stat(const StatOptions& options) {
    Faults faults;
    auto result = ExitCode::kSuccess;
    faults.Try("stat", [&] {
        const Measurement measurement(options);
        measurement.Tell(options);
        result = measurement.Worst();
    });
    return std::max(result, faults.Worst());
}

}  // namespace

void AddStat(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("stat", "Tell what dumps hold and what that costs");
    const auto options = std::make_shared<StatOptions>();
    command->add_option("INPUT", options->inputs, "Dumps, folders with dumps; - is standard input")
        ->type_name("")
        ->required();
    AddPolicyOptions(*command, options->policy, options->policies);
    command->add_option("--top", options->top, "How many tags and programs to list")
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("-v,--verbose", options->verbose,
                      "Also what each field takes, every process, and each of several dumps");
    command->add_option("-o,--output", options->output, "Form of the output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    command->footer(kHelp + ExitCodesHelp({kUsageHelp, kDamageHelp, kCodeTablesHelp, kOutputHelp}));
    command->callback([options, &action] { action = [options] { return Stat(*options); }; });
}

}  // namespace trelvo
