// What changed from one log to another, and trelvoctl compare.

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "patterns/rate_test.h"
#include "support/dump_builder.h"
#include "support/folder_test.h"

using namespace trelvo;

namespace test_support {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Rates, ChanceOfRates) {
    struct Row {
        const char* situation;
        double good, bad, low, high, burst, chance;
    };
    const Row rows[] = {
        // Twice 5/9 to the power of 20; 5/6 for a side that is four times as long.
        {"new", 0, 20, 1, 1, 1, 1.5683e-5},
        {"gone", 20, 0, 1, 1, 1, 1.5683e-5},
        {"new in bursts of five", 0, 100, 1, 1, 5, 1.5683e-5},
        {"new on a side that is four times as long", 0, 20, 4, 4, 1, 0.05216},
        {"as many", 500, 500, 1, 1, 1, 1},
        {"a quarter more is not a change", 10000, 12500, 1, 1, 1, 1},
        {"more, but not by the other measure", 100, 200, 1, 2, 1, 1},
        {"fewer, but not by the other measure", 200, 100, 0.5, 1, 1, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.situation);
        const double chance =
            ChanceOfRates(row.good, row.bad, {row.low, row.high}, row.burst, row.burst);
        EXPECT_NEAR(chance / row.chance, 1, 0.01);
    }
    EXPECT_LT(ChanceOfRates(1000, 2000, {1, 1}, 1, 1), 1e-20);
    EXPECT_GT(ChanceOfRates(1000, 2000, {1, 1}, 500, 1), 0.1) << "in bursts";
    EXPECT_LT(ChanceOfRates(2000, 1000, {1, 1}, 500, 1), 1e-20) << "stopped, no burst";
}

TEST(Rates, BurstsAreToldFromSteadyLines) {
    const auto factor = [](std::vector<double> lines, double usual = 1) {
        return BurstFactor({std::move(lines), 1}, usual);
    };
    std::vector<double> steady(64, 3);
    std::vector<double> burst(64, 0);
    burst[20] = 192;
    std::vector<double> long_burst(64, 0);
    std::fill_n(long_burst.begin() + 16, 16, 12);
    EXPECT_EQ(factor(steady), 1);
    EXPECT_GT(factor(burst), 100);
    EXPECT_GT(factor(long_burst), 50) << "as long as a quarter of the log";
    EXPECT_EQ(factor({0, 1, 0, 0}, 5), 5) << "one line says nothing";
    EXPECT_EQ(BurstFactor({{10, 10, 10, 10, 5}, 0.5}, 1), 1) << "the last slice is shorter";
    EXPECT_EQ(Episodes({steady, 1}, 1), 192);
    EXPECT_EQ(Episodes({burst, 1}, 192), 1);
    burst[50] = burst[3] = 7;
    EXPECT_EQ(Episodes({burst, 1}, 150), 3);
    EXPECT_EQ(JoinedBurstFactor(1, 100), 1);
    EXPECT_GT(JoinedBurstFactor(20, 100), 90);
    EXPECT_EQ(JoinedBurstFactor(20, 5), 20);
    burst.back() = 200;
    EXPECT_EQ(FindPeak({burst, 1}, 192, 1).slice, 63U);
    EXPECT_EQ(FindPeak({burst, 1.5}, 192, 1).slice, 20U) << "for their length";
    EXPECT_LT(FindPeak({burst, 1}, 192, 1).chance, 1e-50);
    EXPECT_EQ(FindPeak({burst, 1}, 192, 20).chance, 1) << "bursts are usual";
    EXPECT_EQ(FindPeak({{100, 100, 100, 149}, 1.49}, 449, 1).chance, 1) << "steady";
}

TEST(Rates, WhatCameOnceTellsOfWhatIsNew) {
    Novelty novelty;
    novelty.Finish();
    EXPECT_EQ(novelty.Expected('I', 1), 0);
    Novelty some;
    some.Add('I', 1, 1);
    some.Add('I', 1, 30);  // a burst
    some.Add('W', 1, 1);
    some.Add('E', 500, 1);  // never missing
    some.Add('I', 2, 1);
    some.Finish();
    EXPECT_NEAR(some.Expected('I', 1), 3.27, 0.01);
    EXPECT_NEAR(some.Expected('I', 30), 1 + 2.27 / 30, 0.01);
    EXPECT_NEAR(some.Expected('I', 60), (30 + 2.27) / 60, 0.01);
    EXPECT_NEAR(some.Expected('W', 1), 1, 0.01);
    EXPECT_NEAR(some.Expected('F', 1), 3.27 / 6, 0.01) << "no error came once";
}

