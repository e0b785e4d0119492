#include <gmock/gmock.h>

#include <boost/algorithm/string.hpp>
#include <random>
#include <sstream>

#include "CDataProvider.h"
#include "CUtility.h"
#include "LineReader.h"
#include "LogLine.h"
#include "RecordPacking.h"
#include "support/platform_fake.h"

namespace test_support {
namespace {

std::string Outcome(int delta, char level, const std::string& tag, int pid, int tid,
                    const std::string& message) {
    Bytes record;
    packing::AppendLeb128(delta, record);
    packing::AppendHeader(level, 2, record);  // the line is the second after a reset
    packing::AppendLeb128(static_cast<int>(message.size()), record);
    record.insert(record.end(), message.begin(), message.end());
    return Hex(record) + "|" + tag + "," + std::to_string(pid) + "," + std::to_string(tid);
}

// The rules in the plainest words: a copy for every step, and the library's own conversions.
std::string PlainOutcome(std::string line) {
    boost::trim_left(line);
    const size_t blank = line.find(' '), slash = line.find('/'), process = line.find("(P");
    const size_t thread = line.find(", T"), close = line.find("):"), arrow = line.find(" > ");
    const int time = line::Saturate<int>(std::stof(line.substr(0, blank)) * 1000.0F);
    if (time < 2000) {
        return "refused";
    }
    const char level = line.substr(blank + 1).c_str()[0];
    const auto tag = boost::trim_copy(line.substr(slash + 1, process - slash - 1));
    const int pid = std::stoi(boost::trim_copy(line.substr(process + 2, thread - process - 2)));
    const int tid = std::stoi(boost::trim_copy(line.substr(thread + 3, close - thread - 3)));
    const auto message = boost::erase_all_copy(line.substr(arrow + 3), "\n");
    return Outcome(time - 2000, level, tag, pid, tid, message);
}

std::string OrException(const std::function<std::string()>& outcome) {
    try {
        return outcome();
    } catch (const std::exception& error) {
        return std::string("!") + typeid(error).name() + error.what();
    }
}

TEST(FastPathTest, ParsingAgreesWithThePlainWayOnHostileLines) {
    const std::vector<std::vector<std::string>> parts = {
        {"2.5", "345678.118", "5.", ".", "-1", "\n 3", "0x1p4", "nan", "1e-50", "1e39", ""},
        {" I/TAG(P", " T/(P ", "\t/", "\n I/ ,\v(P", " /TAG", " I(P(P", "/ "},
        {" 1", "2147483648", "999999999", "", "\t-7 ", "3x", "+ 4", "0000000001"},
        {", T 12", ", T9 ", ", T1234567890123", ", T", ",", "", ", T\r5\f", ", Tx"},
        {"): f(1) > ", "):", "", ") > ", "):> ", "): >> > > ", " > "},
        {"hello", "", "a > b/c", "two\nlines\n", std::string("\0x", 2)}};
    CUtility& utility = *CUtility::Instance();
    const auto prime = [] {
        Snapshot(true);
        std::string first = "2.0 I/first(P 1, T 1): f > first";
        CDataProvider::Instance()->m_GetDataDDP(first);
    };
    std::mt19937 random(1);
    for (int i = 0; i < 4000; ++i) {
        std::string line;
        for (const auto& choices : parts) {
            line += choices[random() % 2 == 0 ? 0 : random() % choices.size()];
        }
        line = utility.m_Strip(line);
        const std::string expected = OrException([&] { return PlainOutcome(line); });
        prime();
        int delta = 0, pid = 0, tid = 0;
        char level = 0;
        std::string tag, text;
        ASSERT_EQ(expected, OrException([&] {
                      return utility.m_GetLogLineComponents(delta, level, tag, pid, tid, text, line)
                                 ? Outcome(delta, level, tag, pid, tid, text)
                                 : "refused";
                  }));
        // An exception in the pipeline would leave it locked.
        const size_t end = expected.find('|');
        if (end < expected.size() && utility.m_IsDlogLine(line)) {
            prime();
            CDataProvider::Instance()->m_GetDataDDP(line);
            ASSERT_THAT(Hex(Snapshot(false)), testing::EndsWith(expected.substr(0, end)));
        }
    }
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
