#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <queue>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "dump/timeline.h"
#include "text/escape.h"

// Visiting the lines of a timeline: the parts of a boot are merged by time since boot, those of a
// machine follow each other, and machines are merged by wall clock.
namespace trelvo {

namespace {

// A message as it is shown: translated, where the tables have it as a code.
void Translate(const Record& record, const CodeTables* tables, bool may_be_code, Line& line) {
    line.kind = Line::Message::kText;
    line.message = record.message;
    if (tables != nullptr) {
        if (const auto text = tables->Message(record.source.tag, record.message)) {
            line.kind = Line::Message::kTranslated;
            line.message = *text;
        }
    } else if (may_be_code && !IsText(record.message)) {
        line.kind = Line::Message::kCode;
    }
}

}  // namespace

// When the next line of each of several is due: time and place, the earliest on top.
using Turns = std::priority_queue<std::pair<int64_t, size_t>,
                                  std::vector<std::pair<int64_t, size_t>>, std::greater<>>;

// Goes through the lines of one part that are not skipped.
class Timeline::Cursor {
public:
    Cursor(std::unique_ptr<Input> input, Part& part, size_t place, const CodeTables* tables,
           const std::optional<ClockPoint>& clock)
        : input_(std::move(input)),
          reader_(*input_),
          tables_(tables),
          may_be_code_(!reader_.PolicyVersion().empty()),
          part_(&part),
          clock_(clock) {
        line_.dump = place;
        told_ms_ = part.start_ms;
        while (read_ < part.skipped && Read()) {
        }
    }

    // False when there is none left.
    [[nodiscard]] bool Next() {
        if (!Read()) {
            return false;
        }
        line_.level = record_.level;
        line_.source = record_.source;
        line_.time_ms = told_ms_;
        if (clock_) {
            line_.boot_time_ms = clock_->boot_time_ms;
            if (told_ms_ >= kTimesEndMs) {
                line_.time_ms = std::max(told_ms_, clock_->monotonic_ms);
            }
        }
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
        told_ms_ += read_++ == 0 ? 0 : record_.delta_ms;
        line_.clock = clocks_.Take(record_);
        if (line_.clock) {
            clock_ = clocks_.Last();
        }
        return true;
    }

    std::unique_ptr<Input> input_;
    DumpReader reader_;
    const CodeTables* tables_;
    bool may_be_code_;
    Part* part_;
    Record record_;
    ClockLines clocks_;
    std::optional<ClockPoint> clock_;  // in force at the line
    int64_t told_ms_ = 0;              // the line's time, as the dump tells it
    Line line_;
    uint64_t read_ = 0;
};

// Finds the lines that a service recorded once more after a restart: those that another part has
// shown at the same time. Keeps only the lines of one millisecond and, since after 24.8 days all
// have one time, not many of them: what is beyond is shown again.
class Timeline::Replays {
public:
    // True for a line that was shown already.
    [[nodiscard]] bool Repeats(const Line& line, const Part& part, bool replayed) {
        if (line.time_ms != time_ms_) {
            time_ms_ = line.time_ms;
            counts_.clear();
            bytes_ = 0;
        }
        Key key{line.level, std::string(line.source.tag), line.source.pid, line.source.tid,
                std::string(line.message)};
        auto found = counts_.find(key);
        if (found == counts_.end()) {
            if (bytes_ > kMostBytes) {
                return false;
            }
            bytes_ += kNodeBytes + line.source.tag.size() + line.message.size();
            found = counts_.try_emplace(std::move(key)).first;
        }
        Count& count = found->second;
        if (replayed) {
            auto of_run = count.of_run.find(part.run);
            if (of_run == count.of_run.end()) {
                if (bytes_ > kMostBytes) {
                    return false;
                }
                bytes_ += kNodeBytes;
                of_run = count.of_run.try_emplace(part.run).first;
            }
            if (++of_run->second <= count.shown) {
                return true;
            }
        }
        ++count.shown;
        return false;
    }

private:
    static constexpr size_t kMostBytes = size_t{4} << 20;
    static constexpr size_t kNodeBytes = 192;  // of a map, with its key and count

