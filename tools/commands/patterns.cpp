#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/decoder.h"
#include "commands/log_options.h"
#include "commands/output.h"
#include "commands/pattern_output.h"
#include "patterns/pattern_table.h"
#include "text/escape.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kHelp =
    R"(Messages that differ only in numbers, addresses, identifiers, paths or other values are one
pattern, with <*> in their place. Most frequent first: how many lines, the worst level, first
and last time, lines over the span of the dumps, and below it the first message. Several dumps
are one log, in which each line counts once. With -o json an object for each pattern; with
--lines -o json one for each line in order, as decode gives it, with the number of its pattern.
Memory follows the patterns: beyond 10,000 messages are folded by first word and length.

)";

struct PatternsOptions {
    DecodeOptions decode;
    bool lines = false;
    std::string output = "text";
};

// Takes all lines; where each of them is asked for, gives them in a second pass.
class PatternFormat : public LineFormat {
public:
    PatternFormat(TimeStyle style, bool with_lines)
        : style_(style), with_lines_(with_lines), json_(MakeJsonFormat(style)) {}

    void Append(const Line& line, const LineContext& context, std::string& out) override {
        if (!finished_) {
            const uint32_t number = table_.Add(
                line, style_.wall ? context.boot_time_ms : std::nullopt, context.boot_place);
            if (with_lines_) {
                numbers_.push_back(number);
            }
            return;
        }
        // A dump that changed meanwhile can have more lines than before.
        const bool known = next_ < numbers_.size();
        json_->Append(line, context, out);
        out.resize(out.size() - 2);  // "}\n"
        out +=
            ",\"pattern\":" + (known ? std::to_string(table_.Place(numbers_[next_]) + 1) : "null") +
            "}\n";
        ++next_;
    }

    [[nodiscard]] bool WantsAgain() override {
        table_.Finish();
        finished_ = true;
        return with_lines_;
    }

    [[nodiscard]] const PatternTable& Table() const { return table_; }
    [[nodiscard]] const TimeStyle& Style() const { return style_; }

private:
    TimeStyle style_;
    bool with_lines_;
    std::unique_ptr<LineFormat> json_;
    PatternTable table_;
    bool finished_ = false;
    std::vector<uint32_t> numbers_;  // of each line
    size_t next_ = 0;
};

void PrintTable(const PatternTable& table, const TimeStyle& style) {
    size_t width = sizeof "FIRST" - 1;
    for (const auto& row : table.Rows()) {
        width = std::max(
            {width, TimeText(row->first, style.utc).size(), TimeText(row->last, style.utc).size()});
    }
    const size_t parts = std::max(table.Parts(), sizeof "TIMELINE" - 1);
    Print(Padded("COUNT", 9, true) + " L " + Padded("FIRST", width, true) + ' ' +
          Padded("LAST", width, true) + ' ' + Padded("TIMELINE", parts, false) + " PATTERN\n");
    for (const auto& row : table.Rows()) {
        const std::string text = Escape(row->text);
        std::string line = Padded(std::to_string(row->count), 9, true) + ' ';
        line += row->WorstLevel();
        line += ' ' + Padded(TimeText(row->first, style.utc), width, true) + ' ' +
                Padded(TimeText(row->last, style.utc), width, true) + ' ' +
                Sparkline(*row, table.Parts()) + std::string(parts - table.Parts(), ' ') + ' ' +
                text + '\n';
        if (row->text != row->example) {
            line += std::string(12, ' ') + Escape(row->tag) + ": " +
                    Example(row->example, row->cut) + '\n';
        }
        Print(line);
    }
}

void PrintJson(const PatternTable& table, const TimeStyle& style) {
    size_t number = 0;
    for (const auto& row : table.Rows()) {
        Json levels;
        for (const auto& [level, count] : row->levels) {
            levels[std::string(1, level)] = count;
        }
        Json timeline = Json::array();
        for (size_t i = 0; i < table.Parts(); ++i) {
            timeline.push_back(row->timeline.at(i));
        }
        const Json object{{"pattern", ++number},
                          {"text", row->text},
                          {"count", row->count},
                          {"level", std::string(1, row->WorstLevel())},
                          {"levels", levels},
                          {"first", TimeJson(row->first, style.utc)},
                          {"last", TimeJson(row->last, style.utc)},
                          {"part_ms", table.PartMs()},
                          {"timeline", timeline},
                          {"tag", row->tag},
                          {"example", row->example},
                          {"folded", row->fold}};
        PrintJsonLine(object);
    }
}

void TellFolds(const PatternTable& table) {
    uint64_t lines = 0;
    for (const auto& row : table.Rows()) {
        lines += row->fold ? row->count : 0;
    }
    if (lines > 0) {
        Complain(std::to_string(lines) + " lines are folded by first word and length: there are " +
                 "more than " + std::to_string(PatternFinder::kDefaultMaxPatterns) +
                 " patterns; choose fewer tags (TAG:LEVEL) or a shorter span (--since)");
    }
}

ExitCode Patterns(const PatternsOptions& options) {
    if (options.lines && options.output != "json") {
        Complain("patterns: --lines needs -o json");
        return ExitCode::kUsage;
    }
    Faults faults;
    auto result = ExitCode::kSuccess;
    faults.Try("patterns", [&] {
        PatternFormat* format = nullptr;  // the decoder's
        Decoder decoder(
            options.decode,
            [&](TimeStyle style) {
                auto made = std::make_unique<PatternFormat>(style, options.lines);
                format = made.get();
                return made;
            },
            options.lines ? 2 : 1);
        result = decoder.Run();
        if (format == nullptr) {
            return;
        }
        if (options.output == "text") {
            PrintTable(format->Table(), format->Style());
        } else if (!options.lines) {
            PrintJson(format->Table(), format->Style());
        }
        TellFolds(format->Table());
    });
    return std::max(result, faults.Worst());
}

}  // namespace

void AddPatterns(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("patterns", "Tell which messages dumps hold, and how many of each");
    const auto options = std::make_shared<PatternsOptions>();
    DecodeOptions& decode = options->decode;
    AddLogOptions(*command, decode);
    command
        ->add_option("-g,--grep", decode.grep,
                     "Only lines whose message this regular expression (PCRE) matches")
        ->type_name("REGEX");
    command->add_flag("--utc", decode.utc, "Wall-clock times in UTC");
    command->add_option("-o,--output", options->output, "Form of the output")
        ->type_name("FORM")
        ->check(CLI::IsMember({"text", "json"}))
        ->capture_default_str();
    command->add_flag("--lines", options->lines,
                      "An object for each line in order, with the number of its pattern");
    command->footer(kHelp + ExitCodesHelp({kUsageHelp, kDamageHelp, kCodeTablesHelp, kOutputHelp,
                                           kNoMatchHelp}));
    command->callback([options, &action] { action = [options] { return Patterns(*options); }; });
}

}  // namespace trelvo
