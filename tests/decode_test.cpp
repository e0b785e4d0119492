// trelvoctl decode: several dumps as one log, what is chosen of it and how it is printed.

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/dump_builder.h"
#include "support/folder_test.h"
#include "support/sanitizers.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

// Policy version 1.0, or none; A,10 with TID 11 as index 1 and B,10 with TID 11 as index 2.
const std::string kSources = "10 04 41 2C 31 30 02 0B 01 04 42 2C 31 30 02 0B 02";
const std::string kVersioned = "03 31 2E 30" + kSources;
const std::string kPlain = "00" + kSources;
const std::string kAt1000 = "E8 07";  // last log times, in milliseconds
const std::string kAt1064 = "A8 08";
const std::string kAt1069 = "AD 08";
const std::string kAt9000 = "A8 C6 00";
const std::string kWhole = kVersioned + kAt1000 + "00 21 01 61  05 42 01 62";
const std::string kOdd = kPlain + kAt1000 + "00 21 03 FC 2C 22  00 82 02 1B 5C";
const std::string kA = "0.995 I/A (P 10, T 11): a\n";
const std::string kB = "1.000 W/B (P 10, T 11): b\n";
// One buffer: kept by a request, kept with a line more, kept when its oldest line was dropped.
const std::string kKept = kPlain + kAt1000 + "00 21 01 61  05 21 01 62";
const std::string kKeptLater = kPlain + kAt1064 + "00 21 01 61  05 21 01 62  C0 00 21 01 63";
const std::string kDropped = kPlain + kAt1069 + "05 21 01 62  C0 00 21 01 63  05 21 01 64";

// A dump's beginning: A,10 (or another tag) with TID 11 as index 1, the capture as index 2.
std::string Clocked(const std::string& tag = "41") {
    return "00 1B 04" + tag + "2C 31 30 02 0B 01 0F 74 72 65 6C 76 6F 2E 63 6C 6F 63 6B 2C 31 30" +
           "02 0B 02";
}
// The record of a line of the capture, in its words: after `delta` milliseconds, as hexadecimal.
std::string Clock(const std::string& delta, char boot, const std::string& host, double wall,
                  double monotonic, const std::string& header = "22",
                  const std::string& rest = "") {
    std::ostringstream record;
    const std::string text = "boot=" + std::string(32, boot) + " host=" + host +
                             " wall=" + std::to_string(wall) +
                             " monotonic=" + std::to_string(monotonic) + rest;
    record << delta << header << std::hex << (0x80 | (text.size() & 0x7F)) << "0"
           << (text.size() >> 7);
    for (const char c : text) {
        record << static_cast<int>(static_cast<unsigned char>(c));
    }
    return record.str();
}
const double kNow = 1764000000.25;            // 2025-11-24 16:00:00.25 UTC
const std::string kAtEnd = "FF FF FF FF 07";  // of the times that a dump can tell

// A folder of dumps, each written a second after the one before.
class Decode : public FolderTest {
protected:
    void Dump(const std::string& name, const std::string& hex) {
        WriteFile(folder_ / name, FromHex(hex));
        fs::last_write_time(folder_ / name, time_ += std::chrono::seconds(1));
    }

    // Rows of arguments, status, output and error; "whole" is the standard input.
    void ExpectRuns(const std::vector<std::array<std::string, 4>>& rows) const {
        for (const auto& [arguments, status, out, err] : rows) {
            const Output result = Run("cat whole | trelvoctl " + arguments);
            EXPECT_EQ(std::to_string(result.status), status) << arguments;
            EXPECT_EQ(result.out, out) << arguments;
            EXPECT_EQ(result.err, err.empty() ? err : "trelvoctl: " + err + "\n") << arguments;
        }
    }

    fs::file_time_type time_ = fs::file_time_type::clock::now() - std::chrono::hours(24);
};

// What stands between commas, but for those in front of a blank, a line each.
std::string Lines(const std::string& text) {
    return std::regex_replace(text, std::regex(",(?! )"), "\n") + '\n';
}

TEST_F(Decode, SeveralDumpsAreOneLog) {
    struct Row {
        const char* situation;
        std::vector<std::string> dumps;
        const char* log;
    };
    const std::string fresh = kPlain + kAt1000 + "00 21 01 78";
    const Row rows[] = {
        {"all that was known was dropped",
         {kKeptLater, kPlain + kAt1069 + "05 21 01 64"},
         "0.995 a,1.000 b,1.064 c,1.069 d"},
        {"lines are in no dump",
         {kKept, kPlain + kAt9000 + "C0 00 21 01 78"},
         "0.995 a,1.000 b,--------- gap: lines between 1.000 and 9.000 are in none of the dumps,"
         "9.000 x"},
        {"emptied within a millisecond",
         {kKept, fresh},
         "0.995 a,1.000 b,--------- fresh start after 1.000: a dump emptied the recorder, or the "
         "service was started,1.000 x"},
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
        {"an empty dump between", {kKept, "00 00 00", kKeptLater}, "0.995 a,1.000 b,1.064 c"},
    };
    for (const Row& row : rows) {
        Run("rm -f *.dump");
        for (size_t i = 0; i < row.dumps.size(); ++i) {
            Dump("trelvo_" + std::to_string(10 - i) + ".dump", row.dumps[i]);
        }
        EXPECT_EQ(Run("trelvoctl decode . 2>/dev/null | sed -E 's/^ +//; s/ I.[AB] .*: / /'").out,
                  Lines(row.log))
            << row.situation;
    }
}

TEST_F(Decode, OfTwoBootsTheFilesTimesAloneMayTellTheLater) {
    Dump("a.dump", kKept);
    time_ += std::chrono::hours(1);
    Dump("b.dump", kPlain + kAt9000 + "C0 00 21 01 78");
    EXPECT_EQ(Run("trelvoctl decode -r . | cut -c1-60").out,
              "9.000 I/A (P 10, T 11): x\n"
              "--------- reboot: time starts over\n"
              "1.000 I/A (P 10, T 11): b\n"
              "0.995 I/A (P 10, T 11): a\n");
    EXPECT_EQ(Run("trelvoctl decode --boot-time 2026-01-31 .").err,
              "trelvoctl: decode: --boot-time is that of one boot, but the dumps are of 2; --wall "
              "takes the files' own times\n");
    EXPECT_EQ(Run("trelvoctl decode -o raw --since -10s . 2>&-").out, "x\n");
}

TEST_F(Decode, CopiesWithoutTheirTimesAreInOrderByLogTime) {
    Dump("a.dump", kDropped);
    Dump("b.dump", kKept);
    EXPECT_EQ(Run("trelvoctl decode --one-boot -o raw .").out, "a\nb\nc\nd\n");
    // An archive keeps whole seconds.
    EXPECT_EQ(Run("touch -d @9 *.dump; trelvoctl decode -o raw .").out, "a\nb\nc\nd\n");
}

