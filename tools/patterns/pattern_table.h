#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dump/line.h"
#include "patterns/pattern_finder.h"

namespace trelvo {

// When a line was logged: milliseconds since boot, and the boot's own time since 1970 if known.
// What came first is told by the line's place in the log, as each boot may begin at 0.
struct PatternTime {
    int64_t time_ms = 0;
    std::optional<int64_t> boot_time_ms;
    uint64_t line = 0;  // from 0

    [[nodiscard]] int64_t Ms() const { return boot_time_ms.value_or(0) + time_ms; }
};

// The message that patterns are shown with: a code that cannot be translated as <code HEX>, in
// `room`.
[[nodiscard]] std::string_view MessageText(const Line& line, std::string& room);
// The message as a PatternFinder is to take it: all codes are one pattern, those in letters too.
[[nodiscard]] std::string_view FinderText(const Line& line);

// What the lines of one pattern have in common.
struct PatternRow {
    static constexpr size_t kParts = 32;

    uint64_t count = 0;
    std::map<char, uint64_t> levels;  // lines
    PatternTime first;
    PatternTime last;
    std::string tag;      // of the first line, as the example
    std::string example;  // up to kMaxExample bytes
    bool cut = false;     // the example is longer
    // Lines in equal parts of the log's span.
    std::array<uint64_t, kParts> timeline{};
    std::string text;   // of the pattern
    bool fold = false;  // see PatternFinder::IsFold

    // The most severe level: F, E, W, I or D.
    [[nodiscard]] char WorstLevel() const;
};

// The patterns of a log, one line after the other in order of time. Memory follows the number of
// patterns.
class PatternTable {
public:
    static constexpr size_t kMaxExample = 512;
    // What of a message is kept as an example: whole characters of up to kMaxExample bytes.
    [[nodiscard]] static std::string ExampleOf(std::string_view message);

    // `boot` is the place of the line's boot in the log. Returns the line's number, for Place().
    [[nodiscard]] uint32_t Add(const Line& line, std::optional<int64_t> boot_time_ms, size_t boot);
    // To be called once, after the last line. Orders the patterns by their count, those with as
    // many lines by their first line.
    void Finish();

    // REQUIRES: Finish().
    [[nodiscard]] const std::vector<std::unique_ptr<PatternRow>>& Rows() const { return rows_; }
    // The place of the pattern in Rows() that a number of Add() belongs to.
    [[nodiscard]] size_t Place(uint32_t number) const { return places_[finder_.Group(number)]; }
    // How much of the span each part of a timeline is, and how many parts there are.
    [[nodiscard]] int64_t PartMs() const { return part_ms_; }
    [[nodiscard]] size_t Parts() const { return part_ + 1; }

private:
    // The part of the timeline that a line belongs to; doubles the parts where they end too early.
    [[nodiscard]] size_t PartOf(const PatternTime& time, size_t boot);
    // Adds the rows of patterns that were merged to those that they were merged into.
    void Gather();

    PatternFinder finder_;
    std::vector<std::unique_ptr<PatternRow>> rows_;  // by number; null: gathered
    std::vector<size_t> places_;                     // by number
    size_t gather_at_ = 4096;                        // numbers
    int64_t part_ms_ = 1;
    size_t part_ = 0;
    int64_t at_ms_ = 0;                // since the first line
    std::optional<PatternTime> last_;  // of the line before
    size_t last_boot_ = 0;
    uint64_t lines_ = 0;
};

// The first parts of a timeline as blocks of eight heights, a blank for none.
[[nodiscard]] std::string Sparkline(const PatternRow& row, size_t parts);

}  // namespace trelvo
