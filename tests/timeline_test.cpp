// Several dumps as one log: what two share, in which order their lines come and when they were.

#include "dump/timeline.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>

#include "support/dump_builder.h"

using namespace trelvo;

namespace {

using namespace std::string_literals;
using test_support::DumpBuilder;
using test_support::MemoryInput;
using Lines = std::vector<std::string>;

// What is shown of these dumps, "text@milliseconds", with the break in front of it.
Lines Show(const std::vector<std::string>& images) {
    Timeline timeline(true);
    for (const std::string& image : images) {
        timeline.Add(
            "dump", [image] { return std::make_unique<MemoryInput>(image); }, nullptr);
    }
    Lines shown;
    timeline.Visit(
        0,
        [&shown](const Line& line, Break before) {
            const char* const breaks[] = {"", "gap ", "fresh ", "restart ", "reboot "};
            shown.push_back(breaks[static_cast<size_t>(before)] + std::string(line.message) + "@" +
                            std::to_string(line.time_ms));
        },
        [](const Part&) {});
    return shown;
}

const std::string kCut = "\x05";  // what is left of a record

TEST(Timeline, DamagedDumpsGetTheTimesThatOthersTell) {
    // a 1.000, b 1.005, c 1.064, d 1.069; the first one before z, when the service starts again.
    const auto at = [](const char* texts) {
        const std::map<char, int64_t> deltas{{'z', 0},  {'a', 5}, {'b', 5},
                                             {'c', 59}, {'d', 5}, {'n', 8000}};
        DumpBuilder dump;
        for (const char* text = texts; *text != '\0'; ++text) {
            dump.Line(*text == 'a' && text == texts ? 0 : deltas.at(*text), {text, 1});
        }
        return dump;
    };
    struct Row {
        const char* situation;
        Lines dumps;
        Lines shown;
    };
    const Row rows[] = {
        {"times known from a later one, down to the first",
         {at("a").Image(1069) + kCut, at("ab").Image(1069) + kCut, at("abcd").Image(1069)},
         {"a@1000", "b@1005", "c@1064", "d@1069"}},
        {"recorded once more, times known from a later one",
         {at("abc").Image(1064), at("zab").Image(9069) + kCut, at("zabcdn").Image(9069)},
         {"restart z@995", "a@1000", "b@1005", "c@1064", "d@1069", "n@9069"}},
        {"cut lines that no other one has",
         {at("a").Image(1069) + kCut, at("bcd").Image(1069)},
         {"a@1000", "gap b@1005", "c@1064", "d@1069"}},
        {"recorded once more",
         {at("abc").Image(1064), at("zab").Image(9069) + kCut},
         {"restart z@995", "a@1000", "b@1005", "c@1064"}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Show(row.dumps), row.shown) << row.situation;
    }
}

// More than what is kept of one millisecond.
TEST(Timeline, HoweverMuchWasRecordedOnceMoreIsShownOnce) {
    constexpr int kLines = 10000;
    const auto append = [](DumpBuilder& dump, int count, int first_delta) {
        for (int i = 0; i < count; ++i) {
            dump.Line(i == 0 ? first_delta : 5, std::to_string(i) + std::string(1000, 'x'));
        }
        return dump.Image(int64_t{5} * count);
    };
    DumpBuilder earlier;
    DumpBuilder later;  // begins before the other one: of another run of the service
    later.Line(0, "early");
    EXPECT_EQ(Show({append(earlier, kLines, 0), append(later, kLines + 1, 4)}).size(), kLines + 2U);
}

Survey SurveyOf(const std::string& text, bool cut) {
    DumpBuilder dump;
    for (const char c : text) {
        dump.Line(5, {&c, 1});
    }
    MemoryInput input(dump.Image(1000) + (cut ? kCut : ""));
    return TakeSurvey(input, true);
}

TEST(Survey, OverlapsAreThoseThatTryingAllOfThemFinds) {
    std::mt19937 random(1);
    const auto text = [&random] {
        std::string letters(1 + random() % 9, ' ');
        std::generate(letters.begin(), letters.end(), [&] { return "aab"[random() % 3]; });
        return letters;
    };
    for (int round = 0; round < 2000; ++round) {
        const std::string earlier = text();
        const std::string later = text();
        const bool cut = round % 2 == 0;
        size_t records = std::min(earlier.size(), later.size());
        while (earlier.substr(earlier.size() - records) != later.substr(0, records)) {
            --records;
        }
        size_t end = earlier.size();  // of the records in the earlier one
        if (cut && earlier.find(later) != std::string::npos) {
            records = later.size();
            end = earlier.find(later) + records;
        }
        const Overlap found = FindOverlap(SurveyOf(earlier, false), SurveyOf(later, cut));
        ASSERT_EQ(found.records, records) << earlier << ' ' << later;
        if (records > 0) {
            ASSERT_EQ(found.earlier_ms, static_cast<int64_t>(end - 1) * 5)
                << earlier << ' ' << later;
        }
    }
}

// A recorder that keeps six lines, dumped after a few lines each and copied; some copies are cut.
TEST(Timeline, EveryLineComesOnceAndInOrderWhateverWasDroppedAndCut) {
    for (uint32_t seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        std::deque<std::pair<int64_t, std::string>> kept;  // time since the line before, and text
        int64_t now = 1000;
        int number = 0;
        std::vector<std::string> images;
        std::map<int, std::string> held;
        for (size_t dump = 0; dump < 8; ++dump) {
            for (size_t lines = dump % 2 == 0 ? 1 + random() % 4 : 0; lines > 0; --lines) {
                const int64_t delta = number == 0 ? 0 : random() % 2 == 0 ? 5 : 10;
                now += delta;
                kept.emplace_back(delta, std::to_string(number++) + "@" + std::to_string(now));
                if (kept.size() > 6) {
                    kept.pop_front();
                }
            }
            const bool cut = dump < 7 && random() % 2 == 0;
            DumpBuilder builder;
            for (size_t i = 0; i < (cut ? 1 + random() % kept.size() : kept.size()); ++i) {
                const auto& [delta, text] = kept[i];
                builder.Line(delta, text);
                held[std::stoi(text)] = text;
            }
            images.push_back(builder.Image(now) + (cut ? kCut : ""));
        }
        Lines expected;
        for (const auto& [place, text] : held) {
            expected.push_back(text);
        }
        Lines shown = Show(images);
        for (std::string& text : shown) {
            text.erase(text.rfind('@')).erase(0, text.rfind("gap ", 0) == 0 ? 4 : 0);
        }
        EXPECT_EQ(shown, expected) << "seed " << seed;
    }
}

}  // namespace
