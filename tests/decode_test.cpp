// trelvoctl decode: several dumps as one log, what is chosen of it and how it is printed.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "support/process.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string Bytes(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    std::string bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

// Policy version 1.0, or none; A,10 with TID 11 as index 1 and B,10 with TID 11 as index 2.
const std::string kOrigins = "10 04 41 2C 31 30 02 0B 01 04 42 2C 31 30 02 0B 02";
const std::string kVersioned = "03 31 2E 30" + kOrigins;
const std::string kPlain = "00" + kOrigins;
const std::string kAt1000 = "E8 07";  // last log times, in milliseconds
const std::string kAt1064 = "A8 08";
const std::string kAt1069 = "AD 08";
const std::string kAt9000 = "A8 C6 00";
// One buffer: kept by a request, kept with a line more, kept when its oldest line was dropped.
const std::string kKept = kPlain + kAt1000 + "00 21 01 61  05 21 01 62";
const std::string kKeptLater = kPlain + kAt1064 + "00 21 01 61  05 21 01 62  C0 00 21 01 63";
const std::string kDropped = kPlain + kAt1069 + "05 21 01 62  C0 00 21 01 63  05 21 01 64";

// A folder of dumps, each written a second after the one before.
class Decode : public testing::Test {
protected:
    Decode() {
        char name[] = "/tmp/trelvo-decode-XXXXXX";
        folder_ = mkdtemp(name);
    }
    ~Decode() override { fs::remove_all(folder_); }

    void Dump(const std::string& name, const std::string& hex) {
        WriteFile(folder_ / name, Bytes(hex));
        fs::last_write_time(folder_ / name, time_ += std::chrono::seconds(1));
    }

    // Runs a shell line in the folder.
    Output Run(const std::string& line) const {
        return RunProgram(
            {"sh", "-c",
             "cd " + folder_.string() + "; PATH=" TRELVO_BIN_DIR ":$PATH; export TZ=UTC; " + line});
    }

    fs::path folder_;
    fs::file_time_type time_ = fs::file_time_type::clock::now() - std::chrono::hours(24);
};

TEST_F(Decode, SeveralDumpsAreOneLog) {
    struct Row {
        const char* situation;
        std::vector<std::string> dumps;
        const char* log;
    };
    const std::string fresh = kPlain + kAt9000 + "00 21 01 78";
    const Row rows[] = {
        {"kept by two requests", {kKept, kKeptLater}, "0.995 a,1.000 b,1.064 c"},
        {"the same dump twice", {kKept, kKept}, "0.995 a,1.000 b"},
        {"the oldest was dropped", {kKeptLater, kDropped}, "0.995 a,1.000 b,1.064 c,1.069 d"},
        {"all that was known was dropped",
         {kKeptLater, kPlain + kAt1069 + "05 21 01 64"},
         "0.995 a,1.000 b,1.064 c,1.069 d"},
        {"lines are in no dump",
         {kKept, kPlain + kAt9000 + "C0 00 21 01 78"},
         "0.995 a,1.000 b,--------- gap: lines between 1.000 and 9.000 are in none of the dumps,"
         "9.000 x"},
        {"emptied",
         {kKept, fresh},
         "0.995 a,1.000 b,--------- fresh start after 1.000: a dump emptied the recorder, or the "
         "service was started,9.000 x"},
        {"started again, with the lines of before",
         {kKept, kPlain + kAt9000 + "00 22 01 7A  05 21 01 61  05 21 01 62  C0 3E 21 01 6E"},
         "--------- restart: the service was started again and recorded this boot once more,"
         "0.990 z,0.995 a,1.000 b,9.000 n"},
        {"rebooted",
         {kKept, kPlain + "3F 00 21 01 72"},
         "0.995 a,1.000 b,--------- reboot: time starts over,0.063 r"},
        {"a chance likeness",
         {kPlain + kAt1000 + "00 21 01 61", kPlain + kAt9000 + "00 21 01 61"},
         "1.000 a,--------- fresh start after 1.000: a dump emptied the recorder, or the service "
         "was started,9.000 a"},
        {"cut, but its times are known from another",
         {kKept, kPlain + kAt1069 + "00 21 01 61  05 21 01 62  C0 00 21 01 63 05"},
         "0.995 a,1.000 b,1.064 c"},
        {"cut within what another holds",
         {kKeptLater, kPlain + kAt1069 + "00 21 01 61  05 21 01"},
         "0.995 a,1.000 b,1.064 c"},
        {"an empty dump between", {kKept, "00 00 00", kKeptLater}, "0.995 a,1.000 b,1.064 c"},
    };
    for (const Row& row : rows) {
        Run("rm -f *.dump");
        for (size_t i = 0; i < row.dumps.size(); ++i) {
            Dump("trelvo_" + std::to_string(10 - i) + ".dump", row.dumps[i]);
        }
        EXPECT_EQ(Run("trelvoctl decode . 2>/dev/null | "
                      "sed -E 's/^ +//; s/ I.[AB] .*: / /' | paste -sd, | tr -d '\\n'")
                      .out,
                  row.log)
            << row.situation;
    }
    // Copies without their times are in order by log time only.
    Run("rm -f *.dump");
    Dump("a.dump", kDropped);
    Dump("b.dump", kKept);
    EXPECT_EQ(Run("trelvoctl decode --one-boot -o raw .").out, "a\nb\nc\nd\n");
}

