#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "dump/line.h"
#include "dump/survey.h"
#include "policy/code_tables.h"

namespace trelvo {

// A dump's share of a timeline.
struct Part {
    std::string name;  // for messages and output
    size_t boot = 0;   // 0 for the boot of the first dump; others in the order of their first
    Break before = Break::kNone;
    uint64_t skipped = 0;             // records at its beginning that dumps before it hold too
    uint64_t records = 0;             // all that are whole
    int64_t start_ms = 0;             // time of the first record
    int64_t from_ms = 0;              // time of the first one that is not skipped
    int64_t last_ms = 0;              // time of the last one
    int64_t silence_ms = 0;           // the longest between two of its lines
    std::optional<ClockPoint> clock;  // before its first line, or of the first clock line behind
    std::optional<ClockPoint> last_clock;
    std::optional<ClockPoint> own_clock;  // of the first clock line that it holds
    bool exact = true;                    // false: records are missing at the end
    bool latest = false;  // nothing tells since when, so times are the latest possible
    bool fresh = false;   // begins as a recorder does that has just started or been emptied
    int32_t first_delta_ms = 0;
    // Places in the timeline: of the part of this boot that it shares no records with and follows;
    // of the first part of those that overlap, where the times of none are sure; and of the first
    // part of what the recorder wrote since it was started.
    std::optional<size_t> after;
    size_t chain = 0;
    size_t run = 0;
    std::optional<DamageError> damage;
    uint64_t ambiguous = 0;  // translated messages whose codes are text as well; known once visited
    // When the machine booted, as far as the file's own time tells: milliseconds since 1970.
    std::optional<int64_t> boot_time_ms;

    // Time of the last line, also where the dump itself has none.
    [[nodiscard]] int64_t EndMs() const {
        return last_ms < kTimesEndMs || !last_clock ? last_ms
                                                    : std::max(last_ms, last_clock->monotonic_ms);
    }
};

// Several dumps as one log: in order of time, every line once.
//
// Dumps are added in the order in which they were written, those of one boot in a row. Of two that
// follow each other, those records of the later one that the earlier one ends with are skipped.
// Where the later one shares none, the break between them is classified. Boots and hosts are told
// apart by the clock lines, where there are any, or else by times. Within a boot the parts are
// merged by time since boot, hosts by wall clock. Holds a few bytes for each record of two dumps of
// a host, and no messages.
class Timeline {
public:
    // Called for each line, in order. `before` is the break in front of it; kNone for most lines.
    using Visitor = std::function<void(const Line& line, Break before)>;
    // Gives the bytes of a dump from their start, each time that it is called.
    using Opener = std::function<std::unique_ptr<Input>()>;
    using Done = std::function<void(const Part&)>;

    // `several`: more than one dump will be added, so overlaps have to be found. `one_boot`: they
    // are of one boot unless their clock lines say otherwise, whatever the times of their files.
    explicit Timeline(bool several, bool one_boot = false)
        : several_(several), one_boot_(one_boot) {}

    // Adds a dump that was written after those before. The tables must outlive the timeline; null
    // means none. Throws DamageError when the dump holds not even one whole dictionary,
    // std::system_error when it cannot be read.
    void Add(std::string name, const Opener& open, const CodeTables* tables);

    [[nodiscard]] const std::vector<Part>& Parts() const { return parts_; }
    [[nodiscard]] size_t Boots() const { return boots_.size(); }
    // The names of the machines, as clock lines tell; one empty name where none does.
    [[nodiscard]] std::set<std::string> Hosts() const;
    // As clock lines tell, or else made from what its first dump holds, so that the same dump has
    // the same each time: 32 hexadecimal digits.
    [[nodiscard]] std::string BootId(size_t boot) const;
    [[nodiscard]] const std::string& Host(size_t boot) const { return boots_[boot].host; }
    // The one whose lines are visited last. REQUIRES: there is one.
    [[nodiscard]] size_t LastBoot() const;
    // Whether clock lines tell the wall-clock time of a boot's lines.
    [[nodiscard]] bool HasClock(size_t boot) const { return boots_[boot].clock.has_value(); }
    // The earliest boot time that its dumps' own times allow: milliseconds since 1970.
    [[nodiscard]] std::optional<int64_t> BootTime(size_t boot) const;

    // Visits the lines of all parts from this one on. `done` is called for each part once its last
    // line was visited. Throws std::system_error when a dump cannot be read again.
    void Visit(size_t first_part, const Visitor& visitor, const Done& done);

private:
    class Cursor;
    class Replays;
    class BootLines;
    class HostLines;

    struct Boot {
        std::string id;  // empty where no clock line tells
        std::string host;
        std::optional<ClockPoint> clock;  // the first
    };
    // The dump that the next one of a host may go on from.
    struct Last {
        size_t part = 0;
        Survey survey;
    };

    // Finds which boot a dump is of, and what it follows.
    void Place(Part& part, Survey survey);
    // Whether the part is of the same boot as the one before; tells where they meet.
    [[nodiscard]] bool Link(Part& part, const Survey& survey, const Last& last);
    // Finds out what lies between a part and the one that it follows, whose times it may bound.
    void Settle(Part& part);
    // Moves a part in time; `exact`: to where it is known to belong.
    static void Shift(Part& part, int64_t ms, bool exact);
    void ShiftChain(size_t chain, int64_t ms, bool exact);
    // Takes over the clock of the part that this one goes on from.
    static void GoOn(Part& part, const Part& before);
    // Wall-clock time of the last line of a boot with clock lines.
    [[nodiscard]] int64_t EndOf(size_t boot) const;
    // By their ends, when a clock that was wrong at the start has been set. Without clock lines as
    // they were added.
    void PutInOrder(std::vector<size_t>& boots) const;

    bool several_;
    bool one_boot_;
    std::vector<Part> parts_;
    std::vector<Opener> openers_;            // for each part
    std::vector<const CodeTables*> tables_;  // for each part
    std::vector<Boot> boots_;
    std::map<std::string, Last> last_;  // by host
    std::string last_host_;             // of the last dump with lines
};

}  // namespace trelvo
