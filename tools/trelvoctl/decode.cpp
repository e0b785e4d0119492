#include "trelvoctl/decode.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "policy/policy_file.h"
#include "trelvoctl/inputs.h"
#include "trelvoctl/output.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardInput = "-";

// Standard input, which can be opened only once, read again by everybody who wants it.
class SharedSource : public ByteSource {
public:
    explicit SharedSource(std::shared_ptr<ByteSource> source) : source_(std::move(source)) {
        source_->Seek(0);
    }
    [[nodiscard]] size_t Read(char* data, size_t size) override {
        return source_->Read(data, size);
    }
    void Seek(uint64_t offset) override { source_->Seek(offset); }
    [[nodiscard]] std::optional<timespec> WriteTime() const override {
        return source_->WriteTime();
    }

private:
    std::shared_ptr<ByteSource> source_;
};

int64_t ToNanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

bool WantsColor(const std::string& mode) {
    if (mode != "auto") {
        return mode == "always";
    }
    const char* const no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

std::unique_ptr<LineFormat> MakeFormat(const DecodeOptions& options) {
    const TimeStyle style{options.wall || options.boot_time, options.utc};
    if (options.format == "threadtime") {
        return MakeThreadtimeFormat(style);
    }
    if (options.format == "json") {
        return MakeJsonFormat(style);
    }
    if (options.format == "csv") {
        return MakeCsvFormat(style);
    }
    if (options.format == "raw") {
        return MakeRawFormat(isatty(STDOUT_FILENO) != 0);
    }
    return MakeShortFormat(style, WantsColor(options.color));
}

// Milliseconds since 1970. Throws FilterError.
int64_t ParseIsoTime(const std::string& text, bool utc) {
    const std::unique_ptr<GTimeZone, decltype(&g_time_zone_unref)> zone(
        utc ? g_time_zone_new_utc() : g_time_zone_new_local(), g_time_zone_unref);
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> time(
        g_date_time_new_from_iso8601(text.c_str(), zone.get()), g_date_time_unref);
    if (!time) {
        throw FilterError("'" + text + "' is no ISO 8601 time, such as 2026-01-31T12:00:00Z");
    }
    return g_date_time_to_unix(time.get()) * 1000 + g_date_time_get_microsecond(time.get()) / 1000;
}

std::string MarkerText(Break before, int64_t from_ms, int64_t to_ms) {
    const auto seconds = [](int64_t ms) {
        std::string text;
        AppendSeconds(ms, text);
        return text;
    };
    switch (before) {
        case Break::kGap:
            return "gap: lines between " + seconds(from_ms) + " and " + seconds(to_ms) +
                   " are in none of the dumps";
        case Break::kFresh:
            return "fresh start after " + seconds(from_ms) +
                   ": a dump emptied the recorder, or the service was started";
        case Break::kRestart:
            return "restart: the service was started again and recorded this boot once more";
        case Break::kReboot:
            return "reboot: time starts over";
        case Break::kNone:
            break;
    }
    return {};
}

}  // namespace

Decoder::Decoder(DecodeOptions options)
    : options_(std::move(options)),
      format_(MakeFormat(options_)),
      sink_(options_.last, options_.reversed) {
    for (const std::string& word : options_.words) {
        if (LineFilter::IsTagLevel(word) && !fs::exists(word)) {
            filter_.AddTagLevel(word);
        } else {
            inputs_.push_back(word);
        }
    }
    for (const int32_t pid : options_.pids) {
        filter_.AddPid(pid);
    }
    for (const int32_t tid : options_.tids) {
        filter_.AddTid(tid);
    }
    if (options_.grep) {
        filter_.SetPattern(*options_.grep);
    }
    const auto time = [](const std::optional<std::string>& text) {
        return text ? std::optional(ParseTimePoint(*text)) : std::nullopt;
    };
    filter_.SetSpan(time(options_.since), time(options_.until));
    if (options_.boot_time) {
        boot_time_ms_ = ParseIsoTime(*options_.boot_time, options_.utc);
    }
}