TEST_F(Decode, WhatIsChosenAndHowItIsPrinted) {
    Dump("whole", kVersioned + kAt1000 + "00 21 01 61  05 42 01 62");
    Dump("cut", kVersioned + kAt1000 + "00 21 01 61  05 42 09 62");
    // Its second message is a code and text; its third one a code of no table.
    Dump("coded", kVersioned + kAt1000 + "00 21 01 80  00 21 02 68 69  00 42 01 80");
    Dump("odd", kPlain + kAt1000 + "00 21 03 FC 2C 22  00 82 02 1B 5C");
    Run("mkdir -p all/1 old; zstd -q whole -o whole.zst; head -c -3 whole.zst > cut.zst;"
        "echo '<policy version=\"0.9\"/>' > old/policy_version.xml;"
        "(printf '\\377\\377\\377\\377\\007'; head -c 200000000 /dev/zero) | zstd -q > bomb.zst");
    WriteFile(folder_ / "all/1/policy_version.xml",
              "<x><policy version='1.0'/><db logtag='A' name='a.db'/></x>");
    MakeCodeTable(folder_ / "all/1/a.db", "('hello','10000000'),('bye','0110100001101001')");
    fs::last_write_time(folder_ / "whole", fs::file_time_type(std::chrono::seconds(0)));

    const std::string a = "       0.995 I/A                   (P    10, T    11): a\n";
    const std::string b = "       1.000 W/B                   (P    10, T    11): b\n";
    const std::string cut = "offset 29: message of 9 bytes but only 1 are left";
    const std::vector<std::array<std::string, 4>> rows{
        // command, status, out, err; without options the dump is named by its position
        {"decode whole", "0", a + b, ""},
        {"decode - < whole", "0", a + b, ""},
        {"decode -", "0", a + b, ""},
        {"decode whole.zst", "0", a + b, ""},
        {"decode -o raw - < whole.zst", "0", "a\nb\n", ""},
        {"decode cut", "3", "       1.000 I/A                   (P    10, T    11): a\n",
         "cut: " + cut + "; the times shown are the latest possible"},
        {"decode no whole", "3", a + b, "no: No such file or directory"},
        {"decode cut.zst", "3", a + b,
         "cut.zst: offset 31: the compressed file is cut off; the times shown are the latest "
         "possible"},
        {"decode bomb.zst > /dev/null", "3", "",
         "bomb.zst: offset 69337088: the compressed file holds too much for its size"},
        {"decode whole > /dev/full", "5", "", "standard output: No space left on device"},
        {"decode -r -n 1 whole", "0", b, ""},
        {"decode -r whole", "0", b + a, ""},
        {"decode whole A:I", "0", a, ""},
        {"decode whole A:W", "0", "", ""},
        {"decode whole '*:W'", "0", b, ""},
        {"decode whole '*:I' A:S --tid 11 --pid 10 -g '^b$'", "0", b, ""},
        {"decode whole --tid 12", "0", "", ""},
        {"decode whole -g c", "1", "", ""},
        {"decode whole -g '('", "2", "", "decode: '(' at 1: missing closing parenthesis"},
        {"decode whole --since 1", "0", b, ""},
        {"decode whole --until -0.005s", "0", a, ""},
        {"decode whole --since soon", "2", "",
         "decode: 'soon' is no time: expected SECONDS, or -30s, -5m, -2h, -1d"},
        {"decode --policy all/1 --color=always coded", "0",
         "       1.000 I/A                   (P    10, T    11): hello\n"
         "       1.000 I/A                   (P    10, T    11): bye\n"
         "\x1B[33m       1.000 W/B                   (P    10, T    11): \\x80\x1B[0m\n",
         "coded: 1 messages are a code of their tag's table and could be text as well"},
        {"decode --policies all -o raw coded odd", "0", "hello\nbye\n\x80\n\xFC,\"\n\x1B\\\n",
         "coded: 1 messages are a code of their tag's table and could be text as well\n"
         "trelvoctl: odd: fresh start after 1.000: a dump emptied the recorder, or the service was "
         "started"},
        {"decode -o raw coded", "0", "<code 80>\nhi\n<code 80>\n", ""},
        {"decode --policy old whole", "4", "",
         "whole: needs the code tables of policy version '1.0', not those of '0.9'"},
        {"decode --policy old --force whole -o raw", "0", "a\nb\n", ""},
        {"decode --policies old whole", "4", "",
         "whole: needs the code tables of policy version '1.0', which old lacks"},
        {"decode --policy no whole", "4", "", "no/policy_version.xml: No such file or directory"},
        {"decode -o threadtime whole", "0",
         "01-01 00:00:00.995    10    11 I A       : a\n"
         "01-01 00:00:01.000    10    11 W B       : b\n",
         ""},
        {"decode -o json odd --boot-time 2026-01-31T12:00:00+01:00 --utc", "0",
         R"({"time_ms":1000,"time":"2026-01-31T11:00:01.000Z","level":"I","tag":"A","pid":10,)"
         R"("tid":11,"message":")"
         "\uFFFD"
         R"(,\"","coded":false,"file":"odd","bytes":"FC2C22"})"
         "\n"
         R"({"time_ms":1000,"time":"2026-01-31T11:00:01.000Z","level":"F","tag":"B","pid":10,)"
         R"("tid":11,"message":"\u001b\\","coded":false,"file":"odd"})"
         "\n",
         ""},
        {"decode -o csv odd A:V", "0",
         "time_ms,level,tag,pid,tid,message,coded,file\n"
         "1000,I,A,10,11,\"\xFC,\"\"\",false,odd\n",
         ""},
        {"decode --wall - ", "2", "",
         "decode: --wall needs a file with a time of its own; --boot-time sets one"},
        {"decode", "2", "", "FILE is required"},
        {"decode A:I", "2", "", "decode: FILE is required"},
        {"decod whole", "2", "", "unknown command or option 'decod'"},
        {"launch DUMP", "2", "", "launch: 'DUMP' has no '='; expected KEY=VALUE"},
    };
    for (const auto& [arguments, status, out, err] : rows) {
        const Output result = Run("cat whole | trelvoctl " + arguments);
        EXPECT_EQ(std::to_string(result.status), status) << arguments;
        EXPECT_EQ(result.out, out) << arguments;
        EXPECT_EQ(result.err, err.empty() ? err : "trelvoctl: " + err + "\n") << arguments;
    }
    // The file's own time is that of the last line.
    EXPECT_THAT(Run("trelvoctl decode --wall --utc whole").out,
                HasSubstr(Run("date -u -r whole '+%F %T.000Z'| tr -d '\\n'").out));
}

