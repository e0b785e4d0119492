#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/comparison_parts.h"
#include "commands/decoder.h"
#include "commands/faults.h"
#include "commands/input_files.h"
#include "commands/log_options.h"
#include "commands/output.h"
#include "commands/page_changes.h"
#include "patterns/pattern_table.h"
#include "report/log_columns.h"
#include "report/page_writer.h"
#include "text/columns.h"
#include "text/escape.h"

namespace trelvo {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr const char* kHelp =
    R"(Writes one page to look at in a browser: a timeline, the lines, their patterns, and filters.
It holds all lines, compressed, opens from disk and asks nothing of a network. Several dumps
are one log, in which each line counts once. An existing file is replaced once the page is
complete. With --good, the page lists what changed, as compare does.

)";

struct ReportOptions {
    DecodeOptions decode;
    std::optional<std::string> good;
    std::string output;
};

// Finds the patterns in one pass over the lines, and hands over the lines in a second one.
class ReportFormat : public LineFormat {
public:
    // `changes`: what to compare the lines with, if anything.
    ReportFormat(TimeStyle style, PageWriter& page, PageChanges* changes)
        : style_(style), page_(page), changes_(changes) {}

    [[nodiscard]] bool TakesBreaks() const override { return true; }

    void Append(const Line& line, const LineContext& context, std::string& /*out*/) override {
        LineContext shown = context;
        if (!style_.wall) {
            shown.boot_time_ms.reset();
        }
        if (!columns_) {
            numbers_.push_back(table_.Add(line, shown.boot_time_ms, context.boot_place));
            if (changes_ != nullptr) {
                changes_->Add(line, shown.boot_time_ms);
            }
            breaks_.push_back(context.before);
            walls_.resize(std::max(walls_.size(), context.boot_place + 1));
            walls_[context.boot_place] = shown.boot_time_ms.has_value();
            return;
        }
        // A dump that changed meanwhile can have more lines than before.
        const auto number = static_cast<size_t>(columns_->Lines());
        const bool known = number < numbers_.size();
        shown.before = known ? breaks_[number] : Break::kNone;
        columns_->Add(line, shown,
                      known ? std::optional(table_.Place(numbers_[number])) : std::nullopt,
                      known && changes_ != nullptr ? changes_->Of(number) : 0);
    }

    [[nodiscard]] bool WantsAgain() override {
        table_.Finish();
        if (changes_ != nullptr) {
            changes_->Finish();
        }
        columns_.emplace(table_, [this](const LogColumns::Block& block) {
            blocks_.push_back(block.lines);
            page_.Add(block);
        });
        return true;
    }

    // What the page needs besides the blocks. Hands over the last of them.
    [[nodiscard]] Json Finish(const Timeline& log, const Columns& widths) {
        columns_->Finish();
        Json head = columns_->Tables();
        head["program"] = "trelvoctl " TRELVO_VERSION;
        head["wall"] = style_.wall;
        head["utc"] = style_.utc;
        head["blocks"] = blocks_;
        head["widths"] = {{"time", widths.time},
                          {"latest", widths.latest},
                          {"tag", widths.tag},
                          {"pid", widths.pid},
                          {"tid", widths.tid}};
        Json boots = Json::array();
        for (size_t boot = 0; boot < log.Boots(); ++boot) {
            boots.push_back(
                {{"host", Utf8(log.Host(boot))}, {"wall", boot < walls_.size() && walls_[boot]}});
        }
        head["boots"] = boots;
        Json files = Json::array();
        for (const Part& part : log.Parts()) {
            Json file{{"name", Utf8(part.name)},
                      {"lines", part.records - part.skipped},
                      {"repeated", part.skipped},
                      {"boot", part.boot}};
            if (part.damage) {
                file["damage"] =
                    "offset " + std::to_string(part.damage->Offset()) + ": " + part.damage->what();
            }
            files.push_back(file);
        }
        head["files"] = files;
        if (changes_ != nullptr) {
            head["changes"] = changes_->ToJson();
        }
        return head;
    }

private:
    TimeStyle style_;
    PageWriter& page_;
    PageChanges* changes_;
    PatternTable table_;
    std::vector<uint32_t> numbers_;  // of each line
    std::vector<Break> breaks_;      // in front of each line
    std::vector<bool> walls_;        // by boot: whether its times are those of a clock on the wall
    std::optional<LogColumns> columns_;
    std::vector<size_t> blocks_;  // lines
};

