#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "dump/clock_line.h"
#include "dump/dump_reader.h"
#include "io/shared_limits.h"

namespace trelvo {

// What a clock line tells of the lines that follow it, in milliseconds.
struct ClockPoint {
    int64_t boot_time_ms = 0;  // since 1970
    int64_t monotonic_ms = 0;
};

// What the clock lines of a dump say. A dump is of one boot, since it is taken of memory: what its
// first clock line names is believed, and lines that name another boot are not clock lines.
class ClockLines {
public:
    // Whether the record is a clock line, which is then the last one.
    [[nodiscard]] bool Take(const Record& record) {
        return record.source.tag == kClockTag && Read(record);
    }

    // Both are empty until there is a clock line. Machines change their names: the last counts.
    [[nodiscard]] const std::string& Boot() const { return boot_; }
    [[nodiscard]] const std::string& Host() const { return host_; }
    [[nodiscard]] const std::optional<ClockPoint>& Last() const { return last_; }

private:
    [[nodiscard]] bool Read(const Record& record);

    std::string boot_;
    std::string host_;
    std::optional<ClockPoint> last_;
};

// What one pass over a dump finds out about its place among other dumps.
struct Survey {
    // One record, for comparison with those of other dumps.
    struct Print {
        uint32_t hash = 0;  // of all its fields
        int32_t ms = 0;     // since the first record
    };

    std::string version;
    int32_t last_log_time = 0;  // ms
    uint64_t records = 0;       // whole ones
    int64_t span_ms = 0;        // from the first to the last of them
    bool fresh = false;         // begins as a recorder does that has just started or been emptied
    int32_t first_delta_ms = 0;
    int64_t silence_ms = 0;  // the longest between two lines
    ClockLines clocks;       // after the last record
    std::optional<ClockPoint> first_clock;
    int64_t first_clock_ms = 0;  // when it was, since the first record
    int64_t late_ms = 0;  // by what the times of a damaged dump are too late, by its clock lines
    std::deque<Print> prints;  // of every record, where they were asked for
    MemoryCharge charge;       // of these, and of their search
    std::optional<DamageError> damage;
};

// Reads a whole dump, or as much of it as memory may be taken for. Throws DamageError when not even
// its dictionary can be read.
[[nodiscard]] Survey TakeSurvey(Input& input, bool with_prints);

// How many of the first records of `later` are the last ones of `earlier`, as when both dumps were
// taken of one buffer. A later dump that is cut off may lie within the earlier one as a whole.
struct Overlap {
    uint64_t records = 0;    // of the later dump; 0: none
    int64_t earlier_ms = 0;  // when the last of these was, counted from the earlier's first record
};
[[nodiscard]] Overlap FindOverlap(const Survey& earlier, const Survey& later);
// How many of the last records of `later` stand where `earlier` begins, as when a service that was
// started again has recorded more lines before them. The first record of each may have another
// time, so the earlier one's is not asked for.
[[nodiscard]] Overlap FindTail(const Survey& earlier, const Survey& later);

}  // namespace trelvo
