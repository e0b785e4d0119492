#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dump/line.h"
#include "patterns/pattern_finder.h"
#include "patterns/pattern_table.h"
#include "patterns/rate_test.h"

namespace trelvo {

// Lines of one pattern, tag and level on one side of a comparison.
struct SideCount {
    // Equal parts of the side's time, of which between the half and all are in use.
    static constexpr size_t kSlices = 64;

    uint64_t count = 0;
    PatternTime first;
    PatternTime last;
    std::array<uint32_t, kSlices> slices{};
};

// What differs between the two sides in the lines of one pattern, tag and level.
struct Change {
    enum class Kind {
        kNew,    // on the bad side only
        kGone,   // on the good side only
        kMore,   // more frequent on the bad side
        kLess,   // less frequent
        kBurst,  // more at one time than the good side ever has
        kLevel,  // new at this level, while the good side has it at another
    };

    Kind kind = Kind::kNew;
    char level = 0;
    char old_level = 0;  // of kLevel: what most lines of the good side have
    std::string tag;
    std::string text;     // of the pattern
    std::string example;  // of the bad side, if it has any; up to PatternTable::kMaxExample bytes
    bool cut = false;     // the example is longer
    SideCount good;
    SideCount bad;
    // Of the first line on the bad side; of a burst, when it begins, to a 32nd of the side's time;
    // of what is gone, of the last line on the good side.
    PatternTime time;
    double ratio = 0;   // of the rates, bad by good; 0 where the good side has none
    double chance = 0;  // that it comes about by chance, as a share of all that is compared
    std::vector<uint32_t> numbers;  // that Comparison::Add() gave its lines

    [[nodiscard]] bool Falls() const { return kind == Kind::kGone || kind == Kind::kLess; }
};

struct Differences {
    std::vector<Change> changes;   // the most telling first
    std::vector<Change> doubtful;  // what chance may explain, the least likely first
};

// One side as a whole.
struct ComparedSide {
    uint64_t lines = 0;
    int64_t span_ms = 0;  // of all its dumps together, without what lies between them
};

// Tells what of a log's patterns is new, gone, or more or less frequent in another log than chance
// explains (docs/patterns.md has the test). First all lines of the good side, then those of the bad
// one, each in order of time. Memory follows the number of patterns; tags are told apart as long as
// there are at most kMaxRows patterns, tags and levels.
class Comparison {
public:
    enum Side : size_t { kGood, kBad };
    static constexpr size_t kMaxRows = 50000;

    // The line's number, by which Change::numbers tells the lines of a change.
    uint32_t Add(Side side, const Line& line, std::optional<int64_t> boot_time_ms);
    // To be called once, after the last line. The most telling change comes first.
    [[nodiscard]] Differences Finish();

    [[nodiscard]] const ComparedSide& Of(Side side) const { return sides_[side].all; }
    // REQUIRES: Finish(). Patterns, each tag and level for itself; and by what factor the bad side
    // has more of most of them.
    [[nodiscard]] size_t Rows() const { return rows_.size(); }
    [[nodiscard]] double UsualRatio() const { return usual_share_; }
    // Whether there were too many rows for all tags.
    [[nodiscard]] bool Folded() const { return folded_; }

private:
    struct Row {
        uint32_t number = 0;  // of the pattern
        uint32_t tag = 0;
        std::vector<uint32_t> line_numbers;  // its own, and of rows that were merged into it
        char level = 0;
        std::string example;
        bool cut = false;
        bool example_of_bad = false;
        std::array<SideCount, 2> sides;
        // Of the test.
        double good_burst = 1;
        double burst = 1;            // of both sides
        std::optional<size_t> peak;  // the slice that tells more than the rate
        double chance = 1;
    };
    struct SideState {
        ComparedSide all;
        int64_t slice_ms = 1;
        std::array<PatternTime, SideCount::kSlices> slice_begins{};
        size_t slices_begun = 0;
        std::unordered_map<size_t, int64_t> last_ms;  // by dump
    };
    using Key = std::pair<uint64_t, char>;  // number and tag, level

    [[nodiscard]] Row& RowOf(uint32_t number, const std::string& tag, char level);
    [[nodiscard]] uint32_t TagOf(const std::string& tag);
    [[nodiscard]] size_t SliceOf(Side side, const Line& line, const PatternTime& time);
    void Gather();
    [[nodiscard]] SliceCounts Slices(Side side, const SideCount& counts) const;
    // How many lines the bad side has for each of the good one, by time and by most patterns.
    [[nodiscard]] double TimeShare() const;
    [[nodiscard]] double UsualShare() const;
    [[nodiscard]] double UsualBurst() const;
    void Test();
    [[nodiscard]] Change ChangeOf(const Row& row) const;

    PatternFinder finder_;
    std::map<std::string, uint32_t, std::less<>> tags_;
    std::vector<std::string> tag_names_;
    std::map<Key, std::unique_ptr<Row>> rows_;
    size_t gather_at_ = 4096;  // numbers
    uint32_t line_numbers_ = 0;
    std::array<SideState, 2> sides_;
    double usual_share_ = 1;
    bool folded_ = false;
};

}  // namespace trelvo
