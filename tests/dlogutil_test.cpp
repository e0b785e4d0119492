#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dlog.h"
#include "dlogutil/clock_lines.h"
#include "dlogutil/journal_entry.h"
#include "dlogutil/journal_follower.h"
#include "dlogutil/keeper.h"
#include "dlogutil/losses.h"
#include "dlogutil/options.h"
#include "dlogutil/rotating_file.h"
#include "dlogutil/sync_server.h"
#include "support/journal.h"
#include "support/process.h"
#include "support/sanitizers.h"

namespace fs = std::filesystem;

namespace dlogutil {
namespace {

using test_support::ReadFile;
using test_support::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;

// The parts of `text` between blanks, or another separator.
std::vector<std::string> Words(const std::string& text, char separator = ' ') {
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);) {
        words.push_back(word);
    }
    return words;
}

Options Parse(const std::string& arguments) {
    std::vector<std::string> words = Words("dlogutil " + arguments);
    std::vector<char*> argv(words.size() + 1);
    std::transform(words.begin(), words.end(), argv.begin(),
                   [](auto& word) { return word.data(); });
    return ParseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(Options, CaptureCommandIsReadAndWrongOnesAreRefused) {
    const Options options = Parse("-r 512k -n 99 -f /tmp/f -v kerneltime A:D :W");
    EXPECT_EQ(options.limit_bytes, 512U * 1024);
    EXPECT_EQ(options.rotated_count, 99);
    EXPECT_EQ(options.file, "/tmp/f");
    const std::pair<const char*, const char*> wrong[] = {
        {"-r 0", "-r 0: not a size in KiB"},
        {"-r k", "-r k: not a size in KiB"},
        {"-r -4", "-r -4: not a size in KiB"},
        {"-r", "-r needs a value"},
        {"-n 100", "-n 100: not a number from 0 to 99"},
        {"-n 1x", "-n 1x: not a number from 0 to 99"},
        {"-n -1", "-n -1: not a number from 0 to 99"},
        {"-v time", "-v time: only kerneltime is supported"},
        {"-x", "-x: not an option"},
        {"A", "'A' is not TAG:LEVEL with a level of VDIWEFS"},
        {"A:", "'A:' is not TAG:LEVEL with a level of VDIWEFS"},
        {"A:X", "'A:X' is not TAG:LEVEL with a level of VDIWEFS"},
        {"A:WW", "'A:WW' is not TAG:LEVEL with a level of VDIWEFS"},
        {"A:W B", "'B' is not TAG:LEVEL with a level of VDIWEFS"},
    };
    for (const auto& [words, fault] : wrong) {
        try {
            (void)Parse(words);
            ADD_FAILURE() << words;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), fault);
        }
    }
    const auto run = test_support::RunProgram({(TRELVO_BIN_DIR "/dlogutil"), "-x"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("-x: not an option"));
}

TEST(Options, FiltersSelectByTagAndLevel) {
    struct {
        const char* filters;
        const char* passing;  // of the levels of the tags A and B
    } const rows[] = {
        {"", "AV AD AI AW AE AF AS BV BD BI BW BE BF BS "},
        {"A:w", "AW AE AF AS "},
        {"*:F A:S", "BF BS "},
        {"A:F B:V B:F A:E", "AE AF AS BF BS "},
        {"A:B:V :V", ""},
    };
    for (const auto& row : rows) {
        const TagFilters filters = Parse(row.filters).filters;
        std::string passing;
        for (const char* tag : {"A", "B"}) {
            for (const char level : kLevels) {
                passing += filters.Passes(tag, level) ? std::string(tag) + level + ' ' : "";
            }
        }
        EXPECT_EQ(passing, row.passing) << row.filters;
    }
    setenv("TRELVO_SERVICE_TAG", "A", 1);
    EXPECT_FALSE(Parse("*:V").filters.Passes("A", 'F'));
    EXPECT_TRUE(Parse("A:V").filters.Passes("A", 'V')) << "it is named";
    unsetenv("TRELVO_SERVICE_TAG");
}

// "NAME=value|NAME=value"
Fields MakeFields(const std::string& text) {
    Fields fields;
    for (const std::string& field : Words(text, '|')) {
        fields.Take(field);
    }
    return fields;
}

std::string Lines(const Fields& fields, uint64_t usec) {
    std::string lines;
    AppendLines(fields, TagOf(fields), usec, lines);
    return lines;
}

TEST(LineFormat, EntriesBecomeLines) {
    struct {
        const char* fields;
        const char* lines;
    } const rows[] = {
        {"MESSAGE=hi|PRIORITY=4|SYSLOG_IDENTIFIER=tag|_COMM=prog|_PID=10|SYSLOG_PID=9",
         "12.005 W/tag     (P10, T10): prog: prog(0) > hi\n"},
        {"MESSAGE=hi|_COMM=systemd|TID=11|SYSLOG_PID=9|CODE_FILE=../a/b.c|CODE_FUNC=f|CODE_LINE=52",
         "12.005 I/systemd (P9, T11): b.c: f(52) > hi\n"},
        {"MESSAGE=hi|CODE_FILE=src/|CODE_LINE=x", "12.005 I/unknown (P0, T0): ?: ?(0) > hi\n"},
        {"MESSAGE=a.c: f(1) > one > 1\r\n \t\n\r\ntwo\n|DLOG_LEVEL=V|SYSLOG_IDENTIFIER=LONG_ENOUGH",
         "12.005 V/LONG_ENOUGH(P0, T0): a.c: f(1) > one > 1\n"
         "12.005 V/LONG_ENOUGH(P0, T0): a.c: f(1) > two\n"},
        {"MESSAGE=no prefix\ntwo|DLOG_LEVEL=V|_COMM=c",
         "12.005 V/c       (P0, T0): c: c(0) > no prefix\n"
         "12.005 V/c       (P0, T0): c: c(0) > two\n"},
        {"MESSAGE=x|DLOG_LEVEL=|PRIORITY=3|_COMM=c", "12.005 E/c       (P0, T0): c: c(0) > x\n"},
        {"MESSAGE=x|DLOG_LEVEL=VV|_COMM=c", "12.005 I/c       (P0, T0): c: c(0) > x\n"},
        {"MESSAGE=x|SYSLOG_IDENTIFIER= trelvo.clock|_COMM=c|_COMM=d|MESSAGE=y|MESSAGES=z",
         "12.005 I/trelvo_clock(P0, T0): c: c(0) > x\n"},
        {"_COMM=c", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Lines(MakeFields(row.fields), 12005999), row.lines) << row.fields;
    }
    std::string levels;
    for (const char* priority : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "", "-1"}) {
        levels += LevelOf(MakeFields(std::string("PRIORITY=") + priority));
    }
    EXPECT_EQ(levels, "FFFEWIIDIII");
}