TEST(Rates, FalseDiscoveriesAreBounded) {
    EXPECT_EQ(DiscoveryBound({}, 0.01), -1);
    EXPECT_EQ(DiscoveryBound({0.5, 0.02}, 0.01), -1);
    EXPECT_EQ(DiscoveryBound({0.004, 0.9, 0.0074, 0.9}, 0.01), -1);
    EXPECT_EQ(DiscoveryBound({0.004, 0.9, 0.0049, 0.9}, 0.01), 0.0049);
}

// A log of an hour: what a machine logs when nothing is wrong, in five ways.
class Machine {
public:
    struct Entry {
        int64_t ms;
        char level;
        std::string source, text;
    };
    static constexpr int64_t kEndMs = 3600'000;

    explicit Machine(uint64_t seed) : random_(seed) {
        for (int i = 0; i < 40; ++i) {  // at random, often and seldom
            const int lines = 8 << (i % 8);
            for (int k = 0; k < lines; ++k) {
                LogWords("IIIIDDWE"[i / 5], "T" + std::to_string(i % 5), i);
            }
        }
        for (int64_t i = 0; i < 10; ++i) {  // heartbeats
            for (int64_t ms = 100 * i; ms < kEndMs; ms += 1000 * (i + 1)) {
                Log(ms, 'I', "HB", Words(100 + static_cast<int>(i)));
            }
        }
        for (int i = 0; i < 20; ++i) {  // bursts, some of which last
            for (uint64_t bursts = 4 + random_() % 6; bursts > 0; --bursts) {
                const int64_t begin = At();
                for (uint64_t lines = 20 + random_() % 300; lines > 0; --lines) {
                    Log(std::min(begin + static_cast<int64_t>(lines) * (1 + i % 3 * 500),
                                 kEndMs - 1),
                        'I', "BURST", Words(200 + i));
                }
            }
        }
        for (int i = 0; i < 30; ++i) {  // once, or not
            if (random_() % 2 == 0) {
                LogWords(i < 3 ? 'E' : 'I', "ONCE", 300 + i);
            }
        }
        for (int i = 0; i < 25000; ++i) {
            LogWords('D', "T1", 400 + i % 2);
        }
    }
    // A text of its own for each number, and a value.
    std::string Words(int number) {
        std::string text;
        for (int word = 0; word < 3; ++word) {
            text += std::string(1, static_cast<char>('a' + number % 26)) +
                    static_cast<char>('a' + number / 26) + static_cast<char>('a' + word) + "x ";
        }
        return text + std::to_string(random_() % 1000);
    }
    int64_t At() { return static_cast<int64_t>(random_() % kEndMs); }
    void Log(int64_t ms, char level, const std::string& tag, const std::string& text) {
        entries_.push_back({ms, level, tag + ",10", text});
    }
    // At any time.
    void LogWords(char level, const std::string& tag, int number) {
        const std::string text = Words(number);
        Log(At(), level, tag, text);
    }
    std::vector<Entry>& Entries() { return entries_; }
    void Write(const std::string& path) {
        std::stable_sort(entries_.begin(), entries_.end(),
                         [](const Entry& a, const Entry& b) { return a.ms < b.ms; });
        DumpBuilder dump;
        int64_t last = 0;
        for (const Entry& entry : entries_) {
            dump.Line(entry.ms - last, entry.text, entry.source, entry.level);
            last = entry.ms;
        }
        WriteFile(path, dump.Image(last + 1000));
    }

private:
    std::mt19937_64 random_;
    std::vector<Entry> entries_;
};

class Compare : public FolderTest {
protected:
    std::string Path(const char* name) const { return folder_ / name; }
    Output Run(const std::string& line) const {
        return FolderTest::Run("trelvoctl compare " + line);
    }
};

