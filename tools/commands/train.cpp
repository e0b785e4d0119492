#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "commands/commands.h"
#include "commands/input_files.h"
#include "commands/output.h"
#include "commands/progress.h"
#include "policy/code_tables.h"
#include "policy/policy_file.h"
#include "text/escape.h"
#include "train/trainer.h"

namespace trelvo {

namespace {

constexpr const char* kHelp =
    R"(Inputs are capture text, dumps, journals as journalctl -o export or -o json --all gives them,
or lines of TAG<TAB>MESSAGE<TAB>COUNT. Which of them is told by the content: {, or __, at the
start means a journal, a control character there or a zero byte early on a dump, a first line
that ends in a TAB and a number counts. The folder comes into place whole.
It is not written when an input gives nothing at all; from a damaged one all that is whole is
used, and the exit code is 3. It is 4 when codes in a dump could not be translated, and 5
also when the folder could not be written.

)";

struct TrainOptions {
    std::vector<std::string> inputs;
    std::vector<std::string> evaluated;
    std::string output;
    std::string policy_version;
    std::optional<std::string> policy;
    std::string format = "auto";
    TrainingLimits limits;
    uint64_t most_memory = 0;
    bool replace = false;
};

InputFormat FormatOf(const std::string& name) {
    return name == "capture"  ? InputFormat::kCapture
           : name == "counts" ? InputFormat::kCounts
           : name == "dump"   ? InputFormat::kDump
           : name == "json"   ? InputFormat::kJournalJson
           : name == "export" ? InputFormat::kJournalExport
                              : InputFormat::kAuto;
}

double Percent(double part, double whole) {
    return whole > 0 ? 100 * part / whole : 0;
}

// Tells what was wrong with an input that was read.
ExitCode Report(const std::string& path, const InputSummary& summary, const CodeTables* tables) {
    const std::string name = InputName(path);
    auto worst = ExitCode::kSuccess;
    if (summary.untranslated != 0) {
        Complain(name + ": " + std::to_string(summary.untranslated) +
                 " messages may be codes of policy version '" + summary.policy_version +
                 "' and are left out" +
                 (tables == nullptr ? "; --policy gives its tables"
                                    : "; the tables are of version '" + tables->Version() + "'"));
        worst = ExitCode::kCodeTables;
    }
    if (summary.damage) {
        Complain(name + ": " + *summary.damage);
        worst = std::max(worst, ExitCode::kDamage);
    } else if (summary.lines == 0 && summary.passed_over != 0) {
        const bool is_journal = summary.format == InputFormat::kJournalJson ||
                                summary.format == InputFormat::kJournalExport;
        Complain(name + ": none of " + std::to_string(summary.passed_over) +
                 (is_journal ? " entries has a MESSAGE, as those of journalctl have"
                             : " lines is capture text, which looks like this: "
                               "12.345 I/MY_TAG (P 1234, T 1240): main.c: run(52) > started"));
        worst = std::max(worst, ExitCode::kDamage);
    }
    return worst;
}

struct Counting {
    ExitCode worst = ExitCode::kSuccess;
    bool is_usable = true;  // unless an input gave no line and is not simply empty
};

Counting CountInput(const std::string& path, const TrainOptions& options, const CodeTables* tables,
                    MessageCounts& counts, Progress& progress) {
    try {
        const InputSummary summary = ReadInput(
            path, FormatOf(options.format), tables,
            [&counts](const TrainingLine& line) { counts.Add(line.tag, line.message, line.count); },
            [&progress](size_t size) { progress.Advance(size); });
        const ExitCode code = Report(path, summary, tables);
        return {code, code == ExitCode::kSuccess || summary.lines != 0};
    } catch (const std::system_error& error) {
        Complain(InputName(path) + ": " + error.what());
        return {ExitCode::kDamage, false};
    }
}

void PrintEvaluation(const std::string& path, const EvaluationTotals& totals) {
    const auto lines = static_cast<double>(std::max<uint64_t>(totals.lines, 1));
    Print("evaluated on   " + Escape(InputName(path)) + '\n');
    Print(Format("  lines        %.0f; %.0f coded (%.1f %%), %.0f refused\n",
                 static_cast<double>(totals.lines), static_cast<double>(totals.coded),
                 Percent(static_cast<double>(totals.coded), lines),
                 static_cast<double>(totals.refused)));
    Print(Format("  bytes a line %.2f as text, %.2f without tables, %.2f with tables\n",
                 static_cast<double>(totals.text_bytes) / lines,
                 static_cast<double>(totals.plain_bytes) / lines,
                 static_cast<double>(totals.coded_bytes) / lines));
}

ExitCode EvaluateInput(const std::string& path, const TrainOptions& options,
                       const CodeTables* tables, Evaluation& evaluation) {
    evaluation.BeginInput();
    try {
        const InputFormat format = FormatOf(options.format == "counts" ? "auto" : options.format);
        const InputSummary summary =
            ReadInput(path, format, tables,
                      [&evaluation](const TrainingLine& line) { evaluation.Add(line); });
        if (summary.format == InputFormat::kCounts) {
            Complain(InputName(path) + ": holds counts, which say nothing about records");
            return ExitCode::kDamage;
        }
        PrintEvaluation(path, evaluation.Totals());
        return Report(path, summary, tables);
    } catch (const std::system_error& error) {
        Complain(InputName(path) + ": " + error.what());
        return ExitCode::kDamage;
    }
}

void PrintTraining(const TrainOptions& options, const MessageCounts& counts,
                   const Training& training, uint64_t disk_bytes) {
    const double before = counts.MessageBytes();
    Print("policy         " + Escape(options.policy_version) + " in " + Escape(options.output) +
          '\n');
    Print(Format("tags           %zu with a table, of %zu\n", training.tables.size(),
                 counts.Tags().size()));
    Print(Format("entries        %zu\n", training.entries));
    Print(Format("on disk        %.0f bytes\n", static_cast<double>(disk_bytes)));
    Print(Format("in the service about %.0f bytes of memory (estimate)\n",
                 static_cast<double>(training.memory_bytes)));
    Print(Format("lines          %.0f; %.0f coded (%.1f %%)\n", counts.Lines(),
                 training.coded_lines, Percent(training.coded_lines, counts.Lines())));
    Print(Format("message bytes  %.0f as text, %.0f with tables (%.1f %% saved)\n", before,
                 before - training.saved_bytes, Percent(training.saved_bytes, before)));
}

// Says what is wrong with the command line, if anything.
std::string UsageFault(const TrainOptions& options) {
    if (options.policy_version.empty() || !IsPolicyText(options.policy_version)) {
        return "--policy-version: must be UTF-8 without control characters, and not empty";
    }
    if (std::count(options.inputs.begin(), options.inputs.end(), kStandardInput) +
            std::count(options.evaluated.begin(), options.evaluated.end(), kStandardInput) >
        1) {
        return "standard input (-) can be read only once";
    }
    try {
        RequireTarget(options.output, options.replace);
    } catch (const PolicyError& error) {
        return error.what();
    }
    return {};
}

void ReportLosses(const MessageCounts& counts, const Training& training) {
    if (counts.Dropped() != 0) {
        Complain("--max-memory: dropped " + std::to_string(counts.Dropped()) +
                 " of the rarest texts, which had been seen " +
                 std::to_string(counts.HighestDropped()) + " times at most" +
                 (counts.DroppedCodes() ? "; some were not text, and a code may be the same: give "
                                          "more memory"
                                        : ""));
    }
    for (const std::string& tag : training.unfit_tags) {
        Complain("tag '" + tag + "' cannot stand in a policy file and gets no table");
    }
}

// All inputs are read even after one that gave nothing, so that all that is wrong is told at once.
Counting CountInputs(const TrainOptions& options, const CodeTables* tables, MessageCounts& counts) {
    Counting all;
    Faults faults;
    const std::vector<std::string> files = ExpandInputs(options.inputs, faults);
    if (faults.Worst() != ExitCode::kSuccess) {
        return {faults.Worst(), false};
    }
    Progress progress(TotalSize(files), false);
    for (const std::string& path : files) {
        const Counting one = CountInput(path, options, tables, counts, progress);
        all.worst = std::max(all.worst, one.worst);
        all.is_usable = all.is_usable && one.is_usable;
    }
    return all;
}

ExitCode TrainTables(const TrainOptions& options) {
    if (const std::string fault = UsageFault(options); !fault.empty()) {
        Complain(fault);
        return ExitCode::kUsage;
    }
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
            Complain(fault);
            worst = ExitCode::kCodeTables;
        }
    }
    const CodeTables* const old_tables = tables ? &*tables : nullptr;

