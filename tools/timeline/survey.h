#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dump/dump_reader.h"

// What one pass over a dump finds out about its place among other dumps.
struct Survey {
    // One record, for comparison with those of other dumps.
    struct Print {
        uint64_t hash = 0;  // of all its fields
        int64_t ms = 0;     // since the first record
    };

    std::string version;
    int32_t last_log_time = 0;  // ms
    uint64_t records = 0;       // whole ones
    int64_t span_ms = 0;        // from the first to the last of them
    bool fresh = false;         // begins as a recorder does that has just started or been emptied
    int32_t first_delta_ms = 0;
    std::vector<Print> prints;  // of every record, where they were asked for
    std::optional<DumpError> damage;
};

// Reads a whole dump. Throws DumpError when not even its dictionary can be read.
[[nodiscard]] Survey TakeSurvey(ByteSource& source, bool with_prints);

// How many of the first records of `later` are the last ones of `earlier`, as when both dumps were
// taken of one buffer. A later dump that is cut off may lie within the earlier one as a whole.
struct Overlap {
    uint64_t records = 0;    // of the later dump; 0: none
    int64_t earlier_ms = 0;  // when the last of these was, counted from the earlier's first record
};
[[nodiscard]] Overlap FindOverlap(const Survey& earlier, const Survey& later);