TEST_F(Decode, ClockLinesTellWallClockBootAndHost) {
    const std::string first = Clock("00", 'a', "vega", kNow + 1, 1);
    const std::string kept = Clocked() + kAt1000 + first + "00 21 01 61";
    const std::string later = Clocked() + kAt1064 + first + "00 21 01 61  C0 00 21 01 62";
    const std::string forged = Clock("00", 'b', "mira", kNow + 5000, 1);
    const std::vector<std::string> set_back{
        Clocked() + kAt1000 + Clock("00", 'a', "vega", kNow + 3601, 1) + "00 21 01 61",
        Clocked() + kAt1064 + "C0 00 21 01 62" + Clock("00", 'a', "vega", kNow + 1.064, 1.064) +
            "00 21 01 63",
        Clocked() + kAt1000 + Clock("00", 'b', "vega", kNow + 100, 1) + "00 21 01 78"};
    struct Row {
        const char* situation;
        std::vector<std::string> dumps;
        const char* options;
        const char* log;
    };
    const Row rows[] = {
        {"lines before it, behind it, and after the clock was set",
         {Clocked() + kAt1064 + "00 21 01 61" + Clock("05", 'a', "vega", kNow + 1.0596, 1.059) +
          "00 21 01 62" + Clock("05", 'a', "vega", kNow + 3601.064, 1.064) + "00 21 01 63"},
         "",
         "16:00:01.305 A a,16:00:01.310 A b,17:00:01.314 A c"},
        {"as seconds since boot, whatever the clock is late by",
         {Clocked() + kAt1000 + Clock("00", 'a', "vega", kNow + 0.99, 0.99) + "00 21 01 61"},
         "--monotonic",
         "1.000 A a"},
        {"as the user knows it better",
         {kept},
         "--boot-time 2025-11-24T10:00:00Z",
         "10:00:01.000 A a"},
        {"asked for", {kept}, "trelvo.clock:V", "16:00:01.250 trelvo.clock boot"},
        {"not counted", {later}, "-n 3", "16:00:01.250 A a,16:00:01.314 A b"},
        {"beyond what a dump can tell",
         {Clocked() + kAtEnd + "00 21 01 61" + Clock("05", 'a', "vega", kNow + 3e6, 3e6) +
              "00 21 01 62" + Clock("00", 'a', "vega", kNow + 3000001, 3000001) + "00 21 01 63",
          Clocked() + kAtEnd + Clock("00", 'a', "vega", kNow + 3000001, 3000001) +
              "00 21 01 63  00 21 01 64"},
         "--monotonic",
         "2147483.642 A a,3000000.000 A b,3000001.000 A c,3000001.000 A d"},
        {"beyond that, lines are in no dump",
         {Clocked() + kAtEnd + Clock("00", 'a', "vega", kNow + 3e6, 3e6) + "00 21 01 61",
          Clocked() + kAtEnd + "00 22 01 62" + Clock("00", 'a', "vega", kNow + 3000009, 3000009) +
              "00 21 01 63"},
         "--monotonic A:V",
         "3000000.000 A a,--------- gap: lines between 3000000.000 and 3000009.000 are in none of "
         "the dumps,3000009.000 A c"},
        {"another boot, whose times go on",
         {kept, Clocked() + kAt9000 + Clock("00", 'b', "vega", kNow + 100, 9) + "00 21 01 78"},
         "",
         "16:00:01.250 A a,--------- reboot: time starts over,16:01:40.250 A x"},
        {"boots in turns",
         {kept, Clocked() + kAt9000 + Clock("00", 'b', "vega", kNow + 100, 9) + "00 21 01 78",
          later},
         "",
         "16:00:01.250 A a,16:00:01.314 A b,--------- reboot: time starts over,16:01:40.250 A x"},
        {"boots by the latest time of each, though the first one's clock was set back", set_back,
         "",
         "16:01:40.250 A x,--------- reboot: time starts over,17:00:01.250 A a,17:00:01.314 A b,"
         "16:00:01.314 A c"},
        {"the last of these boots, which is not the longest", set_back,
         "--monotonic --since -0.05s", "--------- reboot: time starts over,1.064 A b,1.064 A c"},
        {"one boot, the later dump's file first",
         {Clocked() + kAt1069 + "C0 00 21 01 62" + Clock("05", 'a', "vega", kNow + 1.069, 1.069),
          later},
         "",
         "16:00:01.250 A a,16:00:01.314 A b"},
        {"one boot, though the file's time says that it began later",
         {Clocked() + "3F" + Clock("00", 'a', "vega", kNow + 0.063, 0.063) + "00 21 01 61",
          Clocked() + "F4 03" + Clock("05", 'a', "vega", kNow + 0.5, 0.5) + "00 21 01 62"},
         "",
         "16:00:00.313 A a,--------- gap: lines between 2025-11-24 16:00:00.313 and 2025-11-24 "
         "16:00:00.750 are in none of the dumps,16:00:00.750 A b"},
        {"the clock of the dumps before goes on",
         {kept,
          Clocked() + kAt1064 + "C0 00 21 01 62" +
              Clock("00", 'a', "vega", kNow + 3601.064, 1.064) + "00 21 01 63",
          Clocked() + kAt1069 + "05 21 01 64", Clocked() + "B2 08 05 21 01 65"},
         "",
         "16:00:01.250 A a,16:00:01.314 A b,17:00:01.314 A c,17:00:01.319 A d,17:00:01.324 A e"},
        {"without clock lines, in the places of their files",
         {kPlain + kAt9000 + "00 21 01 78", kept, Clocked() + kAt1064 + "C0 00 21 01 62"},
         "--monotonic",
         "9.000 A x,--------- reboot: time starts over,1.000 A a,1.064 A b"},
        {"two machines, one with a gap",
         {kept, Clocked() + kAt9000 + "C0 00 21 01 62",
          Clocked("43") + kAt9000 + Clock("00", 'c', "mira", kNow + 1.01, 9) + "00 21 01 78"},
         "",
         "16:00:01.250 vega A a,16:00:01.260 mira C x,--------- vega: gap: lines between "
         "2025-11-24 16:00:01.250 and 2025-11-24 16:00:09.250 are in none of the "
         "dumps,16:00:09.250 "
         "vega A b"},
        {"two machines, a boot of one without clock lines",
         {kept, kPlain + "3F 00 21 01 72",
          Clocked("43") + kAt9000 + Clock("00", 'c', "mira", kNow + 1.01, 9) + "00 21 01 78"},
         "--monotonic",
         "1.000 vega A a,9.000 mira C x,--------- vega: reboot: time starts over,0.063 vega A r"},
        {"a damaged dump",
         {Clocked() + kAt9000 + first + "00 21 01 61 00 21 09"},
         "",
         "16:00:01.250 A a,0.dump: offset 131: message of 9 bytes but only 0 are left"},
        {"cut between two records",
         {Clocked() + kAt9000 + first + "00 21 01 61"},
         "",
         "16:00:01.250 A a,0.dump: offset 129: the dump was cut between two records, as its clock "
         "lines tell"},
        {"of another boot, level, tail or form: lines like others",
         {Clocked() + kAt1000 + first + forged + Clock("00", 'a', "vega", kNow + 5000, 1, "42") +
          Clock("00", 'a', "vega", kNow + 5000, 1, "22", " ") +
          Clock("00", 'g', "vega", kNow + 5000, 1) + "00 21 01 61"},
         "",
         "16:00:01.250 trelvo.clock boot,16:00:01.250 trelvo.clock boot,"
         "16:00:01.250 trelvo.clock boot,16:00:01.250 trelvo.clock boot,16:00:01.250 A a"},
    };
    for (const Row& row : rows) {
        Run("rm -f *.dump");
        for (size_t i = 0; i < row.dumps.size(); ++i) {
            Dump(std::to_string(i) + ".dump", row.dumps[i]);
        }
        EXPECT_EQ(Run("trelvoctl decode . " + std::string(row.options) +
                      " 2>&1 | sed -E 's/^ +//; s/^2025-11-24 //; s,^trelvoctl: \\./,,; "
                      "s, (I|W)/([^ ]+) .*: , \\2 ,; s/boot=.*/boot/'")
                      .out,
                  Lines(row.log))
            << row.situation;
    }
}

