#include "dump/dump_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <sstream>
#include <utility>

#include "io/input.h"
#include "io/shared_limits.h"
#include "platform/handles.h"
#include "policy/code_tables.h"
#include "policy/policy_file.h"
#include "support/dump_builder.h"
#include "support/failing_memory.h"
#include "support/folder_test.h"
#include "text/escape.h"

using namespace trelvo;

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using test_support::FromHex;

// "level tag pid tid +delta message;" for each whole record, then the fault.
std::string Read(const std::string& bytes) {
    std::string text;
    try {
        test_support::MemoryInput source(bytes);
        DumpReader reader(source);
        for (Record record; reader.Next(record);) {
            text += record.level + " "s + std::string(record.source.tag) + " " +
                    std::to_string(record.source.pid) + " " + std::to_string(record.source.tid) +
                    " +" + std::to_string(record.delta_ms) + " " + std::string(record.message) +
                    ";";
        }
    } catch (const DamageError& error) {
        text += Describe(error);
    }
    return text;
}

const std::string kOneSource = "00 08 04 41 2C 31 30 02 0B 01 05";  // records begin at offset 11

TEST(ByteReader, Leb128AtTheEdgesOfEachLength) {
    std::istringstream rows(
        "0 00  63 3F  64 C000  127 FF00  128 8001  300 AC02  8191 FF3F  8192 80C000 "
        "1048575 FFFF3F  1048576 8080C000  134217727 FFFFFF3F  134217728 808080C000 "
        "2147483647 FFFFFFFF07  -1 7F  -64 40  -65 BF7F  -2147483648 8080808078  0 808000");
    int32_t value = 0;
    for (std::string hex; rows >> value >> hex;) {
        const std::string bytes = FromHex(hex);
        ByteReader reader(bytes, 0);
        EXPECT_EQ(reader.Leb128("value"), value) << hex;
        EXPECT_TRUE(reader.AtEnd()) << hex;
    }
}

TEST(DumpReader, RecordHeadersAtTheEdgesOfEachLength) {
    std::istringstream rows(  // index as LEB128, header, level
        "05 45 W  0F 8F F  10 9010 F  AC02 322C I  FF0F 1F7F D  8010 709000 E  FFFF0F 3FFF7F I "
        "808010 30908000 I  80808010 3090808000 I  FFFFFFFF07 37FFFFFF7F I");
    std::string header;
    std::string level;
    for (std::string index; rows >> index >> header >> level;) {
        const std::string pair = FromHex("0B" + index);
        const std::string entry = FromHex("03 54 2C 31") + static_cast<char>(pair.size()) + pair;
        const std::string dump =
            '\0' + (static_cast<char>(entry.size()) + entry) + FromHex("00 00" + header + "01 78");
        EXPECT_EQ(Read(dump), level + " T 1 11 +0 x;") << header;
    }
}

TEST(DumpReader, GivesWhatIsWholeAndTellsDamageWithOffsetAndCause) {
    const std::string first = "D A 10 11 +0 a;";
    const std::string one = kOneSource + "00 01 01 61";  // the next record begins at offset 15
    const std::vector<std::pair<std::string, std::string>> rows{
        {"00 00 00", ""},
        {"03 31 2E 30 0A 06 54 41 47 2C 31 30 02 0B 01 D4 E1 00 00 21 02 68 69",
         "I TAG 10 11 +0 hi;"},
        // Keys A,10 and B,10; TIDs 11 and 12, and 11.
        {"00 12 04 41 2C 31 30 04 0B 01 0C 02 04 42 2C 31 30 02 0B 03 D4 E1 00"
         "00 21 01 61  05 42 01 62  C0 00 03 00  00 81 01 64",
         "I A 10 11 +0 a;W A 10 12 +5 b;D B 10 11 +64 ;F A 10 11 +0 d;"},
        {"00 0B 07 61 2C 62 2C 2D 31 30 02 7F 01 7F 00 01 00", "D a,b -10 -1 +0 ;"},
        {"", "offset 0: policy version is cut off"},
        {"FF FF FF FF 07 31", "offset 0: policy version of 2147483647 bytes but only 1 are left"},
        {"7F", "offset 0: policy version is negative (-1)"},
        {"00 80 80 80 80 80 00", "offset 1: dictionary is an integer of more than 5 bytes"},
        {"00 80 80 80 80 08", "offset 1: dictionary does not fit in 32 bits"},
        {"00 20 04 41", "offset 1: dictionary of 32 bytes but only 2 are left"},
        {"00 02 04 41 00", "offset 2: dictionary key of 4 bytes but only 1 are left"},
        {"00 03 02 41 31 00 00", "offset 2: dictionary key has no comma before its PID"},
        {"00 06 04 41 2C 31 78 00 00",
         "offset 2: dictionary key has a PID that is not a 32-bit number"},
        {"00 05 03 41 2C 31 09 00", "offset 6: pair list of 9 bytes but only 0 are left"},
        {"00 06 03 41 2C 31 01 0B 00", "offset 8: dictionary index is cut off"},
        {"00 07 03 41 2C 31 02 0B 00 00", "offset 7: dictionary index is 0"},
        {"00 09 03 41 2C 31 04 0B 01 0C 01 00", "offset 9: dictionary index 1 comes twice"},
        {"00 0E 03 41 2C 31 02 0B 01 03 41 2C 31 02 0C 02 00",
         "offset 9: dictionary key comes twice"},
        {"00 00 D4 E1", "offset 2: last log time is cut off"},
        {one + "05", first + "offset 16: record header is cut off"},
        {one + "7F 01 00", first + "offset 15: time delta is negative (-1)"},
        {one + "00 A1 00", first + "offset 16: record header has the unknown level code 5"},
        {one + "00 02 00",
         first + "offset 16: record header has index 2, which the dictionary lacks"},
        {one + "00 10 80 80 80 80 01 00",
         first + "offset 16: record header is longer than 5 bytes"},
        {one + "00 01 AC 02 61", first + "offset 17: message of 300 bytes but only 1 are left"},
    };
    for (const auto& [hex, text] : rows) {
        const std::string bytes = FromHex(hex);
        EXPECT_EQ(Read(bytes), text) << hex;
        EXPECT_LT(test_support::TakeLargestAllocation(), 1024U * 1024)
            << "a claimed length: " << hex;
    }
}

