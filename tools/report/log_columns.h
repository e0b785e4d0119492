#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dump/timeline.h"
#include "patterns/pattern_table.h"
#include "text/line_format.h"

namespace trelvo {

// Lines of a log, in blocks of columns, as the page unpacks them.
//
// A message is the exact text of its form, a pattern with the blanks that the message has, and the
// values in its wildcards; values in one place of one form are alike and stand next to each other,
// and so do the sources, what lines have in common (kSourceFields), of one form's lines.
//
//   columns   times       n zigzag LEB128: milliseconds since the line before, of the first of all
//                         lines since 1970 or since boot
//             forms       the form of each line: the lowest bytes of all, ..., the fourth of all
//             sources     likewise, lines ordered by form
//   text      for each form in use, for each of its places: the values, a line feed behind each
//
// All text is UTF-8 without line feeds, as AppendUtf8 makes it. Holds one block of lines.
class LogColumns {
public:
    static constexpr size_t kBlockLines = 65536;

    struct Block {
        size_t lines = 0;
        std::string columns;
        std::string text;
    };
    using Taker = std::function<void(const Block&)>;

    // The table has to be finished, and outlive this.
    LogColumns(const PatternTable& table, Taker taker);

    // `pattern` is the line's place in the rows of the table; nothing: it is in none of them.
    // `change` is the number of what changed that it belongs to; 0: to nothing.
    void Add(const Line& line, const LineContext& context, std::optional<size_t> pattern,
             uint32_t change);
    // Hands over the lines that are left.
    void Finish();

    // What the columns refer to: tags, sources, patterns, forms; and the breaks between lines,
    // among them "clock set", with what the clocks were set by.
    [[nodiscard]] nlohmann::ordered_json Tables() const;
    [[nodiscard]] uint64_t Lines() const { return lines_; }

private:
    static constexpr size_t kMaxForms = 16;          // of a pattern
    static constexpr size_t kMaxFormMessage = 4096;  // bytes that are compared with a pattern

    struct PatternForms {
        std::vector<size_t> forms;
        std::optional<size_t> whole;  // takes every message as one value
    };
    struct Form {
        size_t pattern = 0;
        std::vector<std::string> pieces;  // around the values
        // Of the block at hand.
        std::vector<uint32_t> sources;
        std::vector<std::string> values;
    };
    // Latest: 1 where times are the latest possible.
    static constexpr std::array kSourceFields{"level", "tag",    "pid",   "tid",
                                              "boot",  "latest", "change"};
    using Source = std::array<int64_t, kSourceFields.size()>;

    // The form that the message has; leaves its values in values_.
    [[nodiscard]] size_t FormOf(std::string_view message, size_t pattern);
    [[nodiscard]] size_t AddForm(size_t pattern, std::vector<std::string> pieces);
    [[nodiscard]] uint32_t SourceOf(const Line& line, const LineContext& context, uint32_t change);

    Taker taker_;
    std::vector<std::string> patterns_;  // their texts; one more for none
    std::vector<PatternForms> pattern_forms_;
    std::vector<Form> forms_;
    std::map<std::string, size_t, std::less<>> tags_;
    std::map<Source, uint32_t> sources_;
    nlohmann::ordered_json marks_ = nlohmann::ordered_json::array();
    nlohmann::ordered_json clocks_set_ = nlohmann::ordered_json::array();  // lines, by milliseconds
    std::vector<std::string_view> values_;
    std::string message_;
    std::vector<std::optional<int64_t>> boot_times_;  // by boot, as of its last line
    uint64_t lines_ = 0;
    int64_t last_ms_ = 0;
    std::string times_;
    std::vector<uint32_t> line_forms_;
};

}  // namespace trelvo
