#include "timeline/timeline.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "escape/escape.h"

namespace {

// A message as it is shown: translated, where the tables have it as a code.
void Translate(const Record& record, const CodeTables* tables, bool may_be_code, Line& line) {
    line.kind = Line::Message::kText;
    line.message = record.message;
    if (tables != nullptr) {
        if (const auto text = tables->Message(record.origin.tag, record.message)) {
            line.kind = Line::Message::kTranslated;
            line.message = *text;
        }
    } else if (may_be_code && !IsText(record.message)) {
        line.kind = Line::Message::kCode;
    }
}

}  // namespace

// Goes through the lines of one part that are not skipped.
class Timeline::Cursor {
public:
    Cursor(std::unique_ptr<ByteSource> source, Part& part, size_t place, const CodeTables* tables)
        : source_(std::move(source)),
          reader_(*source_),
          tables_(tables),
          may_be_code_(!reader_.PolicyVersion().empty()),
          part_(&part) {
        line_.dump = place;
        line_.time_ms = part.start_ms;
        while (read_ < part.skipped && Read()) {
        }
    }

    // False when there is none left.
    [[nodiscard]] bool Next() {
        if (!Read()) {
            return false;
        }
        line_.level = record_.level;
        line_.origin = record_.origin;
        Translate(record_, tables_, may_be_code_, line_);
        if (line_.kind == Line::Message::kTranslated && IsText(record_.message)) {
            ++part_->ambiguous;
        }
        return true;
    }

    [[nodiscard]] const Line& Current() const { return line_; }
    [[nodiscard]] Part& Owner() const { return *part_; }

private:
    bool Read() {
        // The survey has told how many are whole: reading stops short of the damage.
        if (read_ == part_->records || !reader_.Next(record_)) {
            return false;
        }
        line_.time_ms += read_++ == 0 ? 0 : record_.delta_ms;
        return true;
    }

    std::unique_ptr<ByteSource> source_;
    DumpReader reader_;
    const CodeTables* tables_;
    bool may_be_code_;
    Part* part_;
    Record record_;
    Line line_;
    uint64_t read_ = 0;
};

// Finds the lines that a service recorded once more after a restart: those that another part has
// shown at the same time. Keeps only the lines of one millisecond.
class Timeline::Replays {
public:
    // True for a line that was shown already.
    [[nodiscard]] bool Repeats(const Line& line, const Part& part) {
        if (line.time_ms != time_ms_) {
            time_ms_ = line.time_ms;
            counts_.clear();
        }
        Count& count = counts_[{line.level, std::string(line.origin.tag), line.origin.pid,
                                line.origin.tid, std::string(line.message)}];
        if (part.before == Break::kRestart && ++count.of_part[line.dump] <= count.shown) {
            return true;
        }
        ++count.shown;
        return false;
    }

private:
    using Key = std::tuple<char, std::string, int32_t, int32_t, std::string>;

    struct Count {
        uint64_t shown = 0;
        std::map<size_t, uint64_t> of_part;  // by place, whether shown or not
    };

    int64_t time_ms_ = -1;
    std::map<Key, Count> counts_;
};

void Timeline::Add(std::string name, const Opener& open, const CodeTables* tables) {
    const std::unique_ptr<ByteSource> source = open();
    Survey survey = TakeSurvey(*source, several_);
    Part part;
    part.name = std::move(name);
    part.records = survey.records;
    part.last_ms = survey.last_log_time;
    part.start_ms = survey.last_log_time - survey.span_ms;
    part.from_ms = part.start_ms;
    part.exact = !survey.damage;
    part.damage = survey.damage;
    part.boot = parts_.empty() ? 0 : parts_.back().boot;
    if (const auto written = source->WriteTime()) {
        part.boot_time_ms =
            int64_t{written->tv_sec} * 1000 + written->tv_nsec / 1000000 - survey.last_log_time;
    }
    // A dump without lines says nothing about what lies between others.
    if (survey.records > 0) {
        if (last_part_) {
            Link(part, survey);
        }
        last_survey_ = std::move(survey);
        last_part_ = parts_.size();
    }
    parts_.push_back(std::move(part));
    openers_.push_back(open);
    tables_.push_back(tables);
}