// Counted for the whole process, so that only differences are known.
TEST(MemoryCharge, EachInputLetsTwiceItsBytesBeTaken) {
    const auto most = [] {
        MemoryCharge charge;
        uint64_t bytes = 0;
        for (uint64_t step = uint64_t{1} << 40; step > 0; step /= 2) {
            bytes += charge.Set(bytes + step) ? step : 0;
        }
        return bytes;
    };
    const uint64_t before = most();
    MemoryCharge::Admit(1000);
    MemoryCharge::Admit(10);
    struct stat file {};
    file.st_dev = 99999;
    file.st_size = 100;
    MemoryCharge::AdmitFile(file);
    MemoryCharge::AdmitFile(file);  // once
    EXPECT_EQ(most(), before + 2220);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const port::UniqueFd from(ends[0]);
    const port::UniqueFd to(ends[1]);
    std::array<char, 100> bytes{};
    ASSERT_EQ(write(to.Get(), bytes.data(), 40), 40);
    FileInput pipe("/proc/self/fd/" + std::to_string(from.Get()));
    pipe.ReadOnce();
    EXPECT_EQ(pipe.Read(bytes.data(), bytes.size()), 40U);
    EXPECT_EQ(most(), before + 2300);
    MemoryCharge held;
    ASSERT_TRUE(held.Add(300) && held.Add(200));
    EXPECT_EQ(most(), before + 2300 - 500);
    {
        const MemoryCharge taken_over = std::move(held);
        EXPECT_EQ(most(), before + 2300 - 500);
    }
    EXPECT_EQ(most(), before + 2300);
}

TEST(FileInput, WhatTookTheNameOfAFileThatIsParkedIsNotReadOn) {
    for (const char* name : {"/tmp/parked", "/tmp/other"}) {
        test_support::WriteFile(name, "text");
    }
    FileInput input("/tmp/parked");
    std::vector<std::unique_ptr<FileInput>> others(64);  // as many as are open at a time
    for (auto& other : others) {
        other = std::make_unique<FileInput>("/tmp/other");
    }
    fs::rename("/tmp/other", "/tmp/parked");
    char byte = 0;
    EXPECT_THROW(static_cast<void>(input.Read(&byte, 1)), std::system_error);
}

