#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <stdexcept>

#include "CUtility.h"
#include "RecordPacking.h"
#include "support/platform_fake.h"

namespace test_support {
namespace {

// "delta|level|tag|pid|tid|message" as they are after the call, or the exception's text.
std::string Split(const std::string& line) {
    int delta = -7, pid = -7, tid = -7;
    char level = '?';
    std::string tag = "?", message = "?";
    std::ostringstream text;
    try {
        const bool accepted = CUtility::Instance()->m_GetLogLineComponents(delta, level, tag, pid,
                                                                           tid, message, line);
        text << (accepted ? "" : "refused ") << delta << '|' << level << '|' << tag << '|' << pid
             << '|' << tid << '|' << message;
        return text.str();
    } catch (const std::logic_error& error) {
        return error.what();
    }
}

TEST(LogLineTest, DeltasCountSinglePrecisionMillisecondsFromTheLastAcceptedTime) {
    const std::pair<const char*, const char*> rows[] = {
        {"nan", "0|I|T|1|2|b"},
        {"-2.5", "0|I|T|1|2|b"},
        {"12.5", "15000|I|T|1|2|b"},
        {"12.504", "4|I|T|1|2|b"},
        {"12.504", "0|I|T|1|2|b"},
        {"12.4", "refused -104|?|?|-7|-7|?"},
        {"12.504", "0|I|T|1|2|b"},
        {"13 I/T(P broken)", "stoi"},
        {"14", "1000|I|T|1|2|b"},
        {"345678.123", "345664112|I|T|1|2|b"},
        {"2147484", "1801805535|I|T|1|2|b"},
        {"inf", "0|I|T|1|2|b"},
        {"-inf", "refused -2147483648|?|?|-7|-7|?"}};
    Snapshot(true);
    for (const auto& [time, expected] : rows) {
        Platform().Take();
        EXPECT_EQ(Split(time + std::string(" I/T(P 1, T 2): a > b")), expected) << time;
    }
    EXPECT_EQ(Platform().Take(),
              "D Not dlog data, actualTimestamp:-2147483648, m_LastLogTime:2147483647");
}

TEST(LogLineTest, SingleFieldsHaveTheirOwnRulesAndLogWhatTheyFind) {
    CUtility& utility = *CUtility::Instance();
    const std::string line = "1234.567 I/MY_TAG  (P 1234, T 1240): main.c: run(52) > started";
    Platform().Take();
    EXPECT_EQ(utility.m_GetLogLevel(line) + "/" + utility.m_GetLogTag(line), "I/MY_TAG  ");
    EXPECT_EQ(utility.m_GetPID(line), 1234);
    EXPECT_EQ(utility.m_GetTID(line), 1240);
    EXPECT_EQ(utility.m_GetTimeDelta(1000, line), 1233567);
    EXPECT_EQ(utility.m_GetLogLine(line), line);
    const std::string log = Platform().Take();
    EXPECT_NE(log.find("; I PID: 1234; I TID: 1240; I startime: 1000; I tmp:1234.567; I TimeDelta: "
                       "1233567; I log line: " +
                       line),
              std::string::npos);
    EXPECT_NE(log.find("I Log Tag: MY_TAG  ; "), std::string::npos);
    const std::string odd = "1.5 W/a),b/c (P 7, T 8): a/b.c: f(1) > x/(P 9, T 9)";
    EXPECT_EQ(utility.m_GetLogLevel(odd) + "/" + utility.m_GetLogTag(odd), "W/a),b/c ");
    EXPECT_EQ(utility.m_GetPID(odd), 7);
    EXPECT_EQ(utility.m_GetTID(odd), 8);
}

TEST(RecordEncodingTest, IntegersAreLeb128) {
    const std::pair<int, const char*> rows[] = {
        {63, "3F"},  {8192, "80 C0 00"},          {64, "C0 00"},  {INT_MAX, "FF FF FF FF 07"},
        {-64, "40"}, {INT_MIN, "80 80 80 80 78"}, {-65, "BF 7F"}, {300, "AC 02"}};
    for (const auto& [value, expected] : rows) {
        Bytes plain, counted{7};
        CUtility::Instance()->m_GetBytePackedIntWithHeader(value, plain, false);
        CUtility::Instance()->m_GetBytePackedIntWithHeader(value, counted, true);
        EXPECT_EQ(Hex(plain), expected) << value;
        EXPECT_EQ(Hex(counted), "07 0" + std::to_string(plain.size()) + " " + expected) << value;
    }
}

TEST(RecordEncodingTest, HeadersGrowWithTheIndex) {
    const std::tuple<char, int, const char*> rows[] = {{'D', 1, "01"},
                                                       {'E', 2048, "70 90 00"},
                                                       {'F', 15, "8F"},
                                                       {'V', 2047, "1F 7F"},
                                                       {'F', 16, "90 10"},
                                                       {'I', 262144, "30 90 80 00"},
                                                       {'W', 1 << 25, "50 90 80 80 00"}};
    for (const auto& [level, index, expected] : rows) {
        Bytes out;
        packing::AppendHeader(level, index, out);
        EXPECT_EQ(Hex(out), expected) << level << index;
    }
}

TEST(RecordEncodingTest, ARecordIsAsLongAsItsHeaderMakesIt) {
    for (const int index : {15, 16, 2047, 2048, 262143, 262144, 33554432}) {
        Bytes record;
        packing::AppendLeb128(300, record);
        packing::AppendHeader('I', index, record);
        packing::AppendLeb128(2, record);
        record.insert(record.end(), {0x80, 0x81});
        const size_t size = record.size();
        record.resize(size + 9, 0xFF);  // of the next one
        EXPECT_EQ(packing::RecordLength(record.data(), record.size()), size) << index;
    }
}

TEST(RecordEncodingTest, DictionaryNumbersItsEntriesAndSerialisesThemInKeyOrder) {
    Snapshot(true);
    Platform().Take();
    Bytes headers;
    for (const auto& [pid, tid] : {std::pair(10, 12), {10, 11}, {9, -1}, {10, 12}}) {
        CUtility::Instance()->m_GetBitPacked('D', "A", pid, tid, headers);
    }
    EXPECT_EQ(Hex(headers), "01 02 03 01");
    const char* const image = "00 11 04 41 2C 31 30 04 0B 02 0C 01 03 41 2C 39 02 7F 03 00";
    EXPECT_EQ(Hex(Snapshot(false)), image);
    EXPECT_EQ(
        Platform().Take(),
        "D A,10 not found in m_LogTagPidTidMap.. Inserting..Tid:12, Index:1; D Tid 11 not found in "
        "m_LogTagPidTidMap [A,10].. Inserting..Index:2; D A,9 not found in m_LogTagPidTidMap.. "
        "Inserting..Tid:-1, Index:3; I Policy Version [] Len [0]; D logTagPidTidLen: 4; D "
        "tidIndexLen: 4; D logTagPidTidLen: 3; D tidIndexLen: 2; I mapData.size(): 17");
    EXPECT_EQ(Hex(Snapshot(true)), image);
    EXPECT_EQ(Hex(Snapshot(false)), "00 00 00");
}

}  // namespace
}  // namespace test_support