TEST(LineFormat, LinesOfAnEntryAreBounded) {
    for (const auto& [lines, end] : std::vector<std::pair<size_t, std::string>>{
             {256, "(0) > x\n"},
             {257, "(0) > lines of this entry left out: 1\n"},
             {32768, "(0) > lines of this entry left out: 32512\n"},
             {32769, "(0) > lines of this entry left out: at least 32512\n"}}) {
        std::string message = "MESSAGE=";
        for (size_t i = 0; i < lines; ++i) {
            message += "x\n";
        }
        const std::string text = Lines(MakeFields(message), 1000000);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), std::min<long>(257, long(lines)));
        EXPECT_THAT(text, testing::EndsWith(end)) << lines;
    }
    const std::string fitting(kMaxMessage, 'x');
    EXPECT_THAT(Lines(MakeFields("MESSAGE=" + fitting), 1000000),
                testing::EndsWith("(0) > " + fitting + '\n'));
    EXPECT_THAT(Lines(MakeFields("MESSAGE=" + fitting + 'y'), 1000000),
                testing::EndsWith("xx\n1.000 I/unknown (P0, T0): unknown: unknown(0) > "
                                  "lines of this entry left out: at least 1\n"));
}

// What a reader takes from a line that it splits at the first occurrence of each delimiter; empty
// when a delimiter is not where the line format puts it.
std::string Split(const std::string& line) {
    const size_t process = line.find("(P");
    const size_t thread = line.find(", T");
    const size_t close = line.find("):");
    const size_t arrow = line.find(" > ");
    if (line.rfind("1.000 I/", 0) != 0 || line.find('/') != 7 || process < 16 ||
        thread >= line.size() || line.find_first_not_of("0123456789", process + 2) != thread ||
        thread <= process + 2 || line.find_first_not_of("0123456789", thread + 3) != close ||
        close <= thread + 3 || arrow >= line.size() || arrow <= close + 1) {
        return "";
    }
    std::stoi(line.substr(process + 2));  // must not throw
    std::stoi(line.substr(thread + 3));
    return line.substr(8, process - 8) + "|" + line.substr(arrow + 3);
}

TEST(LineFormat, HostileFieldsCannotMoveADelimiter) {
    struct {
        std::string fields;
        std::string expected;  // padded tag and message
    } const rows[] = {
        {"SYSLOG_IDENTIFIER=x, Ty", "x_ Ty   |hi"},
        {"SYSLOG_IDENTIFIER=(P(P1, T2): > > x", "_P_P1_ T2_: _ _ x|hi"},
        {"SYSLOG_IDENTIFIER=a >", "a _     |hi"},  // the padding would complete it
        {"SYSLOG_IDENTIFIER=> a)(,", "> a)(,  |hi"},
        {std::string("SYSLOG_IDENTIFIER=a\n9.9 I/b\0\x7f", 29), "a_9.9 I/b__|hi"},
        {"SYSLOG_IDENTIFIER=  |_COMM= c ", "c       |hi"},
        {"SYSLOG_IDENTIFIER=" + std::string(9000, 't'), std::string(128, 't') + "|hi"},
        {"_PID=2147483648|SYSLOG_PID=-1|TID=" + std::string(99, '0') + "1", "unknown |hi"},
        {"SYSLOG_PID=1 |TID=1, T", "unknown |hi"},
        {"CODE_FILE=> a > \n|CODE_FUNC=f > g >|CODE_LINE=1 > 2", "unknown |hi"},
        {"_COMM=> a > b", "> a _ b |hi"},
    };
    for (const auto& row : rows) {
        const auto lines = Words(
            Lines(MakeFields(row.fields + "|MESSAGE=hi\n2.0 F/evil(P1, T1): e > vil"), 1000000),
            '\n');
        ASSERT_EQ(lines.size(), 2U) << row.fields;
        EXPECT_EQ(Split(lines[0]), row.expected) << lines[0];
        EXPECT_THAT(Split(lines[1]), HasSubstr("|2.0 F/evil(P1, T1): e > vil")) << lines[1];
    }
    const auto lines = Words(
        Lines(MakeFields("DLOG_LEVEL=I|MESSAGE=" + std::string(60000, 'x') + " > y\nz"), 1000000),
        '\n');
    EXPECT_EQ(Split(lines.at(1)), "unknown |z") << "a long prefix is not repeated";
}

// Told of everything that this program writes by the C library's call.
std::function<void(std::string_view)> on_write;

class RotatingFileTest : public testing::Test {
protected:
    void SetUp() override { fs::remove_all(kFolder); }
    void TearDown() override { fs::remove_all(kFolder); }

    static std::error_code Append(RotatingFile& file, std::string_view lines) {
        std::error_code error;
        while (!lines.empty() && !error) {
            error = file.Append(lines);
        }
        return error;
    }

    // The contents of the current file and of the rotated ones, newest first.
    static std::vector<std::string> Files() {
        std::vector<std::string> files;
        for (std::string name = kFile; fs::exists(name);
             name = kFile + "." + std::to_string(files.size())) {
            files.push_back(ReadFile(name));
        }
        return files;
    }

    const fs::path kFolder = "/tmp/rotating";
    static inline const std::string kFile = "/tmp/rotating/file";
};

