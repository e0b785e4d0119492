#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <random>
#include <set>
#include <sstream>

#include "CDBOperations.h"
#include "CUtility.h"
#include "policy/code_tables.h"
#include "support/dump_builder.h"
#include "support/failing_memory.h"
#include "support/platform_fake.h"
#include "support/process.h"
#include "text/escape.h"
#include "train/capture_line.h"
#include "train/trainer.h"

using namespace trelvo;

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace test_support;
using ::testing::HasSubstr;
constexpr const char* kProgram = TRELVO_BIN_DIR "/trelvoctl";

// Gives the line to the tool and to a service that has seen none before.
void ExpectTheSame(const std::string& line) {
    CUtility& service = *CUtility::Instance();
    const std::string stripped = service.m_Strip(line);
    int delta = 0;
    CaptureLine found;
    std::string tag;
    std::string message;
    bool recorded = false;
    try {
        recorded = !stripped.empty() && service.m_IsDlogLine(stripped) &&
                   service.m_GetLogLineComponents(delta, found.level, tag, found.pid, found.tid,
                                                  message, stripped);
    } catch (const std::exception&) {  // not recorded either
    }
    Bytes time;  // an empty dictionary, then the last log time
    service.m_DumpLogTagPidTidMap(time, true);
    const auto parsed = ParseCaptureLine(line);
    ASSERT_EQ(parsed.has_value(), recorded) << line;
    if (parsed) {
        Bytes parsed_time{0};
        service.m_GetBytePackedIntWithHeader(parsed->time_ms, parsed_time, false);
        EXPECT_EQ(std::tie(parsed_time, parsed->level, parsed->tag),
                  std::tie(time, found.level, tag));
        EXPECT_EQ(std::tie(parsed->message, parsed->pid, parsed->tid),
                  std::tie(message, found.pid, found.tid));
    }
}

TEST(CaptureLine, IsSplitAsTheServiceSplitsIt) {
    std::istringstream rows(
        "1234.567 I/MY_TAG  (P 1234, T 1240): main.c: run(52) > started > again \t\n"
        "\t 0.1 D/ (P\t-1, T +2): >  > x\n1e3 I/T(P 1, T 2): a > b\n0x1p4 W/T(P 1, T 2): > b\n"
        "inf E/T(P 1, T 2): a > b\nnan F/T(P 1, T 2): a > b\n1e-45 I/T(P 1, T 2): > b\n"
        "1 2/T: x): > y\n5.5 I/T(P 2147483648, T 2): > b\n5 I/T(P +-1, T 2): > b\n"
        "12.0005 V/a/b,c(P(P 7x, T 8): > b");
    std::vector<std::string> lines;
    for (std::string row; std::getline(rows, row);) {
        lines.push_back(row);  // NOLINT(performance-inefficient-vector-operation)
    }
    std::mt19937 random(7);
    const std::string pieces = "0159.-+x/() PT,:>ei\t\r\v";
    const auto pick = [&random](size_t size) { return random() % size; };
    for (int round = 0; round < 4000; ++round) {
        std::string line = lines[pick(lines.size())];
        for (size_t change = round < 20 ? 0 : 1 + pick(4); change > 0; --change) {
            const size_t place = pick(line.size());
            pick(2) == 0 ? line.erase(place, 1 + pick(3))
                         : line.insert(place, 1, pieces[pick(pieces.size())]);
            line += line.empty() ? " " : "";
        }
        ExpectTheSame(line);
    }
}

uint64_t TotalCost(const std::vector<CountedText>& texts, const std::vector<uint8_t>& sizes) {
    return std::inner_product(texts.begin(), texts.end(), sizes.begin(), uint64_t{0}, std::plus<>(),
                              [](const CountedText& text, uint8_t size) {
                                  return text.count *
                                         MessageCost(size == 0 ? text.text.size() : size);
                              });
}

