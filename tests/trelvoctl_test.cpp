// What trelvoctl tells of dumps, and what it writes about itself for the shell and for man.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/dump_builder.h"
#include "support/folder_test.h"
#include "support/process.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Three records of two tags, one of them a code of the table in policy/.
class Stat : public FolderTest {
protected:
    Stat() {
        fs::create_directories(folder_ / "policy");
        WriteFile(folder_ / "policy/policy_version.xml",
                  "<p><policy version='1.0'/><db logtag='AB' name='ab.db'/></p>");
        MakeCodeTable(folder_ / "policy/ab.db", "('a known text','10000000')");
        const std::string dump =  // at 12.5 s; keys AB,10 with two threads and C\,-1
            "\x03\x31.0\x14\x05\x41\x42,10\x04\x0B\x01\x0C\x02\x05\x43\\,-1\x02\x0B\x03\xD4\xE1\x00"
            "\x05\x21\x01\x80\xD0\x0F\x42\x02hi\xD8\x36\x83\x01x"s;
        WriteFile(folder_ / "whole.dump", dump);
        WriteFile(folder_ / "cut.dump", dump.substr(0, dump.size() - 1));
    }
};

TEST_F(Stat, CountsAreThoseOfTheDump) {
    const auto result = Run("trelvoctl stat -o json --policy policy whole.dump");
    EXPECT_EQ(result.err, "");
    std::string timeline = "1";
    for (int part = 1; part < 60; ++part) {
        timeline += part == 13 || part == 59 ? ",1" : ",0";
    }
    // As text: "3.500 I/AB(P 10, T 11): a known text" and two lines of 26 bytes.
    EXPECT_EQ(
        result.out,
        R"({"file":"whole.dump","policy_version":"1.0","bytes":43,"compressed_bytes":null,)"
        R"("dictionary_bytes":20,"first_ms":3500,"last_ms":12500,"span_ms":9000,"host":null,)"
        R"("first_time":null,"last_time":null,"records":3,"shared_records":0,)"
        R"("records_per_second":0.3333333333333333,"bytes_per_second":1.6666666666666667,)"
        R"("levels":{"F":1,"I":1,"W":1},"coded_by":"tables","coded_records":1,)"
        R"("coded_bytes":4,"record_bytes":{"delta":5,"header":3,"length":3,"message":4,)"
        R"("total":15},"text_bytes":91,"timeline":[)" +
            timeline +
            R"(],"tags":[{"tag":"AB","records":2,"bytes":10},{"tag":"C\\","records":1,)"
            R"("bytes":5}],"programs":[{"program":"AB","records":2,"bytes":10},)"
            R"({"program":"C\\","records":1,"bytes":5}],"processes":[{"process":"AB,10","records":2,"bytes":10},)"
            R"({"process":"C\\,-1","records":1,"bytes":5}],"damage":null})"
            "\n");
}

TEST_F(Stat, WithTablesOnlyTheirCodesAreCoded) {
    // The second code is one of no table.
    WriteFile(folder_ / "coded.dump", DumpBuilder("1.0")
                                          .Line(0, "\x80", "AB,10")
                                          .Line(5, "\x81", "AB,10")
                                          .Line(5, "te\txt", "AB,10")
                                          .Image(12500));
    for (const auto& [tables, coded] : {std::pair("--policy policy", "1"), {"", "2"}}) {
        EXPECT_EQ(Run("trelvoctl stat -o json "s + tables +
                      " coded.dump | grep -o '\"coded_records\":[0-9]*'")
                      .out,
                  "\"coded_records\":"s + coded + "\n");
    }
}