TEST_F(Decode, EveryFormShowsTheWallClock) {
    Dump("0.dump", Clocked() + kAtEnd + Clock("00", 'a', "vega", kNow, 3e6) + "00 21 01 61" +
                       Clock("00", 'a', "vega", kNow + 2, 3000001) + "00 21 01 62 00");
    EXPECT_THAT(
        Run("trelvoctl stat -o json 0.dump 2>&-").out,
        HasSubstr(R"("first_ms":3000000000,"last_ms":3000001000,"span_ms":1000,"host":"vega",)"
                  R"("first_time":"2025-11-24T16:00:00.250+00:00",)"
                  R"("last_time":"2025-11-24T16:00:02.250+00:00")"));
    EXPECT_THAT(Run("trelvoctl stat 0.dump 2>&-").out,
                HasSubstr("2025-11-24 16:00:00.250 to 2025-11-24 16:00:02.250, on vega\n"));
    Dump("0.dump", Clocked() + kAt1000 + Clock("00", 'a', "vega", kNow + 1, 1) + "00 21 01 61");
    for (const auto& [command, shown] : std::vector<std::pair<std::string, std::string>>{
             {"decode", "2025-11-24 16:00:01.250 I/A (P 10, T 11): a\n"},
             {"decode -o json", ",\"time\":\"2025-11-24T16:00:01.250+00:00\","},
             {"decode -o threadtime", "11-24 16:00:01.250"},
             {"decode -o export", "\n_BOOT_ID=" + std::string(32, 'a') + "\n_HOSTNAME=vega\n"},
             {"patterns", " 11-24 16:00:01.250 "},
             {"patterns -o json --utc", "\"time\":\"2025-11-24T16:00:01.250Z\""}}) {
        EXPECT_THAT(Run("trelvoctl " + command + " 0.dump").out, HasSubstr(shown));
    }
}

TEST_F(Decode, TimesAreTakenAsTheyAreShownAndOthersRefused) {
    const std::string first = Clock("00", 'a', "vega", kNow + 1, 1);
    Dump("clock", Clocked() + kAt1064 + first + "00 21 01 61  C0 00 21 01 62");
    Dump("plain", kKept);
    Dump("set", Clocked() + kAt1064 + first + "00 21 01 61" +
                    Clock("00", 'a', "vega", kNow + 3601, 1) + "00 21 01 62");
    // Of half a minute ago and of now.
    const double now = static_cast<double>(time(nullptr));
    Dump("new", Clocked() + "B0 EA 01" + Clock("00", 'a', "vega", now - 30, 0) +
                    "00 21 01 61  B0 EA 01 21 01 62");
    const std::vector<std::array<std::string, 4>> rows{
        // file, options, out, err
        {"clock", "--since '2025-11-24 16:00:01.300'", "b", ""},
        {"clock", "--until '2025-11-24 16:00:01.25'", "a", ""},
        {"clock", "--since -0.06s", "b", ""},
        {"set", "--since -30m", "b", ""},
        {"new", "--since '20 s ago'", "b", ""},
        {"new", "--until '0.3 min ago' --since '1 day ago'", "a", ""},
        {"new", "--until now", "a b", ""},
        {"clock", "--until 00:54:10", "a b", ""},  // of today
        {"clock", "--since 00:00", "", ""},
        {"clock", "--monotonic --since 1.06", "b", ""},
        {"plain", "--since '2 minutes ago' --boot-time \"$(date -Is)\"", "a b", ""},
        {"clock", "--since 1.06", "",
         "'1.06' is seconds since boot, which --monotonic shows; give a time as it is shown: "
         "'2026-11-25 00:54:00', 00:54, yesterday, -5m"},
        {"plain", "--since 00:54", "",
         "'00:54' is a wall-clock time, but no clock line tells one: --wall guesses it, or give "
         "seconds since boot, or -5m, back from the end"},
        {"clock", "--monotonic --since 00:54", "",
         "'00:54' is a wall-clock time, but --monotonic shows times since boot: drop it, or give "
         "seconds since boot, or -5m, back from the end"},
    };
    for (const auto& [file, options, out, err] : rows) {
        const Output result =
            Run("trelvoctl decode -o raw " + file + " " + options + " | paste -sd' ' | grep .");
        EXPECT_EQ(result.out, out.empty() ? out : out + "\n") << file << options;
        EXPECT_EQ(result.err, err.empty() ? err : "trelvoctl: decode: " + err + "\n")
            << file << options;
    }
}

TEST_F(Decode, AWallClockGuessedByTheFilesTimeIsCalledAGuess) {
    Dump("plain", kKept);
    EXPECT_EQ(Run("trelvoctl decode --wall -o raw plain").err,
              "trelvoctl: wall-clock times of dumps without clock lines are a guess by the files' "
              "own times: late by as long as nothing was logged before a dump; the longest silence "
              "in them is 0.005 s\n");
}

TEST_F(Decode, InputsAreFilesStandardInputAndFrames) {
    Dump("whole", kWhole);
    Dump("kept", kKept);
    Dump("later", kKeptLater);
    DumpBuilder many;
    for (int line = 1; line <= 20000; ++line) {
        many.Line(0, std::to_string(line));
    }
    WriteFile(folder_ / "many", many.Image(1000));
    Run("zstd -q whole -o whole.zst; (echo read; cat whole) > rest");
    ExpectRuns({
        {"decode whole", "0", kA + kB, ""},
        {"-V > v; (read -r word; trelvoctl decode -) < rest", "0", kA + kB, ""},
        {"decode -", "0", kA + kB, ""},
        {"-V > v; cat many | trelvoctl decode -o raw - | cmp - <(seq 20000)", "0", "", ""},
        {"decode -o raw - < whole.zst", "0", "a\nb\n", ""},
        {"stat - > stat; cat later | trelvoctl decode -o raw - kept", "0", "a\nb\nc\n", ""},
    });
}

TEST_F(Decode, DamagedAndMissingInputsLeaveTheOthersReadable) {
    Dump("whole", kWhole);
    Dump("cut", kVersioned + kAt1000 + "00 21 01 61  05 42 09 62");
    Run("zstd -q whole -o whole.zst; head -c -3 whole.zst > cut.zst;"
        "(printf '\\377\\377\\377\\377\\007'; head -c 200000000 /dev/zero) | zstd -q > bomb.zst");
    const std::string cut = "offset 29: message of 9 bytes but only 1 are left";
    ExpectRuns({
        {"decode cut", "3", "≤1.000 I/A (P 10, T 11): a\n",
         "cut: " + cut + "; the times shown are the latest possible"},
        {"decode no whole", "3", kA + kB, "no: No such file or directory"},
        {"decode cut.zst", "3", "≤" + kA + "≤" + kB,
         "cut.zst: offset 0: the zstd frame that begins here is cut off; the times shown are the "
         "latest possible"},
        {"decode bomb.zst > /dev/null", "3", "",
         "bomb.zst: offset 0: policy version of 2147483647 bytes, but no more than 2 MiB are "
         "read"},
        {"decode whole > /dev/full", "5", "", "standard output: No space left on device"},
    });
}