void Timeline::Link(Part& part, const Survey& survey) {
    Part& before = parts_[*last_part_];
    const Overlap overlap = FindOverlap(last_survey_, survey);
    if (overlap.records > 0) {
        // Equal records have equal times. That mends the times of a damaged dump, and tells a
        // chance likeness of two whole ones from a repetition.
        const int64_t in_part =
            part.start_ms + survey.prints[static_cast<size_t>(overlap.records - 1)].ms;
        const int64_t error = in_part - (before.start_ms + overlap.earlier_ms);
        if (error == 0 || !before.exact || !part.exact) {
            Part& wrong = part.exact ? before : part;
            const int64_t shift = part.exact ? error : -error;
            wrong.start_ms += shift;
            wrong.from_ms += shift;
            wrong.last_ms += shift;
            wrong.exact = part.exact || before.exact;
            part.skipped = overlap.records;
            part.from_ms =
                part.start_ms + (overlap.records < part.records ? survey.prints[overlap.records].ms
                                                                : survey.span_ms);
            return;
        }
    }
    const bool earlier_end = survey.last_log_time < last_survey_.last_log_time;
    // Booted after the dump before was written, if the files' own times can be trusted.
    const bool later_boot = part.boot_time_ms && before.boot_time_ms &&
                            *part.boot_time_ms > *before.boot_time_ms + last_survey_.last_log_time;
    if (earlier_end || later_boot) {
        part.before = Break::kReboot;
        ++part.boot;
    } else if (part.start_ms < before.last_ms) {
        part.before = Break::kRestart;
    } else if (survey.fresh) {
        part.before = Break::kFresh;
    } else if (part.start_ms - survey.first_delta_ms != before.last_ms) {
        part.before = Break::kGap;
    }
}

std::optional<int64_t> Timeline::BootTime(size_t boot) const {
    // The machine may have been silent for any time before a dump, so the smallest is the best.
    std::optional<int64_t> earliest;
    for (const Part& part : parts_) {
        if (part.boot == boot && part.records > 0 && part.boot_time_ms) {
            earliest = std::min(earliest.value_or(*part.boot_time_ms), *part.boot_time_ms);
        }
    }
    return earliest;
}

void Timeline::Visit(size_t first_part, const Visitor& visitor,
                     const std::function<void(const Part&)>& done) {
    for (size_t first = first_part; first < parts_.size();) {
        size_t end = first;
        while (end < parts_.size() && parts_[end].boot == parts_[first].boot) {
            ++end;
        }
        if (!VisitBoot(first, end, visitor, done)) {
            return;
        }
        first = end;
    }
}

bool Timeline::VisitBoot(size_t first, size_t end, const Visitor& visitor,
                         const std::function<void(const Part&)>& done) {
    const bool replayed =
        std::any_of(parts_.begin() + static_cast<std::ptrdiff_t>(first),
                    parts_.begin() + static_cast<std::ptrdiff_t>(end),
                    [](const Part& part) { return part.before == Break::kRestart; });
    std::vector<size_t> waiting;  // ordered by their first line; opened when it is their turn
    for (size_t place = first; place < end; ++place) {
        waiting.push_back(place);
    }
    std::stable_sort(waiting.begin(), waiting.end(),
                     [this](size_t a, size_t b) { return parts_[a].from_ms < parts_[b].from_ms; });
    auto next = waiting.begin();
    std::vector<std::unique_ptr<Cursor>> open;  // in the order of the parts; each at a line
    Replays replays;
    std::vector<bool> begun(end - first, false);

    const auto finish = [&open, &done](size_t at) {
        const Part& part = open[at]->Owner();
        open.erase(open.begin() + static_cast<std::ptrdiff_t>(at));
        done(part);
    };
    for (;;) {
        // The earliest line; of several the one of the earlier part.
        size_t at = 0;
        for (size_t i = 1; i < open.size(); ++i) {
            at = open[i]->Current().time_ms < open[at]->Current().time_ms ? i : at;
        }
        if (next != waiting.end() &&
            (open.empty() || parts_[*next].from_ms <= open[at]->Current().time_ms)) {
            const size_t place = *next++;
            auto cursor =
                std::make_unique<Cursor>(openers_[place](), parts_[place], place, tables_[place]);
            const auto behind = std::find_if(open.begin(), open.end(), [place](const auto& other) {
                return other->Current().dump > place;
            });
            const auto added = open.insert(behind, std::move(cursor));
            if (!(*added)->Next()) {
                finish(static_cast<size_t>(added - open.begin()));
            }
            continue;
        }
        if (open.empty()) {
            return true;
        }
        // Until another one's turn has come, without looking at it for every line.
        const int64_t limit_ms = open.size() > 1         ? open[at]->Current().time_ms
                                 : next != waiting.end() ? parts_[*next].from_ms - 1
                                                         : INT64_MAX;
        Cursor& cursor = *open[at];
        bool more = true;
        do {
            const Line& line = cursor.Current();
            if (!replayed || !replays.Repeats(line, cursor.Owner())) {
                const size_t place = line.dump - first;
                const Break before = begun[place] ? Break::kNone : cursor.Owner().before;
                begun[place] = true;
                if (!visitor(line, before)) {
                    return false;
                }
            }
            more = cursor.Next();
        } while (more && cursor.Current().time_ms <= limit_ms);
        if (!more) {
            finish(at);
        }
    }
}