TEST_F(RotatingFileTest, FullFilesAreRenamedAndTheOldestVanishes) {
    {
        RotatingFile file(kFile, 8, 2);
        EXPECT_EQ(fs::status(kFolder).permissions(), fs::perms::owner_all);
        for (const char* lines : {"1aa\n", "2aa\n3aaaaaaaa\n4aaa\n", "5aa\n6aaaaaaa\n"}) {
            EXPECT_FALSE(Append(file, lines));
        }
        EXPECT_THAT(Files(), ElementsAre("6aaaaaaa\n", "4aaa\n5aa\n", "3aaaaaaaa\n"));
        fs::remove(kFile + ".1");  // a reader that has read it
        EXPECT_FALSE(Append(file, "7\n"));
        EXPECT_THAT(Files(), ElementsAre("7\n", "6aaaaaaa\n", "3aaaaaaaa\n"));
    }
    {
        RotatingFile file(kFile, 4, 2);
        EXPECT_THAT(Files(), ElementsAre("")) << "left-overs";
        EXPECT_FALSE(Append(file, "1aa\n"));
        EXPECT_FALSE(file.HasUnread());
        EXPECT_FALSE(Append(file, "2aa\n"));  // full to the byte
        EXPECT_TRUE(file.HasUnread());
        fs::remove(kFile + ".1");
    }
    RotatingFile file(kFile, 4, 0);
    EXPECT_FALSE(Append(file, "1234\n5\n"));
    EXPECT_THAT(Files(), ElementsAre("5\n")) << "none is kept";
}

TEST_F(RotatingFileTest, ForeignPlacesAreRefused) {
    // Why it cannot be opened.
    const auto open = []() -> std::string {
        try {
            (void)RotatingFile(kFile, 4, 1);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };
    fs::create_directory_symlink("/tmp", kFolder);
    EXPECT_EQ(open(), "/tmp/rotating: Not a directory") << "a link";
    fs::remove(kFolder);
    fs::create_directory(kFolder);
    WriteFile("/tmp/target", "precious");
    for (const std::string& name : {kFile, kFile + ".1"}) {
        fs::create_symlink("/tmp/target", name);
        EXPECT_THAT(open(), HasSubstr(name + ": ")) << "a link";
        fs::remove(name);
        fs::create_hard_link("/tmp/target", name);
        EXPECT_EQ(open(), name + ": not a plain file of this user's own") << "a second name";
        fs::remove(name);
    }
    EXPECT_EQ(ReadFile("/tmp/target"), "precious");
    RotatingFile writer(kFile, 4, 1);
    EXPECT_EQ(open(), kFolder.string() + ": another dlogutil writes there");
    if (chown(kFolder.c_str(), 12345, 12345) == 0) {  // not in a user namespace
        EXPECT_EQ(open(), kFolder.string() + ": belongs to another user, who must remove it");
    }
}

TEST_F(RotatingFileTest, OnlyALineByItselfIsWrittenAcrossTheEndOfAPage) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    RotatingFile file(kFile, 40 * page, 1);
    std::string text;
    for (size_t i = 0; text.size() < 20 * page; ++i) {
        text += std::string(i == 100 ? 2 * page : i * 37 % 211, 'x') + '\n';
    }
    size_t size = 0;
    size_t across = 0;
    on_write = [&](std::string_view piece) {
        if (size / page != (size + piece.size() - 1) / page) {
            EXPECT_EQ(piece.find('\n'), piece.size() - 1) << size;
            ++across;
        }
        EXPECT_EQ(piece.back(), '\n') << size;
        size += piece.size();
    };
    const std::error_code error = Append(file, text);
    on_write = nullptr;
    EXPECT_FALSE(error);
    EXPECT_GT(across, 10U);
    EXPECT_EQ(ReadFile(kFile), text);
}