TEST(CodeAssignment, IsAsGoodAsTheBestOfAllAssignments) {
    std::mt19937 random(1);
    const std::string letters(70, 'x');
    for (int round = 0; round < 600; ++round) {
        const CodeSupply supply{random() % 3, random() % 3};
        std::vector<CountedText> texts(1 + random() % 7);
        for (CountedText& text : texts) {
            const size_t sizes[] = {0, 1, 2, 2, 2, 3, 3, 4, 5, 70};
            text = {std::string_view(letters).substr(0, sizes[random() % 10]), 1 + random() % 9};
        }
        uint64_t best = UINT64_MAX;
        std::vector<uint8_t> sizes(texts.size(), 0);
        const std::function<void(size_t, CodeSupply)> try_all = [&](size_t i, CodeSupply left) {
            if (i == texts.size()) {
                best = std::min(best, TotalCost(texts, sizes));
                return;
            }
            for (const uint8_t size : std::vector<uint8_t>{0, 1, 2, 3}) {
                const CodeSupply rest{left.one_byte - (size == 1), left.two_bytes - (size == 2)};
                sizes[i] = size;
                if (rest.one_byte <= left.one_byte && rest.two_bytes <= left.two_bytes) {
                    try_all(i + 1, rest);
                }
            }
        };
        try_all(0, supply);
        const std::vector<uint8_t> given = AssignSizes(texts, supply);
        ASSERT_LE(std::count(given.begin(), given.end(), 1) + 0U, supply.one_byte);
        ASSERT_LE(std::count(given.begin(), given.end(), 2) + 0U, supply.two_bytes);
        ASSERT_EQ(TotalCost(texts, given), best) << "round " << round;
    }
}

TEST(CodeAssignment, CodesAreDistinctNeverTextAndNeverTaken) {
    std::vector<std::string> names(64000);
    size_t number = 0;
    std::vector<CountedText> texts{{"ab", 1000000}, {"x", 1000000}, {"", 1000000}};
    for (std::string& name : names) {
        name = "text " + std::to_string(number++);
        texts.push_back({name, 100000 - number});
    }
    const std::vector<CodedText> coded = AssignCodes(texts, {"\x01", "\x80\x80"}, 63000);
    std::set<std::string> codes;
    size_t one_byte = 0;
    for (const CodedText& entry : coded) {
        EXPECT_FALSE(IsText(entry.code)) << Hex(Bytes(entry.code.begin(), entry.code.end()));
        codes.insert(entry.code);
        one_byte += entry.code.size() == 1 ? 1 : 0;
    }
    EXPECT_EQ(codes.size(), 63000U);
    EXPECT_EQ(codes.count("\x01") + codes.count("\x80\x80"), 0U);
    EXPECT_EQ(one_byte, 159U);  // 31 controls without the TAB, DEL and the upper half; one taken
    EXPECT_TRUE(coded.front().text == "ab" && coded.front().code.size() == 1);
}

TEST(CodeAssignment, CodesOfEverySizePassOverWhatIsTaken) {
    // All of one and two bytes are taken, and the first three of three bytes.
    std::vector<std::string> names(1, "\x80\0\0"s);
    names.push_back("\x80\0\x02"s);
    for (int value = 0; value < 0x10000; ++value) {
        names.push_back({static_cast<char>(value >> 8), static_cast<char>(value)});
        names.push_back({static_cast<char>(value)});
    }
    const std::vector<CodedText> coded =
        AssignCodes({{"often logged", 9}, {"seldom logged", 5}, {"abc", 100}, {"ab", 100}},
                    TextSet(names.begin(), names.end()), 10);
    ASSERT_EQ(coded.size(), 2U);
    EXPECT_EQ(coded[0].code, "\x80\0\x01"s);
    EXPECT_EQ(coded[1].code, "\x80\0\x03"s);
    const std::vector<CodedText> best = AssignCodes({{"abc", 10}, {"a long text", 9}}, {}, 1);
    EXPECT_EQ(best.at(0).text, "a long text") << "saves more than what is more frequent";
}

TEST(MessageCounts, StayWithinTheirBoundAndKeepTheFrequent) {
    MessageCounts counts(20000);
    counts.Add("T", "zero\0byte"s, 9000);  // seen often, but no table can hold it
    for (int i = 0; i < 5000; ++i) {
        counts.Add("T", "frequent", 1);
        counts.Add("T", "rare " + std::to_string(i), i < 300 ? 2 : 1);
        ASSERT_LE(counts.Memory(), 20000U);
    }
    EXPECT_EQ(counts.Tags().at("T").at("frequent"), 5000U);
    EXPECT_GT(counts.Dropped(), 4000U);
    EXPECT_GE(counts.Memory(), 10000U - 120) << "no more goes than half of the bound";
    EXPECT_EQ(counts.HighestDropped(), 2U);
    EXPECT_EQ(Train(counts, {3}).saved_bytes, 5000 * (9 - 2));
}

