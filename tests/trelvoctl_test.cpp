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
#include "support/process.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;

Output Shell(const std::string& script) {
    return RunProgram({"bash", "-c", "PATH=" TRELVO_BIN_DIR ":$PATH; cd /tmp/stat && " + script});
}

// Three records of two tags, one of them a code of the table in policy/.
class Stat : public testing::Test {
protected:
    Stat() {
        fs::create_directories("/tmp/stat/policy");
        WriteFile("/tmp/stat/policy/policy_version.xml",
                  "<p><policy version='1.0'/><db logtag='AB' name='ab.db'/></p>");
        MakeCodeTable("/tmp/stat/policy/ab.db", "('a known text','10000000')");
        const std::string dump =  // at 12.5 s; keys AB,10 with two threads and C\,-1
            "\x03\x31.0\x14\x05\x41\x42,10\x04\x0B\x01\x0C\x02\x05\x43\\,-1\x02\x0B\x03\xD4\xE1\x00"
            "\x05\x21\x01\x80\xD0\x0F\x42\x02hi\xD8\x36\x83\x01x"s;
        WriteFile("/tmp/stat/whole.dump", dump);
        WriteFile("/tmp/stat/cut.dump", dump.substr(0, dump.size() - 1));
    }
    ~Stat() override { fs::remove_all("/tmp/stat"); }
};