TEST_F(RotatingFileTest, HalfALineIsTakenBackAndCanBeTriedAgain) {
    RotatingFile file(kFile, 1000, 1);
    ASSERT_FALSE(Append(file, "first\n"));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit full{15, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    std::string_view lines = "second\nthird\n";
    const std::error_code error = file.Append(lines);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    signal(SIGXFSZ, handler);
    EXPECT_TRUE(error);
    EXPECT_THAT(Files(), ElementsAre("first\nsecond\n"));
    EXPECT_FALSE(Append(file, lines));
    EXPECT_THAT(Files(), ElementsAre("first\nsecond\nthird\n"));
}

TEST_F(RotatingFileTest, ASuccessorGoesOnWhereverItsPredecessorWasKilled) {
    using Files = std::vector<std::string>;
    // `text` was to be written behind "old\n", or at the front of a file that follows "full\n".
    struct Row {
        const char* current;
        const char* fresh;
        const char* rotated;
        Files expected;  // when the rest of the text is written
    };
    const char* const text = "one\ntwo\n";
    const Row rows[] = {
        {"old\n", "", "", {"old\none\ntwo\n"}},
        {"old\none\n", "", "", {"old\none\ntwo\n"}},
        {"old\none\ntw", "x", "", {"old\none\ntwo\n"}},
        {"old\none\ntwo\n", "", "", {"old\none\ntwo\n"}},
        {"", "old\n", "", {"one\ntwo\n", "old\n"}},
        {"", "", "old\n", {"one\ntwo\n", "old\n"}},
    };
    for (const Row& row : rows) {
        fs::remove_all(kFolder);
        fs::create_directory(kFolder);
        FilePlace from{0, 4};
        for (const auto& [content, name] : {std::pair(row.fresh, kFile + ".new"),
                                            {row.rotated, kFile + ".1"},
                                            {row.current, kFile}}) {
            if (*content != '\0' || name == kFile) {
                WriteFile(name, content);
            }
            if (std::string(content).rfind("old", 0) == 0) {
                struct stat info {};
                ASSERT_EQ(stat(name.c_str(), &info), 0);
                from.inode = info.st_ino;
            }
        }
        std::string rest = text;
        RotatingFile file(kFile, 10, 1, from, rest);  // which half a line would fill
        EXPECT_FALSE(Append(file, rest));
        EXPECT_EQ(RotatingFileTest::Files(), row.expected) << row.current << '|' << row.fresh;
    }
}

// The next line of entries under `tag`; empty when there is none at the limit.
std::string NextLine(JournalFollower& follower, const std::string& tag) {
    for (JournalEntry entry;;) {
        while (follower.Next(entry)) {
            if (TagOf(entry.fields) == tag) {
                const std::string line = Lines(entry.fields, entry.usec);
                return line.substr(line.find(' ') + 1);
            }
        }
        pollfd news[] = {{follower.JournalFd(), POLLIN, 0}, {follower.FoldersFd(), POLLIN, 0}};
        if (poll(news, 2,
                 static_cast<int>(std::chrono::milliseconds(test_support::kLimit).count())) <= 0) {
            return "";
        }
        follower.Process();
    }
}

TEST(JournalFollower, SaysThatAJournalHasNothingOfThisBoot) {
    const test_support::Journal journal;
    setenv("TRELVO_BOOT_ID", "0123456789abcdef0123456789abcdef", 1);
    JournalFollower follower;
    unsetenv("TRELVO_BOOT_ID");
    JournalEntry entry;
    EXPECT_FALSE(follower.Next(entry));
    EXPECT_EQ(follower.Fault(),
              "the journal has no entry of this boot, 0123456789abcdef0123456789abcdef");
}

TEST(JournalFollower, GivesEachEntryOnceWhateverHappensToTheJournal) {
    fs::remove_all("/run/log");
    JournalFollower follower;
    EXPECT_THAT(follower.Fault(), HasSubstr("no journal in /run/log/journal"));
    fs::create_directories("/run/log/journal");
    JournalFollower empty;
    EXPECT_THAT(empty.Fault(), HasSubstr("no journal in /run/log/journal"));
    std::optional<test_support::Journal> journal(std::in_place);
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_VERBOSE, "x, Ty", "a.c: f(%d) > %s", 1, "hi"), 14);
    EXPECT_THAT(NextLine(follower, "x_ Ty"), HasSubstr("): a.c: f(1) > hi\n"));
    EXPECT_THAT(NextLine(empty, "x_ Ty"), HasSubstr("): a.c: f(1) > hi\n"));
    EXPECT_EQ(follower.Fault() + follower.Note() + empty.Fault(), "");
    const std::vector<std::pair<std::string, std::function<void()>>> events = {
        {"a crash",
         [&] {
             journal->End(SIGKILL);
             journal.emplace();
         }},
        {"a rotation",
         [] {
             (void)test_support::RunProgram({"journalctl", "--rotate"});
         }},
        {"what was read is vacuumed",
         [] {
             (void)test_support::RunProgram({"journalctl", "--vacuum-files=1"});
         }},
        {"no file descriptors when the journal's folder comes",
         [&] {
             fs::rename("/run/log/journal", "/run/log/away");
             fs::rename("/run/log/away", "/run/log/journal");
             // The first one needs descriptors where a sanitizer checks its type.
             (void)JournalError(EMFILE, std::generic_category(), "");
             rlimit before{};
             ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
             const rlimit none{3, before.rlim_max};
             ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
             EXPECT_THROW(follower.Process(), JournalError);
             JournalEntry entry;
             EXPECT_THROW((void)follower.Next(entry), JournalError);
             ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
         }},
        {"its files go",
         [&] {
             journal->End(SIGTERM);
             fs::remove_all("/run/systemd/journal");  // a socket that nobody listens on
             fs::remove_all("/run/log/journal");
             fs::create_directories("/run/log/journal");
             journal.emplace();
         }},
    };
    int sent = 0;
    const auto send = [&sent] {
        test_support::LogFollower log("counted");
        const std::string text = "<" + std::to_string(++sent) + ">";
        test_support::Journal::Send({"SYSLOG_IDENTIFIER=counted", "MESSAGE=" + text});
        ASSERT_NE(log.WaitFor(text), "");
    };
    const auto expect_next = [&](const std::string& name) {
        ASSERT_THAT(NextLine(follower, "counted"), HasSubstr("> <" + std::to_string(sent) + ">\n"))
            << name;
    };
    for (const auto& [name, happens] : events) {
        send();
        if (name == "its files go") {
            expect_next(name);
            happens();
        } else {
            happens();
            expect_next(name);
        }
        send();
        expect_next(name);
    }
    send();
    (void)test_support::RunProgram({"journalctl", "--rotate"});
    send();
    EXPECT_NE(NextLine(follower, "counted"), "");
    JournalPlace place = follower.Place();
    place.counts = {7, 8, UINT64_MAX / 2};
    JournalFollower successor(place);
    EXPECT_THAT(NextLine(successor, "counted"), HasSubstr("> <" + std::to_string(sent) + ">\n"));
    EXPECT_EQ(successor.Place().counts.last_usec, UINT64_MAX / 2) << "no time runs backwards";
    EXPECT_EQ(successor.Lost() + successor.UncountedGaps(), 15U);
    (void)test_support::RunProgram({"journalctl", "--vacuum-files=1"});
    JournalFollower bereft(place);
    EXPECT_THAT(NextLine(bereft, "systemd-journald"), HasSubstr("Runtime Journal"))
        << "the first entry that is left";
}

TEST(ClockLines, OneIsDueWhereALineWouldNotTellItsWallClock) {
    struct {
        const char* moment;
        uint64_t usec;
        uint64_t wall_usec;
        bool is_due;
    } const rows[] = {
        {"the first line", 1000000, 500, true},
        {"the same clock", 2000000, 1000500, false},
        {"20 ms later", 3000000, 2020500, false},
        {"more than 20 ms later", 3000000, 2020501, true},
        {"that clock", 3000001, 2020502, false},
        {"20 ms earlier", 3000002, 2000503, false},
        {"set back", 4000000, 1000000, true},
        {"nearly ten minutes", 603999999, 600999999, false},
        {"ten minutes", 604000000, 601000000, true},
        {"a day later", 90000000000, 89997000000, true},
        {"a week later", 2147483647000, 2147480647000, true},
        {"the last time that a line holds", 2147483647000, 2147480647000, false},
        {"past it", 2147483647001, 2147480647001, false},
        {"past it, a second later", 2147484000000, 2147481000000, true},
        {"the same second", 2147484999999, 2147481999999, false},
        {"the next one", 2147485000000, 2147482000000, true},
    };
    ClockLines clock;
    for (const auto& row : rows) {
        EXPECT_EQ(clock.IsDue(row.usec, row.wall_usec), row.is_due) << row.moment;
    }
    EXPECT_EQ(ClockMessage("0f", "a b\xc3_.-Z9" + std::string(99, 'x'), 1000001, 1700000000000020),
              "boot=0f host=a?b?_.-Z9" + std::string(55, 'x') +
                  " wall=1700000000.000020 monotonic=1.000001");
}