ExitCode Decoder::Run() {
    if (inputs_.empty()) {
        Complain("decode: FILE is required");
        return ExitCode::kUsage;
    }
    if (options_.follow && (inputs_.size() != 1 || !fs::is_directory(inputs_.front()))) {
        Complain("decode: --follow takes one folder");
        return ExitCode::kUsage;
    }
    // Before the folder is listed, so that no dump is completed unseen.
    std::optional<FolderWatch> watch;
    if (options_.follow) {
        watch.emplace(inputs_.front());
    }
    try {
        policies_.emplace(options_.policy, options_.policies, options_.force);
    } catch (const PolicyError& error) {
        Complain(error.what());
        return ExitCode::kCodeTables;
    }
    std::vector<std::string> files;
    try {
        files = ExpandInputs(inputs_);
    } catch (const std::system_error& error) {
        Complain(error.what());
        return ExitCode::kDamage;
    }

    // A survey, then the lines.
    progress_.emplace(2 * TotalSize(files), true);
    timeline_.emplace(options_.follow || files.size() > 1);
    for (const Candidate& candidate : InOrder(files)) {
        Add(candidate);
    }
    if (const auto fault = WallFault(); !fault.empty()) {
        Complain("decode: " + fault);
        return ExitCode::kUsage;
    }
    std::string head;
    format_->AppendHead(head);
    Print(head);
    ShowFrom(0);
    sink_.Finish();
    progress_.reset();
    while (watch) {
        FlushOutput();
        const std::string file = watch->Wait();
        if (file.empty()) {
            break;
        }
        const size_t before = timeline_->Parts().size();
        for (const Candidate& candidate : InOrder({file})) {
            if (!IsKnown(candidate)) {
                Add(candidate);
            }
        }
        ShowFrom(before);
    }
    if (worst_ == ExitCode::kSuccess && options_.grep && shown_ == 0) {
        return ExitCode::kNoMatch;
    }
    return worst_;
}

std::unique_ptr<ByteSource> Decoder::Open(const std::string& file) {
    const auto observer = [this](size_t size) {
        if (progress_) {
            progress_->Advance(size);
        }
    };
    if (file != kStandardInput) {
        return OpenSource(file, observer);
    }
    if (!standard_input_) {
        standard_input_ = OpenSource(file, observer);
    }
    return std::make_unique<SharedSource>(standard_input_);
}

template <typename Step>
bool Decoder::Try(const std::string& name, const Step& step) {
    try {
        step();
        return true;
    } catch (const DumpError& error) {
        Complain(name + ": offset " + std::to_string(error.Offset()) + ": " + error.what());
        worst_ = std::max(worst_, ExitCode::kDamage);
    } catch (const PolicyError& error) {
        Complain(name + ": " + error.what());
        worst_ = std::max(worst_, ExitCode::kCodeTables);
    } catch (const std::system_error& error) {
        Complain(name + ": " + error.code().message());
        worst_ = std::max(worst_, ExitCode::kDamage);
    } catch (const std::bad_alloc&) {
        Complain(name + ": needs more memory than there is");
        worst_ = std::max(worst_, ExitCode::kDamage);
    }
    return false;
}