TEST_F(Stat, CountsAreThoseOfTheDump) {
    const auto result = Shell("trelvoctl stat -o json --policy policy whole.dump");
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
    WriteFile("/tmp/stat/coded.dump", DumpBuilder("1.0")
                                          .Line(0, "\x80", "AB,10")
                                          .Line(5, "\x81", "AB,10")
                                          .Line(5, "text", "AB,10")
                                          .Image(12500));
    for (const auto& [tables, coded] : {std::pair("--policy policy", "1"), {"", "2"}}) {
        EXPECT_EQ(Shell("trelvoctl stat -o json "s + tables +
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
    fs::create_directory("/tmp/stat/log");
    WriteFile("/tmp/stat/log/trelvo.dump", log.Image(60000));
    WriteFile("/tmp/stat/log/trelvo_1.dump",
              log.Line(3600000, "f", "net,3").Line(1, "g", "net,4", 'E').Image(3660001));
    const auto table = Shell("touch -d @9 log/trelvo.dump; trelvoctl stat log").out;
    for (const char* expected :
         {"2 dumps: 7 lines in 1 h 0 min, ", "repeated        5 lines", "I 6  W 0  E 1",
          "         4   57.1  net\n         3   42.9  shop\n\n",
          "         4   57.1  shop (2 processes)\n         3   42.9  net (2 processes)\n"}) {
        EXPECT_THAT(table, HasSubstr(expected));
    }
    EXPECT_EQ(Shell("trelvoctl stat -o json log | grep -o 'shared_records\":[0-9]*'").out,
              "shared_records\":0\nshared_records\":5\n");
    EXPECT_THAT(Shell("trelvoctl stat -v log/trelvo.dump").out,
                AllOf(HasSubstr("5 lines in 0.004 s"), HasSubstr("  shop,2\n")));
}

TEST_F(Stat, WhatItPrintsAndHowItEnds) {
    const std::vector<std::tuple<std::string, int, std::string, std::string>> rows{
        {"whole.dump", 0, "1 lines, 33.3 %: those that cannot be", ""},
        {"--top 1 - < whole.dump", 0, "as text         at least 80 B,", ""},
        {"cut.dump", 3, "cut.dump: 2 lines in ", "cut.dump: offset 41: message of 1 bytes"},
        {". --policies .", 3,
         "2 dumps: 3 lines in 9.000 s, 0.33 a second\n  repeated        2 lines ",
         "./cut.dump: offset 41: "},
        {"--policies policy whole.dump", 4, "", "needs the code tables of policy version '1.0'"},
        {"none.dump whole.dump", 3, "whole.dump: 3 ", "none.dump: No such file"},
        {"--output xml whole.dump", 2, "", "xml not in {text,json}"},
    };
    for (const auto& [arguments, status, out, err] : rows) {
        const auto result = Shell("trelvoctl stat " + arguments);
        EXPECT_EQ(result.status, status) << arguments;
        EXPECT_THAT(result.out, HasSubstr(out)) << arguments;
        EXPECT_EQ(out.empty(), result.out.empty()) << arguments;
        EXPECT_THAT(result.err, HasSubstr(err)) << arguments;
    }
}

TEST_F(Stat, EveryCommandHasAManualPageWithExamples) {
    const auto help =
        Shell("trelvoctl --help | sed -n '/^Subcommands/,/^$/s/^  \\([a-z]*\\) .*/\\1/p'");
    std::istringstream commands(help.out);
    for (std::string command; commands >> command;) {
        const std::string page = TRELVO_BIN_DIR "/../tools/man/trelvoctl-" + command + ".1";
        const auto lint = Shell("mandoc -T lint -W error " + page);
        EXPECT_EQ(lint.status, 0) << lint.out << lint.err;
        EXPECT_THAT(Shell("mandoc -T ascii " + page + " | sed 's/.\\x08//g'").out,
                    AllOf(HasSubstr("trelvoctl-" + command + " - "),
                          HasSubstr("\nOPTIONS\n       -h, --help\n"), HasSubstr("\nEXAMPLES\n"),
                          HasSubstr(" trelvoctl " + command + ' ')));
        EXPECT_EQ(Shell("trelvoctl " + command + " --help | grep -E '.{81}'").out, "");
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
        {"launch x", ""},
        {"decode --grep ''", ""},
        {"decode -o t", "threadtime"},
    };
    for (const auto& [words, proposals] : rows) {
        // As Bash does it, but for the option that only Bash's own call can set.
        const auto result =
            Shell("source " TRELVO_SOURCE_DIR
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
    ~Status() override { fs::remove_all("/run/trelvo"); }
    static void Publish(const std::string& status, const std::string& capture) {
        WriteFile(kFolder + "/status"s, status);
        WriteFile(kFolder + "/capture"s, capture);
    }
    // All counts are 5; words hold what has to be escaped.
    static void PublishAll() {
        std::string text =
            "version=1\"\nlast_dump_time=7\nlast_dump_result=a\\b\nlast_dump_current=0\n";
        for (const char* field :
             {"started", "accepted", "dropped", "records", "record_bytes", "memory_bytes",
              "limit_bytes", "tables", "dumps", "pending", "suppressed", "newest_at"}) {
            text += field + "=5\n"s;
        }
        Publish(text, "alive=1\nrestarts=0\nlost_rotation=7\n");
        WriteFile(kFolder + "/dlog_dump"s, "1\n");
        WriteFile(kFolder + "/collector"s, "time=7\nresult=no\\room\nfailed=1\nwaiting=5\n");
    }
    static Output Run(const std::string& form) {
        return RunProgram({TRELVO_BIN_DIR "/trelvoctl", "status", "-o", form});
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
        {"pid=" + pid + "\nversion=1\nstarted=0\nnew=field\njunk\n", alive, 0,
         ", version 1, since 1970-01-01 "},
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
    PublishAll();
    EXPECT_THAT(Run("text").out,
                HasSubstr(": no\\\\room; archive of unknown dumps, unknown bytes, 5 to be handed "
                          "over\n"));
    const auto start = std::chrono::steady_clock::now();
    const std::string program = TRELVO_BIN_DIR "/trelvoctl";
    EXPECT_EQ(RunProgram({program, "dump", "--timeout", "3", "/tmp"}).status, 1);
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900))
        << "it runs, and may answer yet";
    flock(lock_.Get(), LOCK_UN);
    EXPECT_EQ(Run("text").out, "state           not running\n");
    EXPECT_EQ(Run("text").status, 1);
    EXPECT_EQ(Run("xml").status, 2);
}

TEST_F(Status, JsonHoldsEveryFieldAndNullForTheUnknown) {
    PublishAll();
    const std::string json = Run("json").out;
    EXPECT_THAT(json,
                HasSubstr(R"({"running":true,"recording":true,"pid":)" + std::to_string(getpid()) +
                          R"(,"version":"1\"","started":5,)"
                          R"("accepted":5,"refused":null,)"));
    EXPECT_THAT(
        json,
        HasSubstr(R"("last_dump":{"time":7,"trigger":null,"path":null,"result":)"
                  R"("a\\\\b","current":false},"capture":{"alive":true,"reason":null,)"
                  R"("restarts":0,"lost":{"rotation":7}},"upload_key":1,"collector":{"result":)"
                  R"("no\\\\room","time":7,"failed":1,"dumps":null,"bytes":null,"waiting":5}})"));
}

TEST_F(Status, MetricsAreAsACollectorReadsThem) {
    PublishAll();
    const std::string metrics = Run("prometheus").out;
    EXPECT_THAT(metrics,
                AllOf(HasSubstr("\ntrelvo_info{version=\"1\\\"\",policy_version=\"\"} 1\n"),
                      HasSubstr("\n# TYPE trelvo_lines_accepted_total counter\n"
                                "trelvo_lines_accepted_total 5\n"),
                      HasSubstr("result=\"a\\\\\\\\b\"} 7\n"),
                      HasSubstr("\ntrelvo_capture_lost_total{cause=\"rotation\"} 7\n"),
                      HasSubstr("\ntrelvo_collect_failed 1\n")));
    const std::regex sample(R"(trelvo_[a-z_]+(\{([a-z_]+="([^"\\]|\\["\\])*",?)+\})? -?[0-9.]+)");
    std::istringstream lines(metrics);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(line.rfind("# ", 0) == 0 || std::regex_match(line, sample)) << line;
    }
    // The collector's own word, where it is installed.
    WriteFile("/tmp/metrics", metrics);
    const auto check = RunProgram(
        {"bash", "-c", "! command -v promtool >&2 || promtool check metrics </tmp/metrics"});
    EXPECT_EQ(check.status, 0) << check.err;
}

}  // namespace
}  // namespace test_support
