// What the service takes on its command line and in its configuration file, and what it refuses.

#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "configuration.h"
#include "support/process.h"

namespace test_support {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::StartsWith;
using Lines = std::vector<std::string>;

const std::string kTrelvo = TRELVO_BIN_DIR "/trelvo";
constexpr const char* kFile = "/etc/trelvo/trelvo.conf";

// The program says exactly these lines, of which the beginnings are given, and starts nothing.
void ExpectRefusal(const Lines& words, const Lines& faults) {
    Lines command = {"env", "--unset=TRELVO_LOG_LEVEL", kTrelvo};
    command.insert(command.end(), words.begin(), words.end());
    const auto result = RunProgram(command);
    const std::string given = testing::PrintToString(words);
    EXPECT_EQ(result.status, 2) << given;
    EXPECT_EQ(result.out, "") << given;
    std::istringstream text(result.err);
    for (const std::string& fault : faults) {
        std::string line;
        std::getline(text, line);
        EXPECT_THAT(line, StartsWith("trelvo: " + fault)) << given;
    }
    EXPECT_EQ(text.peek(), EOF) << given << result.err;
}

TEST(Launch, WhatCannotBeBelievedGetsALineForEachFault) {
    const auto with = [](const Lines& words) {
        Lines all = {"LOGTAG=*", "LOGLEVEL=i", "RQBBUFFER=64", "POLICYMODE=0"};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    };
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
    const std::vector<std::pair<Lines, Lines>> rows = {
        {{"A=1", "word", "", "A=2", "--hlep"},
         {"'word': not KEY=VALUE", "'': not KEY=VALUE", "'A': given twice",
          "'--hlep': unknown option, did you mean '--help'?"}},
        {{"--help", "word"}, {"'--help': goes with no other words", "'word': not KEY=VALUE"}},
        {{"LOGTAG=a"}, {"LOGLEVEL: missing;", "RQBBUFFER: missing;", "POLICYMODE: missing;"}},
        {{"DUMP=/tmp"}, {"DUMP: nothing is recorded yet;"}},
        {with({"LOGTGA=x", "\x1B[2J=1"}),
         {"'\\x1B[2J': unknown key", "'LOGTGA': unknown key, did you mean 'LOGTAG'?"}},
        {{"LOGTAG=a/b", "LOGLEVEL=I", "RQBBUFFER=1", "POLICYMODE=0"},
         {"LOGLEVEL: 1 levels for 2 tags"}},
        {{"LOGTAG=a;b//-r", "LOGLEVEL=I/Q/II", "RQBBUFFER=512k", "POLICYMODE=one"},
         {"LOGTAG: 'a;b' is not a tag", "LOGTAG: holds an empty tag", "LOGTAG: '-r' would be",
          "LOGLEVEL: 'Q': a level", "LOGLEVEL: 'II': a level",
          "RQBBUFFER: '512k' is not a number of KiB", "POLICYMODE: 'one' is not a number"}},
        {with({"DLOGDUMPMODE=timer&bufferful"}),
         {"DLOGDUMPMODE: 'bufferful' is not one of timer, poweroff, bufferfull, match, did you "
          "mean 'bufferfull'?",
          "DLOGDUMPVALUE: missing;"}},
        {with({"DLOGDUMPMODE=match", "DLOGDUMPVALUE=2147483648", "RQBHISTORY=1000000000"}),
         {"DLOGDUMPVALUE: '2147483648' is not", "DLOGDUMPMATCH: missing;",
          "RQBHISTORY: '1000000000' is not"}},
        {with({"DLOGDUMPMATCH=a:E"}), {"DLOGDUMPMODE: lacks the word match"}},
        {with({"DLOGDUMPMODE=match", "DLOGDUMPMATCH=*:F&a:E:x:y&b&c:Q&d:W:", "DLOGDUMPREST=-1"}),
         {"DLOGDUMPREST: '-1' is not a number of seconds", "DLOGDUMPMATCH: 'b' is not TAG:LEVEL",
          "DLOGDUMPMATCH: 'Q': the least level", "DLOGDUMPMATCH: 'd:W:' has an empty TEXT"}},
        {with({"RQBCOUNT=memroy", "RQBHISTORY=0", "POLICYKIB=0000000100", "POLICYROWS=0",
               "DUMPFORM=gzip"}),
         {"RQBCOUNT: 'memroy' is not one of records, memory, did you mean 'memory'?",
          "RQBHISTORY: '0' is not", "POLICYROWS: '0' is not a number of rows",
          "POLICYKIB: '0000000100' is not a number of KiB",
          "DUMPFORM: 'gzip' is not one of plain, zstd"}},
        {with({"DLOGDUMPMODE=poweroff"}), {"DLOGDUMPMODE: poweroff needs the system bus: "}},
        {with({"1=", "2=", "3=", "4=", "5=", "6=", "7=", "8=", "9=", "10=", "11=", "12="}),
         {"'1': unknown", "'10'", "'11'", "'12'", "'2'", "'3'", "'4'", "'5'", "'6'", "'7'",
          "further errors: 2"}},
    };
    for (const auto& [words, faults] : rows) {
        ExpectRefusal(words, faults);
    }
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

TEST(Configuration, EachKeyBecomesALaunchArgument) {
    WriteFile("/tmp/all.conf",
              "[recorder]\ntags=a:E; *:i\nsize=1 GiB\nsize-counts=memory\ncapture=2 MiB\n"
              "tables=server\n[policy]\nrows=3\nmemory=4 KiB\nseconds=5\n[dump]\n"
              "triggers=timer; match; bufferfull\ntimer=6\nmatch=*:F; b:W:x\nmatch-delay=7\n"
              "match-rest=8\nform=zstd\n[log]\nthreshold=error\n");
    const port::Configuration read = port::ReadConfiguration("/tmp/all.conf");
    EXPECT_EQ(read.log_threshold, 'E');
    EXPECT_EQ(read.launch, port::LaunchArguments({{"LOGTAG", "a/*"},
                                                  {"LOGLEVEL", "E/i"},
                                                  {"RQBBUFFER", "2048"},
                                                  {"RQBCOUNT", "memory"},
                                                  {"RQBHISTORY", "1048576"},
                                                  {"POLICYMODE", "1"},
                                                  {"POLICYROWS", "3"},
                                                  {"POLICYKIB", "4"},
                                                  {"POLICYSECONDS", "5"},
                                                  {"DLOGDUMPMODE", "timer&match&bufferfull"},
                                                  {"DLOGDUMPVALUE", "6"},
                                                  {"DLOGDUMPMATCH", "*:F&b:W:x"},
                                                  {"DLOGDUMPDELAY", "7"},
                                                  {"DLOGDUMPREST", "8"},
                                                  {"DUMPFORM", "zstd"}}));
}

TEST(Configuration, FaultsNameFileAndKeyAndTheInstalledFilePasses) {
    const std::vector<std::pair<std::string, Lines>> rows = {
        {"[recoder]\nsize=1 MiB\n[recorder]\nsizze=1 MiB\n",
         {"[recoder]: unknown group, did you mean 'recorder'?",
          "[recorder] sizze: unknown key, did you mean 'size'?"}},
        {"[recorder]\nsize=10\ncapture=9999 GiB\ntags=a;b:Q\ntables=sever\n[log]\nthreshold=wran\n",
         {"[recorder] tags: 'a' is not TAG:LEVEL", "[recorder] size: '10' is not a size",
          "[recorder] capture: '9999 GiB' is not a size",
          "[recorder] tables: 'sever' is not one of default, server, did you mean 'server'?",
          "[log] threshold: 'wran' is not one of verbose "}},
        {"[recorder]\ntags=a:I; b:Q\nsize-counts=bytes\n[dump]\ntriggers=timer; power\n",
         {"[recorder] tags: 'Q': a level is one of",
          "[dump] triggers: 'power' is not one of timer, poweroff",
          "[dump] timer: missing; the trigger timer needs its seconds",
          "[recorder] size-counts: 'bytes' is not one of records, memory"}},
        {"[policy]\nmemory=1 MiB\nrows=many\nseconds=0\n",
         {"[policy] rows: 'many' is not a number of rows",
          "[policy] seconds: '0' is not a number"}},
        {"[recorder]\ntags=:I; a:I\n", {"[recorder] tags: holds an empty"}},
        {"[recorder]\nsize=\n", {"[recorder] size: '' is not a size"}},
        {"[dump]\ngroup=no such\n", {"[dump] group: 'no such' is not a group"}},
        {"[dump]\ntriggers=match\nmatch=*:F; a:E:x & y\n", {"[dump] match: holds a '&'"}},
        {"[dump]\nsize=1 MiB\n", {"[dump] size: unknown key"}},
        {"[dump]\nfolder[de]=/tmp\n", {"[dump] folder[de]: unknown key"}},
        {"size=1 MiB\n", {"Key file does not start with a group"}},
    };
    for (const auto& [text, faults] : rows) {
        WriteFile(kFile, text);
        Lines expected;
        for (const std::string& fault : faults) {
            expected.push_back(kFile + ": "s + fault);
        }
        ExpectRefusal({}, expected);
        ExpectRefusal({"--check"}, expected);
    }
    ExpectRefusal({"--check", "/tmp/none"}, {"/tmp/none: No such file"});
    const std::string installed = TRELVO_SOURCE_DIR "/platform/systemd/trelvo.conf";
    EXPECT_EQ(RunProgram({kTrelvo, "--check", installed}).out, installed + ": valid\n");
    // Every key that stands there as a comment is right, too.
    const std::string all =
        RunProgram(
            {"sed", "-E", "s/^#([a-z-]+ = )/\\1/; s/^(triggers = ).*/\\1timer; match;/", installed})
            .out;
    EXPECT_THAT(all, HasSubstr("\nmatch-rest = 60\n"));
    WriteFile("/tmp/all.conf", all + "[recorder]\ntags = a:b:I;\n");
    EXPECT_EQ(RunProgram({kTrelvo, "--check", "/tmp/all.conf"}).status, 0);
    // The manager starts it again and again after any other code.
    WriteFile(kFile, "[dump]\ngroup=adm\n");
    const auto refused = RunProgram({"setpriv", "--bounding-set=-setgid", kTrelvo});
    EXPECT_THAT(refused.err, HasSubstr("[dump] group: this user cannot take that group; "));
    EXPECT_EQ(refused.status, 2);
    // A file that may not be read is not one that is missing.
    const auto folder = std::filesystem::path(kFile).parent_path();
    std::filesystem::permissions(folder, std::filesystem::perms::none);
    const auto unread =
        RunProgram({"setpriv", "--bounding-set=-dac_override,-dac_read_search", kTrelvo});
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
    EXPECT_THAT(unread.err, HasSubstr(kFile + ": Permission denied"s));
    EXPECT_EQ(unread.status, 2);
    std::filesystem::remove(kFile);
}

TEST(CommandLine, HelpVersionAndManual) {
    EXPECT_THAT(RunProgram({kTrelvo, "--help"}).out, HasSubstr("\n  --check [FILE]  "));
    EXPECT_THAT(RunProgram({kTrelvo, "--version"}).out, StartsWith("trelvo "));
    const auto lint = RunProgram(
        {"mandoc", "-T", "lint", "-W", "warning", (TRELVO_SOURCE_DIR "/platform/trelvo.1.in")});
    EXPECT_EQ(lint.status, 0) << lint.out;
}

}  // namespace
}  // namespace test_support