TEST(StateMemory, ASuccessorFindsAllThatWasSavedLast) {
    const port::UniqueFd memory(memfd_create("state", 0));
    CaptureState state;
    EXPECT_FALSE(StateMemory(memory.Get()).Load(state));
    for (uint64_t n = 1; n < 4; ++n) {
        state = {{std::to_string(n), {n, n + 1, n + 2}},
                 {},
                 {n + 3, n + 4, n + 5, n + 6},
                 {n + 7, n + 8, n + 9, n + 10},
                 {n + 11, n + 12},
                 ""};
        EXPECT_TRUE(state.clock.IsDue(n, 1));
        StateMemory(memory.Get()).Save(state, "text" + state.journal.cursor);
        CaptureState found;
        ASSERT_TRUE(StateMemory(memory.Get()).Load(found));
        EXPECT_EQ(found.journal.cursor, state.journal.cursor);
        EXPECT_EQ(found.journal.counts.last_usec, n + 2);
        EXPECT_TRUE(found.losses == state.losses && found.said == state.said);
        EXPECT_EQ(found.file.size, n + 12);
        EXPECT_EQ(found.text, "text" + state.journal.cursor);
        EXPECT_FALSE(found.clock.IsDue(n, 1));
    }
}

TEST(KeeperSocket, SaysAStateOnceAndAgainWhatCouldNotBeSent) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    const port::UniqueFd own(ends[0]);
    const port::UniqueFd service(ends[1]);
    const auto heard = [&service] {
        std::string message(200, '\0');
        const ssize_t size = recv(service.Get(), message.data(), message.size(), MSG_DONTWAIT);
        return message.substr(0, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    };
    KeeperSocket keeper(own.Get());
    for (const char* const expected : {"Salive=1\nreason=a note\n", ""}) {
        keeper.SayState("", "a\nnote", {});
        EXPECT_EQ(heard(), expected);
    }
    while (send(own.Get(), "x", 1, MSG_DONTWAIT) == 1) {
    }
    keeper.SayState("fault", "a note", {});
    while (!heard().empty()) {
    }
    keeper.SayState("fault", "a note", {});
    EXPECT_EQ(heard(), "Salive=0\nreason=fault\n");
}

TEST(LossReport, SaysWhatIsNewOnceAMinute) {
    const LossReport::Time start;
    LossReport report;
    LossCounts counts;
    EXPECT_EQ(report.Take(counts, start), std::nullopt);
    counts.left_out = 5;
    EXPECT_EQ(report.Take(counts, start), "lost: 5 lines of entries that are too long");
    counts.left_out = 7;
    counts.unreadable = 1;
    EXPECT_EQ(report.Take(counts, start + std::chrono::seconds(59)), std::nullopt);
    EXPECT_EQ(report.Next(counts), start + std::chrono::seconds(60));
    EXPECT_EQ(report.Take(counts, start + std::chrono::seconds(60)),
              "lost: 1 entries that could not be read, 2 lines of entries that are too long");
    EXPECT_EQ(report.Next(counts), std::nullopt);
}

// The capture's socket, or another one.
port::UniqueFd Connect(const std::string& path = "/tmp/capture/file.sync", int type = SOCK_STREAM) {
    port::UniqueFd fd(socket(AF_UNIX, type, 0));
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, path.size());
    EXPECT_EQ(connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

TEST(SyncServer, OfClientsThatGoAwayWhileTheJournalIsAskedNothingIsLeft) {
    const auto listen_at = [](const std::string& path, int type = SOCK_STREAM) {
        port::UniqueFd fd(socket(AF_UNIX, type | SOCK_NONBLOCK, 0));
        sockaddr_un address{AF_UNIX, {}};
        path.copy(address.sun_path, path.size());
        EXPECT_EQ(bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd.Get(), 9) == 0, type == SOCK_STREAM);
        return fd;
    };
    fs::create_directories("/run/systemd/journal");
    const port::UniqueFd journal = listen_at("/run/systemd/journal/io.systemd.journal");
    SyncServer server(listen_at("/tmp/sync"));
    const auto process = [&server] {  // returns for how many descriptors it waits then
        std::vector<pollfd> waits;
        server.Process();
        server.AddTo(waits);
        return std::count_if(waits.begin(), waits.end(), [](pollfd& wait) { return wait.fd >= 0; });
    };
    std::optional<port::UniqueFd> client(Connect("/tmp/sync"));
    EXPECT_EQ(process(), 3);
    EXPECT_TRUE(port::UniqueFd(accept(journal.Get(), nullptr, nullptr)));
    client.reset();
    EXPECT_EQ(process(), 1);
    client.emplace(Connect("/tmp/sync"));
    EXPECT_EQ(process(), 3);
    port::UniqueFd asked(accept(journal.Get(), nullptr, nullptr));
    EXPECT_FALSE(server.NeedsReading());
    // What this one has logged may be newer than what the journal was asked for.
    std::optional<port::UniqueFd> late(Connect("/tmp/sync"));
    EXPECT_EQ(process(), 4);
    EXPECT_EQ(send(asked.Get(), "{}", 3, 0), 3);
    process();
    EXPECT_TRUE(server.NeedsReading());
    server.Answer();
    EXPECT_TRUE(test_support::WaitForInput(client->Get()));
    EXPECT_EQ(process(), 3);
    EXPECT_TRUE(port::UniqueFd(accept(journal.Get(), nullptr, nullptr))) << "asked again";
    late.reset();
    process();

    // A journal that refuses, and whose queue has no room for a marker.
    const std::string queue = "/run/systemd/journal/socket";
    const port::UniqueFd full = listen_at(queue, SOCK_DGRAM);
    const port::UniqueFd filler = Connect(queue, SOCK_DGRAM);
    while (send(filler.Get(), "x", 1, MSG_DONTWAIT) == 1) {
    }
    client.emplace(Connect("/tmp/sync"));
    process();
    asked = port::UniqueFd(accept(journal.Get(), nullptr, nullptr));
    EXPECT_EQ(send(asked.Get(), "{\"error\":1}", 12, 0), 12);
    EXPECT_EQ(process(), 3);
    client.reset();
    EXPECT_EQ(process(), 1) << "room for what is not to be sent any more would keep it busy";
    fs::remove(queue);
}

