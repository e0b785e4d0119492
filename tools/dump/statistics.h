#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dump/dump_reader.h"
#include "dump/timeline.h"

namespace trelvo {

class CodeTables;

// Records, and what they take in the dump, in bytes.
struct Share {
    uint64_t records = 0;
    uint64_t bytes = 0;

    void operator+=(const Share& other) {
        records += other.records;
        bytes += other.bytes;
    }
};

// By tag.
using Shares = std::map<std::string, Share, std::less<>>;
// By boot and PID, what a process logs under each tag.
using Processes = std::map<std::pair<size_t, int32_t>, Shares>;

// The processes that log most of their lines under one tag, with all that they log.
struct Program {
    std::string name;  // that tag
    size_t processes = 0;
    Share share;
};
[[nodiscard]] std::vector<Program> ProgramsOf(const Processes& processes);

// What a dump holds and what that costs. Of a damaged dump, of all that is whole.
struct DumpStatistics {
    static constexpr size_t kMostParts = 60;

    std::string policy_version;
    uint64_t bytes = 0;             // of the dump, not compressed
    uint64_t dictionary_bytes = 0;  // of the dictionary's entries
    int64_t first_ms = 0;           // kernel time of the first record and of the last
    int64_t last_ms = 0;
    std::optional<int64_t> first_boot_time_ms;  // since 1970, for the first record and for the last
    std::optional<int64_t> last_boot_time_ms;
    Share all;
    // Recognised by the tag's table; without tables, all whose message cannot be text.
    Share coded;
    // Of all records.
    uint64_t delta_bytes = 0;
    uint64_t header_bytes = 0;
    uint64_t length_bytes = 0;
    uint64_t message_bytes = 0;
    // Of the decoded lines, "SECONDS L/TAG(P pid, T tid): message" and a line end, with nothing
    // escaped or aligned. A code that no table explains counts as it stands.
    uint64_t text_bytes = 0;
    std::map<char, uint64_t> levels;  // records
    Shares tags;
    Processes processes;
    std::array<uint64_t, kMostParts> timeline{};  // records in each equal part of the span
    std::optional<DamageError> damage;

    [[nodiscard]] int64_t SpanMs() const { return last_ms - first_ms; }
};

// Reads the records of a dump that is part of a timeline; memory follows the size of its
// dictionary. `tables` are those of its policy version, or null. Throws std::system_error when it
// cannot be read.
[[nodiscard]] DumpStatistics MeasureDump(DumpReader& reader, const Part& part,
                                         const CodeTables* tables);

}  // namespace trelvo