// A file that takes the place of another one once it is complete. Throws OutputError.
class NewFile {
public:
    explicit NewFile(fs::path path) : path_(std::move(path)), part_(path_.string() + ".part") {
        std::error_code error;
        const fs::file_status status = fs::status(path_, error);
        if (fs::exists(status) && !fs::is_regular_file(status)) {
            throw OutputError(path_.string() + ": not a regular file; the page needs one");
        }
        stream_.open(part_);
        Check();
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        std::error_code ignored;
        fs::remove(part_, ignored);
    }

    [[nodiscard]] std::ostream& Stream() { return stream_; }
    void Finish() {
        stream_.close();
        Check();
        std::error_code error;
        fs::rename(part_, path_, error);
        if (error) {
            throw OutputError(path_.string() + ": " + error.message());
        }
    }

private:
    void Check() const {
        if (!stream_) {
            throw OutputError(part_.string() + ": " + std::generic_category().message(errno));
        }
    }

    fs::path path_;
    fs::path part_;
    std::ofstream stream_;
};

// For another log: without its inputs, and without times, which are those of one run.
DecodeOptions FiltersOf(DecodeOptions options) {
    auto& words = options.words;
    words.erase(std::remove_if(words.begin(), words.end(),
                               [](const std::string& word) { return !Decoder::IsFilter(word); }),
                words.end());
    options.since.reset();
    options.until.reset();
    return options;
}

// As where the page's name was forgotten, so that the first dump stands in its place.
bool WouldReplaceInput(const ReportOptions& options) {
    std::vector<std::string> inputs = options.decode.words;
    if (options.good) {
        inputs.push_back(*options.good);
    }
    return IsDumpName(options.output) ||
           std::any_of(inputs.begin(), inputs.end(), [&](const std::string& input) {
               std::error_code error;
               return fs::equivalent(input, options.output, error);
           });
}

ExitCode Report(const ReportOptions& options) {
    if (WouldReplaceInput(options)) {
        Complain(
            "report: " + options.output +
            ": is read, or named like a dump; -o takes the page to write, such as report.html");
        return ExitCode::kUsage;
    }
    Faults faults;
    auto result = ExitCode::kSuccess;
    faults.Try("report", [&] {
        std::optional<PageChanges> changes;
        ReportFormat* format = nullptr;  // the decoder's
        std::optional<NewFile> file;
        std::optional<PageWriter> page;
        const auto make_format = [&](TimeStyle style) {
            page.emplace(file.emplace(options.output).Stream());
            auto made = std::make_unique<ReportFormat>(style, *page, changes ? &*changes : nullptr);
            format = made.get();
            return made;
        };
        Decoder decoder(options.decode, make_format, 2);
        if (options.good) {
            Comparison& sides = changes.emplace().Sides();
            result = ReadSide(sides, Comparison::kGood, FiltersOf(options.decode), *options.good,
                              faults);
            if (sides.Of(Comparison::kGood).lines == 0) {
                return;
            }
        }
        result = std::max(result, decoder.Run());
        if (format == nullptr || decoder.Log().Boots() == 0) {
            return;  // there is nothing to show
        }
        if (changes) {
            if (changes->Sides().Of(Comparison::kBad).lines == 0) {
                faults.Tell("no lines to compare with " + *options.good, ExitCode::kNoMatch);
                return;
            }
            TellFolded(changes->Sides());
        }
        page->Finish(format->Finish(decoder.Log(), decoder.Widths()));
        file->Finish();
    });
    return std::max(result, faults.Worst());
}

}  // namespace

void AddReport(CLI::App& app, Action& action) {
    CLI::App* const command =
        app.add_subcommand("report", "Make a page to look at in a browser of what dumps hold");
    const auto options = std::make_shared<ReportOptions>();
    AddLogOptions(*command, options->decode);
    command->add_option("-o,--output", options->output, "The page to write, such as report.html")
        ->type_name("FILE")
        ->required();
    command->add_option("--good", options->good, "A log of a healthy run, to show what changed")
        ->type_name("FILE|DIR");
    command->add_flag("--utc", options->decode.utc, "Wall-clock times in UTC");
    command->footer(kHelp + ExitCodesHelp({kUsageHelp,
                                           kDamageHelp,
                                           kCodeTablesHelp,
                                           {ExitCode::kOutput, "the page was not written"},
                                           {ExitCode::kNoMatch, "no lines to compare"}}));
    command->callback([options, &action] { action = [options] { return Report(*options); }; });
}

}  // namespace trelvo