// The program on a journal, writing to kFile.
class CaptureTest : public testing::Test {
protected:
    static inline const std::string kFile = "/tmp/capture/file";

    CaptureTest() { fs::remove_all("/tmp/capture"); }

    void Start(std::vector<std::string> filters, const std::string& kib = "100000") {
        filters.insert(filters.begin(),
                       {(TRELVO_BIN_DIR "/dlogutil"), "-r", kib, "-n", "1", "-f", kFile});
        filters.insert(filters.begin(), environment_.begin(), environment_.end());
        capture_.reset();
        fs::remove(kFile + ".sync");
        capture_.emplace(filters);
        ASSERT_TRUE(test_support::WaitForChange("/tmp", [] { return fs::exists("/tmp/capture"); }));
        ASSERT_TRUE(test_support::WaitForChange("/tmp/capture",
                                                [] { return fs::exists(kFile + ".sync"); }));
    }

    // Hands on what a service does, and hears how the capture is.
    void Keep() {
        memory_ = port::UniqueFd(memfd_create("state", 0));
        int ends[2] = {-1, -1};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        keeper_ = port::UniqueFd(ends[0]);
        capture_end_ = port::UniqueFd(ends[1]);
        environment_.push_back("TRELVO_CAPTURE_FD=" + std::to_string(memory_.Get()));
        environment_.push_back("TRELVO_KEEPER_FD=" + std::to_string(ends[1]));
    }

    // Goes on to the state that begins so. False at the limit.
    [[nodiscard]] bool IsTold(const std::string& state) const {
        std::string message;
        while (message.find(state) != 0 && test_support::WaitForInput(keeper_.Get())) {
            message.resize(4096);
            message.resize(static_cast<size_t>(read(keeper_.Get(), message.data(), 4096)));
        }
        return message.find(state) == 0;
    }

    // What the capture answers before it closes.
    static std::string Answer(const port::UniqueFd& client) {
        std::string answer;
        char byte = 0;
        while (test_support::WaitForInput(client.Get()) && read(client.Get(), &byte, 1) > 0) {
            answer += byte;
        }
        return answer;
    }

    // The lines of `tag` that are captured, after a sync, from " > " on.
    static std::vector<std::string> Captured(const std::string& tag) {
        EXPECT_EQ(Answer(Connect()), "k");
        std::vector<std::string> lines = Words(ReadFile(kFile), '\n');
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [&](const std::string& line) {
                                       return line.find("/" + tag) == std::string::npos;
                                   }),
                    lines.end());
        std::for_each(lines.begin(), lines.end(),
                      [](std::string& line) { line.erase(0, line.find(" > ") + 3); });
        return lines;
    }

    static void Log(const std::string& tag, const std::string& text) {
        test_support::Journal::Send({"SYSLOG_IDENTIFIER=" + tag, "MESSAGE=" + text});
    }

    // So many lines more, each of 100 bytes and its number.
    void LogNumbers(int count) {
        for (int i = 0; i < count; ++i) {
            numbers_.push_back(std::to_string(numbers_.size()) + std::string(100, '.'));
            Log("COUNTED", numbers_.back());
        }
    }

    test_support::Journal journal_;
    std::vector<std::string> numbers_;
    std::vector<std::string> environment_{"env"};
    port::UniqueFd memory_, keeper_, capture_end_;
    std::optional<test_support::Process> capture_;
};

TEST_F(CaptureTest, SaysWhichWallClockItsTimesStandFor) {
    Log("QUIET", "does not pass");
    Log("trelvo.clock", "boot=forged");
    Start({"LOUD:V", "trelvo_clock:V", "*:S"});
    EXPECT_THAT(Captured("trelvo_clock"), ElementsAre("boot=forged"));
    const std::string entry =
        test_support::RunProgram({"journalctl", "-t", "trelvo.clock", "-o", "export"}).out;
    const auto value = [&](const std::string& name) {
        const std::string text = entry.substr(entry.find("\n" + name + "=") + name.size() + 2);
        std::string digits = text.substr(0, text.find('\n'));
        return name == "_BOOT_ID" ? digits : digits.insert(digits.size() - 6, ".");
    };
    EXPECT_THAT(Captured("trelvo.clock"),
                ElementsAre(testing::MatchesRegex(
                    "boot=" + value("_BOOT_ID") +
                    " host=[A-Za-z0-9._-]+ wall=" + value("_SOURCE_REALTIME_TIMESTAMP") +
                    " monotonic=" + value("__MONOTONIC_TIMESTAMP"))));
    const std::vector<std::string> lines = Words(ReadFile(kFile), '\n');
    EXPECT_EQ(lines[0].substr(0, lines[0].find(' ')), lines[1].substr(0, lines[1].find(' ')));
    EXPECT_THAT(lines[0], HasSubstr("(P" + std::to_string(capture_->Pid()) + ", T"));
    Start({"*:V", "trelvo.clock:S"});
    EXPECT_THAT(Captured("trelvo.clock"), ElementsAre());
}