TEST(MessageCounts, StopAtTheHighestCount) {
    MessageCounts counts(0);
    for (int i = 0; i < 2; ++i) {
        counts.Add("T", "often", MessageCounts::kMostCount - 1);
    }
    EXPECT_EQ(counts.Tags().at("T").at("often"), MessageCounts::kMostCount);
    counts.Add("T", "\0"s, 1);  // once, but a code that would look like it is not given
    EXPECT_EQ(Train(counts, {}).tables.at(0).codes.at(0).code, "\x01");
}

TEST(MessageCounts, OfEquallyRareTextsTheFirstInByteOrderGo) {
    std::vector<int> numbers(100);
    std::iota(numbers.begin(), numbers.end(), 100);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(1));
    MessageCounts all(0);
    const auto add = [&numbers](MessageCounts& counts) {
        for (const int number : numbers) {
            counts.Add(number % 3 == 0 ? "A" : "B", std::to_string(number), 1);
        }
    };
    add(all);
    MessageCounts counts(all.Memory() - 1);
    add(counts);
    const std::map<std::string, MessageCounts::Texts> kept(counts.Tags().begin(),
                                                           counts.Tags().end());
    EXPECT_EQ(counts.Dropped(), 50U);
    EXPECT_EQ(kept.count("A"), 0U);
    EXPECT_EQ(kept.at("B").count("124"), 0U);
    EXPECT_EQ(kept.at("B").count("125"), 1U);
    MessageCounts same(0);
    for (const auto& [text, count] : kept.at("B")) {
        same.Add("B", text, count);
    }
    EXPECT_EQ(counts.Memory(), same.Memory());
}

TEST(MessageCounts, TagsOfOneTextGoAsFarAsHalfOfTheBound) {
    MessageCounts counts(20000);
    for (uint64_t tag = 0; tag < 300; ++tag) {
        counts.Add(std::string(200, 't') + std::to_string(tag), "once", 1);
        EXPECT_GE(counts.Memory(), std::min<uint64_t>(tag + 1, 23) * 410);
    }
}

TEST(Evaluation, CountsWhatARecorderWouldTake) {
    // Sizes of one source: delta, header, length and message.
    const std::vector<TagTable> tables{{"T", {{"a long text", 5, "\x01"}}}};
    Evaluation evaluation(tables);
    for (int input = 0; input < 2; ++input) {
        evaluation.BeginInput();
        evaluation.Add({"T", 1, 2, "a long text", 0, 1, 40});
        evaluation.Add({"U", 1, 2, "a long text", 64, 1, 40});
        evaluation.Add({"T", 1, 2, "a long text", -1, 1, 40});  // refused
        evaluation.Add({"T", 1, 2, "another", 5, 1, 30});
        const EvaluationTotals& totals = evaluation.Totals();
        EXPECT_EQ(totals.lines, 3U);
        EXPECT_EQ(totals.refused, 1U);
        EXPECT_EQ(totals.coded, 1U);
        EXPECT_EQ(totals.text_bytes, 110U);
        EXPECT_EQ(totals.plain_bytes, 14U + 15U + 10U);
        EXPECT_EQ(totals.coded_bytes, 4U + 15U + 10U);
    }
}

// "tag pid/tid message delta" of each line, with the count where it is not 1; then how many were
// passed over and were not translated, and the damage.
std::vector<std::string> ReadLog(const std::string& content, const CodeTables* tables = nullptr) {
    WriteFile("/tmp/log", content);
    std::vector<std::string> lines;
    const InputSummary summary =
        ReadInput("/tmp/log", InputFormat::kAuto, tables, [&lines](const TrainingLine& line) {
            lines.push_back(std::string(line.tag) + " " + std::to_string(line.pid) + "/" +
                            std::to_string(line.tid) + " " + Escape(line.message) + " " +
                            std::to_string(line.delta_ms) +
                            (line.count == 1 ? "" : " x" + std::to_string(line.count)));
        });
    EXPECT_EQ(summary.lines, lines.size());
    lines.push_back(std::to_string(summary.passed_over) + " " +
                    std::to_string(summary.untranslated) +
                    (summary.damage ? " " + *summary.damage : ""));
    return lines;
}