// A process is of the program that it logs most as; the lines that two dumps share count once.
TEST_F(Stat, LinesCountOnceAndProcessesByTheirProgram) {
    DumpBuilder log;
    log.Line(0, "a", "shop,1").Line(1, "b", "shop,2").Line(1, "c", "shop,2").Line(1, "d", "net,2");
    log.Line(1, "e", "net,3");
    fs::create_directory(folder_ / "log");
    WriteFile(folder_ / "log/trelvo.dump", log.Image(60000));
    WriteFile(folder_ / "log/trelvo_1.dump",
              log.Line(3600000, "f", "net,3").Line(1, "g", "net,4", 'E').Image(3660001));
    // Another boot of 50 minutes.
    WriteFile(folder_ / "log/trelvo_2.dump",
              DumpBuilder().Line(0, "h", "shop,1").Line(3000000, "i", "shop,1").Image(3000000));
    const auto table = Run("touch -d @9 log/trelvo.dump; touch -d @10 log/trelvo_1.dump; trelvoctl "
                           "stat --top 2 log")
                           .out;
    for (const char* expected :
         {"3 dumps: 9 lines in 1 h 50 min, ", "repeated        5 lines", "I 8  W 0  E 1",
          "         5   55.6  shop\n         4   44.4  net\n\n",
          "         6   66.7  shop (3 processes)\n         3   33.3  net (2 processes)\n"}) {
        EXPECT_THAT(table, HasSubstr(expected));
    }
    EXPECT_THAT(Run("trelvoctl stat --top 1 log").out, HasSubstr(" shop (3 processes)\n\n"));
    EXPECT_EQ(Run("trelvoctl stat -o json log | grep -o 'shared_records\":[0-9]*'").out,
              "shared_records\":0\nshared_records\":5\nshared_records\":0\n");
    EXPECT_THAT(Run("trelvoctl stat -v log/trelvo.dump").out,
                AllOf(HasSubstr("5 lines in 0.004 s"), HasSubstr("  shop,2\n")));
}

TEST_F(Stat, WhatItPrintsAndHowItEnds) {
    const std::vector<std::tuple<std::string, int, std::string, std::string>> rows{
        {"whole.dump", 0, "1 line, 33.3 %: those that cannot be", ""},
        {"--top 1 - < whole.dump", 0, "as text         at least 80 B,", ""},
        {"--policy policy whole.dump", 0, "1 line, 33.3 %\n", ""},
        {"-v whole.dump", 0, "5.00 = delta 1.67 + header 1.00 + length 1.00 + message 1.33\n", ""},
        {"x 2>&-; zstd -q whole.dump -o z.zst; trelvoctl stat -o json z.zst | "
         "grep -o \"compressed_bytes\\\":$(stat -c %s z.zst),\"",
         0, "compressed", ""},
        {"z.zst", 0, " a line, compressed 5", ""},
        {"cut.dump", 3, "cut.dump: 2 lines in ", "cut.dump: offset 41: message of 1 bytes"},
        {". --policies .", 3,
         "2 dumps: 3 lines in 9.000 s, 0.33 a second\n  repeated        2 lines ",
         "./cut.dump: offset 41: "},
        {". --policy policy | tail -1", 0, "   40.0 ", ""},
        {"--policies policy whole.dump", 4, "", "needs the code tables of policy version '1.0'"},
        {"none.dump whole.dump", 3, "whole.dump: 3 ", "none.dump: No such file"},
        {"--output xml whole.dump", 2, "", "xml not in {text,json}"},
    };
    for (const auto& [arguments, status, out, err] : rows) {
        const auto result = Run("trelvoctl stat " + arguments);
        EXPECT_EQ(result.status, status) << arguments;
        EXPECT_THAT(result.out, HasSubstr(out)) << arguments;
        EXPECT_EQ(out.empty(), result.out.empty()) << arguments;
        EXPECT_THAT(result.err, HasSubstr(err)) << arguments;
    }
}

TEST_F(Stat, EveryCommandHasAManualPageWithExamples) {
    const auto help =
        Run("trelvoctl --help | sed -n '/^Subcommands/,/^$/s/^  \\([a-z]*\\) .*/\\1/p'");
    std::istringstream commands(help.out);
    for (std::string command; commands >> command;) {
        const std::string page = TRELVO_BIN_DIR "/../tools/man/trelvoctl-" + command + ".1";
        const auto lint = Run("mandoc -T lint -W error " + page);
        EXPECT_EQ(lint.status, 0) << lint.out << lint.err;
        EXPECT_THAT(Run("mandoc -T ascii " + page + " | sed 's/.\\x08//g'").out,
                    AllOf(HasSubstr("trelvoctl-" + command + " - "),
                          HasSubstr("\nOPTIONS\n       -h, --help\n"), HasSubstr("\nEXAMPLES\n"),
                          HasSubstr(" trelvoctl " + command + ' ')));
        EXPECT_EQ(Run("trelvoctl " + command + " --help | grep -E '.{81}'").out, "");
    }
    EXPECT_THAT(help.out, HasSubstr("decode\n"));
}