// A code stands for what the recorder is given: of tags and texts that the capture changes, too.
TEST_F(CaptureTest, TablesLearnTheSameFromTheJournalItself) {
    const std::vector<std::vector<std::string>> entries{
        {"SYSLOG_IDENTIFIER=plain", "MESSAGE=a text > with more > to it "},
        {"SYSLOG_IDENTIFIER= a, T\n):b ", "MESSAGE=one\n\n \ttwo\r\nthree > four", "TID=7"},
        {"SYSLOG_IDENTIFIER=a >", std::string("MESSAGE=with \0 and \xFF", 19)},
        {"DLOG_LEVEL=W", "SYSLOG_IDENTIFIER=device", "MESSAGE=m.c: f(1) > first\nsecond"},
        {"DLOG_LEVEL=W", "SYSLOG_IDENTIFIER=device", "MESSAGE=without a prefix"},
        {"DLOG_LEVEL=x", "SYSLOG_IDENTIFIER=device", "MESSAGE=m.c: f(1) > kept"},
        {"SYSLOG_IDENTIFIER=", "MESSAGE=by a program without a name"},
        {"SYSLOG_IDENTIFIER=" + std::string(200, 't'), "MESSAGE=" + std::string(70000, 'm')},
        {"SYSLOG_IDENTIFIER=twice", "SYSLOG_IDENTIFIER=more", "MESSAGE=1", "MESSAGE=2"}};
    for (int count = 0; count < 3; ++count) {
        for (const auto& entry : entries) {
            test_support::Journal::Send(entry);
        }
    }
    Start({"*:V", "trelvo.clock:S"});
    EXPECT_EQ(Captured("plain").size(), 3U);
    const auto result = test_support::RunProgram(
        {"bash", "-c",
         "cd /tmp/capture; PATH=" TRELVO_BIN_DIR ":$PATH; grep -a 'P" + std::to_string(getpid()) +
             ", T' file | grep -av 'left out: ' > capture; journalctl _PID=" +
             std::to_string(getpid()) +
             " -o export > export; journalctl _PID=" + std::to_string(getpid()) +
             " -o json --all > json; for form in capture export json; do trelvoctl train --format "
             "$form"
             " -o $form.tables --policy-version 1 $form | grep '^entries'; done;"
             "diff -r capture.tables export.tables && diff -r capture.tables json.tables;"
             "(head -c -9 export; printf 'CUT\\n12345') > cut; sed 4s/{/x/ json > bad;"
             "for bad in cut bad; do trelvoctl train -o $bad.tables --policy-version 1 $bad "
             "> /dev/null; echo $?; done"});
    EXPECT_EQ(result.out, "entries        10\nentries        10\nentries        10\n3\n3\n");
    EXPECT_EQ(result.err,
              "trelvoctl: cut: entry 27: a field is cut off\n"
              "trelvoctl: bad: line 4: not an entry of a journal\n");
}