TEST_F(Decode, WhatOthersLaidIntoAFolderIsNotWaitedFor) {
    Dump("a.dump", kWhole);
    ASSERT_EQ(mkfifo((folder_ / "b\x1B.dump").c_str(), 0600), 0);
    const Output mixed = Run("trelvoctl decode .");
    EXPECT_EQ(mixed.status, 3);
    EXPECT_EQ(mixed.out, kA + kB);
    EXPECT_THAT(mixed.err, HasSubstr("./b\\x1B.dump: not a regular file"));
    const Output piped =
        Run("trelvoctl decode <(sleep 0.1; cat a.dump); cat a.dump | trelvoctl decode /dev/stdin");
    EXPECT_EQ(piped.err, "");
    EXPECT_EQ(piped.out, kA + kB + kA + kB);
}

TEST_F(Decode, LinesAreChosenByTagLevelProcessTextAndTime) {
    Dump("whole", kWhole);
    ExpectRuns({
        {"decode -r -n 1 whole", "0", kB, ""},
        {"-V > v; cp whole x:I; trelvoctl decode -n 1 x:I", "0", kB, ""},  // files come first
        {"-V > v; mv x:I x:Y; trelvoctl decode -n 1 x:Y", "0", kB, ""},
        {"decode whole '*:I' A:S --tid 11 --pid 10 -g '^b$'", "0", kB, ""},
        {"decode whole -g c", "6", "", ""},
        {"decode whole " + std::string(300, 'x') + ":E", "0", "", ""},
        {"decode whole --until -0.005s", "0", kA, ""},
    });
}

TEST_F(Decode, CodesAreTranslatedByTheTablesOfTheirPolicyOnly) {
    Dump("whole", kWhole);
    // Its second message is a code and text; its third one a code of no table.
    Dump("coded", kVersioned + kAt1000 + "00 21 01 80  00 21 02 68 69  00 42 01 80");
    Dump("odd", kOdd);
    Dump("bare", kPlain + kAt1000 + "00 21 01 80");
    Dump("cut", kPlain + kAt1000 + "00 21 01 61  05 42 09 62");
    Dump("both", kVersioned + kAt1000 + "00 21 02 68 69  05 42 09 62");
    Run("mkdir -p all/1 lost/1 old twice; for i in 1 2; do mkdir twice/$i;"
        "echo '<policy version=\"1\"/>' > twice/$i/policy_version.xml; done; echo '<policy "
        "version=\"0.9\"/>' > old/policy_version.xml; echo '<x><policy version=\"1.0\"/><db "
        "logtag=\"A\" name=\"no.db\"/>' > lost/1/policy_version.xml");
    const Output twice = Run("trelvoctl decode --policies twice whole");
    EXPECT_EQ(twice.status, 4);
    EXPECT_THAT(twice.err, HasSubstr(" are both of policy version '1'"));
    WriteFile(folder_ / "all/1/policy_version.xml",
              "<x><policy version='1.0'/><db logtag='A' name='a.db'/></x>");
    MakeCodeTable(folder_ / "all/1/a.db", "('hello','10000000'),('bye','0110100001101001')");
    ExpectRuns({
        {"decode --policy all/1 --color=always coded", "0",
         "1.000 I/A (P 10, T 11): hello\n"
         "1.000 I/A (P 10, T 11): bye\n"
         "\x1B[33m1.000 W/B (P 10, T 11): \\x80\x1B[0m\n",
         "coded: 1 messages are a code of their tag's table and could be text as well"},
        {"decode --policies all -o raw coded odd", "0", "hello\nbye\n\x80\n\xFC,\"\n\x1B\\\n",
         "coded: 1 messages are a code of their tag's table and could be text as well\n"
         "trelvoctl: odd: fresh start after 1.000: a dump emptied the recorder, or the service was "
         "started"},
        {"decode --policy all/1 -o raw both", "3", "bye\n",
         "both: 1 messages are a code of their tag's table and could be text as well\ntrelvoctl: "
         "both: offset 30: message of 9 bytes but only 1 are left; the times shown are the latest "
         "possible"},
        {"decode -o raw coded", "0", "<code 80>\nhi\n<code 80>\n",
         "2 of 3 messages are codes of policy 1.0: --policy DIR"},
        {"decode -o raw -g h coded", "4", "hi\n",
         "2 of 3 messages are codes of policy 1.0: --policy DIR; codes were not searched"},
        {"decode --policy old -o raw odd", "0", "\xFC,\"\n\x1B\\\n", ""},
        {"decode --policy old whole", "4", "",
         "whole: needs the code tables of policy version '1.0', not those of '0.9'"},
        {"decode --policy old --force whole -o raw", "0", "a\nb\n", ""},
        {"decode --policy all/1 --force bare -o raw", "0", "hello\n", ""},
        {"decode --policy all/1 bare -o raw", "0", "\x80\n", ""},
        {"decode --policies lost whole -o raw", "4", "a\nb\n",
         "lost/1/no.db: unable to open database file; its codes are shown as they are"},
        {"decode --policies old whole cut -o raw", "4", "a\n",
         "whole: needs the code tables of policy version '1.0', which old lacks\ntrelvoctl: cut: "
         "offset 26: message of 9 bytes but only 1 are left; the times shown are the latest "
         "possible"},
        {"decode --policy no whole", "4", "",
         "decode: no/policy_version.xml: No such file or directory"},
    });
}

TEST_F(Decode, FormsKeepOddBytesApartFromTheirOwn) {
    Dump("whole", kWhole);
    Dump("odd", kOdd);
    Dump("controls", kPlain + kAt1000 + "00 21 0B 1B C2 9B 7F E2 80 AE E6 97 A5 00");
    Dump("nul", kPlain + kAt1000 + "00 21 02 61 00");
    fs::last_write_time(folder_ / "whole", fs::file_time_type(std::chrono::seconds(0)));
    EXPECT_THAT(Run("trelvoctl patterns -o json odd").out, HasSubstr("\"example\":\"\uFFFD,"));
    ExpectRuns({
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
         "time_ms,level,tag,pid,tid,message,coded,file,bytes\n"
         "1000,I,A,10,11,\"\uFFFD,\"\"\",false,odd,FC2C22\n",
         ""},
        {"decode -o export odd B:V --boot-time 2026-01-31T12:00:00Z | grep -av _BOOT_ID", "0",
         "__REALTIME_TIMESTAMP=1769860801000000\n__MONOTONIC_TIMESTAMP=1000000\nPRIORITY=2\n" +
             std::string("SYSLOG_IDENTIFIER=B\n_PID=10\nTID=11\nMESSAGE\n\x02") +
             std::string(7, '\0') + "\x1B\\\n\n",
         ""},
        {"decode -o json controls", "0",
         R"({"time_ms":1000,"level":"I","tag":"A","pid":10,"tid":11,)"
         R"("message":"\u001b\u009B\u007F\u202E)"
         "\u65E5"
         R"(\u0000","coded":false,"file":"controls","bytes":"1BC29B7FE280AEE697A500"})"
         "\n",
         ""},
        {"decode -o csv nul | tail -1", "0", "1000,I,A,10,11,a\uFFFD,false,nul,6100\n", ""},
    });
}