TEST(LogInput, LinesOfEveryFormat) {
    const std::string end = " I/T(P 1, T 2): f: g(1) > x\n";
    EXPECT_THAT(
        ReadLog("5.0" + end + "1.0" + end + "no line\n6.5" + end + "5.5" + end + "6.5" + end),
        testing::ElementsAre("T 1/2 x 0", "T 1/2 x -4000", "T 1/2 x 1500", "T 1/2 x -1000",
                             "T 1/2 x 0", "1 0"))
        << "a refused line's time counts for nothing";
    EXPECT_THAT(ReadLog("T\ta\tb\t3\r\nT\tx\t2\nT\ty\tz\nT\ty\n"),
                testing::ElementsAre("T 0/0 a\\x09b 0 x3", "T 0/0 x 0 x2",
                                     "2 0 line 3: is not TAG, message and count"));
    EXPECT_THAT(ReadLog("__T\ta\t1\n"), testing::ElementsAre("__T 0/0 a 0", "0 0"));
    EXPECT_THAT(ReadLog("\t5.0 I/T(P 1, T 2): f: g(1) > x\ty\t3\n"),
                testing::ElementsAre("T 1/2 x\\x09y\\x093 0", "0 0"))
        << "a capture line that ends like a count";
    const std::string dump = DumpBuilder("1")
                                 .Line(0, "\x80", "T,1")
                                 .Line(5, "\x81", "T,1")
                                 .Line(7, "hi", "T,1")
                                 .Image(9);
    EXPECT_THAT(ReadLog(dump), testing::ElementsAre("T 1/11 hi 7", "0 2"));
    EXPECT_THAT(ReadLog(DumpBuilder("").Line(0, "\x80", "T,1").Image(9)),
                testing::ElementsAre("T 1/11 \\x80 0", "0 0"))
        << "recorded without tables";
    fs::create_directories("/tmp/policy");
    WriteFile("/tmp/policy/policy_version.xml",
              "<p><policy version='1'/><db logtag='T' name='t'/></p>");
    MakeCodeTable("/tmp/policy/t", "('known','10000000')");
    const CodeTables tables("/tmp/policy");
    EXPECT_THAT(ReadLog(dump, &tables),
                testing::ElementsAre("T 1/11 known 0", "T 1/11 \\x81 5", "T 1/11 hi 7", "0 0"));
    EXPECT_THAT(ReadLog(DumpBuilder("2").Line(0, "\x80", "T,1").Image(9), &tables),
                testing::ElementsAre("0 1"))
        << "tables of another version";
}