    MessageCounts counts(options.most_memory);
    const Counting counting = CountInputs(options, old_tables, counts);
    worst = std::max(worst, counting.worst);
    if (!counting.is_usable) {
        Complain("nothing was written");
        return worst;
    }
    const Training training = Train(counts, options.limits);
    ReportLosses(counts, training);
    try {
        const uint64_t disk_bytes = WritePolicyFolder(options.output, options.replace,
                                                      options.policy_version, training.tables);
        PrintTraining(options, counts, training, disk_bytes);
    } catch (const PolicyError& error) {
        Complain(error.what());
        return ExitCode::kOutput;
    }
    Evaluation evaluation(training.tables);
    for (const std::string& path : options.evaluated) {
        worst = std::max(worst, EvaluateInput(path, options, old_tables, evaluation));
    }
    return worst;
}

}  // namespace

void AddTrain(CLI::App& app, Action& action) {
    CLI::App* const command = app.add_subcommand("train", "Make code tables from logs");
    const auto options = std::make_shared<TrainOptions>();
    command
        ->add_option("INPUT", options->inputs,
                     "What to learn from: files, folders of dumps, or - for standard input")
        ->type_name("FILE|DIR")
        ->required();
    command->add_option("-o,--output", options->output, "Policy folder to make")
        ->type_name("DIR")
        ->required();
    command
        ->add_option("--policy-version", options->policy_version,
                     "Version of the policy, by which dumps name their tables")
        ->type_name("V")
        ->required();
    command->add_flag("--force", options->replace, "Replace a policy folder that exists");
    command->add_option("--format", options->format, "What the inputs are")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"auto", "capture", "counts", "dump", "export", "json"}))
        ->capture_default_str();
    command
        ->add_option("--policy", options->policy,
                     "Policy folder whose tables translate the codes in dumps")
        ->type_name("DIR");
    command
        ->add_option("--min-count", options->limits.least_count,
                     "Give a code to texts that were seen as often as this")
        ->type_name("N")
        ->capture_default_str();
    command
        ->add_option("--max-entries", options->limits.most_entries, "Most entries of a tag's table")
        ->type_name("N")
        ->check(CLI::Range(size_t{1}, kMostEntries))
        ->capture_default_str();
    command
        ->add_option("--max-memory", options->most_memory,
                     "Drop the rarest texts where counting takes more bytes, such as 200M")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false).description(""));
    command
        ->add_option("--evaluate", options->evaluated,
                     "Tell what the tables do for these lines; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command->footer(kHelp + ExitCodesHelp({kUsageHelp,
                                           kDamageHelp,
                                           kCodeTablesHelp,
                                           {ExitCode::kOutput,
                                            "the folder or standard output was not written"}}));
    command->callback([options, &action] { action = [options] { return TrainTables(*options); }; });
}

}  // namespace trelvo