TEST_F(Decode, WrongArgumentsAndInputsAreNamed) {
    Dump("whole", kWhole);
    Run("mkdir -p none/folder.dump d\xFF; echo some words > text; : > nothing; mkfifo pipe;"
        "echo '1.0 I/A(P 1, T 2): f.c: g(3) > hi' > capture");
    ExpectRuns({
        {"decode -o export --monotonic whole", "2", "",
         "decode: -o export has both times of a line; drop --monotonic"},
        {"decode -o export - ", "2", "",
         "decode: -o export needs a file with a time of its own; --boot-time sets one"},
        {"decode whole -g '('", "2", "", "decode: '(' at 1: missing closing parenthesis"},
        {"decode whole --since soon", "2", "",
         "decode: 'soon' is not a time: expected '2026-11-25 00:54:00', 2026-11-25, 00:54, "
         "yesterday, '10 min ago', -5m (before the end), or seconds since boot"},
        {"decode", "2", "", "FILE is required"},
        {"decode A:I", "2", "", "FILE is required"},
        {"decod whole", "2", "", "unknown command or option 'decod', did you mean decode?"},
        {"whole", "2", "",
         "unknown command or option 'whole'; the commands are decode, stat, patterns, compare, "
         "report, dump, launch, status, train"},
        {"decode whole A:X", "2", "",
         "decode: 'A:X' is neither a file nor TAG:LEVEL: levels are V, D, I, W, E, F and S"},
        {"decode text", "3", "", "text: not a dump (it looks like text)"},
        {"stat capture", "3", "",
         "capture: not a dump: this is capture text; `trelvoctl train` reads it"},
        {"decode nothing", "3", "", "nothing: empty, not a dump"},
        {"stat pipe", "3", "", "pipe: not a regular file; a pipe is read as standard input, '-'"},
        {"patterns --lines whole", "2", "", "patterns: --lines needs -o json"},
        {"dump $PWD/d\xFF", "2", "", "dump: /tmp/test/d\\xFF: the path is not UTF-8"},
        {"decode none whole -o raw", "3", "a\nb\n", "no dumps in none (*.dump, *.dump.zst)"},
        {"decode whole --boot-time soon", "2", "",
         "decode: 'soon' is not a time of boot: expected 2026-01-31T12:00:00Z or '2026-01-31 "
         "12:00:00'"},
        {"decode -f whole", "2", "", "decode: --follow takes one folder"},
        {"decode -f . none", "2", "", "decode: --follow takes one folder"},
        {"decode -f -r .", "2", "", "--reverse excludes --follow"},
        {"decode --wall --monotonic whole", "2", "", "--wall excludes --monotonic"},
        {"decode --wall --boot-time 2026-01-31 whole", "2", "", "--boot-time excludes --wall"},
        {"decode --policy d --policies d whole", "2", "", "--policy excludes --policies"},
        {"decode --wall -", "2", "",
         "decode: --wall needs a file with a time of its own; --boot-time sets one"},
        {"2>&1 | sed q", "0", "trelvoctl: a command is required\n", ""},
        {"help decode | sed q", "0", "Print dumps as one log\n", ""},
        {"launch DUMP", "2", "", "launch: 'DUMP' has no '='; expected KEY=VALUE"},
        {"launch =x", "2", "", "launch: '=x' has no key before its '='; expected KEY=VALUE"},
        {"launch A=\xFF", "2", "", "launch: 'A=\\xFF' is not UTF-8; expected KEY=VALUE"},
        {"launch A=1 A=2=3", "2", "",
         "launch: 'A=2=3' gives its key a second time; expected KEY=VALUE"},
    });
}

TEST_F(Decode, ReportsAreWholeOrNotWritten) {
    Dump("whole", kWhole);
    Dump("cut", kVersioned + kAt1000 + "00 21 01 61  05 42 09 62");
    Dump("other", kKept);
    Dump("later", kKeptLater);
    Dump("boot", kPlain + "3F 00 21 01 72");
    Dump("coded", kVersioned + kAt1000 + "00 21 01 61  00 21 01 80");
    Run("mkdir none; mkfifo pipe");
    const std::string cut =
        "cut: offset 29: message of 9 bytes but only 1 are left; the times shown are the latest "
        "possible";
    const std::array<std::array<std::string, 4>, 16> rows{{
        // Arguments, status, error, and whether there is a page now.
        {"report whole -o page", "0", "", "page"},
        {"report whole C:V -o page", "0", "", "page"},
        {"report coded -o page", "0", "1 of 2 messages are codes of policy 1.0: --policy DIR",
         "page"},
        {"report cut -o page", "3", cut, "page"},
        {"report whole --good cut -o page", "3", cut, "page"},
        {"report none -o page", "3", "no dumps in none (*.dump, *.dump.zst)", ""},
        {"report whole --good none -o page", "3", "no dumps in none (*.dump, *.dump.zst)", ""},
        {"report whole B:V --good cut -o page", "3", cut, ""},
        {"report whole --since 1 --good boot -o page", "0", "", "page"},
        {"report boot --until 0.5 --good whole -o page", "0", "", "page"},
        {"report other B:V --good whole -o page", "6", "no lines to compare with whole", ""},
        {"report whole A:X --good whole -o page", "2",
         "report: 'A:X' is neither a file nor TAG:LEVEL: levels are V, D, I, W, E, F and S", ""},
        {"report boot --good whole -o whole", "2",
         "report: whole: is read, or named like a dump; -o takes the page to write, such as "
         "report.html",
         ""},
        {"report whole -o my.dump.zst", "2",
         "report: my.dump.zst: is read, or named like a dump; -o takes the page to write, such as "
         "report.html",
         ""},
        {"report whole -o none/no/page", "5", "none/no/page.part: No such file or directory", ""},
        {"report whole -o pipe", "5", "pipe: not a regular file; the page needs one", ""},
    }};
    for (const auto& [arguments, status, err, page] : rows) {
        ExpectRuns({{arguments, status, "", err}});
        EXPECT_EQ(Run("ls | grep page; rm -f page").out, page.empty() ? "" : "page\n") << arguments;
    }
    // What the page is told of the dumps.
    const auto data_of = [this](const std::string& id, const std::string& arguments) {
        return Run("trelvoctl report -o page " + arguments +
                   " 2>/dev/null; (printf '\\037\\213\\010\\0\\0\\0\\0\\0\\0\\0'; sed -n 's/.*\"" +
                   id + "\">\\(.*\\)<.*/\\1/p' page | base64 -d) | gzip -dcq")
            .out;
    };
    EXPECT_EQ(data_of("text-0", "coded"), "80\n");  // of "<code 80>", the rest is its pattern
    EXPECT_THAT(
        data_of("head", "--utc cut other later boot"),
        HasSubstr(
            R"("wall":false,"utc":true,"blocks":[4],"widths":{"time":5,"latest":false,"tag":1,)"
            R"("pid":2,"tid":2},"boots":[{"host":"","wall":false},{"host":"","wall":false}],)"
            R"("files":[{"name":"cut","lines":1,"repeated":0,"boot":0,"damage":"offset 29: message )"
            R"(of 9 bytes but only 1 are left"},{"name":"other","lines":1,"repeated":1,"boot":0},)"
            R"({"name":"later","lines":1,"repeated":2,"boot":0},{"name":"boot","lines":1,)"
            R"("repeated":0,"boot":1}])"));
    // A page that cannot be written to its end leaves the one that is there.
    const auto full =
        Run("echo old > page; ulimit -f 8; trap '' XFSZ; trelvoctl report whole -o page");
    EXPECT_EQ(full.status, 5);
    EXPECT_EQ(full.err, "trelvoctl: page.part: File too large\n");
    EXPECT_EQ(Run("cat page; ls | grep part").out, "old\n");
}

