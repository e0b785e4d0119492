#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "commands/dump_files.h"
#include "commands/input_files.h"
#include "commands/output.h"
#include "commands/policy_options.h"
#include "commands/progress.h"
#include "commands/stat_output.h"
#include "dump/statistics.h"
#include "dump/timeline.h"
#include "io/zstd_input.h"
#include "policy/policies.h"

namespace trelvo {

namespace {

constexpr const char* kHelp =
    R"(Of one dump: span, size, levels, lines over time, and who logs most, by tag and by program:
the processes that log most of their lines under one tag, with all that they log. Of several
dumps: all that as one log, in which each line counts once, and a row for each dump. -v adds
what each field of a record takes and every process. "coded" counts the lines that a code
table explains; without tables, those whose message cannot be text. "as text" is the size
of the decoded lines, unaligned. With -o json, one object a dump, with names as decode -o
json has them; shared_records are those that other dumps show already.

)";

struct StatOptions {
    std::vector<std::string> inputs;
    std::optional<std::string> policy;
    std::optional<std::string> policies;
    size_t top = 10;
    bool verbose = false;
    std::string output = "text";
};

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
            PrintDump(timeline_.Parts().front().name, dumps_.front(), options.top, options.verbose);
        } else if (!dumps_.empty()) {
            PrintTable(timeline_, dumps_, total_, options.top, options.verbose);
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
        // Of each boot what its dumps cover, by start.
        std::map<size_t, std::multimap<int64_t, int64_t>> spans;
        for (size_t i = 0; i < dumps_.size(); ++i) {
            const Part& part = timeline_.Parts()[i];
            const DumpStatistics& s = dumps_[i].statistics;
            total_->records += s.all.records;
            total_->record_bytes += s.all.bytes;
            total_->coded += s.coded.records;
            total_->bytes += s.bytes;
            total_->text_bytes += s.text_bytes;
            spans[part.boot].emplace(s.first_ms, s.last_ms);
        }
        for (const auto& [boot, dumps] : spans) {
            int64_t reached = dumps.begin()->first;
            for (const auto& [start, end] : dumps) {
                total_->span_ms += std::max<int64_t>(end - std::max(start, reached), 0);
                reached = std::max(reached, end);
            }
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
