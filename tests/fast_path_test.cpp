#include <gmock/gmock.h>

#include <cstdint>
#include <random>
#include <sstream>

#include "CDataProvider.h"
#include "CUtility.h"
#include "LineReader.h"
#include "LogLine.h"
#include "support/line_model.h"
#include "support/platform_fake.h"

namespace test_support {
namespace {

std::string Outcome(int delta, char level, const std::string& tag, int pid, int tid,
                    const std::string& message) {
    return testing::PrintToString(std::tuple(delta, level, tag, pid, tid, message));
}

std::string OrException(const std::function<std::string()>& outcome) {
    try {
        return outcome();
    } catch (const std::exception& error) {
        return std::string("!") + typeid(error).name() + error.what();
    }
}

TEST(FastPathTest, ParsingAgreesWithTheModelOnHostileLines) {
    const std::vector<std::vector<std::string>> parts = {
        {"2.5", "345678.118", "5.", ".", "-1", "\n 3", "0x1p4", "nan", "1e-50", "1e39", ""},
        {" I/TAG(P", " T/(P ", "\t/", "\n I/ ,\v(P", " /TAG", " I(P(P", "/ "},
        {" 1", "2147483648", "999999999", "", "\t-7 ", "3x", "+ 4", "0000000001"},
        {", T 12", ", T9 ", ", T1234567890123", ", T", ",", "", ", T\r5\f", ", Tx"},
        {"): f(1) > ", "):", "", ") > ", "):> ", "): >> > > ", " > "},
        {"hello", "", "a > b/c", "two\nlines\n", std::string("\0x", 2)}};
    CUtility& utility = *CUtility::Instance();
    const std::string first = "2.0 I/first(P 1, T 1): f > first";
    std::mt19937 random(1);
    for (int i = 0; i < 4000; ++i) {
        std::string line;
        for (const auto& choices : parts) {
            line += choices[random() % 2 == 0 ? 0 : random() % choices.size()];
        }
        LineModel model("", {});
        const auto prime = [&] {
            Snapshot(true);
            std::string copy = first;
            CDataProvider::Instance()->m_GetDataDDP(copy);
        };
        ASSERT_EQ(model.Feed(first), "");
        prime();
        const std::string stripped = utility.m_Strip(line);
        ASSERT_EQ(OrException([&] {
                      int last_time = 2000;
                      const auto fields = LineModel::Split(stripped, last_time);
                      return fields ? Outcome(fields->delta, fields->level, fields->tag,
                                              fields->pid, fields->tid, fields->message)
                                    : "refused";
                  }),
                  OrException([&] {
                      int delta = 0, pid = 0, tid = 0;
                      char level = 0;
                      std::string tag, text;
                      return utility.m_GetLogLineComponents(delta, level, tag, pid, tid, text,
                                                            stripped)
                                 ? Outcome(delta, level, tag, pid, tid, text)
                                 : "refused";
                  }));
        // An exception in the pipeline would leave it locked.
        if (model.Feed(line).empty()) {
            prime();
            CDataProvider::Instance()->m_GetDataDDP(line);
            ASSERT_EQ(Hex(Snapshot(false)), Hex(model.Dump()));
        }
    }
}

// Of which no line is older than the one before: times, ids and texts of all kinds and lengths.
TEST(FastPathTest, DumpsAreTheSameOnEveryProcessor) {
    CDataProvider::Instance()->SetHistorySize(1024);
    Snapshot(true);
    std::mt19937 random(1);
    const auto pick = [&random](uint32_t size) { return static_cast<uint32_t>(random()) % size; };
    uint64_t ms = 1;
    for (int i = 0; i < 5000; ++i) {
        ms += pick(i % 100 == 0 ? 900000 : 300);
        std::string text(pick(90), ' ');
        for (char& byte : text) {
            byte = static_cast<char>('!' + pick(222));
        }
        std::string line =
            std::to_string(ms / 1000) + "." + std::to_string(1000 + ms % 1000).substr(1);
        line += std::string(" ") + "VDIWEF"[pick(6)];
        line += "/T\xE4g" + std::to_string(pick(9));
        line += "(P " + std::to_string(pick(3));
        line += ", T " + std::to_string(pick(UINT32_MAX) >> 1) + "): f > " + text;
        CDataProvider::Instance()->m_GetDataDDP(line);
    }
    uint64_t hash = 14695981039346656037U;  // FNV-1a
    for (const unsigned char byte : Snapshot(true)) {
        hash = (hash ^ byte) * 1099511628211U;
    }
    EXPECT_EQ(hash, 3010708954968801728U);
}
TEST(FastPathTest, NumbersNextToTheMiddleOfTwoFloatsRoundOnce) {
    for (const char* text : {"2.86562979221344", "2.65748393535614", "98765432109876543210"}) {
        EXPECT_EQ(line::ToFloat(text), std::stof(text)) << text;
    }
}

TEST(FastPathTest, ReaderGivesTheLinesOfGetline) {
    for (int i = 0; i < 240; ++i) {  // about where a block ends
        const char* const ends[] = {"", "\n", "\n\n", "\nlast"};
        const std::string text =
            "a\n\n" + std::string(size_t(65530 + i / 24), 'x') + ends[i / 6 % 4];
        std::istringstream plain(text), stream(text);
        LineReader reader(stream);
        std::string line, expected;
        int skip = i % 6, skipped = 0;
        for (; skipped < skip && std::getline(plain, expected); ++skipped) {
        }
        EXPECT_EQ(reader.Skip(skip), skipped);
        while (std::getline(plain, expected)) {
            ASSERT_TRUE(reader.Next(line) && line == expected) << i;
        }
        EXPECT_FALSE(reader.Next(line)) << i;
    }
}

}  // namespace
}  // namespace test_support
