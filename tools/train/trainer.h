#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "train/keyed_hash.h"
#include "train/log_input.h"
#include "train/message_counts.h"
#include "train/policy_writer.h"
#include "train/record_cost.h"

namespace trelvo {

struct TrainingLimits {
    uint64_t least_count = 2;     // of a text that gets a code
    size_t most_entries = 65536;  // of a tag
};

// The code tables that were made of counts, and what they do for the lines that were counted.
struct Training {
    std::vector<TagTable> tables;  // ordered by tag, none empty; the texts are those of the counts
    std::vector<std::string> unfit_tags;  // have texts worth a code, but no policy can name them
    size_t entries = 0;
    double coded_lines = 0;
    double saved_bytes = 0;     // of the messages and their lengths
    uint64_t memory_bytes = 0;  // an estimate of what the service takes for the tables
};

// The counts must outlive the result. The result depends on the counts alone, not on the order in
// which they came.
[[nodiscard]] Training Train(const MessageCounts& counts, const TrainingLimits& limits);

// What a recorder keeps of an input's lines.
struct EvaluationTotals {
    uint64_t lines = 0;
    uint64_t refused = 0;      // time ran backwards: not recorded, and not counted elsewhere
    uint64_t coded = 0;        // lines with a code
    uint64_t text_bytes = 0;   // of all lines as text,
    uint64_t plain_bytes = 0;  // as records without tables,
    uint64_t coded_bytes = 0;  // and as records with them
};

// Measures code tables on lines, as a recorder would write them.
class Evaluation {
public:
    explicit Evaluation(const std::vector<TagTable>& tables);

    // Starts afresh, with no line seen.
    void BeginInput();
    void Add(const TrainingLine& line);

    [[nodiscard]] const EvaluationTotals& Totals() const { return totals_; }

private:
    std::unordered_map<std::string, size_t, KeyedHash> code_sizes_;  // by tag, zero byte and text
    std::string key_;  // spare room for the next look-up
    RecordModel model_;
    EvaluationTotals totals_;
};

}  // namespace trelvo