    using Key = std::tuple<char, std::string, int32_t, int32_t, std::string>;

    struct Count {
        uint64_t shown = 0;
        std::map<size_t, uint64_t> of_run;  // whether shown or not
    };

    int64_t time_ms_ = -1;
    size_t bytes_ = 0;  // what the counts take
    std::map<Key, Count> counts_;
};

// The lines of a boot, or of those of its parts that are given, ordered by time since boot.
class Timeline::BootLines {
public:
    // The timeline must outlive this.
    BootLines(Timeline& timeline, std::vector<size_t> places, const Done& done)
        : timeline_(timeline),
          waiting_(std::move(places)),
          done_(done),
          begun_(timeline.parts_.size(), false) {
        const std::vector<Part>& parts = timeline_.parts_;
        replayed_ = std::any_of(waiting_.begin(), waiting_.end(), [&parts](size_t place) {
            return parts[parts[place].run].before == Break::kRestart;
        });
        std::stable_sort(waiting_.begin(), waiting_.end(), [&parts](size_t a, size_t b) {
            return parts[a].from_ms < parts[b].from_ms;
        });
    }

    // False when there is none left.
    [[nodiscard]] bool Next() {
        do {
            if (at_ != nullptr && !at_->Next()) {
                Finish(*at_);
                at_ = nullptr;
            } else if (at_ != nullptr && at_->Current().time_ms > limit_ms_) {
                turns_.emplace(at_->Current().time_ms, at_->Current().dump);
                at_ = nullptr;
            }
            if (at_ == nullptr && !Choose()) {
                return false;
            }
        } while (replayed_ && Repeats(at_->Owner()));
        const size_t place = Current().dump;
        before_ = begun_[place] ? Break::kNone : at_->Owner().before;
        begun_[place] = true;
        return true;
    }

    [[nodiscard]] const Line& Current() const { return at_->Current(); }
    // The break in front of the line.
    [[nodiscard]] Break Before() const { return before_; }

private:
    [[nodiscard]] bool Repeats(const Part& part) {
        return replays_.Repeats(Current(), part,
                                timeline_.parts_[part.run].before == Break::kRestart);
    }

    void Finish(const Cursor& cursor) {
        const Part& part = cursor.Owner();
        open_.erase(cursor.Current().dump);
        done_(part);
    }

    // Finds the earliest line; of several the one of the earlier part.
    bool Choose() {
        const std::vector<Part>& parts = timeline_.parts_;
        for (;;) {
            const bool more = next_ < waiting_.size();
            if (more && (turns_.empty() || parts[waiting_[next_]].from_ms <= turns_.top().first)) {
                Open(waiting_[next_++]);
                continue;
            }
            if (turns_.empty()) {
                return false;
            }
            const size_t place = turns_.top().second;
            turns_.pop();
            at_ = open_[place].get();
            limit_ms_ = more ? parts[waiting_[next_]].from_ms - 1 : INT64_MAX;
            if (!turns_.empty()) {
                const auto [time_ms, other] = turns_.top();
                limit_ms_ = std::min(limit_ms_, other < place ? time_ms - 1 : time_ms);
            }
            return true;
        }
    }

    void Open(size_t place) {
        Part& part = timeline_.parts_[place];
        try {
            auto cursor = std::make_unique<Cursor>(
                timeline_.openers_[place](), part, place, timeline_.tables_[place],
                part.clock ? part.clock : timeline_.boots_[part.boot].clock);
            Cursor& added = *open_.emplace(place, std::move(cursor)).first->second;
            if (added.Next()) {
                turns_.emplace(added.Current().time_ms, place);
            } else {
                Finish(added);
            }
        } catch (const DamageError& error) {
            // By itself it was whole: what it needs is too much beside all that are open.
            throw DamageError(error.Offset(), std::string(error.what()) + " (" + part.name +
                                                  "; read fewer dumps at a time)");
        }
    }

