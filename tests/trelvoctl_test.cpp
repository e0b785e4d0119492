// What trelvoctl tells of dumps, and what it writes about itself for the shell and for man.

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

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
    EXPECT_EQ(result.out,
              R"({"file":"whole.dump","policy_version":"1.0","bytes":43,"compressed_bytes":null,)"
              R"("dictionary_bytes":20,"first_ms":3500,"last_ms":12500,"span_ms":9000,"host":null,)"
              R"("first_time":null,"last_time":null,"records":3,)"
              R"("records_per_second":0.3333333333333333,"bytes_per_second":1.6666666666666667,)"
              R"("levels":{"F":1,"I":1,"W":1},"coded_by":"tables","coded_records":1,)"
              R"("coded_bytes":4,"record_bytes":{"delta":5,"header":3,"length":3,"message":4,)"
              R"("total":15},"text_bytes":91,"timeline":[)" +
                  timeline +
                  R"(],"tags":[{"tag":"AB","records":2,"bytes":10},{"tag":"C\\\\","records":1,)"
                  R"("bytes":5}],"processes":[{"process":"AB,10","records":2,"bytes":10},)"
                  R"({"process":"C\\\\,-1","records":1,"bytes":5}],"damage":null})"
                  "\n");
}

TEST_F(Stat, WhatItPrintsAndHowItEnds) {
    const std::vector<std::tuple<std::string, int, std::string, std::string>> rows{
        {"whole.dump", 0, "1 records, 33.3 %: those that cannot be", ""},
        {"--top 1 - < whole.dump", 0, "as text         at least 80,", ""},
        {"cut.dump", 3, "records         2\n", "cut.dump: offset 41: message of 1 bytes"},
        {". --policies .", 3, "\n         5 ", "./cut.dump: offset 41: "},
        {"--policies policy whole.dump", 4, "", "needs the code tables of policy version '1.0'"},
        {"none.dump whole.dump", 3, "whole.dump\n", "none.dump: No such file"},
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

TEST_F(Stat, ManualPagesAndCompletionComeFromTheDeclarations) {
    ASSERT_EQ(Shell("trelvoctl manual share").status, 0);
    const auto lint = Shell("mandoc -T lint -W error share/man/man1/*.1");
    EXPECT_EQ(lint.status, 0) << lint.out << lint.err;
    EXPECT_THAT(Shell("mandoc -T ascii share/man/man1/trelvoctl-stat.1 | sed 's/.\\x08//g'").out,
                AllOf(HasSubstr("\nSYNOPSIS\n       trelvoctl stat [OPTION ...] INPUT ...\n"),
                      HasSubstr("-o, --output FORM\n"), HasSubstr("One of text, json.")));
    EXPECT_FALSE(fs::exists("/tmp/stat/share/man/man1/trelvoctl-manual.1"));

    const std::vector<std::pair<std::string, std::string>> rows{
        {"dec", "decode"},
        {"decode --po", "--policies --policy"},
        {"stat -o ''", "json text"},
        {"stat --output = j", "json"},
        {"stat --policy ''", "policy share"},
        {"stat w", "whole.dump"},
        {"dump p", "policy"},
        {"launch x", ""},
        {"man", ""},
    };
    for (const auto& [words, proposals] : rows) {
        // As Bash does it, but for the option that only Bash's own call can set.
        const auto result = Shell(
            "source share/bash-completion/completions/trelvoctl; compopt() { :; };"
            "COMP_WORDS=(trelvoctl " +
            words +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1));"
            "_trelvoctl; printf '%s\\n' \"${COMPREPLY[@]}\" | sort | xargs");
        EXPECT_EQ(result.out, proposals + "\n") << words;
        EXPECT_EQ(result.err, "") << words;
    }
}

}  // namespace
}  // namespace test_support