TEST(LogInput, EntriesOfAJournalAreTheLinesThatTheCaptureMakesOfThem) {
    const std::string time = "__MONOTONIC_TIMESTAMP";
    // The fields, and the lines.
    const std::vector<std::pair<std::map<std::string, std::string>, std::vector<std::string>>> rows{
        {{{"_COMM", "T"}, {"MESSAGE", "x"}, {time, "5000999"}}, {"T 0/0 x 0"}},
        {{{"_COMM", "T"}, {"MESSAGE", "x"}, {time, "1000000"}, {"_PID", "7"}}, {"T 7/7 x -4000"}},
        {{{"SYSLOG_IDENTIFIER", " a(P b\x01 "},
          {"_COMM", "no"},
          {"DLOG_LEVEL", "E"},
          {"MESSAGE", "f: g(1) > x\n \t\nf > z\n y\r"},
          {"_PID", "7"},
          {"SYSLOG_PID", "8"},
          {"TID", "9"},
          {time, "6000000"}},
         {"a_P b_ 7/9 x 1000", "a_P b_ 7/9 f > z 0", "a_P b_ 7/9  y 0"}},
        {{{"_COMM", "T"}, {"MESSAGE", "x"}, {time, "5000000"}}, {"T 0/0 x -1000"}},
        {{{"_COMM", "T"}, {"_PID", "8"}}, {}},
        {{{"SYSLOG_IDENTIFIER", "a > b, T"}, {"MESSAGE", "x"}}, {"a _ b_ T 0/0 x -6000"}},
        {{{"_COMM", "T"}, {"DLOG_LEVEL", "E"}, {"MESSAGE", "no prefix"}},
         {"T 0/0 no prefix -6000"}},
        {{{"_PID", "7x"}, {"SYSLOG_PID", "8"}, {"MESSAGE", "x\n" + std::string(300000, 'm')}},
         {"unknown 8/8 x -6000", "unknown 8/8 " + std::string(65534, 'm') + " -6000"}},
        {{{"SYSLOG_IDENTIFIER", std::string(130, 't')},
          {"DLOG_LEVEL", "EE"},
          {"MESSAGE", std::string(514, '\n').replace(0, 257, 257, 'm')},
          {time, "6001000"}},
         {std::string(128, 't') + " 0/0 " + std::string(257, 'm') + " 1"}},
    };
    std::string json;
    std::string exported;
    std::vector<std::string> expected;
    for (const auto& [fields, lines] : rows) {
        json += nlohmann::json(fields).dump() + '\n';
        exported += "__CURSOR=c\n";
        for (const auto& [name, value] : fields) {
            const bool plain = value.find('\n') == std::string::npos;
            uint64_t size = value.size();
            exported +=
                name + (plain ? "=" : '\n' + std::string(reinterpret_cast<char*>(&size), 8));
            exported += value + '\n';
        }
        exported += '\n';
        expected.insert(expected.end(), lines.begin(), lines.end());
    }
    expected.emplace_back("1 0");
    EXPECT_EQ(ReadLog(json), expected);
    EXPECT_EQ(ReadLog(exported.substr(0, exported.size() - 1)), expected);
    EXPECT_THAT(ReadLog("{\"MESSAGE\":[104,105,null,1e300,-1],\"_COMM\":[\"T\",\"U\"]}\n[1]\nno\n"),
                testing::ElementsAre("T 0/0 hi??? 0", "2 0 line 2: not an entry of a journal"));
    EXPECT_THAT(ReadLog("{\"MESSAGE\":" + std::string(300000, '[') + "104" +
                        std::string(300000, ']') + "}"),
                testing::ElementsAre("unknown 0/0 h 0", "0 0"));
    EXPECT_THAT(ReadLog("__A=\nMESSAGE=x\nMESSAGE=y\n\n\nMESSAGE\n\5\0\0\0\0\0\0\0abcd\n"s),
                testing::ElementsAre("unknown 0/0 x 0", "0 0 entry 2: a field is cut off"));
    EXPECT_THAT(ReadLog("__A=\nMESSAGE=cut of"),
                testing::ElementsAre("0 0 entry 1: a field is cut off"));
}

TEST(Estimates, OfMemoryAreWithinATenth) {
    const std::string folder = "/opt/usr/share/Trelvo/Default";
    fs::remove_all(folder);
    fs::create_directories(fs::path(folder).parent_path());
    size_t before = HeapInUse();
    MessageCounts counts(0);
    for (unsigned i = 0; i < 70000; ++i) {
        counts.Add(i % 5 == 0 ? "A" : "B", "request " + std::to_string(i) + " was answered", 2);
        counts.Add("B", std::string(30 + i % 90, 'x') + std::to_string(i), 2);
    }
    size_t taken = HeapInUse() - before;
    if (taken == 0) {
        GTEST_SKIP() << "a sanitizer's heap cannot be asked";
    }
    // It counts pointers of 64 bits, so that it says too much where they are smaller.
    const double above = sizeof(void*) == 8 ? 1.1 : 1.4;
    const double ratio = static_cast<double>(counts.Memory()) / static_cast<double>(taken);
    EXPECT_TRUE(ratio > 0.9 && ratio < above) << ratio;

    const Training training = Train(counts, {});
    WritePolicyFolder(folder, false, "1", training.tables);
    before = HeapInUse();
    CDBOperations::Instance()->CreateHashMap();
    EXPECT_FALSE(CDBOperations::Instance()->FindCode("A", "request 0 was answered").empty());
    taken = HeapInUse() - before;
    EXPECT_NEAR(static_cast<double>(training.memory_bytes) / static_cast<double>(taken), 1, 0.02);
}

class TrainProgram : public ::testing::Test {
protected:
    const std::string folder_ = "/tmp/train/";
    const std::string target_ = folder_ + "policy";
    TrainProgram() { fs::remove_all(folder_), fs::create_directories(folder_); }
    std::string Write(const std::string& name, const std::string& text) const {
        WriteFile(folder_ + name, text);
        return folder_ + name;
    }
    Output Train(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(),
                         {kProgram, "train", "-o", target_, "--policy-version", "a<&\"b"});
        return RunProgram(arguments);
    }
    std::map<std::string, std::string> Files() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(target_)) {
            files[entry.path().filename()] = ReadFile(entry.path());
        }
        return files;
    }
};