TEST_F(Decode, NothingDrivesATerminal) {
    const std::string controls = "c\x1B\xC2\x9B\x7F\u202E";
    Dump(controls, Clocked() + kAt1000 + Clock("00", 'a', controls, kNow, 1) +
                       "00 21 0A 1B C2 9B 7F E2 80 AE E6 97 A5");
    Dump("clock", Clocked() + kAt1000 + Clock("00", 'b', "other", kNow, 1) + "00 21 01 61");
    for (const std::string format : {"short", "threadtime", "json", "csv", "raw"}) {
        const std::string shown = Run("script -qec 'trelvoctl decode --no-pager --color never -o " +
                                      format + " c*' /dev/null")
                                      .out;
        EXPECT_THAT(shown, HasSubstr("\u65E5")) << format;
        for (const char* bytes : {"\x1B", "\xC2\x9B", "\x7F", "\u202E"}) {
            EXPECT_THAT(shown, testing::Not(HasSubstr(bytes))) << format;
        }
    }
}

TEST_F(Decode, ColumnsFitWhatIsThereAndLinesGoOnUnderTheirMessage) {
    // B's line is of the first thread of its process.
    Dump("threads", "00 10 04 41 2C 31 30 02 0B 01 04 42 2C 31 30 02 0A 02" + kAt1000 +
                        "00 41 1B 61 0A" + std::string(36, '7') +
                        "E6 97 A5 77 77 77 77 00 22 03 C3 A4 63");
    const std::string head = "1.000 W/A (P 10, T 11): a";
    const std::string indent(head.size() - 1, ' ');
    const std::string other = "1.000 I/B       (P 10): \u00E4c";
    const std::string terminal = "script -qec 'stty -onlcr cols 44; TERM=xterm ";
    const std::string on = "\x1B[33m";
    const std::string off = "\x1B[0m\n";
    const std::string wide = std::string(18, 'w') + "\u65E5";
    Dump("code", kVersioned + kAt1000 + "00 21 03 80 0A 0A");
    for (const auto& [command, shown] : std::vector<std::pair<std::string, std::string>>{
             {terminal + "trelvoctl decode --no-pager code 2>/dev/null' /dev/null",
              "1.000 I/A (P 10, T 11): <code 800A0A>\n"},
             {"trelvoctl decode threads", head + "\\x0A" + wide + "wwww\n" + other + "\n"},
             {terminal + "NO_COLOR= trelvoctl decode --no-pager threads' /dev/null",
              on + head + off + on + indent + wide + off + on + indent + "wwww" + off + other +
                  "\n"},
             {terminal + "stty cols 43; trelvoctl decode --color never --no-pager threads' "
                         "/dev/null",
              head + "\n" + indent + wide + "wwww\n" + other + "\n"},
             {terminal + "PAGER=false TRELVO_PAGER= trelvoctl decode -n 1 threads' /dev/null",
              other + "\n"},
             {terminal + "NO_COLOR=1 PAGER=false TRELVO_PAGER=\"sed s/^/:/\" trelvoctl decode none "
                         "threads' /dev/null; echo $?",
              ":trelvoctl: none: No such file or directory\n:" + head + "\n:" + indent + wide +
                  "wwww\n:" + other + "\n3\n"}}) {
        EXPECT_EQ(Run(command).out, shown) << command;
    }
}

TEST_F(Decode, SearchesGoOnBehindALineThatCostsTooMuch) {
    const auto log = [this](const std::string& line) {
        WriteFile(folder_ / "long", FromHex(kPlain + kAt1000 + "00 21") + FromHex("E0 D4 03") +
                                        line + FromHex("00 21 01 65"));
    };
    log(std::string(60000, 'x'));
    const Output deep = Run("trelvoctl decode -o raw -g '^(x|y)+$|e' long | tail -c 4");
    EXPECT_EQ(deep.out, "x\ne\n");
    EXPECT_EQ(deep.err, "");
    log(std::string(60000, 'a'));
    EXPECT_THAT(
        Run("trelvoctl decode --boot-time 2026-01-31T12:00:00Z --utc -g '^(a+)+$b|(a+)+c' long")
            .err,
        HasSubstr(": line at 2026-01-31 12:00:01.000Z: "));
    for (const std::string command : {"decode -o raw", "patterns --lines -o json"}) {
        const Output hopeless = Run("trelvoctl " + command + " -g '^(a+)+$b|(a+)+c|e' long");
        EXPECT_EQ(std::count(hopeless.out.begin(), hopeless.out.end(), '\n'), 1);
        EXPECT_EQ(hopeless.status, 3);
        EXPECT_EQ(hopeless.err,
                  "trelvoctl: long: line at 1.000: the pattern gives up on this line: match limit "
                  "exceeded\n");
    }
}

// What zstd makes of the content as one frame, with or without its size.
std::string Frame(const std::string& content, bool with_size = true) {
    const std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> context(ZSTD_createCCtx(),
                                                                       ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_contentSizeFlag, with_size ? 1 : 0);
    std::string frame(ZSTD_compressBound(content.size()), '\0');
    frame.resize(
        ZSTD_compress2(context.get(), frame.data(), frame.size(), content.data(), content.size()));
    return frame;
}

