#include "corpus.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace bench {

namespace {

constexpr size_t kTimeWidth = 9;         // "01234.567"
constexpr uint32_t kFirstTime = 100000;  // ms
constexpr uint32_t kLastTime = 14400000;
constexpr uint32_t kMaxGap = 3;

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

// The number that the line starts with, and where it ends; 0 where there is none.
double ParseSeconds(const std::string& line, size_t& end) {
    char* rest = nullptr;
    const double seconds = std::strtod(line.c_str(), &rest);
    end = static_cast<size_t>(rest - line.c_str());
    return seconds;
}

bool IsAlphanumeric(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Replaces the digits in the words of the message; the same word by the same in one repetition.
void RenewNumbers(std::string& line, size_t repetition) {
    const size_t arrow = line.find(" > ");
    size_t at = arrow == std::string::npos ? line.size() : arrow;
    while (at < line.size()) {
        size_t end = at;
        uint64_t hash = 0xcbf29ce484222325 ^ repetition;  // FNV-1a
        for (; end < line.size() && IsAlphanumeric(line[end]); ++end) {
            hash = (hash ^ static_cast<unsigned char>(line[end])) * 0x100000001b3;
        }
        for (; at < end; ++at) {
            if (IsDigit(line[at])) {
                hash = hash * 6364136223846793005 + 1442695040888963407;
                line[at] = static_cast<char>('0' + (hash >> 33) % 10);
            }
        }
        ++at;
    }
}

}  // namespace

Corpus::Corpus(std::string name, const std::vector<std::string>& lines, size_t least_bytes)
    : name_(std::move(name)), offset_(kFirstTime) {
    uint32_t time = 0;
    for (size_t repetition = 0; repetition == 0 || text_.size() < least_bytes; ++repetition) {
        double before = 0;
        for (size_t i = 0; i < lines.size(); ++i) {
            size_t end = 0;
            const double seconds = ParseSeconds(lines[i], end);
            if (i != 0 && seconds > before) {
                time += static_cast<uint32_t>(
                    std::lround(std::min(1000 * (seconds - before), double{kMaxGap})));
            }
            before = std::max(before, seconds);
            std::string line = lines[i].substr(end);
            if (repetition != 0) {
                RenewNumbers(line, repetition);
            }
            times_.push_back(time);
            starts_.push_back(text_.size());
            text_.append(kTimeWidth, '0').append(line) += '\n';
        }
    }
    starts_.push_back(text_.size());
    WriteTimes();
}

std::string_view Corpus::Line(size_t index) const {
    return std::string_view(text_).substr(starts_[index], starts_[index + 1] - starts_[index] - 1);
}

double Corpus::Span() const {
    return times_.back() / 1000.0;
}

void Corpus::Advance() {
    offset_ += times_.back() + 1;
    if (offset_ + times_.back() > kLastTime) {
        throw std::runtime_error(name_ + ": the times are used up");
    }
    WriteTimes();
}

void Corpus::WriteTimes() {
    for (size_t i = 0; i < times_.size(); ++i) {
        uint32_t rest = offset_ + times_[i];
        for (size_t at = starts_[i] + kTimeWidth; at-- > starts_[i];) {
            if (at == starts_[i] + kTimeWidth - 4) {
                text_[at] = '.';
            } else {
                text_[at] = static_cast<char>('0' + rest % 10);
                rest /= 10;
            }
        }
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

std::vector<std::string> Interleave(const std::vector<std::vector<std::string>>& files) {
    constexpr size_t kBlock = 50;
    struct Position {
        size_t next = 0;
        double last = 0;  // seconds
    };
    std::vector<Position> positions(files.size());
    std::vector<std::string> mixed;
    double time = 0;
    for (bool has_more = true; has_more;) {
        has_more = false;
        for (size_t file = 0; file < files.size(); ++file) {
            auto& [next, last] = positions[file];
            for (size_t i = 0; i < kBlock && next < files[file].size(); ++i, ++next) {
                const std::string& line = files[file][next];
                size_t end = 0;
                const double seconds = ParseSeconds(line, end);
                // The gaps of a file stay, where no other file comes between.
                time += i != 0 && seconds > last ? seconds - last : 0;
                last = std::max(last, seconds);
                char start[32];
                static_cast<void>(std::snprintf(start, sizeof start, "%.3f", time));
                mixed.push_back(start + line.substr(end));
            }
            has_more = has_more || next < files[file].size();
        }
    }
    return mixed;
}

}  // namespace bench
