#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "patterns/comparison.h"

namespace trelvo {

// What changed in the log of a page against a good one, and which lines of the page belong to what.
class PageChanges {
public:
    // Takes the good side's lines before the page's.
    [[nodiscard]] Comparison& Sides() { return comparison_; }
    // The page's next line.
    void Add(const Line& line, std::optional<int64_t> boot_time_ms);
    // To be called once, after the last line.
    void Finish();

    // REQUIRES: Finish().
    // The number of the change that a line of the page belongs to, from 1; 0: to none.
    [[nodiscard]] uint32_t Of(size_t line) const { return changes_[numbers_[line]]; }
    // The changes in their order, the doubtful ones behind.
    [[nodiscard]] nlohmann::ordered_json ToJson() const;

private:
    Comparison comparison_;
    Differences found_;
    std::vector<uint32_t> numbers_;  // of each line of the page
    std::vector<uint32_t> changes_;  // by that number
};

}  // namespace trelvo