TEST_F(Decode, ChainsOfFramesUpToTheLastWholeOne) {
    // Two pages of 20,000 records 1 ms apart and an open page of one record; the newest is
    // at 9.000.
    const auto record = [](int number) {
        return std::string("\x01\x21\x05", 3) + std::to_string(10000 + number);
    };
    std::array<std::string, 3> pages;
    for (int number = 0; number < 40001; ++number) {
        pages.at(static_cast<size_t>(number / 20000)) += record(number);
    }
    const std::string head = Frame(FromHex(kPlain + kAt9000));
    const std::string one = Frame(pages[0]);
    const std::string two = Frame(pages[1]);
    const std::string open = Frame(pages[2]);
    const std::string chain = head + one + two + open;
    const size_t at_one = head.size();
    const size_t at_two = at_one + one.size();
    const size_t at_open = at_two + two.size();
    const std::string skippable("\x5F\x2A\x4D\x18\x03\0\0\0abc", 11);
    std::string flipped = chain;
    flipped[at_two + two.size() / 2] ^= 0x10;
    std::string wrong_checksum = chain;
    wrong_checksum[at_open - 1] ^= 0x01;
    const std::string cut = "is cut off";
    const std::string damaged = "is damaged: ";
    struct Row {
        const char* situation;
        std::string file;
        int lines;
        size_t offset;
        std::string cause;  // empty: all is well
    };
    const Row rows[] = {
        {"whole", chain, 40001, 0, ""},
        {"empty frames", Frame("") + head + Frame("") + one + two + Frame("") + open + Frame(""),
         40001, 0, ""},
        {"skippable frames", skippable + head + one + skippable + two + open + skippable, 40001, 0,
         ""},
        {"frames without their size",
         Frame(FromHex(kPlain + kAt9000), false) + Frame(pages[0] + pages[1], false) + open, 40001,
         0, ""},
        {"cut between pages", chain.substr(0, at_two), 20000, 0, ""},
        {"cut in the magic number", chain.substr(0, at_two + 2), 20000, at_two, cut},
        {"cut in a frame header", chain.substr(0, at_two + 5), 20000, at_two, cut},
        {"cut in a page", chain.substr(0, at_two + two.size() / 2), 20000, at_two, cut},
        {"cut in a checksum", chain.substr(0, at_open - 1), 20000, at_two, cut},
        {"cut in the open page", chain.substr(0, chain.size() - 5), 40000, at_open, cut},
        {"cut in the head's checksum", chain.substr(0, at_one - 1), 0, 0, cut},
        {"a flipped bit", flipped, 20000, at_two, damaged},
        {"a wrong checksum", wrong_checksum, 20000, at_two, damaged},
        {"trailing garbage", chain + "garbage", 40001, chain.size(), damaged},
    };
    for (const Row& row : rows) {
        WriteFile(folder_ / "trelvo.dump.zst", row.file);
        const Output read = Run("trelvoctl decode -o csv trelvo.dump.zst | cut -d, -f1,6");
        // The newest whole line has the time of the newest of all.
        std::string expected = "time_ms,message\n";
        for (int number = 0; number < row.lines; ++number) {
            expected += std::to_string(9000 - row.lines + 1 + number) + ',' +
                        std::to_string(10000 + number) + '\n';
        }
        EXPECT_EQ(read.out, expected) << row.situation;
        const std::string fault = "trelvoctl: trelvo.dump.zst: offset " +
                                  std::to_string(row.offset) +
                                  ": the zstd frame that begins here " + row.cause;
        for (const char* command : {"decode", "stat"}) {
            const Output result =
                Run(std::string("trelvoctl ") + command + " trelvo.dump.zst > /dev/null");
            EXPECT_EQ(result.status, row.cause.empty() ? 0 : 3) << row.situation;
            EXPECT_EQ(result.err.substr(0, fault.size()), row.cause.empty() ? "" : fault)
                << row.situation;
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'),
                      row.cause.empty() ? 0 : 1);
        }
        // Training reads a pipe once, and the same lines.
        const Output trained =
            Run("trelvoctl train -o tables --force --policy-version 1 - < trelvo.dump.zst 2>&1");
        EXPECT_THAT(trained.out, HasSubstr(std::to_string(row.lines))) << row.situation;
    }
}

// The most memory, in KiB, that the programs which ended so far took at a time.
long PeakKiB() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss;
}

TEST_F(Decode, HostileDumpsAreReadWithinTheBoundOfMemory) {
    SKIP_WHERE_SANITIZED();
    const std::string log = FromHex(kPlain + kAt9000);
    const std::string none(1, '\0');
    const std::string key = std::string("\x03") + "A,1";
    std::string threads;
    for (uint32_t index = 1; index <= 1000000; ++index) {
        threads += Leb(index) + Leb(index);
    }
    threads = key + Leb(static_cast<int64_t>(threads.size())) + threads;
    const std::string memory = "needs more memory than 64 MiB and 2 bytes for each byte";
    struct Row {
        const char* situation;
        std::string start;
        std::string repeated;
        size_t thousands;
        const char* zstd;  // options
        int copies;
        std::string arguments;
        std::string fault;
    };
    const Row rows[] = {
        {"many records", log, FromHex("00 21 00"), 5000, "", 2, "--pid 1", memory},
        {"records without end", log, FromHex("00 21 01 61"), 25000, "", 1, "--pid 1",
         "64 MiB and 1000 times the file"},
        {"one pair again and again", none + Leb(40000009) + key + Leb(40000000), FromHex("0B 01"),
         20000, "", 1, "", memory},
        {"many threads", none + Leb(static_cast<int64_t>(threads.size())) + threads, "", 0, "", 1,
         "", memory},
        {"a long message", log + FromHex("00 21") + Leb(60000000), "\x1B", 60000, "", 1, "",
         "message of 60000000 bytes, but no more than 2 MiB are read"},
        {"the longest message", log + FromHex("00 21") + Leb(2000000), "\x1B", 2000, "", 1,
         "-o json", ""},
        {"long windows", log, FromHex("01 21 01 61"), 5000, "--long=27", 40, "--pid 1",
         "needs a window of more than 8 MiB"},
        {"the longest windows", log, FromHex("01 21 01 61"), 2500, "--zstd=wlog=23", 40, "--pid 1",
         memory},
    };
    for (const Row& row : rows) {
        Run("rm -f *.zst");
        // In pieces: a child begins with the memory of this program.
        std::ofstream content(folder_ / "content");
        content << row.start;
        std::string piece;
        for (size_t i = 0; i < 1000; ++i) {
            piece += row.repeated;
        }
        for (size_t i = 0; i < row.thousands; ++i) {
            content << piece;
        }
        content.close();
        Run(std::string("zstd -q ") + row.zstd + " content -o 0.dump.zst");
        for (int copy = 1; copy < row.copies; ++copy) {
            fs::copy(folder_ / "0.dump.zst", folder_ / (std::to_string(copy) + ".dump.zst"));
        }
        Run("rm content; cat *.zst > all");
        const Output result =
            Run("trelvoctl decode --one-boot " + row.arguments + " . > /dev/null");
        EXPECT_EQ(result.status, row.fault.empty() ? 0 : 3) << row.situation;
        EXPECT_THAT(result.err, HasSubstr(row.fault)) << row.situation;
        // Of this program or of the other ones, whichever took the most so far.
        const auto input = static_cast<long>(fs::file_size(folder_ / "all"));
        EXPECT_LT(PeakKiB(), 64L * 1024 + 2 * input / 1024) << row.situation;
    }
}

// Interleaved line by line, which takes all of them at once.
TEST_F(Decode, AnyNumberOfDumpsWithFewDescriptors) {
    SKIP_WHERE_SANITIZED();
    constexpr int kDumps = 1100;
    for (int dump = 0; dump < kDumps; ++dump) {
        // Lines at 1, 2, 3 (some long) and 9 s, of a process each; all but the first are restarts.
        const std::string source = "A," + std::to_string(dump);
        const std::string image = DumpBuilder()
                                      .Line(5, "a", source)
                                      .Line(1000, "b", source)
                                      .Line(1000, std::string(dump < 100 ? 5000 : 1, 'c'), source)
                                      .Line(6000, "d", source)
                                      .Image(9000);
        const bool packed = dump % 2 == 1;
        const std::string name = std::to_string(dump) + (packed ? ".dump.zst" : ".dump");
        WriteFile(folder_ / name, packed ? Frame(image) : image);
    }
    const Output result =
        Run("ulimit -n 128; trelvoctl decode --one-boot -o raw . 2> err | cut -c1 | uniq -c |"
            "tr -d '\\n '; grep -v restart err >&2");
    EXPECT_EQ(result.out, "1100a1100b1100c1100d");
    EXPECT_EQ(result.err, "");
    EXPECT_LT(PeakKiB(), 64 * 1024);
}

