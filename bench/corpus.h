#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

// Capture text of lines that start with a time of fixed width, so that the same lines can be fed
// again and again at times that never run backwards.
class Corpus {
public:
    // `lines` are capture lines. They are repeated until the text has `least_bytes`, each time with
    // other digits in the messages: a number that occurs twice in `lines` does so in each
    // repetition, but in no two of them is it the same. Tags, processes and the writer's prefix
    // stay. Each line is at the most 3 ms later than the one before, as on a busy device.
    Corpus(std::string name, const std::vector<std::string>& lines, size_t least_bytes);

    const std::string& Name() const { return name_; }
    size_t Size() const { return times_.size(); }
    // Without its line feed.
    std::string_view Line(size_t index) const;
    // All lines with their line feeds.
    const std::string& Text() const { return text_; }
    // Seconds from the first line to the last.
    double Span() const;
    // Shifts all times behind the last one. Throws std::runtime_error after four hours: then a
    // float, in which the recorder reads them, tells one millisecond from the next no more.
    void Advance();

private:
    void WriteTimes();

    std::string name_;
    std::vector<uint32_t> times_;  // ms after offset_
    uint32_t offset_;              // ms
    std::vector<size_t> starts_;   // of the lines in text_, and its end
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

// The lines of all files in turn, 50 of each, at times that do not run backwards.
std::vector<std::string> Interleave(const std::vector<std::vector<std::string>>& files);

}  // namespace bench
