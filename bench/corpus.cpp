#include "corpus.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr size_t kTimeWidth = 9;           // "12345.678"
constexpr uint32_t kFirstTime = 10000000;  // ms; the least and the most of this width
constexpr uint32_t kLastTime = 99999999;

using Random = std::mt19937_64;

// The standard distributions may differ from library to library; these do not.
double Uniform(Random& random) {
    return static_cast<double>(random() >> 11) * 0x1p-53;
}

size_t Below(Random& random, size_t limit) {
    return static_cast<size_t>(Uniform(random) * static_cast<double>(limit));
}

// Draws 0, 1, 2, ... with shares of 1, 1/2, 1/3, ...
class Zipf {
public:
    explicit Zipf(size_t count) {
        double sum = 0;
        for (size_t rank = 1; rank <= count; ++rank) {
            sum += 1.0 / static_cast<double>(rank);
            sums_.push_back(sum);
        }
    }

    size_t operator()(Random& random) const {
        const auto at =
            std::upper_bound(sums_.begin(), sums_.end(), Uniform(random) * sums_.back());
        return std::min(static_cast<size_t>(at - sums_.begin()), sums_.size() - 1);
    }

private:
    std::vector<double> sums_;
};

std::string Word(Random& random) {
    static constexpr std::array<const char*, 24> kSyllables = {
        "con", "net",   "dis",  "play", "ser", "vice", "pow",  "er",  "man", "ag", "sta", "tus",
        "re",  "quest", "hand", "ler",  "in",  "it",   "time", "out", "be",  "la", "nis", "ko"};
    std::string word;
    const size_t syllables = 1 + Below(random, 3);
    for (size_t i = 0; i < syllables; ++i) {
        word += kSyllables[Below(random, kSyllables.size())];
    }
    return word;
}

char LevelLetter(Random& random) {
    static constexpr std::string_view kLevels = "DDDDDDDIIIIIIIIIWWEE";
    return kLevels[Below(random, kLevels.size())];
}

// Milliseconds of the fixed-width time that WriteTime writes, or of any other number.
double ParseSeconds(const std::string& line, size_t& end) {
    char* rest = nullptr;
    const double seconds = std::strtod(line.c_str(), &rest);
    end = static_cast<size_t>(rest - line.c_str());
    return seconds;
}

}  // namespace

Corpus::Corpus(std::string name, std::vector<std::string> lines)
    : name_(std::move(name)), offset_(kFirstTime), lines_(std::move(lines)) {
    double first = -1;
    for (std::string& line : lines_) {
        size_t end = 0;
        const double seconds = ParseSeconds(line, end);
        first = first < 0 && end != 0 ? seconds : first;
        uint32_t time = times_.empty() ? 0 : times_.back();
        if (end != 0 && seconds > first) {
            time = std::max(time, static_cast<uint32_t>(std::lround((seconds - first) * 1000)));
        }
        times_.push_back(time);
        line.replace(0, end, kTimeWidth, '0');
    }
    WriteTimes();
    for (const std::string& line : lines_) {
        text_ += line + '\n';
    }
}

double Corpus::Span() const {
    return times_.empty() ? 0 : times_.back() / 1000.0;
}

Corpus Corpus::Denser() const {
    constexpr uint32_t kMostGap = 100;  // ms
    Corpus denser(*this);
    for (size_t i = 1; i < times_.size(); ++i) {
        denser.times_[i] = denser.times_[i - 1] + std::min(times_[i] - times_[i - 1], kMostGap);
    }
    denser.WriteTimes();
    return denser;
}

bool Corpus::Advance() {
    const uint32_t next = offset_ + (times_.empty() ? 0 : times_.back()) + 1;
    const bool fits = next + times_.back() <= kLastTime;
    offset_ = fits ? next : kFirstTime;
    WriteTimes();
    return fits;
}