TEST_F(Stat, CompletionProposesCommandsOptionsValuesAndFiles) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"dec", "decode"},
        {"decode --po", "--policies --policy"},
        {"stat -o ''", "json text"},
        {"stat --output = j", "json"},
        {"stat --policy ''", "policy"},
        {"stat w", "whole.dump"},
        {"dump p", "policy"},
        {"decode --grep ''", ""},
        {"decode -o t", "threadtime"},
    };
    for (const auto& [words, proposals] : rows) {
        // As Bash does it, but for the option that only Bash's own call can set.
        const auto result =
            Run("source " TRELVO_SOURCE_DIR
                "/tools/completion/trelvoctl.bash; compopt() { :; };"
                "COMP_WORDS=(trelvoctl " +
                words +
                "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1));"
                "_trelvoctl trelvoctl; printf '%s\\n' \"${COMPREPLY[@]}\" | sort | xargs");
        EXPECT_EQ(result.out, proposals + "\n") << words;
        EXPECT_EQ(result.err, "") << words;
    }
}

// A runtime folder whose lock this test holds, as a service does.
class Status : public testing::Test {
protected:
    static constexpr const char* kFolder = "/run/trelvo/vconf/memory/trelvo";
    Status() {
        fs::create_directories(kFolder);
        WriteFile("/run/trelvo/lock", std::to_string(getpid()) + "\n");
        lock_ = port::UniqueFd(open("/run/trelvo/lock", O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(lock_.Get(), LOCK_EX | LOCK_NB), 0);
    }
    static void Publish(const std::string& status, const std::string& capture) {
        WriteFile(kFolder + "/status"s, status);
        WriteFile(kFolder + "/capture"s, capture);
    }
    // Each count is another one; words hold what has to be escaped.
    static void PublishAll() {
        std::string text =
            "version=1\"\npolicy_version=9\ncount=memory\nlast_dump_time=7\n"
            "last_dump_trigger=timer\nlast_dump_path=/a\nlast_dump_result=a\\b\n"
            "last_dump_current=0\n";
        int count = 11;
        for (const char* field : {"started", "accepted", "dropped", "records", "record_bytes",
                                  "memory_bytes", "limit_bytes", "tables", "dumps", "pending",
                                  "suppressed", "newest_at", "oldest_ms", "newest_ms"}) {
            text += field + "="s + std::to_string(count++) + "\n";
        }
        Publish(text, "alive=1\nrestarts=8\nlost_rotation=7\n");
        WriteFile(kFolder + "/dlog_dump"s, "1\n");
        WriteFile(kFolder + "/collector"s,
                  "time=7\nresult=no\\room\nfailed=1\n"
                  "dumps=3\nbytes=4\nwaiting=5\n");
    }
    static Output Run(const std::string& form) {
        return RunProgram(
            {"env", "TZ=UTC-9", std::string(TRELVO_BIN_DIR) + "/trelvoctl", "status", "-o", form});
    }

    port::UniqueFd lock_;
};

TEST_F(Status, SaysWhetherItRecordsAndWhatNobodySaidIsUnknown) {
    const std::string pid = std::to_string(getpid());
    const std::string alive = "alive=1\n";
    const std::vector<std::tuple<std::string, std::string, int, std::string>> rows{
        {"", "", 3, "state           not recording\n"},
        {"", "alive=0\nreason=the journal\x1B[2J\nlost_rotation=7\nrestarts=2\n", 3,
         "capture         dead: the journal\\x1B[2J, restarted 2 times, lost 7 by rotation\n"},
        {"dumps=0\nlast_dump_time=9\n", alive, 0, "last dump       none\n"},
        {"pid=1\naccepted=5\n", alive, 0, "lines           unknown accepted"},  // left behind
        {"accepted=5\nrefused=x\nnewest_at=99999999999999\n", alive, 0,
         "newest line     0.000 s ago\nlines           5 accepted, unknown refused"},
        {"dumps=1\nlast_dump_time=0\nlast_dump_trigger=timer\nlast_dump_path=/a\rb\n"
         "last_dump_result=written\nlast_dump_current=0\n",
         alive, 0, " by timer, /a\\x0Db: written, without the newest lines\n"},
    };
    for (const auto& [status, capture, code, out] : rows) {
        Publish(status, capture);
        const auto result = Run("text");
        EXPECT_EQ(result.status, code) << status;
        EXPECT_THAT(result.out, HasSubstr(out)) << status;
        EXPECT_EQ(result.err, "") << status;
    }
    EXPECT_THAT(Run("text").out, HasSubstr("\ncollector       unknown\n"));
    WriteFile(kFolder + "/dlog_dump"s, "0\n");
    EXPECT_THAT(Run("text").out, HasSubstr("upload key      0: dumps are written by themselves\n"));
    PublishAll();
    EXPECT_EQ(std::regex_replace(Run("text").out, std::regex("[0-9.]+ s ago"), "x s ago"),
              "state           recording\nservice         process " + pid +
                  ", version 1\", since 1970-01-01 09:00:11\n"
                  R"(capture         alive, restarted 8 times, lost 7 by rotation
newest line     x s ago
lines           12 accepted, unknown refused, 13 dropped
buffer          14 records of 15 bytes in 16 bytes of memory; limit 17 bytes of memory
times           0.023 to 0.024 s
policy          version '9', 18 code tables
dumps           19 ended, 20 pending, 21 matches suppressed
last dump       1970-01-01 09:00:07 by timer, /a: a\\b
upload key      1: dumps wait to be fetched, no other one is written by itself
collector       1970-01-01 09:00:07: no\\room; archive of 3 dumps, 4 bytes, 5 to be handed over
)");
    const auto start = std::chrono::steady_clock::now();
    const std::string program = TRELVO_BIN_DIR "/trelvoctl";
    EXPECT_EQ(RunProgram({program, "dump", "--timeout", "3", "/tmp"}).status, 1);
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900))
        << "it runs, and may answer yet";
    flock(lock_.Get(), LOCK_UN);
    EXPECT_THAT(Run("text").out,
                AllOf(StartsWith("state           not running\ncollector       1970-01-01 "),
                      EndsWith(" 5 to be handed over\n")));
    EXPECT_THAT(Run("prometheus").out,
                AllOf(HasSubstr("\ntrelvo_up 0\n"), HasSubstr("\ntrelvo_recording 0\n"),
                      HasSubstr("\ntrelvo_archive_waiting 5\n")));
    flock(lock_.Get(), LOCK_EX);
    WriteFile("/run/trelvo/lock", "1\n");
    EXPECT_THAT(Run("text").out, StartsWith("state           not running\n"))
        << "somebody else has the lock";
    EXPECT_EQ(Run("text").status, 1);
    EXPECT_EQ(Run("xml").status, 2);
}