TEST(Escape, WhatCouldDriveATerminal) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"plain grün 日本 \U0001F600", "plain grün 日本 \U0001F600"},
        {"\x1B[2J\t\r\n\x7F"s + '\0', R"(\x1B[2J\x09\x0D\x0A\x7F\x00)"},
        {"C:\\x1B", R"(C:\\x1B)"},
        {"among others \x7F eight at\x1F a time", R"(among others \x7F eight at\x1F a time)"},
        {"\xC2\x9B"s + "31m", R"(\xC2\x9B31m)"},
        {"\u202Eabc\u2069\u061C\u200F\u2028", R"(\u{202E}abc\u{2069}\u{061C}\u{200F}\u{2028})"},
        {"\u200E\u2066 \u2027\u206A", "\\u{200E}\\u{2066} \u2027\u206A"},
        {"stray \x80 \xFF", R"(stray \x80 \xFF)"},
        {"cut \xE2\x82", R"(cut \xE2\x82)"},
        {"overlong \xC0\x80 \xE0\x80\xAF", R"(overlong \xC0\x80 \xE0\x80\xAF)"},
        {"surrogate \xED\xA0\x80", R"(surrogate \xED\xA0\x80)"},
        {"too large \xF4\x90\x80\x80", R"(too large \xF4\x90\x80\x80)"},
    };
    for (const auto& [text, escaped] : rows) {
        EXPECT_EQ(Escape(text), escaped);
    }
}

TEST(Escape, AnyBytesBecomeUtf8OfTheirOwnWithoutLineFeeds) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"plain \t\\\x1B grün \U0001F600"s + '\0', "plain \t\\\x1B grün \U0001F600"s + '\0'},
        {"a\nb \xFF\x80", "a\U0010FF0Ab \U0010FFFF\U0010FF80"},
        {"cut \xE2\x82", "cut \U0010FFE2\U0010FF82"},
        // The last that is not a stand-in, and two that look like one.
        {"\U0010FEFF", "\U0010FEFF"},
        {"\U0010FF00", "\U0010FFF4\U0010FF8F\U0010FFBC\U0010FF80"},
        {"\U0010FFFF", "\U0010FFF4\U0010FF8F\U0010FFBF\U0010FFBF"},
    };
    for (const auto& [text, utf8] : rows) {
        EXPECT_EQ(Utf8(text), utf8);
    }
}

// A folder for one test, with a policy of one table for TAG in codes.db.
class Policy : public test_support::FolderTest {
protected:
    Policy() {
        WriteXml("<x><policy version='1.0'/><DB LogTag='TAG' NAME='codes.db'/>");
        test_support::MakeCodeTable(
            folder_ / "codes.db",
            "('hello world','0110100001101001'), ('again','00000001'), ('again','00000010'),"
            "('twin','11110000'), ('twin 2','11110000'), (null,'00000100'), ('none',null),"
            "('bad','0000002x'), ('odd','0101')");
    }
    void WriteXml(const std::string& xml) const {
        test_support::WriteFile(folder_ / "policy_version.xml", xml);
    }
};

TEST_F(Policy, TablesTurnCodesIntoMessages) {
    const CodeTables tables(folder_);
    EXPECT_EQ(tables.Version(), "1.0");
    EXPECT_TRUE(tables.Faults().empty());
    EXPECT_EQ(tables.Message("TAG", "hi"), "hello world");
    EXPECT_EQ(tables.Message("TAG", "\x02"), "again");
    EXPECT_EQ(tables.Message("TAG", ""), "odd");
    EXPECT_FALSE(tables.Message("OTHER", "hi"));
    for (const char* code : {"\x01", "\x04", "\xF0", "hello world"}) {
        EXPECT_FALSE(tables.Message("TAG", code)) << Escape(code);
    }
}

TEST_F(Policy, FaultsNameTheFile) {
    WriteXml("<x><!--" + std::string(50000, 'x') +
             "--><db logtag='A' name='absent.db'/><db logtag='TAG' name='codes.db'/>"
             "<db logtag='TAG' name='broken.db'/></x>");
    test_support::MakeCodeTable(folder_ / "broken.db",
                                "('', ''); drop table HuffmanCode; create view HuffmanCode as "
                                "select abs(-9223372036854775807 - 1) log, '0' huffmancode");
    const CodeTables tables(folder_);
    ASSERT_EQ(tables.Faults().size(), 2U);
    EXPECT_NE(tables.Faults()[1].find("broken.db: integer overflow"), std::string::npos);
    EXPECT_NE(tables.Faults()[0].find("absent.db: unable to open"), std::string::npos);
    EXPECT_FALSE(fs::exists(folder_ / "absent.db"));
    EXPECT_EQ(tables.Message("TAG", "hi"), "hello world");

    // Of two whole tables the last counts.
    WriteXml("<x><db logtag='TAG' name='codes.db'/><db logtag='TAG' name='last.db'/></x>");
    test_support::MakeCodeTable(folder_ / "last.db", "('bye','0110100001101001')");
    EXPECT_EQ(CodeTables(folder_.string()).Message("TAG", "hi"), "bye");

    WriteXml("<x></y>");
    EXPECT_THROW(CodeTables(folder_.string()), PolicyError);
}

}  // namespace
