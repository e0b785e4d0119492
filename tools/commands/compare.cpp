#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/comparison_parts.h"
#include "commands/output.h"
#include "commands/pattern_output.h"
#include "commands/policy_options.h"
#include "patterns/comparison.h"
#include "text/columns.h"
#include "text/escape.h"
#include "text/line_filter.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kHelp =
    R"(Lists what is new in BAD, gone, at another level, or more or less frequent than chance explains:
messages that differ only in values are one pattern, of which each tag and level is looked at
for itself. Errors that are new or more frequent come first, then what chance explains least.
Rates count against what most patterns do, so BAD may be shorter or busier; bursts count as one
where GOOD has such bursts; and what is new counts only as far as GOOD itself is not full of
lines that came once. What may be chance stands at the end, with a question mark, as far
as a screen has room. TIME is that of the first line in BAD, for what is gone of the last in
GOOD. With -o json one object with all of it. The test is in docs/patterns.md.

)";

// What a screen of 24 lines holds below the heading.
constexpr size_t kScreenRows = 20;
constexpr size_t kDoubtfulErrors = 5;

struct CompareOptions {
    std::string good;
    std::string bad;
    DecodeOptions decode;
    std::string output = "text";
};

// Of the rows only so many are changes.
void PrintRows(const std::vector<Change>& rows, size_t changed, bool utc) {
    std::vector<std::string> labels;
    size_t label_width = sizeof "CHANGE" - 1;
    size_t time_width = sizeof "TIME" - 1;
    size_t good_width = sizeof "GOOD" - 1;
    size_t bad_width = sizeof "BAD" - 1;
    for (const Change& change : rows) {
        labels.push_back(ChangeText(change));
        if (labels.size() > changed) {
            labels.back() += kDoubtMark;
        }
        label_width = std::max(label_width, labels.back().size());
        time_width = std::max(time_width, TimeText(change.time, utc).size());
        good_width = std::max(good_width, std::to_string(change.good.count).size());
        bad_width = std::max(bad_width, std::to_string(change.bad.count).size());
    }
    Print(Padded("CHANGE", label_width, false) + " L " + Padded("GOOD", good_width, true) + ' ' +
          Padded("BAD", bad_width, true) + ' ' + Padded("TIME", time_width, true) +
          " TAG: EXAMPLE\n");
    const size_t width = TerminalWidth().value_or(0);
    for (size_t i = 0; i < rows.size(); ++i) {
        const Change& change = rows[i];
        std::string line = Padded(labels[i], label_width, false) + ' ' + change.level + ' ' +
                           Padded(std::to_string(change.good.count), good_width, true) + ' ' +
                           Padded(std::to_string(change.bad.count), bad_width, true) + ' ' +
                           Padded(TimeText(change.time, utc), time_width, true) + ' ' +
                           Escape(change.tag) + ": " + Example(change.example, change.cut);
        if (width > 0) {
            line.resize(BytesWithin(line, width));  // a row each
        }
        Print(line + '\n');
    }
}

void PrintText(const Comparison& comparison, const Differences& found, bool utc) {
    // As far as the first screen has room: no more of them than of changes, but some errors.
    std::vector<Change> rows = found.changes;
    size_t doubtful = 0;
    size_t doubtful_errors = 0;
    for (const Change& change : found.doubtful) {
        const bool is_error =
            !change.Falls() && Novelty::Severity(change.level) >= Novelty::Severity('E');
        if (rows.size() < kScreenRows &&
            (doubtful < found.changes.size() || (is_error && doubtful_errors < kDoubtfulErrors))) {
            rows.push_back(change);
            ++doubtful;
            doubtful_errors += is_error ? 1 : 0;
        }
    }
    Print(ComparisonText(comparison, found));
    Print(doubtful > 0 ? std::string(": \"") + kDoubtMark + "\"\n" : "\n");
    if (!rows.empty()) {
        PrintRows(rows, found.changes.size(), utc);
    }
}

Json SideJson(const SideCount& counts, bool utc) {
    Json object{{"count", counts.count}};
    if (counts.count > 0) {
        object["first"] = TimeJson(counts.first, utc);
        object["last"] = TimeJson(counts.last, utc);
    }
    return object;
}