TEST_F(Status, JsonHoldsEveryFieldAndNullForTheUnknown) {
    PublishAll();
    EXPECT_EQ(
        std::regex_replace(Run("json").out, std::regex(R"((_age_ms":)[0-9]+)"), "$1age"),
        R"({"running":true,"recording":true,"pid":)" + std::to_string(getpid()) +
            R"(,"version":"1\"","started":11,"accepted":12,"refused":null,"dropped":13,"records":14,)"
            R"("record_bytes":15,"memory_bytes":16,"limit_bytes":17,"tables":18,"dumps":19,)"
            R"("pending":20,"suppressed":21,"count":"memory","oldest_ms":23,"newest_ms":24,)"
            R"("newest_age_ms":age,"policy_version":"9","last_dump":{"time":7,"trigger":"timer",)"
            R"("path":"/a","result":"a\\\\b","current":false},"capture":{"alive":true,)"
            R"("reason":null,"restarts":8,"lost":{"rotation":7}},"upload_key":1,"collector":)"
            R"({"result":"no\\\\room","time":7,"failed":1,"dumps":3,"bytes":4,"waiting":5}})"
            "\n");
    Publish("", "");
    EXPECT_THAT(Run("json").out,
                HasSubstr(R"("current":null},"capture":{"alive":null,"reason":null,)"));
}

TEST_F(Status, MetricsAreAsACollectorReadsThem) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    Publish("newest_at=" + std::to_string((now.tv_sec - 60) * 1000) + "\n", "");
    EXPECT_THAT(Run("prometheus").out,
                testing::ContainsRegex("\ntrelvo_newest_line_age_seconds 6[0-9]\\.[0-9]{3}\n"));
    PublishAll();
    const std::string metrics = Run("prometheus").out;
    EXPECT_THAT(
        metrics,
        AllOf(HasSubstr("\ntrelvo_info{version=\"1\\\"\",policy_version=\"9\"} 1\n"),
              HasSubstr("\n# TYPE trelvo_lines_accepted_total counter\n"
                        "trelvo_lines_accepted_total 12\n"),
              HasSubstr("{trigger=\"timer\",result=\"a\\\\\\\\b\"} 7\n"),
              HasSubstr("\ntrelvo_capture_lost_total{cause=\"rotation\"} 7\n"),
              HasSubstr("\ntrelvo_capture_restarts_total 8\n"),
              HasSubstr("\ntrelvo_upload_pending 1\n"), HasSubstr("\ntrelvo_collect_failed 1\n")));
    const std::regex sample(R"(trelvo_[a-z_]+(\{([a-z_]+="([^"\\]|\\["\\])*",?)+\})? -?[0-9.]+)");
    std::istringstream lines(metrics);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.rfind("# ", 0) == 0 || std::regex_match(line, sample)) << line;
    }
}

}  // namespace
}  // namespace test_support