TEST_F(Decode, FollowsAFolder) {
    Dump("trelvo.dump", kKept);
    const Process follower({TRELVO_BIN_DIR "/trelvoctl", "decode", "-f", "-o", "raw", folder_},
                           folder_ / "out");
    const auto shown = [this](const std::string& text) {
        return WaitForChange(folder_, [&] { return ReadFile(folder_ / "out") == text; });
    };
    EXPECT_TRUE(shown("a\nb\n"));
    Dump("unfinished", kKeptLater);
    fs::rename(folder_ / "unfinished", folder_ / "trelvo_1.dump");
    EXPECT_TRUE(shown("a\nb\nc\n"));
    WriteFile(folder_ / "trelvo_2.dump", Bytes(kDropped));
    EXPECT_TRUE(shown("a\nb\nc\nd\n"));
}

// What docs/decode.md tells people to type.
TEST_F(Decode, JsonLinesLoadIntoADatabaseAndAViewer) {
    fs::create_directory(folder_ / "dumps");
    Dump("dumps/trelvo.dump", kPlain + kAt9000 + "00 21 01 61 05 21 01 62");
    const std::string doc = ReadFile(TRELVO_SOURCE_DIR "/docs/decode.md");
    const size_t start = doc.find("```sh\n", doc.find("## Load")) + 6;
    const Output loaded = Run(doc.substr(start, doc.find("```", start) - start));
    EXPECT_EQ(loaded.out, "A|I|2\n") << loaded.err;
    const Output viewed = Run("HOME=$PWD lnav -n -I " TRELVO_SOURCE_DIR
                              "/tools/lnav -c ';select log_time, log_level, tag, tid, log_body "
                              "from trelvo_log' -c ':write-csv-to -' log.jsonl");
    EXPECT_EQ(viewed.out,
              "log_time,log_level,tag,tid,log_body\n"
              "1970-01-01 00:00:08.995,info,A,11,a\n"
              "1970-01-01 00:00:09.000,info,A,11,b\n")
        << viewed.err;
}

}  // namespace
}  // namespace test_support
