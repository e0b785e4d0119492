#include "commands/stat_output.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <tuple>
#include <utility>

#include "commands/output.h"
#include "text/clock.h"
#include "text/escape.h"
#include "text/units.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

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

std::string LinesText(uint64_t lines) {
    return std::to_string(lines) + (lines == 1 ? " line" : " lines");
}

void PrintHead(const std::string& name, uint64_t lines, int64_t span_ms) {
    Print(Escape(name) + ": " + LinesText(lines) + " in " + SpanText(span_ms) + ", " +
          RateText(lines, span_ms) + " a second\n");
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
        PrintRow("repeated", LinesText(total.shared) + " that several dumps hold, counted once");
    }
    PrintRow("levels", LevelsText(total.levels));
    const Share all{total.lines, 0};
    PrintTop("tag", TopTags(total.tags, top), all);
    PrintTop("program", TopPrograms(total.processes, top), all);
    Print("\n");
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

}  // namespace

void PrintDump(const std::string& name, const Measured& dump, size_t top, bool verbose) {
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
    PrintRow("coded", LinesText(s.coded.records) +
                          Format(", %.1f %%", Percent(s.coded.records, records)) +
                          (guessed ? ": those that cannot be text, seen without code tables" : ""));
    if (verbose) {
        PrintFields(s);
    }
    if (records == 0) {
        return;
    }
    PrintRow("over time", Bar(s));
    PrintTop("tag", TopTags(s.tags, top), s.all);
    PrintTop("program", TopPrograms(s.processes, top), s.all);
    if (verbose) {
        PrintTop("process (tag,pid)", TopProcesses(s.processes, top), s.all);
    }
}

void PrintTable(const Timeline& timeline, const std::vector<Measured>& dumps,
                const std::optional<Total>& total, size_t top, bool verbose) {
    if (total) {
        PrintTotal(dumps.size(), *total, top);
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
    for (size_t i = 0; verbose && i < dumps.size(); ++i) {
        Print("\n");
        PrintDump(timeline.Parts()[i].name, dumps[i], top, verbose);
    }
}

void PrintJson(const std::string& name, const Measured& dump, size_t top) {
    const DumpStatistics& s = dump.statistics;
    Json levels = Json::object();
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

}  // namespace trelvo