std::vector<Decoder::Candidate> Decoder::InOrder(const std::vector<std::string>& files) {
    std::vector<Candidate> candidates;
    for (const std::string& file : files) {
        Candidate candidate;
        candidate.file = file;
        candidate.name = file == kStandardInput ? "standard input" : file;
        const bool read = Try(candidate.name, [this, &candidate] {
            const auto source = Open(candidate.file);
            const DumpReader reader(*source);
            candidate.version = reader.PolicyVersion();
            candidate.last_log_time = reader.LastLogTime();
            // What has no time of its own is being written now.
            const auto written = source->WriteTime();
            candidate.written_ns = written ? ToNanoseconds(*written) : INT64_MAX;
        });
        if (read) {
            candidates.push_back(std::move(candidate));
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [this](const Candidate& a, const Candidate& b) {
                         if (!options_.one_boot && a.written_ns != b.written_ns) {
                             return a.written_ns < b.written_ns;
                         }
                         if (a.last_log_time != b.last_log_time) {
                             return a.last_log_time < b.last_log_time;
                         }
                         return NaturalLess(a.file, b.file);
                     });
    return candidates;
}

bool Decoder::IsKnown(const Candidate& candidate) const {
    const auto known = known_.find(candidate.file);
    return known != known_.end() && known->second == candidate.written_ns;
}

void Decoder::Add(const Candidate& candidate) {
    known_[candidate.file] = candidate.written_ns;
    Try(candidate.name, [this, &candidate] {
        const CodeTables* const tables = policies_->For(candidate.version);
        for (const std::string& fault : policies_->TakeFaults()) {
            Complain(fault + "; its codes are shown as they are");
            worst_ = std::max(worst_, ExitCode::kCodeTables);
        }
        timeline_->Add(
            candidate.name, [this, file = candidate.file] { return Open(file); }, tables);
    });
}

std::string Decoder::WallFault() const {
    if (boot_time_ms_ && timeline_->Boots() > 1) {
        return "--boot-time is that of one boot, but the dumps are of " +
               std::to_string(timeline_->Boots()) + "; --wall takes the files' own times";
    }
    for (size_t boot = 0; options_.wall && boot < timeline_->Boots(); ++boot) {
        if (!timeline_->BootTime(boot)) {
            return "--wall needs a file with a time of its own; --boot-time sets one";
        }
    }
    return {};
}

void Decoder::ShowFrom(size_t first_part) {
    const std::vector<Part>& parts = timeline_->Parts();
    int64_t end_ms = 0;
    for (const Part& part : parts) {
        if (part.boot + 1 == timeline_->Boots() && part.records > 0) {
            end_ms = std::max(end_ms, part.last_ms);
        }
    }
    filter_.SetEnd(parts.empty() ? 0 : timeline_->Boots() - 1, end_ms);
    Try("decode", [this, first_part, &parts] {
        timeline_->Visit(
            first_part,
            [this, &parts](const Line& line, Break before) {
                Show(line, before, parts[line.dump]);
                return true;
            },
            [this](const Part& part) { TellFaults(part); });
    });
}

void Decoder::Show(const Line& line, Break before, const Part& part) {
    if (before != Break::kNone) {
        marker_ = MarkerText(before, last_ms_, line.time_ms);
    }
    last_ms_ = line.time_ms;
    if (!filter_.Passes(line, part.boot)) {
        return;
    }
    ++shown_;
    LineContext context;
    context.file = part.name;
    if (options_.wall) {
        context.boot_time_ms = timeline_->BootTime(part.boot);
    } else {
        context.boot_time_ms = boot_time_ms_;
    }
    text_.clear();
    format_->Append(line, context, text_);
    if (!marker_.empty()) {
        if (format_->TakesMarkers()) {
            // Viewers of the threadtime format pass over lines that begin like this.
            const std::string marker = "--------- " + marker_ + '\n';
            text_ = options_.reversed ? text_ + marker : marker + text_;
        } else {
            Complain(part.name + ": " + marker_);
        }
        marker_.clear();
    }
    sink_.Take(text_);
}

void Decoder::TellFaults(const Part& part) {
    if (part.ambiguous > 0) {
        Complain(part.name + ": " + std::to_string(part.ambiguous) +
                 " messages are a code of their tag's table and could be text as well");
    }
    if (part.damage) {
        // The newest whole line is given the time of the newest line of all.
        const bool shifted = part.records > 0 && !part.exact;
        Complain(part.name + ": offset " + std::to_string(part.damage->Offset()) + ": " +
                 part.damage->what() +
                 (shifted ? "; the times shown are the latest possible" : ""));
        worst_ = std::max(worst_, ExitCode::kDamage);
    }
}