void Corpus::WriteTimes() {
    for (size_t i = 0; i < lines_.size(); ++i) {
        const uint32_t time = offset_ + times_[i];
        char text[24];
        static_cast<void>(std::snprintf(text, sizeof text, "%05u.%03u", time / 1000, time % 1000));
        lines_[i].replace(0, kTimeWidth, text, kTimeWidth);
    }
}

Generator::Generator(const GeneratorSettings& settings) : settings_(settings) {
    constexpr size_t kModules = 40;
    Random random(1);
    std::vector<std::string> tags;
    std::vector<std::string> files;
    for (size_t i = 0; i < kModules; ++i) {
        const std::string word = Word(random);
        files.push_back(word + (i % 2 == 0 ? "_manager.c" : ".cpp"));
        std::string tag = word + "_" + Word(random);
        std::transform(tag.begin(), tag.end(), tag.begin(),
                       [](char c) { return static_cast<char>(c == '_' ? c : c - 'a' + 'A'); });
        tags.push_back(tag);
    }
    texts_.resize(kModules);
    for (size_t i = 0; i < settings.texts; ++i) {
        const size_t module = i % kModules;
        Text text;
        text.prefix = files[module] + ": " + Word(random) + "_" + Word(random) + "(" +
                      std::to_string(20 + Below(random, 2000)) + ") > ";
        const size_t words = 4 + Below(random, 16);
        for (size_t word = 0; word < words; ++word) {
            text.text += (word == 0 ? "" : " ") + Word(random);
            if (Below(random, 4) == 0) {
                text.text += "=#";
            }
        }
        text.level = LevelLetter(random);
        texts_[module].push_back(std::move(text));
    }
    for (size_t i = 0; i < settings.sources; ++i) {
        const size_t module = Below(random, kModules);
        const size_t pid = 300 + i / 3;
        char header[96];
        static_cast<void>(std::snprintf(header, sizeof header, "%-12s(P%5zu, T%5zu): ",
                                        tags[module].c_str(), pid, pid + i % 3));
        sources_.push_back({header, module});
    }
}

std::vector<std::string> Generator::Lines(size_t count, uint64_t seed) const {
    Random random(seed);
    const Zipf draw_source(sources_.size());
    std::vector<Zipf> draw_text;
    for (const auto& texts : texts_) {
        draw_text.emplace_back(std::max<size_t>(texts.size(), 1));
    }
    std::vector<std::string> lines;
    lines.reserve(count);
    uint64_t time = kFirstTime;
    size_t burst = 0;
    for (size_t i = 0; i < count; ++i) {
        // A burst of lines within the same few milliseconds, then a pause.
        if (burst == 0) {
            burst = 1 + Below(random, 40);
            time += Below(random, 50);
        }
        --burst;
        time += Below(random, 8) == 0 ? 1 : 0;

        const Source& source = sources_[draw_source(random)];
        const auto& texts = texts_[source.module];
        const Text& text = texts[draw_text[source.module](random)];
        const bool verbatim = Uniform(random) < settings_.verbatim_share;
        std::string line;
        char start[32];
        static_cast<void>(std::snprintf(start, sizeof start, "%05zu.%03zu %c/",
                                        static_cast<size_t>(time / 1000),
                                        static_cast<size_t>(time % 1000), text.level));
        line += start + source.header + text.prefix;
        for (const char c : text.text) {
            if (c == '#') {
                line += verbatim ? "on" : std::to_string(Below(random, 100000));
            } else {
                line += c;
            }
        }
        if (!verbatim) {
            line += " id " + std::to_string(Below(random, 1000000));
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    if (lines.empty()) {
        throw std::runtime_error(path + ": cannot be read or is empty");
    }
    return lines;
}

std::pair<std::vector<std::string>, std::vector<std::string>> Halves(
    const std::vector<std::string>& lines) {
    const auto middle = lines.begin() + static_cast<std::ptrdiff_t>(lines.size() / 2);
    return {{lines.begin(), middle}, {middle, lines.end()}};
}

}  // namespace bench
