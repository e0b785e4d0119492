#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/image.h"

namespace test_support {

// What the pipeline does with captured lines, written down once more: slow, without shared code,
// straight from the rules for lines and from docs/dump-format.md.
class LineModel {
public:
    // `codes`: the bytes that stand for a message, by tag and message.
    using Codes = std::map<std::pair<std::string, std::string>, Bytes>;
    LineModel(std::string version, Codes codes)
        : version_(std::move(version)), codes_(std::move(codes)) {}

    struct Line {
        int delta;  // milliseconds
        char level;
        std::string tag;
        int pid;
        int tid;
        std::string message;
    };
    // The fields of a line without blanks at its ends. Empty for a line older than `last_time`,
    // which moves to the time of any other, also of one that throws further on.
    static std::optional<Line> Split(std::string line, int& last_time);

    void SetLimit(size_t bytes) { limit_bytes_ = bytes; }
    // Returns "type: what()" of what the line makes the pipeline throw, "" otherwise.
    std::string Feed(const std::string& line);
    // The image; nothing is forgotten.
    [[nodiscard]] Bytes Dump() const;

private:
    void Encode(const std::string& text);

    std::string version_;
    Codes codes_;
    size_t limit_bytes_ = SIZE_MAX;
    std::deque<Bytes> records_;
    std::map<std::string, std::map<int, int>> dictionary_;  // "tag,pid" to thread to index
    int indexes_ = 0;
    int last_time_ = 0;  // milliseconds
};

}  // namespace test_support
