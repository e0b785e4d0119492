#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

// Capture text as single lines without line feed, each starting with a time of fixed width, so that
// the same lines can be fed again and again at times that never run backwards.
class Corpus {
public:
    // `lines` are capture lines; their times are kept but for a common offset. Lines that start
    // with no number get the time of the line before.
    Corpus(std::string name, std::vector<std::string> lines);

    const std::string& Name() const { return name_; }
    std::vector<std::string>& Lines() { return lines_; }
    const std::vector<std::string>& Lines() const { return lines_; }
    // All lines with their line feeds.
    const std::string& Text() const { return text_; }
    // Seconds from the first line to the last.
    double Span() const;
    // The same lines, none more than 100 ms after the one before, so that they can be fed more
    // often.
    Corpus Denser() const;
    // Shifts all times of Lines() behind the last one. Returns false when the fixed width is used
    // up: the times then start over, and the recorder must have been reset.
    bool Advance();

private:
    void WriteTimes();

    std::string name_;
    std::vector<uint32_t> times_;  // ms after offset_
    uint32_t offset_;              // ms
    std::vector<std::string> lines_;
    std::string text_;
};

struct GeneratorSettings {
    // Share of the lines whose message is one of `texts` fixed ones; the others carry numbers.
    double verbatim_share = 0.6;
    size_t texts = 3000;
    size_t sources = 150;  // tag, process and thread
};

// Makes lines like a device's: message texts and sources drawn by Zipf's law, times in bursts.
// The same seeds give the same lines everywhere.
class Generator {
public:
    explicit Generator(const GeneratorSettings& settings);

    // Lines of one run of the device; another `seed` is another run of the same software.
    std::vector<std::string> Lines(size_t count, uint64_t seed) const;

private:
    struct Source {
        std::string header;  // "TAG  (P 1234, T 1240): "
        size_t module;
    };
    struct Text {
        std::string prefix;  // "power.c: resume(52) > "
        std::string text;    // '#' stands for a number where the text is not used verbatim
        char level;
    };

    GeneratorSettings settings_;
    std::vector<std::vector<Text>> texts_;  // by module, the most frequent first
    std::vector<Source> sources_;           // the most frequent first
};

// The lines of a capture file; throws std::runtime_error, naming the file.
std::vector<std::string> ReadLines(const std::string& path);

// The first and the second half of the lines: what tables are trained on, and what is recorded.
std::pair<std::vector<std::string>, std::vector<std::string>> Halves(
    const std::vector<std::string>& lines);

}  // namespace bench
