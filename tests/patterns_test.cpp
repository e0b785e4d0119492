// Messages that differ only in values as one pattern, and trelvoctl patterns.

#include <gmock/gmock.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "patterns/pattern_finder.h"
#include "patterns/pattern_table.h"
#include "support/dump_builder.h"
#include "support/folder_test.h"

using namespace trelvo;

namespace test_support {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

// The texts of all patterns.
std::vector<std::string> Texts(const std::vector<std::string>& messages) {
    PatternFinder finder;
    std::set<uint32_t> groups;
    std::vector<uint32_t> numbers;
    for (const std::string& message : messages) {
        numbers.push_back(finder.Take(message));
    }
    finder.Finish();
    for (const uint32_t number : numbers) {
        groups.insert(finder.Group(number));
    }
    EXPECT_EQ(groups.size(), finder.Patterns());
    std::vector<std::string> texts;
    for (const uint32_t group : groups) {
        texts.push_back(finder.Text(group));
    }
    return texts;
}

TEST(Patterns, ValuesAreToldByTheirLook) {
    const std::pair<std::string, const char*> rows[] = {
        {"link eth0 up at 100 Mbit/s", "link eth<*> up at <*> Mbit/s"},
        {"  tabs\tand   blanks ", "tabs and blanks"},
        {"from 10.0.0.1:22, [fe80::1%2] 00:1a:2B:3c:4d:ee", "from <*>, [<*>%<*>] <*>"},
        {"id 123e4567-e89b-12d3-a456-426614174000 0x1F deadbeef1 -5 +1.5e3", "id <*>"},
        {"at 2026-01-31T12:00:00.5Z or Sat, Jan 31 12:00:00 2026!", "at <*> or <*>!"},
        {"read 1.5 MB in 20 ms, 30% (2 KB)", "read <*> in <*>, <*>% (<*>)"},
        {"open /etc/a.conf: ../b, ~/c https://d.e/f?g=1 C:\\h\\i.dll", "open <*>: <*>, ~<*> <*>"},
        {"load/store of a.b by com.example.app and me@example.org",
         "load/store of a.b by <*> and <*>"},
        {"user=root, mode=\"rw now\" at=Rect(0, 1 - 2) x = y, empty= a==b",
         "user=<*>, mode=\"<*>\" at=<*> x = <*>, empty= a==<*>"},
        {"user=\"\",host=\"\",port=\"7\" to = \"Living room\"",
         "user=\"<*>\",host=\"<*>\",port=\"<*>\" to = \"<*>\""},
        {"say 'hello' or \"no such file\", don't \"\"",
         "say '<*>' or \"no such file\", don't \"\""},
        {"blk_-12 blk_3456 done", "blk_<*> done"},
        {"wait....1 a...b", "wait....<*> a...b"},
        {"took .25 of /12/34 now", "took <*> of <*> now"},
        {"open /sdcard/M\u00FCller/a now", "open <*> now"},
        {"x=[" + std::string(300, 'a') + " b] end", "x=<*> b] end"},
        {"a::b::c abc12 abcd12 ab1c2de3x xyz1ab2c src/a.c u@h b@", "a::b::c abc<*> <*> b@"},
        {"got 1, 2, 3; y=1 y=2 of p=(a(b) c)d (5 s)", "got <*>; y=<*> of p=<*> (<*>)"},
        {"", ""},
        {"= \" ' <*> (((", "= \" ' <*> ((("},
    };
    for (const auto& [message, text] : rows) {
        EXPECT_THAT(Texts({message}), ElementsAre(text));
    }
}

TEST(Patterns, WordsAreValuesWhereTheyVary) {
    struct Row {
        const char* situation;
        std::vector<std::string> messages;
        std::vector<std::string> texts;
    };
    const auto various = [](const std::string& start, int count) {
        std::vector<std::string> messages;
        for (int i = 0; i < count; ++i) {
            messages.push_back(start + std::string(4, static_cast<char>('a' + i)));
        }
        return messages;
    };
    auto later = various("start ", 14);
    later.insert(later.begin(), "start 7");
    const std::string who = "session opened for user ";
    const Row rows[] = {
        {"two are not enough",
         {"turn the light on", "turn the light off"},
         {"turn the light on", "turn the light off"}},
        {"three with four words around",
         {who + "ann", who + "bob", who + "cy", who + "dan"},
         {who + "<*>"}},
        {"eleven with one word around are not enough", various("start ", 11),
         various("start ", 11)},
        {"twelve are", various("start ", 12), {"start <*>"}},
        {"then all others, also where a number came first", later, {"start <*>"}},
        {"five with two are not", various("go to ", 5), various("go to ", 5)},
        {"six are", various("go to ", 6), {"go to <*>"}},
        {"three with three are not", various("come back to ", 3), various("come back to ", 3)},
        {"four are", various("come back to ", 4), {"come back to <*>"}},
        {"a word before its place is known to be a value", {who + "ann", who + "7"}, {who + "<*>"}},
        {"and after it", {who + "7", who + "ann"}, {who + "<*>"}},
        {"one word left to tell it by", {"error 7", "error again"}, {"error <*>", "error again"}},
        {"phrases that differ in several words",
         {"read failed: no such file", "read failed: permission was denied",
          "read failed: link went down", "read failed: time is up"},
         {"read failed: no such file", "read failed: permission was denied",
          "read failed: link went down", "read failed: time is up"}},
        {"two places, one after the other",
         {"ann has opened door north", "bob has opened door north", "cy has opened door north",
          "ann has opened door south", "bob has opened door south", "dan has opened door south",
          "ann has opened door east", "eve has opened door east", "fay has opened door east",
          "gus has opened door west", "bob has opened door west", "cy has opened door west",
          "zoe has opened door up"},
         {"<*> has opened door <*>"}},
        {"the first word at last",
         {"ann has opened door north", "ann has opened door south", "ann has opened door east",
          "bob has opened door north", "bob has opened door south", "bob has opened door east",
          "cy has opened door north", "cy has opened door south", "cy has opened door east",
          "dan has opened door north", "dan has opened door south", "dan has opened door east",
          "zoe has opened door up"},
         {"<*> has opened door <*>"}},
        {"two places, never one of them alone",
         {"user ann opened door a", "user bea opened door bb", "user cat opened door cc",
          "user dan opened door dd", "user eva opened door ee", "user fay opened door ff",
          "user gus opened door gg"},
         {"user <*> opened door <*>"}},
        {"two places, of which one has few values",
         {"user ann opened door a", "user bea opened door a", "user cat opened door bb",
          "user dan opened door bb", "user eva opened door cc", "user fay opened door cc",
          "user gus opened door dd", "user hal opened door dd"},
         {"user ann opened door a", "user bea opened door a", "user cat opened door bb",
          "user dan opened door bb", "user eva opened door cc", "user fay opened door cc",
          "user gus opened door dd", "user hal opened door dd"}},
        {"whole words within 2048 bytes",
         {std::string(2045, 'x') + " abcd", std::string(2045, 'x') + " ab"},
         {std::string(2045, 'x') + " <*>", std::string(2045, 'x') + " ab"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.situation);
        EXPECT_THAT(Texts(row.messages), UnorderedElementsAreArray(row.texts));
    }
}

TEST(Patterns, HostileMessagesAreFoldedWithinTheBound) {
    constexpr size_t kMax = 200;
    const auto run = [] {
        PatternFinder finder(kMax);
        std::vector<uint32_t> numbers;
        uint64_t state = 1;
        const auto letters = [&state](size_t count) {
            std::string word;
            for (size_t i = 0; i < count; ++i) {
                state = state * 6364136223846793005U + 1442695040888963407U;
                word += static_cast<char>('a' + (state >> 33U) % 26);
            }
            return word;
        };
        for (size_t i = 0; i < 20000; ++i) {
            std::string message;
            for (size_t words = i % 70; words > 0; --words) {
                message += letters(3 + i % 5) + ' ';
            }
            numbers.push_back(finder.Take(message));
        }
        numbers.push_back(finder.Take(std::string(1 << 20, 'x')));
        numbers.push_back(finder.Take(std::string(1 << 20, '(')));
        numbers.push_back(finder.Take("x=" + std::string(1 << 20, '[')));
        finder.Finish();
        EXPECT_LE(finder.Patterns(), 2 * kMax);
        EXPECT_LE(finder.Numbers(), 20 * kMax);
        EXPECT_TRUE(finder.IsFold(finder.Group(numbers[19999])));
        EXPECT_LT(finder.Text(finder.Group(numbers.back())).size(), 3000U);
        for (uint32_t& number : numbers) {
            number = finder.Group(number);
        }
        return numbers;
    };
    EXPECT_EQ(run(), run()) << "the same messages give the same patterns";
}

TEST(Patterns, AllCodesAreOnePattern) {
    PatternTable table;
    Line line;
    line.level = 'I';
    line.kind = Line::Message::kCode;
    for (const char* code : {"\xAA", "\x10", "\xFE\xFF"}) {
        line.message = code;
        static_cast<void>(table.Add(line, {}, 0));
    }
    table.Finish();
    ASSERT_EQ(table.Rows().size(), 1U);
    EXPECT_EQ(table.Rows()[0]->text, "<code <*>>");
    EXPECT_EQ(table.Rows()[0]->example, "<code AA>");
}

TEST(Patterns, NoLineIsLostWhereRowsAreGatheredIntoANewPattern) {
    const auto word = [](int number) {
        std::string letters;
        for (; letters.size() < 5; number /= 26) {
            letters += static_cast<char>('a' + number % 26);
        }
        return letters;
    };
    // So many patterns that one of the last lines, which become one, brings the gathering.
    for (int patterns = 4090; patterns <= 4096; ++patterns) {
        PatternTable table;
        Line line;
        line.level = 'I';
        const auto add = [&](const std::string& message) {
            line.message = message;
            static_cast<void>(table.Add(line, {}, 0));
        };
        for (int i = 0; i < patterns; ++i) {
            add('a' + word(i) + " b" + word(i) + " c" + word(i) + " d" + word(i));
        }
        for (int i = 0; i < 4; ++i) {
            add("user name is logged in from " + word(100000 + i));
        }
        table.Finish();
        uint64_t lines = 0;
        for (const auto& row : table.Rows()) {
            lines += row->count;
        }
        EXPECT_EQ(lines, static_cast<uint64_t>(patterns) + 4);
    }
}

class PatternsCommand : public FolderTest {
protected:
    // A line every 100 ms from 1 s on: level and message.
    void Dump(const std::string& name, const std::vector<std::pair<char, std::string>>& lines) {
        DumpBuilder dump;
        for (const auto& [level, message] : lines) {
            dump.Line(&message == &lines.front().second ? 0 : 100, message, "A,10", level);
        }
        WriteFile(folder_ / name, dump.Image(900 + 100 * static_cast<int64_t>(lines.size())));
    }
    Output Run(const std::string& line) const {
        return FolderTest::Run("trelvoctl patterns " + line);
    }
};

TEST_F(PatternsCommand, CountsEachLineOnceAndNumbersThePatterns) {
    std::vector<std::pair<char, std::string>> lines{
        {'I', "took 5 ms"}, {'I', "up"}, {'E', "took 70 ms"}};
    Dump("1.dump", lines);
    lines.emplace_back('I', "took 9 ms\x1B[2J");
    lines.emplace_back('I', "took 1 s");
    Dump("2.dump", lines);

    const Output table = Run(".");
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.err, "");
    EXPECT_EQ(table.out,
              "    COUNT L FIRST  LAST TIMELINE                   PATTERN\n"
              "        3 E 1.000 1.400 █           █            █ took <*>\n"
              "            A: took 5 ms\n"
              "        1 I 1.100 1.100       █                    up\n"
              "        1 I 1.300 1.300                   █        took <*> [<*>\n"
              "            A: took 9 ms\\x1B[2J\n");
    EXPECT_THAT(Run("-o json .").out,
                testing::StartsWith(
                    R"({"pattern":1,"text":"took <*>","count":3,"level":"E","levels":)"
                    R"({"E":1,"I":2},"first":{"time_ms":1000},"last":{"time_ms":1400},)"
                    R"("part_ms":16,"timeline":[1,0,0,0,0,0,0,0,0,0,0,0,1,0,0,0,0,0,0,0,0,0,0,)"
                    R"(0,0,1],"tag":"A","example":"took 5 ms","folded":false})"));

    // As decode gives them, with the number; of standard input as well.
    const std::string expected =
        FolderTest::Run("trelvoctl decode -o json 2.dump | sed 's/2.dump/standard input/'").out;
    std::string lines_out = Run("--lines -o json - <2.dump").out;
    std::vector<int> numbers;
    for (size_t at = 0; (at = lines_out.find(",\"pattern\":", at)) != std::string::npos;) {
        numbers.push_back(std::stoi(lines_out.substr(at + 11)));
        lines_out.erase(at, lines_out.find('}', at) - at);
    }
    EXPECT_THAT(numbers, ElementsAre(1, 2, 1, 3, 1));
    EXPECT_EQ(lines_out, expected);
    const std::string who = "session opened for user ";
    Dump("users", {{'I', who + "ann"}, {'I', who + "bob"}, {'W', who + "cy"}, {'I', who + "dan"}});
    EXPECT_THAT(Run("users").out, HasSubstr("\n        4 W 1.000 1.300 "));
    EXPECT_THAT(Run("-o json users").out, HasSubstr(R"("levels":{"I":3,"W":1})"));
    WriteFile(folder_ / "next", DumpBuilder().Line(0, "up").Line(200, "up").Image(700));
    EXPECT_THAT(Run("-o json 1.dump next").out,
                HasSubstr("[0,0,0,0,0,0,1,0,0,0,0,0,1,0,0,0,0,0,0,0,0,0,0,0,0,1]"))
        << "time starts over";
    const std::string clock =
        "boot=" + std::string(32, 'a') + " host=h wall=1769860800.000000 monotonic=1.000000";
    WriteFile(folder_ / "wall",
              DumpBuilder().Line(0, clock, "trelvo.clock,1").Line(5, "up").Image(1005));
    for (const auto& [options, time] : {std::pair(" ", " 01-31 21:00:00.005 "),
                                        {" --utc ", " 01-31 12:00:00.005 "},
                                        {" -o json ", "2026-01-31T21:00:00.005+09:00"}}) {
        const std::string line = std::string("TZ=UTC-9 trelvoctl patterns") + options + "wall";
        EXPECT_THAT(FolderTest::Run(line).out, HasSubstr(time));
    }
}

TEST_F(PatternsCommand, TellsWhatItCannotDo) {
    Dump("1.dump", {{'I', "up"}, {'I', "down"}});
    EXPECT_EQ(Run("--lines 1.dump").status, 2);
    EXPECT_EQ(Run("A:V").status, 2);
    EXPECT_EQ(Run("missing.dump").status, 3);
    EXPECT_EQ(Run("-g nothing 1.dump").status, 6);
    EXPECT_EQ(Run("--lines -o json A:E 1.dump").out, "");
    WriteFile(folder_ / "cut.dump", ReadFile(folder_ / "1.dump").substr(0, 19));
    const Output cut = Run("--lines -o json cut.dump");
    EXPECT_EQ(cut.status, 3);
    EXPECT_THAT(cut.out, HasSubstr("\"pattern\":1}"));
    EXPECT_EQ(std::count(cut.err.begin(), cut.err.end(), '\n'), 1) << "said once: " << cut.err;

    std::vector<std::pair<char, std::string>> lines;
    for (int i = 0; i < 11000; ++i) {
        std::string word;
        for (int rest = i; word.size() < 4; rest /= 26) {
            word += static_cast<char>('a' + rest % 26);
        }
        lines.emplace_back('I', word + '_' + word + '.' + word);
    }
    lines.push_back(lines.back());
    Dump("many.dump", lines);
    const Output many = Run("many.dump");
    EXPECT_EQ(many.status, 0);
    EXPECT_THAT(many.err, HasSubstr("1001 lines are folded"));
}

}  // namespace
}  // namespace test_support