Json SideJson(const ComparedSide& side) {
    return {{"lines", side.lines}, {"span_ms", side.span_ms}};
}

Json ChangesJson(const std::vector<Change>& changes, bool utc) {
    Json rows = Json::array();
    for (const Change& change : changes) {
        Json row{{"change", KindName(change.kind)}, {"level", std::string(1, change.level)}};
        if (change.kind == Change::Kind::kLevel) {
            row["old_level"] = std::string(1, change.old_level);
        }
        row["tag"] = change.tag;
        row["text"] = change.text;
        row["at"] = TimeJson(change.time, utc);
        row["good"] = SideJson(change.good, utc);
        row["bad"] = SideJson(change.bad, utc);
        row["ratio"] = change.good.count > 0 ? Json(change.ratio) : Json(nullptr);
        row["chance"] = change.chance;
        row["example"] = change.example;
        rows.push_back(std::move(row));
    }
    return rows;
}

void PrintJson(const Comparison& comparison, const Differences& found, bool utc) {
    PrintJsonLine({{"good", SideJson(comparison.Of(Comparison::kGood))},
                   {"bad", SideJson(comparison.Of(Comparison::kBad))},
                   {"usual_ratio", comparison.UsualRatio()},
                   {"patterns", comparison.Rows()},
                   {"changes", ChangesJson(found.changes, utc)},
                   {"doubtful", ChangesJson(found.doubtful, utc)}});
}

ExitCode Compare(const CompareOptions& options) {
    for (const std::string& word : options.decode.words) {
        if (!Decoder::IsFilter(word)) {  // otherwise it would become a dump of both sides
            Complain("compare: '" + word +
                     (LineFilter::IsTagLevel(word) ? "' is a file" : "' is not TAG:LEVEL") +
                     "; several dumps of one side go into a folder");
            return ExitCode::kUsage;
        }
    }
    for (const std::string& side : {options.good, options.bad}) {
        if (Decoder::IsFilter(side)) {
            Complain("compare: '" + side + "' is TAG:LEVEL, where GOOD and BAD stand: two dumps");
            return ExitCode::kUsage;
        }
    }
    Faults faults;
    auto result = ExitCode::kSuccess;
    faults.Try("compare", [&] {
        Comparison comparison;
        for (const auto& [side, input] : {std::pair(Comparison::kGood, options.good),
                                          std::pair(Comparison::kBad, options.bad)}) {
            result = std::max(result, ReadSide(comparison, side, options.decode, input, faults));
            if (comparison.Of(side).lines == 0) {
                return;
            }
        }
        const Differences found = comparison.Finish();
        if (options.output == "json") {
            PrintJson(comparison, found, options.decode.utc);
        } else {
            PrintText(comparison, found, options.decode.utc);
        }
        TellFolded(comparison);
    });
    return std::max(result, faults.Worst());
}

}  // namespace

void AddCompare(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("compare", "Tell which messages changed from one log to another");
    const auto options = std::make_shared<CompareOptions>();
    DecodeOptions& decode = options->decode;
    command->add_option("GOOD", options->good, "Dump, or folder of dumps, of a healthy run")
        ->type_name("")
        ->required();
    command->add_option("BAD", options->bad, "Dump, or folder of dumps, to look into")
        ->type_name("")
        ->required();
    command->add_option("FILTER", decode.words, "Only lines that these pass, as for decode")
        ->type_name("TAG:LEVEL");
    AddPolicyOptions(*command, decode.policy, decode.policies);
    command->add_flag("--utc", decode.utc, "Wall-clock times in UTC");
    command->add_option("-o,--output", options->output, "Form of the output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    command->footer(kHelp + ExitCodesHelp({kUsageHelp,
                                           kDamageHelp,
                                           kCodeTablesHelp,
                                           kOutputHelp,
                                           {ExitCode::kNoMatch, "a side has no lines"}}));
    command->callback([options, &action] { action = [options] { return Compare(*options); }; });
}

}  // namespace trelvo