// After 24.8 days all lines have one time, and a restart makes them all candidates.
TEST_F(Decode, ARestartAmongLinesOfOneTimeIsBounded) {
    SKIP_WHERE_SANITIZED();
    for (const char* name : {"0.dump", "1.dump"}) {
        std::ofstream dump(folder_ / name);
        dump << FromHex(kPlain + "FF FF FF FF 07 00 21 01 30");
        dump << (*name == '0' ? "" : FromHex("05 21 01 31"));
        for (uint32_t number = 0; number < 300000; ++number) {
            const std::string text = std::to_string(2000000 + number + (*name == '0' ? 0 : 500000));
            dump << FromHex("00 21 07") << text;
        }
    }
    // The second one begins before the first one ends.
    const Output result = Run("trelvoctl decode --one-boot -o raw . 2>/dev/null | wc -l");
    EXPECT_EQ(result.out, "600003\n");
    const auto input = static_cast<long>(fs::file_size(folder_ / "0.dump") * 2);
    EXPECT_LT(PeakKiB(), 64L * 1024 + 2 * input / 1024);
}

TEST_F(Decode, FollowsAFolder) {
    Dump("trelvo.dump", kKept);
    const Process follower(
        {(TRELVO_BIN_DIR "/trelvoctl"), "decode", "-f", "-n", "2", "-o", "raw", folder_ / ""},
        folder_ / "out", folder_ / "err");
    const auto shown = [this](const std::string& text) {
        return WaitForChange(folder_, [&] { return ReadFile(folder_ / "out") == text; });
    };
    EXPECT_TRUE(shown("a\nb\n"));
    std::ofstream half(folder_ / "trelvo_2.dump");           // is not shown before it is whole
    ASSERT_EQ(mkfifo((folder_ / "fifo").c_str(), 0600), 0);  // is not waited for
    fs::rename(folder_ / "fifo", folder_ / "trelvo_0.dump");
    Dump("unfinished", kKeptLater);
    fs::rename(folder_ / "unfinished", folder_ / "trelvo_1.dump");
    EXPECT_TRUE(shown("a\nb\nc\n"));
    Run(": >> trelvo.dump");  // is not changed
    half << FromHex(kDropped);
    half.close();
    EXPECT_TRUE(shown("a\nb\nc\nd\n"));
    Dump("unfinished", kPlain + kAt9000 + "C0 00 21 01 78");
    fs::rename(folder_ / "unfinished", folder_ / "trelvo_2.dump");
    EXPECT_TRUE(shown("a\nb\nc\nd\nx\n")) << "another dump of the name";
    const std::string next = kPlain + kAt9000 + "C0 00 21 01 78  00 21 01 ";
    Dump(".trelvo-1.part", next + "79");
    fs::create_hard_link(folder_ / ".trelvo-1.part", folder_ / "trelvo_3.dump");
    EXPECT_TRUE(shown("a\nb\nc\nd\nx\ny\n")) << "a link to a whole file";
    fs::remove(folder_ / "trelvo_0.dump");
    follower.Signal(SIGSTOP);
    for (int i = 0; i < 10000; ++i) {  // more than the system keeps for who does not read
        WriteFile(folder_ / "other", "");
        WriteFile(folder_ / "another", "");
    }
    Dump("trelvo_4.dump", next + "79  00 21 01 7A");
    follower.Signal(SIGCONT);
    EXPECT_TRUE(shown("a\nb\nc\nd\nx\ny\nz\n")) << "events were lost";
    EXPECT_THAT(
        ReadFile(folder_ / "err"),
        MatchesRegex("trelvoctl: [^ ]*_0.dump: not a regular [^\n]*\n[^\n]* gap: [^\n]*\n"));
}

TEST_F(Decode, AFolderThatIsFollowedMayBeEmptyYetAndTellsTheBootLater) {
    const std::array<std::array<std::string, 3>, 4> dumps{
        {{kKept, "101", "b"},
         {kKeptLater, "100.964", "c"},
         {kDropped, "101.469", "d"},
         {kPlain + "3F 00 21 01 72", "200", "r"}}};
    // The folder is watched before it is listed.
    std::string line =
        "mkdir soon; trelvoctl decode -f --wall soon > shown 2>/dev/null & "
        "until grep -qs inotify /proc/$!/fdinfo/*; do :; done; ";
    for (const auto& [hex, written, last] : dumps) {
        Dump(last, hex);
        line += "touch -d @" + written + " " + last + "; mv " + last + " soon/" + last +
                ".dump; until grep -q ': " + last + "$' shown; do :; done; ";
    }
    // A boot began at the earliest that its files tell, here the second one's.
    line += "mv soon gone; timeout 20 tail --pid=$! -f /dev/null; ! kill $! || echo waits; ";
    EXPECT_EQ(Run(line + "sed 's/.* \\(.*\\) I.*: /\\1 /' shown").out,
              "00:01:40.995 a\n00:01:41.000 b\n00:01:40.964 c\n00:01:40.969 d\n"
              "--------- reboot: time starts over\n00:03:20.000 r\n");
}

// What docs/decode.md tells people to type.
TEST_F(Decode, JsonLinesLoadIntoADatabaseAndAViewer) {
    fs::create_directory(folder_ / "dumps");
    Dump("dumps/trelvo.dump", kPlain + kAt9000 + "00 21 01 61 05 21 01 62");
    const std::string doc = ReadFile(TRELVO_SOURCE_DIR "/docs/decode.md");
    const size_t start = doc.find("```sh\n", doc.find("## Load")) + 6;
    const Output loaded = Run(doc.substr(start, doc.find("```", start) - start));
    EXPECT_EQ(loaded.out, "A|I|2\n") << loaded.err;
    Dump("clock", Clocked() + kAt1000 + Clock("00", 'a', "vega", kNow + 1, 1) + "00 21 01 61");
    const std::string head = "log_time,log_level,tag,tid,log_body\n";
    for (const auto& [file, table, rows] : std::vector<std::array<std::string, 3>>{
             {"log.jsonl", "trelvo_uptime_log",
              "1970-01-01 00:00:08.995,info,A,11,a\n1970-01-01 00:00:09.000,info,A,11,b\n"},
             {"clock.jsonl", "trelvo_log", "2025-11-24 16:00:01.250,info,A,11,a\n"},
             {"wall.jsonl", "trelvo_log",
              "2025-11-24 16:00:08.995,info,A,11,a\n2025-11-24 16:00:09.000,info,A,11,b\n"}}) {
        const Output viewed =
            Run("trelvoctl decode -o json clock > clock.jsonl; touch -d @1764000009 dumps/*;"
                "trelvoctl decode -o json --wall dumps > wall.jsonl 2>&-; HOME=$PWD lnav -n "
                "-I " TRELVO_SOURCE_DIR
                "/tools/lnav -c ';select log_time, log_level, "
                "tag, tid, log_body from " +
                table + "' -c ':write-csv-to -' " + file);
        EXPECT_EQ(viewed.out, head + rows) << viewed.err;
    }
}

}  // namespace
}  // namespace test_support
