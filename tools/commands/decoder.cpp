#include "commands/decoder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "commands/input_files.h"
#include "commands/output.h"
#include "commands/pager.h"
#include "dump/clock_line.h"
#include "io/folder_watch.h"
#include "text/escape.h"

namespace trelvo {

namespace fs = std::filesystem;

namespace {

bool WantsColor(const std::string& mode) {
    if (mode != "auto") {
        return mode == "always";
    }
    const char* const no_color = std::getenv("NO_COLOR");
    return IsShown() && (no_color == nullptr || *no_color == '\0');
}

// What cannot be looked up is neither.
bool Exists(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

bool IsFolder(const std::string& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

std::unique_ptr<LineFormat> MakeFormat(const DecodeOptions& options, TimeStyle style,
                                       const Columns& columns) {
    if (options.format == "threadtime") {
        return MakeThreadtimeFormat(style);
    }
    if (options.format == "json") {
        return MakeJsonFormat(style);
    }
    if (options.format == "csv") {
        return MakeCsvFormat(style, IsShown());
    }
    if (options.format == "export") {
        return MakeExportFormat();
    }
    if (options.format == "raw") {
        return MakeRawFormat(IsShown());
    }
    return MakeShortFormat(
        style, {WantsColor(options.color), IsShown(), TerminalWidth().value_or(0)}, columns);
}

}  // namespace

Decoder::Decoder(DecodeOptions options, FormatMaker make_format, unsigned passes)
    : options_(std::move(options)),
      make_format_(std::move(make_format)),
      passes_(passes),
      files_([this](size_t size) {
          if (progress_) {
              progress_->Advance(size);
          }
      }),
      sink_(options_.last, options_.reversed) {
    for (const std::string& word : options_.words) {
        if (LineFilter::IsTagAndWord(word) && !LineFilter::IsTagLevel(word) && !Exists(word)) {
            throw FilterError("'" + word +
                              "' is neither a file nor TAG:LEVEL: levels are V, D, I, "
                              "W, E, F and S");
        }
        if (IsFilter(word)) {
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
    const auto time = [this](const std::optional<std::string>& text) {
        return text ? std::optional(ParseTimePoint(*text, options_.utc)) : std::nullopt;
    };
    since_ = time(options_.since);
    until_ = time(options_.until);
    filter_.SetSpan(since_, until_);
    if (options_.format == "export") {
        if (options_.monotonic) {
            throw FilterError("-o export has both times of a line; drop --monotonic");
        }
        options_.wall = !options_.boot_time;
    }
    if (options_.boot_time) {
        boot_time_ms_ = ParseWallTime(*options_.boot_time, options_.utc);
        if (!boot_time_ms_) {
            throw FilterError("'" + *options_.boot_time +
                              "' is not a time of boot: expected 2026-01-31T12:00:00Z or "
                              "'2026-01-31 12:00:00'");
        }
    }
}

bool Decoder::IsFilter(const std::string& word) {
    return LineFilter::IsTagLevel(word) && !Exists(word);
}

ExitCode Decoder::Run() {
    if (inputs_.empty()) {
        Complain("FILE is required");
        return ExitCode::kUsage;
    }
    if (options_.follow && (inputs_.size() != 1 || !IsFolder(inputs_.front()))) {
        Complain("decode: --follow takes one folder");
        return ExitCode::kUsage;
    }
    // Before the folder is listed, so that no dump is completed unseen.
    std::optional<FolderWatch> watch;
    if (options_.follow) {
        watch.emplace(inputs_.front());
    }
    policies_.emplace(options_.policy, options_.policies, options_.force);
    // A folder that is followed may be empty yet.
    const std::vector<std::string> files =
        watch ? DumpsIn(inputs_.front()) : ExpandInputs(inputs_, faults_);

    // A survey, then the lines.
    progress_.emplace((1 + passes_) * TotalSize(files), !make_format_);
    timeline_.emplace(options_.follow || files.size() > 1, options_.one_boot);
    for (const DumpFile& dump : InOrder(files)) {
        Add(dump);
    }
    if (timeline_->Boots() > 0 || !watch) {
        SettleStyle();
        ShowFrom(0);
        again_ = format_->WantsAgain();
        if (again_) {
            last_.clear();
            last_boot_.reset();
            ShowFrom(0);
        }
    }
    sink_.Finish();
    progress_.reset();
    while (watch) {
        FlushOutput();
        const auto event = watch->Take();
        if (!event) {
            watch->Wait();
            continue;
        }
        if (event->gone) {
            break;
        }
        std::vector<std::string> paths;
        if (event->lost) {
            paths = DumpsIn(inputs_.front());
        } else if (event->complete && IsDumpName(event->name)) {
            // Spelled as DumpsIn() does, so that one that is known is recognised.
            paths.push_back((fs::path(inputs_.front()) / event->name).string());
        }
        if (paths.empty()) {
            continue;
        }
        const size_t before = timeline_->Parts().size();
        for (const DumpFile& dump : InOrder(paths)) {
            if (!IsKnown(dump)) {
                Add(dump);
            }
        }
        if (!format_ && timeline_->Boots() > 0) {
            SettleStyle();
        }
        ShowFrom(before);
    }
    TellCodes();
    if (faults_.Worst() == ExitCode::kSuccess && options_.grep && shown_ == 0) {
        return ExitCode::kNoMatch;
    }
    return faults_.Worst();
}

std::vector<DumpFile> Decoder::InOrder(const std::vector<std::string>& paths) {
    return files_.InOrder(paths, options_.one_boot, faults_,
                          [this](const DumpReader& reader) { FitColumns(reader.Sources()); });
}

void Decoder::FitColumns(const Dictionary& sources) {
    for (size_t place = 0; place < sources.Size(); ++place) {
        const Source source = sources.At(place);
        if (source.tag != kClockTag || filter_.Names(kClockTag)) {
            columns_.Fit(source);
        }
    }
}

bool Decoder::IsKnown(const DumpFile& dump) const {
    const auto known = known_.find(dump.path);
    return known != known_.end() && known->second == dump.written_ns;
}

void Decoder::Add(const DumpFile& dump) {
    known_[dump.path] = dump.written_ns;
    faults_.Try(dump.name, [this, &dump] {
        const CodeTables* const tables = policies_->For(dump.version);
        for (const std::string& fault : policies_->TakeFaults()) {
            faults_.Tell(fault + "; its codes are shown as they are", ExitCode::kCodeTables);
        }
        timeline_->Add(
            dump.name, [this, path = dump.path] { return files_.Open(path); }, tables);
        versions_.push_back(dump.version);
    });
}

void Decoder::SettleStyle() {
    bool told = false;
    bool untold = false;
    for (size_t boot = 0; boot < timeline_->Boots(); ++boot) {
        (timeline_->HasClock(boot) ? told : untold) = true;
        if (options_.wall && !timeline_->HasClock(boot) && !timeline_->BootTime(boot)) {
            throw FilterError(std::string(options_.format == "export" ? "-o export" : "--wall") +
                              " needs a file with a time of its own; --boot-time sets one");
        }
    }
    if (boot_time_ms_ && timeline_->Boots() > 1) {
        throw FilterError("--boot-time is that of one boot, but the dumps are of " +
                          std::to_string(timeline_->Boots()) +
                          "; --wall takes the files' own times");
    }
    style_.wall = !options_.monotonic && (options_.wall || boot_time_ms_ || told);
    style_.utc = options_.utc;
    for (const Part& part : timeline_->Parts()) {
        const auto boot_time_ms = style_.wall ? std::optional<int64_t>(0) : std::nullopt;
        columns_.time = std::max(columns_.time, TimeText(part.EndMs(), boot_time_ms).size());
        columns_.latest = columns_.latest || (part.latest && part.records > 0);
    }
    style_.host = timeline_->Hosts().size() > 1;
    for (const auto& [point, text] :
         {std::pair(since_, options_.since), std::pair(until_, options_.until)}) {
        if (point && point->kind == TimePoint::Kind::kWall && !style_.wall) {
            throw FilterError("'" + *text + "' is a wall-clock time, but " +
                              (told ? "--monotonic shows times since boot: drop it, "
                                    : "no clock line tells one: --wall guesses it, ") +
                              "or give seconds since boot, or -5m, back from the end");
        }
        if (point && point->kind == TimePoint::Kind::kSinceBoot && style_.wall) {
            throw FilterError("'" + *text +
                              "' is seconds since boot, which --monotonic shows; give a time as it "
                              "is shown: '2026-11-25 00:54:00', 00:54, yesterday, -5m");
        }
    }
    if (style_.wall && untold && !boot_time_ms_) {
        int64_t silence_ms = 0;
        for (const Part& part : timeline_->Parts()) {
            silence_ms = std::max(silence_ms, part.silence_ms);
        }
        Complain(
            "wall-clock times of dumps without clock lines are a guess by the files' own "
            "times: late by as long as nothing was logged before a dump; the longest silence "
            "in them is " +
            TimeText(silence_ms, {}) + " s");
    }
    format_ = make_format_ ? make_format_(style_) : MakeFormat(options_, style_, columns_);
    std::string head;
    format_->AppendHead(head);
    Print(head);
}

std::optional<int64_t> Decoder::BootTime(const Line& line, size_t boot) const {
    if (!style_.wall) {
        return std::nullopt;
    }
    if (boot_time_ms_) {
        return boot_time_ms_;
    }
    return line.boot_time_ms ? line.boot_time_ms : guessed_[boot];
}

void Decoder::ShowFrom(size_t first_part) {
    const std::vector<Part>& parts = timeline_->Parts();
    guessed_.clear();
    boot_ids_.clear();
    for (size_t boot = 0; boot < timeline_->Boots(); ++boot) {
        guessed_.push_back(timeline_->BootTime(boot));
        boot_ids_.push_back(timeline_->BootId(boot));
    }
    const size_t last_boot = parts.empty() ? 0 : timeline_->LastBoot();
    int64_t end_ms = 0;
    std::optional<int64_t> wall_end_ms;
    for (const Part& part : parts) {
        if (part.records == 0) {
            continue;
        }
        if (part.boot == last_boot) {
            end_ms = std::max(end_ms, part.EndMs());
        }
        Line last;
        last.time_ms = part.EndMs();
        if (part.last_clock) {
            last.boot_time_ms = part.last_clock->boot_time_ms;
        }
        if (const auto boot_time_ms = BootTime(last, part.boot)) {
            wall_end_ms = std::max(wall_end_ms.value_or(INT64_MIN), *boot_time_ms + last.time_ms);
        }
    }
    filter_.SetEnd(last_boot, end_ms);
    if (wall_end_ms) {
        filter_.SetWallEnd(*wall_end_ms);
    }
    clock_lines_ = filter_.Names(kClockTag);
    faults_.Try("decode", [this, first_part, &parts] {
        timeline_->Visit(
            first_part,
            [this, &parts](const Line& line, Break before) {
                Show(line, before, parts[line.dump]);
            },
            [this](const Part& part) {
                if (!again_) {
                    TellFaults(part);
                }
            });
    });
}

std::string Decoder::TimeText(int64_t ms, std::optional<int64_t> boot_time_ms) const {
    std::string text;
    if (boot_time_ms) {
        Clock(style_.utc).Append(*boot_time_ms + ms, "%Y-%m-%d %H:%M:%S", style_.utc, text);
    } else {
        AppendSeconds(ms, text);
    }
    return text;
}

std::string Decoder::MarkerText(Break before, const Line& line, const Part& part) {
    const std::string from = TimeText(last_line_->time_ms, last_line_->boot_time_ms);
    std::string text = style_.host ? timeline_->Host(part.boot) + ": " : "";
    switch (before) {
        case Break::kGap:
            return text + "gap: lines between " + from + " and " +
                   TimeText(line.time_ms, BootTime(line, part.boot)) + " are in none of the dumps";
        case Break::kFresh:
            return text + "fresh start after " + from +
                   ": a dump emptied the recorder, or the service was started";
        case Break::kRestart:
            return text + "restart: the service was started again and recorded this boot once more";
        case Break::kReboot:
            return text + "reboot: time starts over";
        case Break::kNone:
            break;
    }
    return {};
}

void Decoder::Show(const Line& line, Break before, const Part& part) {
    const auto boot_time_ms = BootTime(line, part.boot);
    if (part.boot != last_boot_) {
        last_boot_ = part.boot;
        last_line_ = &last_[timeline_->Host(part.boot)];
    }
    // Of several without a line in between, that of most consequence is told.
    if (before != Break::kNone && before >= last_line_->before && !again_) {
        last_line_->marker = MarkerText(before, line, part);
        last_line_->before = before;
    }
    if (before == Break::kGap) {
        last_line_->gap_ms += std::max<int64_t>(line.time_ms - last_line_->time_ms, 0);
    }
    last_line_->time_ms = line.time_ms;
    last_line_->boot_time_ms = boot_time_ms;
    if ((line.clock && !clock_lines_) || !filter_.Passes(line, part.boot, boot_time_ms)) {
        return;
    }
    if (!again_) {
        ++asked_for_;
        if (line.kind == Line::Message::kCode) {
            ++codes_[versions_[line.dump]];
        }
    }
    try {
        if (!filter_.Matches(line)) {
            return;
        }
    } catch (const SearchError& error) {
        if (again_) {
            return;
        }
        faults_.Tell(
            part.name + ": line at " + TimeText(line.time_ms, boot_time_ms) + ": " + error.what(),
            ExitCode::kDamage);
        return;
    }
    ++shown_;
    LineContext context;
    context.file = part.name;
    context.host = timeline_->Host(part.boot);
    context.boot = boot_ids_[part.boot];
    context.boot_time_ms = boot_time_ms;
    context.latest = part.latest;
    context.boot_place = part.boot;
    context.before = std::exchange(last_line_->before, Break::kNone);
    context.gap_ms = std::exchange(last_line_->gap_ms, 0);
    text_.clear();
    format_->Append(line, context, text_);
    if (context.before != Break::kNone) {
        const std::string& text = last_line_->marker;
        if (format_->TakesMarkers()) {
            // Viewers of the threadtime format pass over lines that begin like this.
            const std::string marker = "--------- " + Escape(text) + '\n';
            text_ = options_.reversed ? text_ + marker : marker + text_;
        } else if (!format_->TakesBreaks()) {
            Complain(part.name + ": " + text);
        }
    }
    sink_.Take(text_);
}

void Decoder::TellCodes() {
    for (const auto& [version, codes] : codes_) {
        const std::string text = std::to_string(codes) + " of " + std::to_string(asked_for_) +
                                 " messages are codes of policy " + version + ": --policy DIR";
        if (options_.grep) {
            faults_.Tell(text + "; codes were not searched", ExitCode::kCodeTables);
        } else {
            Complain(text);
        }
    }
}

void Decoder::TellFaults(const Part& part) {
    if (part.ambiguous > 0) {
        Complain(part.name + ": " + std::to_string(part.ambiguous) +
                 " messages are a code of their tag's table and could be text as well");
    }
    if (part.damage) {
        // The newest whole line is given the time of the newest line of all.
        const bool shifted = part.records > 0 && part.latest;
        faults_.Tell(part.name + ": " + Describe(*part.damage) +
                         (shifted ? "; the times shown are the latest possible" : ""),
                     ExitCode::kDamage);
    }
}

}  // namespace trelvo