TEST_F(Compare, HealthyLogsSayLittle) {
    size_t changed = 0;
    size_t all = 0;
    for (uint64_t seed = 1; seed <= 6; seed += 2) {
        Machine(seed).Write(Path("good.dump"));
        Machine(seed + 1).Write(Path("bad.dump"));
        const Output output = Run("good.dump bad.dump");
        ASSERT_EQ(output.status, 0) << output.err;
        const std::string second = output.out.substr(output.out.find('\n') + 1);
        changed += std::stoul(second);
        all += std::stoul(second.substr(second.find("of ") + 3));
    }
    EXPECT_GT(all, 250U);
    EXPECT_LE(100 * changed, all) << changed << " of " << all;
}

TEST_F(Compare, InjectedFaultsStandOnTheFirstScreen) {
    Machine(7).Write(Path("good.dump"));
    Machine bad(8);
    auto& entries = bad.Entries();
    std::vector<std::string> faults;  // the rows, as far as they are known
    const auto stop = [&](int number, int64_t from_ms, size_t each, char level) {
        std::string text = bad.Words(number).substr(0, 14);
        size_t count = 0;
        for (auto& entry : entries) {
            if (entry.text.compare(0, 14, text) == 0 && entry.ms >= from_ms &&
                ++count % each == 0) {
                level == ' ' ? entry.text.clear() : void(entry.level = level);
            }
        }
        entries.erase(std::remove_if(entries.begin(), entries.end(),
                                     [](const auto& entry) { return entry.text.empty(); }),
                      entries.end());
        return text;
    };
    faults.push_back("HB: " + stop(101, 0, 1, ' '));         // vanished
    faults.push_back("HB: " + stop(109, 0, 1, ' '));         // a rare one
    faults.push_back("HB: " + stop(102, 1200'000, 1, ' '));  // stops
    faults.push_back("HB: " + stop(103, 0, 2, ' '));         // half as often
    faults.push_back("was I  E    0  720");                  // 104, raised
    stop(104, 0, 1, 'E');
    faults.push_back("was W  F    0    8");  // 33, half of them
    stop(33, 0, 2, 'F');
    struct Added {
        char level;
        const char* tag;
        const char* text;
        int number;  // of a text that the log has already
        int lines;
        int64_t from_ms, to_ms;
        const char* row;
    };
    const Added rows[] = {
        {'E', "T0", "mount failed", 0, 1, 900'000, 0, "   E    0    1  901.000 T0: mount failed"},
        {'E', "T2", "disk full", 0, 3, 500'000, 600'000, "T2: disk full"},
        {'F', "HB", "assertion broken", 0, 1, 7'000, 0, "   F    0    1    8.000 HB: assertion"},
        {'W', "T3", "too hot here", 0, 5, 1'000, 3500'000, "T3: too hot here"},
        {'I', "T4", "going on without", 0, 30, 0, 3500'000, "T4: going on without"},
        {'I', "T1", "sending once more", 0, 80, 700'000, 701'000, "T1: sending once more"},
        {'I', "NEW", "never seen before", 0, 20, 0, 3500'000, "NEW: never seen before"},
        {'I', "MOVED", nullptr, 5, 40, 0, 3500'000, "MOVED: "},
        {'I', "T1", "worker came up", 0, 12, 0, 3500'000, "T1: worker came up"},
        {'I', "HB", nullptr, 105, 600, 0, 3599'000, "x2     I  600 1200"},
        {'I', "T0", nullptr, 5, 320, 0, 3599'000, "x2.2   I  256  576"},
        {'I', "HB", nullptr, 106, 400, 1800'000, 1802'000, "burst  I  515  915 1770.499 HB"},
        {'E', "T3", nullptr, 38, 500, 2000'000, 2030'000, "burst  E  512 1012 1967.139 T3"},
        {'D', "T0", nullptr, 20, 192, 100'000, 3599'000, "x2.5   D  128  320"},
    };
    for (const Added& row : rows) {
        for (int i = 0; i < row.lines; ++i) {
            bad.Log(row.from_ms + (row.to_ms - row.from_ms) * i / row.lines, row.level, row.tag,
                    row.text != nullptr ? row.text : bad.Words(row.number));
        }
        faults.emplace_back(row.row);
    }
    bad.Write(Path("bad.dump"));
    const std::string out = Run("good.dump bad.dump").out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 23) << "of 24 lines";
    ASSERT_EQ(faults.size(), 20U);
    for (const std::string& fault : faults) {
        EXPECT_THAT(out, HasSubstr(fault));
    }
}

TEST_F(Compare, FormsAndFaults) {
    DumpBuilder good;
    DumpBuilder bad;
    // Words that turn out to be values with the last of them.
    const auto slow = [](const char* who) {
        return std::string("slow answer to ") + who + " today";
    };
    for (int i = 0; i < 200; ++i) {
        good.Line(100, "tick " + std::to_string(i));
        good.Line(0, std::string("tock the clock for ") + (i == 199 ? "cy"
                                                           : i % 2  ? "bob"
                                                                    : "ann"));
        bad.Line(100, "tick " + std::to_string(i));
        if (i % 20 == 0) {
            good.Line(0, "late", "C,10", 'W').Line(0, slow(i % 40 == 0 ? "ann" : "bob"), "C,10");
        }
        if (i % 8 == 0) {  // more often, and one at another level
            bad.Line(0, "late", "C,10", 'W');
            bad.Line(0,
                     slow(i == 192      ? "cy"
                          : i % 16 == 0 ? "ann"
                                        : "bob"),
                     "C,10", i % 96 == 0 ? 'I' : 'E');
        }
    }
    bad.Line(0, "broken\x1B[2J", "B,10", 'E');
    WriteFile(Path("good.dump"), good.Image(21000));
    std::filesystem::create_directory(Path("bad"));
    WriteFile(Path("bad/1.dump"), bad.Image(21000));
    EXPECT_EQ(Run("good.dump bad").out,
              "good: 420 lines in 19.900 s; bad: 251 lines in 19.900 s, most patterns x1\n"
              "3 of 6 patterns changed; 1 more may be chance: \"?\"\n"
              "CHANGE L GOOD BAD   TIME TAG: EXAMPLE\n"
              "was I  E    0  22  1.900 C: slow answer to bob today\n"
              "new    E    0   1 21.000 B: broken\\x1B[2J\n"
              "gone   I  200   0 21.000 A: tock the clock for ann\n"
              "x2.5?  W   10  25  1.100 C: late\n");
    EXPECT_THAT(Run("-o json good.dump bad B:V").out, testing::IsEmpty());
    const std::string json = Run("-o json good.dump bad '*:V'").out;
    EXPECT_THAT(
        json,
        testing::StartsWith(
            R"({"good":{"lines":420,"span_ms":19900},"bad":{"lines":251,"span_ms":19900},)"
            R"("usual_ratio":1.0,"patterns":6,"changes":[{"change":"level","level":"E",)"
            R"("old_level":"I","tag":"C","text":"slow answer to <*> today","at":{"time_ms":1900},"good":{"count":0},)"
            R"("bad":{"count":22,"first":{"time_ms":1900},"last":{"time_ms":19500}},"ratio":null,)"
            R"("chance":)"));
    EXPECT_THAT(json, HasSubstr(R"(}],"doubtful":[{"change":"more","level":"W","tag":"C",)"));
    EXPECT_EQ(Run("good.dump").status, 2);
    EXPECT_EQ(Run("good.dump bad good.dump").status, 2);
    EXPECT_EQ(Run("good.dump missing").status, 3);
    EXPECT_EQ(Run("good.dump bad B:V").status, 6);
    EXPECT_THAT(Run("good.dump bad B:V").err, HasSubstr("good.dump: has no lines to compare"));
    WriteFile(Path("bad/1.dump"), bad.Image(21000).substr(0, 900));
    const Output cut = Run("good.dump bad");
    EXPECT_EQ(cut.status, 3);
    EXPECT_EQ(Run("bad good.dump").status, 3);
    EXPECT_THAT(cut.out, HasSubstr("gone   I  200"));
    EXPECT_THAT(cut.out, Not(HasSubstr("broken")));
}

}  // namespace
}  // namespace test_support