    Timeline& timeline_;
    std::vector<size_t> waiting_;  // ordered by their first line; opened when it is their turn
    size_t next_ = 0;              // in waiting_
    std::map<size_t, std::unique_ptr<Cursor>> open_;  // by place; each at a line
    Turns turns_;                                     // of all but the one whose turn it is
    Cursor* at_ = nullptr;                            // that one, while there is one
    int64_t limit_ms_ = 0;                            // up to here its lines come first
    const Done& done_;
    bool replayed_ = false;
    Replays replays_;
    std::vector<bool> begun_;  // for each part
    Break before_ = Break::kNone;
};

// The lines of a machine, one boot after the other.
class Timeline::HostLines {
public:
    // `boots`: the parts of each, in order. `going_on`: lines before them were visited already.
    HostLines(Timeline& timeline, std::vector<std::vector<size_t>> boots, bool going_on,
              const Done& done)
        : timeline_(timeline), boots_(std::move(boots)), done_(done), going_on_(going_on) {}

    // False when there is none left.
    [[nodiscard]] bool Next() {
        while (!lines_ || !lines_->Next()) {
            if (next_ == boots_.size()) {
                return false;
            }
            const std::vector<size_t>& places = boots_[next_++];
            boot_time_ms_ = timeline_.BootTime(timeline_.parts_[places.front()].boot).value_or(0);
            lines_.emplace(timeline_, places, done_);
            begins_ = true;
        }
        before_ = lines_->Before();
        if (begins_) {
            if (any_) {
                before_ = Break::kReboot;
            } else if (before_ == Break::kReboot && !going_on_) {
                before_ = Break::kNone;
            }
        }
        begins_ = false;
        any_ = true;
        return true;
    }

    [[nodiscard]] const Line& Current() const { return lines_->Current(); }
    [[nodiscard]] Break Before() const { return before_; }
    [[nodiscard]] int64_t WallMs() const {
        return Current().boot_time_ms.value_or(boot_time_ms_) + Current().time_ms;
    }

private:
    Timeline& timeline_;
    std::vector<std::vector<size_t>> boots_;
    size_t next_ = 0;  // in boots_
    const Done& done_;
    bool going_on_;
    bool any_ = false;          // lines
    bool begins_ = false;       // the boot
    int64_t boot_time_ms_ = 0;  // by the files' times
    std::optional<BootLines> lines_;
    Break before_ = Break::kNone;
};

void Timeline::PutInOrder(std::vector<size_t>& boots) const {
    if (std::all_of(boots.begin(), boots.end(), [this](size_t boot) { return HasClock(boot); })) {
        std::stable_sort(boots.begin(), boots.end(),
                         [this](size_t a, size_t b) { return EndOf(a) < EndOf(b); });
    }
}

size_t Timeline::LastBoot() const {
    std::vector<size_t> boots(boots_.size());
    std::iota(boots.begin(), boots.end(), size_t{0});
    PutInOrder(boots);
    return boots.back();
}

void Timeline::Visit(size_t first_part, const Visitor& visitor, const Done& done) {
    std::vector<std::vector<size_t>> places(boots_.size());
    for (size_t place = first_part; place < parts_.size(); ++place) {
        places[parts_[place].boot].push_back(place);
    }
    std::map<std::string, std::vector<size_t>> boots;  // by host
    for (size_t boot = 0; boot < places.size(); ++boot) {
        if (!places[boot].empty()) {
            boots[boots_[boot].host].push_back(boot);
        }
    }
    std::vector<std::unique_ptr<HostLines>> hosts;  // each at a line
    for (auto& [host, of_host] : boots) {
        PutInOrder(of_host);
        std::vector<std::vector<size_t>> in_order;
        for (const size_t boot : of_host) {
            in_order.push_back(places[boot]);
        }
        auto lines = std::make_unique<HostLines>(*this, std::move(in_order), first_part > 0, done);
        if (lines->Next()) {
            hosts.push_back(std::move(lines));
        }
    }
    Turns turns;
    for (size_t host = 0; host < hosts.size(); ++host) {
        turns.emplace(hosts[host]->WallMs(), host);
    }
    while (!turns.empty()) {
        const size_t host = turns.top().second;
        turns.pop();
        HostLines& lines = *hosts[host];
        visitor(lines.Current(), lines.Before());
        if (lines.Next()) {
            turns.emplace(lines.WallMs(), host);
        }
    }
}

}  // namespace trelvo
