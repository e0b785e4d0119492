#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "dump/statistics.h"
#include "dump/timeline.h"
#include "policy/code_tables.h"

// What `trelvoctl stat` found in dumps, as text and as JSON.
namespace trelvo {

// One of the dumps, in the order of the timeline's parts.
struct Measured {
    std::string host;
    std::optional<uint64_t> compressed_bytes;
    const CodeTables* tables = nullptr;
    std::optional<uint64_t> once;  // lines that no dump before shows, where that is known
    DumpStatistics statistics;
};

// Several dumps as one log.
struct Total {
    uint64_t lines = 0;
    uint64_t shared = 0;        // lines that dumps repeat
    int64_t span_ms = 0;        // what the dumps cover, without gaps between them
    uint64_t record_bytes = 0;  // of these and all further members: of each dump, repeats included
    uint64_t records = 0;
    uint64_t coded = 0;
    uint64_t bytes = 0;
    uint64_t text_bytes = 0;
    std::map<char, uint64_t> levels;
    Shares tags;
    Processes processes;
};

// `top`: how many tags and programs. `verbose`: also bytes by field, and every process.
void PrintDump(const std::string& name, const Measured& dump, size_t top, bool verbose);
// A row for each dump, in the order of the timeline's parts, below the total; without one where the
// dumps could not be read as one log. `verbose`: and each dump by itself.
void PrintTable(const Timeline& timeline, const std::vector<Measured>& dumps,
                const std::optional<Total>& total, size_t top, bool verbose);
// A line with one object.
void PrintJson(const std::string& name, const Measured& dump, size_t top);

}  // namespace trelvo