TEST_F(TrainProgram, TablesLoadAsTheyWereTrainedWhateverTheOrderOfInputs) {
    const std::string line = "1.000 I/A/&\"<'(P 1, T 2): f: g(1) > ";
    const std::string capture = Write("capture", line + "hello \xFF\n" + line + "hello \xFF\n" +
                                                     line + "once only\nno line\n" + line + "ab");
    const std::string counts = Write("counts", "B\ta\tb\t3\nT\x01G\tlong text\t9\n");
    Output result = Train({capture, counts, "--evaluate", capture, "--evaluate", capture});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("tag 'T\\x01G' cannot stand"));
    const std::string evaluated = "evaluated on   " + capture + R"(
  lines        4; 2 coded (50.0 %), 0 refused
  bytes a line 43.25 as text, 9.25 without tables, 6.25 with tables
)";
    for (const std::string& part :
         {std::string("\ntags           2 with a table, of 3\nentries        2\n"),
          "about 42 bytes of memory (estimate)\nlines          16; 5 coded (31.2 %)\n"
          "message bytes  131 as text, 113 with tables (13.7 % saved)\n" +
              evaluated + evaluated}) {
        EXPECT_THAT(result.out, HasSubstr(part));
    }
    EXPECT_EQ(fs::status(target_).permissions(), fs::perms(0755)) << "for the service's user";
    const auto files = Files();
    const CodeTables tables(target_);
    EXPECT_EQ(tables.Version(), "a<&\"b");
    EXPECT_EQ(tables.Message("A/&\"<'", "\0"s), "hello \xFF");
    EXPECT_EQ(tables.Message("B", "\0"s), "a\tb");

    result = Train({counts, capture});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("exists and is kept"));
    EXPECT_THAT(Train({counts, capture, "--force", "--min-count", "3"}).out,
                HasSubstr("entries        1\n"));
    EXPECT_EQ(Train({counts, capture, "--force"}).status, 0);
    EXPECT_EQ(Files(), files);
    Write("policy/notes", "kept");
    EXPECT_EQ(Train({counts, "--force"}).status, 2);
    EXPECT_EQ(Files().size(), 4U);
}

TEST_F(TrainProgram, WhatCannotBeReadIsToldAndDamageKeepsTheWholeLines) {
    // Version "1": two records of tag T, a code and a text that comes twice; then a cut one.
    const std::string dump = Write("dump",
                                   "\x01\x31\x07\x03T,1\x02\x02\x01\0\0\x21\x01\x80"s
                                   "\0\x21\x05hello\0\x21\x05hello\0\x21"s);
    const std::vector<std::tuple<std::vector<std::string>, int, std::string, bool>> rows{
        {{folder_ + "missing", dump}, 4, "missing: No such file", false},
        {{folder_}, 3, "no dumps in ", false},
        {{"-", "--evaluate", "-"}, 2, "standard input (-) can be read only once", false},
        {{Write("prose", "no log at all\n")},
         3,
         "none of 1 lines is capture text, which looks like this: 12.345 I/",
         false},
        {{Write("counts", "T\tsome text\t3\nT\tx\ty\n")}, 3, "line 2: is not", true},
        {{Write("journal", "{\"_COMM\":\"T\"}\n")}, 3, "none of 1 entries has a MESSAGE", false},
        {{"-", "--evaluate", "-"}, 2, "standard input (-) can be read only once", false},
        {{Write("once", "T\ttext\t1\n"), "--max-memory", "1b"}, 0, "dropped 1 of", true},
        {{Write("wide", std::string(300, 't') + "\ttext\t2\n")}, 0, "", true},
        {{Write("noxml", "T\uFFFF\ttext\t2\n")}, 0, "' cannot stand in a policy file", true},
        {{dump, "--evaluate", folder_ + "once"}, 4, "once: holds counts, which say", true},
        {{dump, "--policy", folder_}, 4, "policy_version.xml: No such file", false},
        {{dump, "--max-memory", "200"}, 4, "dropped 2 of the rarest texts, which had", true},
        {{dump}, 4, "1 messages may be codes of policy version '1'", true},
        {{dump}, 4, "offset 33: message is cut off", true}};
    for (const auto& [inputs, status, message, written] : rows) {
        const Output result = Train(inputs);
        EXPECT_EQ(result.status, status) << message << result.err;
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_EQ(fs::exists(target_), written) << message;
        fs::remove_all(target_);
    }
}

}  // namespace