TEST_F(CaptureTest, WhatWasLoggedBeforeIsThereWhenItAnswers) {
    SKIP_WHERE_SANITIZED();
    Start({"MARK:V", "LOAD:V", "trelvo.sync:V"});
    Log("trelvo.sync", "another capture's");
    const fs::path journal = "/run/systemd/journal/io.systemd.journal";
    int count = 0;
    for (const bool is_root : {true, false}) {
        if (!is_root) {
            fs::rename(journal, "/run/away");  // as if it did not answer this user
        }
        for (const int load : {0, 5000}) {
            std::atomic<bool> ends = false;
            std::thread writer([&] {
                for (long sent = 0; load > 0 && !ends; ++sent) {
                    Log("LOAD", std::string(60, '.') + std::to_string(sent));
                    std::this_thread::sleep_for(std::chrono::microseconds(1000000 / load));
                }
            });
            for (int number = 0; number < 200; ++number) {
                const std::string text = "<" + std::to_string(++count) + ">";
                if (number % 2 == 0) {
                    Log("MARK", text);
                } else {
                    const std::string datagram = "<14>MARK: " + text;
                    const port::UniqueFd log = Connect("/run/systemd/journal/dev-log", SOCK_DGRAM);
                    (void)write(log.Get(), datagram.data(), datagram.size());
                }
                Connect();  // and goes away
                EXPECT_EQ(Answer(Connect()), "k");
                EXPECT_NE(ReadFile(kFile).rfind("> " + text + "\n"), std::string::npos) << text;
            }
            ends = true;
            writer.join();
        }
    }
    EXPECT_THAT(Captured("trelvo.sync"), ElementsAre());
    EXPECT_EQ(fs::status(kFile + ".sync").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

// As a service does, this reads the rotated files, removes them, and starts the capture anew.
TEST_F(CaptureTest, KilledAtAnyMomentItLosesAndRepeatsNothing) {
    int lifeline[2] = {-1, -1};
    ASSERT_EQ(pipe(lifeline), 0);
    const port::UniqueFd read_end(lifeline[0]);
    const port::UniqueFd write_end(lifeline[1]);
    Keep();
    environment_.push_back("TRELVO_LIFELINE_FD=" + std::to_string(read_end.Get()));
    std::atomic<bool> done = false;
    size_t sent = 0;
    std::thread writer([&] {
        auto next = std::chrono::steady_clock::now();
        for (; !done; ++sent) {
            Log("NUMBERED", std::to_string(sent) + std::string(sent % 200, '.'));
            std::this_thread::sleep_until(next += std::chrono::microseconds(500));
        }
    });
    std::string text;
    const auto read_rotated = [&text] {
        if (fs::exists(kFile + ".1")) {
            text += ReadFile(kFile + ".1");
            fs::remove(kFile + ".1");
        }
    };
    std::minstd_rand random(1);
    for (int round = 0; round < 60; ++round) {
        Start({"NUMBERED:V"}, "16");
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 150000);
        while (std::chrono::steady_clock::now() < end) {
            read_rotated();
        }
        capture_->Signal(SIGKILL);
        EXPECT_EQ(capture_->Wait(), 128 + SIGKILL);
        read_rotated();
    }
    done = true;
    writer.join();
    Start({"NUMBERED:V"}, "16");
    const port::UniqueFd client = Connect();
    for (pollfd answer{client.Get(), POLLIN, 0}; poll(&answer, 1, 1) == 0;) {
        read_rotated();
    }
    text += ReadFile(kFile);
    size_t expected = 0;
    for (const std::string& line : Words(text, '\n')) {
        if (line.find("trelvo.clock") != std::string::npos) {
            continue;
        }
        const std::string message = line.substr(std::min(line.find(" > ") + 3, line.size()));
        ASSERT_EQ(message, std::to_string(expected) + std::string(expected % 200, '.'));
        ++expected;
    }
    EXPECT_EQ(expected, sent);
    capture_.reset();
}

TEST_F(CaptureTest, WithoutAServiceFullFilesAreReplacedAndNobodyIsWaitedFor) {
    Start({"COUNTED:V"}, "4");
    LogNumbers(300);
    const std::vector<std::string> captured = Captured("COUNTED");
    ASSERT_FALSE(captured.empty());
    EXPECT_EQ(captured.back(), numbers_.back());
    EXPECT_TRUE(fs::exists(kFile + ".1"));
}

TEST_F(CaptureTest, AFullFileSystemLosesNothing) {
    SKIP_WHERE_SANITIZED();
    fs::create_directory("/tmp/capture");
    ASSERT_EQ(mount("tmpfs", "/tmp/capture", "tmpfs", 0, "size=64k,mode=0700"), 0);
    Keep();
    Start({"COUNTED:V"});
    test_support::LogFollower log("dlogutil");
    LogNumbers(1000);
    ASSERT_NE(log.WaitFor("cannot write, will try again: No space left"), "");
    EXPECT_TRUE(IsTold("Salive=0\nreason=cannot write: No space left"));
    LogNumbers(1000);
    ASSERT_EQ(mount("tmpfs", "/tmp/capture", "tmpfs", MS_REMOUNT, "size=1m"), 0);
    EXPECT_EQ(Captured("COUNTED"), numbers_);
    EXPECT_TRUE(IsTold("Salive=1\nreason=\n"));
    rlimit before{};
    ASSERT_EQ(prlimit(capture_->Pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit none{10, before.rlim_max};  // enough to poll, too few for another journal
    ASSERT_EQ(prlimit(capture_->Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    fs::rename("/run/log/journal", "/run/log/away");
    fs::rename("/run/log/away", "/run/log/journal");
    EXPECT_TRUE(IsTold("Salive=0\nreason="));
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));  // in which it tries twice
    ASSERT_EQ(prlimit(capture_->Pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(IsTold("Salive=1\nreason=\n"));
    EXPECT_EQ(
        test_support::RunProgram({"sh", "-c", "journalctl -o cat | grep -c '^will try again'"}).out,
        "1\n");
    capture_.reset();
    (void)umount2("/tmp/capture", MNT_DETACH);
}

TEST_F(CaptureTest, StoppedItLosesNothingThatTheJournalKeepsAndCountsTheRest) {
    SKIP_WHERE_SANITIZED();
    Start({"COUNTED:V"});
    LogNumbers(100);
    EXPECT_EQ(Captured("COUNTED"), numbers_);
    capture_->Signal(SIGSTOP);
    LogNumbers(1000);
    capture_->Signal(SIGCONT);
    EXPECT_EQ(Captured("COUNTED"), numbers_);

    // The journal numbers its entries.
    const auto number = [](const std::vector<std::string>& entries) {
        const std::string text = test_support::RunProgram(entries).out;
        return std::stoul(text.substr(text.find(";i=") + 3), nullptr, 16);
    };
    capture_->Signal(SIGSTOP);
    const size_t last_read = number({"journalctl", "--output=export", "--lines=1"});
    LogNumbers(500);
    (void)test_support::RunProgram({"journalctl", "--rotate", "--vacuum-time=1us"});
    const size_t first_left = number({"journalctl", "--output=export"});
    // Only now: a follower that had mapped a journal file which was cut would end by SIGBUS.
    test_support::LogFollower log("dlogutil");
    capture_->Signal(SIGCONT);
    EXPECT_THAT(log.WaitFor("lost: "),
                HasSubstr("lost: " + std::to_string(first_left - last_read - 1) +
                          " entries that the journal removed before they were read"));
    EXPECT_GT(first_left - last_read, 400U);
    Log("COUNTED", "after");
    EXPECT_EQ(Captured("COUNTED").back(), "after");
}

TEST_F(CaptureTest, HoldsNoHugeEntry) {
    SKIP_WHERE_SANITIZED();
    Keep();
    Start({"HUGE:V"});
    const std::string huge(size_t{64} << 20, 'x');
    test_support::Journal::Send({"SYSLOG_IDENTIFIER=HUGE", "MESSAGE=" + huge});
    test_support::Journal::Send(
        {"SYSLOG_IDENTIFIER=HUGE", "CODE_FUNC=" + huge, "OTHER=" + huge, "MESSAGE=hi"});
    Log("HUGE", "after");
    const std::vector<std::string> lines = Captured("HUGE");
    EXPECT_THAT(lines,
                ElementsAre(HasSubstr("an entry left out, it cannot be read: "), "hi", "after"));
    const std::string status = ReadFile("/proc/" + std::to_string(capture_->Pid()) + "/status");
    EXPECT_LT(std::stol(status.substr(status.find("VmData:") + 7)), 24576);
    const std::string told = "Salive=1\nreason=\nlost_unreadable=1\n";
    EXPECT_TRUE(IsTold(told));
    for (const size_t size : {70000U, 80000U}) {  // each is cut
        test_support::Journal::Send(
            {"SYSLOG_IDENTIFIER=HUGE", "MESSAGE=" + std::string(size, 'x')});
    }
    EXPECT_TRUE(IsTold(told + "lost_left_out=2\n"));
    Start({"HUGE:V"});
    EXPECT_TRUE(IsTold(told + "lost_left_out=2\n")) << "its successor";
}

}  // namespace
}  // namespace dlogutil

extern "C" ssize_t write(int fd, const void* data, size_t size) {
    if (dlogutil::on_write) {
        dlogutil::on_write({static_cast<const char*>(data), size});
    }
    return syscall(SYS_write, fd, data, size);
}
