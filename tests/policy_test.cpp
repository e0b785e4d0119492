#include <gmock/gmock.h>

#include <bitset>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "CLogCompressor.h"
#include "CTRXMLParser.h"
#include "CUtility.h"
#include "CodeTable.h"
#include "Main.h"
#include "SourceDictionary.h"
#include "Status.h"
#include "support/failing_memory.h"
#include "support/platform_fake.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

using namespace std::string_literals;

TEST(PolicyParserTest, TakesWhatItFindsInDocumentOrder) {
    // Expected: version, then tag=database for each entry.
    const std::tuple<const char*, const char*, bool, const char*> rows[] = {
        {"case-blind", "<R><Policy VERSION='V'/><DB LogTag='X' NAME='DB'/></R>", true, "V X=DB"},
        {"twice", "<r><db logtag='X' name='a'><db logtag='X' name='b'/></db></r>", true,
         " X=a X=b"},
        {"cut off", "<r><policy version='2'/><db logtag='X' name='a'/>", true, "2 X=a"},
        {"two names", "<db logtag='X' NAME='a.db' name='b.db'/>", true, " X=b.db"},
        {"no attributes", "<r><policy version='1'/><policy/><db/></r>", true, " ="},
        {"nothing", "", true, ""},
        {"broken", "<r>\n<db logtag='X' name='a'/></s>", false, " X=a"}};
    for (const auto& [name, xml, accepted, expected] : rows) {
        TR::TR_LogTagDataMap result;
        Platform().Take();
        EXPECT_EQ(TR::TRXMLParser().Parse(xml, result), accepted) << name;
        std::string found = result.m_PolicyVersion;
        for (const auto& [tag, database] : result.m_DatabaseList) {
            found.append(" ").append(tag).append("=").append(database);
        }
        EXPECT_EQ(found, expected) << name;
    }
    EXPECT_EQ(Platform().Take(),
              "I <r>\n<db logtag='X' name='a'/></s>; I DB_LOGTAG [X], DB_NAME [a]; E Error while "
              "parsing xml: mismatched tag, line: 2, col: 27; E Parsing failed.");
}

TEST(PolicyParserTest, AttributesConvertLeniently) {
    TR::TRXMLParser::TRAttributes attributes;
    attributes.Insert("Off", "FALSE");
    attributes.Insert("cut", "1.5x");
    attributes.Insert("empty", "");
    bool flag = true;
    unsigned int number = 7;
    double real = 7;
    EXPECT_TRUE(attributes.GetValue("off", flag) && !flag);
    EXPECT_TRUE(attributes.GetValue("off", number) && number == 7);
    EXPECT_TRUE(!attributes.GetValue("cut", real) && real == 7);
    EXPECT_TRUE(attributes.GetValue("empty", real) && real == 0);
    for (const auto& [text, expected] :
         {std::pair("99999999999999999999999", 4294967295U), {"-2", 4294967294U}, {"7x", 7U}}) {
        unsigned long long wide = 0;
        attributes.Insert("wide", text);
        EXPECT_TRUE(attributes.GetValue("wide", wide) && wide == expected) << text;
    }
}

const std::string kServer = "/opt/usr/share/Trelvo/Server";
const std::string kDefault = "/opt/usr/share/Trelvo/Default";

// Writes a policy file; none for "", a folder of that name for "/", an empty one for "0".
void WritePolicy(const std::string& folder, const std::string& content) {
    fs::remove_all(folder);
    fs::create_directories(folder + (content == "/" ? "/policy_version.xml" : ""));
    if (!content.empty() && content != "/") {
        WriteFile(folder + "/policy_version.xml", content == "0" ? "" : content);
    }
}

// What loading the tables logs.
std::string Load(int mode) {
    CUtility::Instance()->SetPolicyMode(mode);
    Platform().Take();
    CDBOperations::Instance()->CreateHashMap();
    return Platform().Take();
}

std::string Image(std::string line) {
    Snapshot(true);
    CDataProvider::Instance()->m_GetDataDDP(line);
    return Hex(Snapshot(true));
}

TEST(CodeTableTest, LoadsEveryGoodRowOfEveryGoodDatabase) {
    WritePolicy(
        kDefault,
        "<r><policy version='1.0'/><db logtag='A' name='a'/><db logtag='A'/>"
        "<db logtag='A' name='none'/><db logtag='B' name='b'/><db logtag='B' name='c'/></r>");
    MakeCodeTable(kDefault + "/a",
                  "('hi', '10110000'), ('hi', '0100000111111111'), ('odd', '0101'),"
                  "(null, '11111111'), ('null', null), ('bad', '0000000x'), ('last', '00000001')");
    MakeCodeTable(kDefault + "/b", "('hi', '00000010')");
    MakeCodeTable(kDefault + "/c", "('ho', '00000011')");
    const std::string log = Load(0);
    const std::string path = "; I DB FILE PATH = " + kDefault + "/";
    const std::string expected =
        "I DLOG_TAG_NAME = A, DLOG_DB_NAME = a" + path +
        "a; I Opened database successfully; I Execute SQL statement; I hcode not padded properly: "
        "0101; E Skipped code that is not made of 0 and 1: 0000000x; I HMap created for logtag "
        "[A]; I Read database successfully; I Closed database successfully; I DLOG_TAG_NAME = A, "
        "DLOG_DB_NAME = " +
        path +
        "; I Can't open database: unable to open database file; E DB FILE PATH = " + kDefault +
        "/ open failed; I DLOG_TAG_NAME = A, DLOG_DB_NAME = none" + path +
        "none; I Opened database successfully; E Failed to get Huffman codes: no such table: "
        "HuffmanCode; I Closed database successfully; ";
    EXPECT_EQ(log.substr(log.find("I DLOG"), expected.size()), expected);
    EXPECT_FALSE(fs::exists(kDefault + "/none"));

    const std::tuple<const char*, const char*, const char*> codes[] = {
        {"A", "hi", "02 41 FF"}, {"A", "odd", "00"},   {"A", "null", "none"},
        {"A", "", "none"},       {"A", "bad", "none"}, {"A", "hi ", "none"},
        {"A", "last", "01 01"},  {"B", "hi", "none"},  {"B", "ho", "01 03"}};
    for (const auto& [tag, message, code] : codes) {
        const std::string_view found = CDBOperations::Instance()->FindCode(tag, message);
        EXPECT_EQ(found.empty() ? "none" : Hex(Bytes(found.begin(), found.end())), code)
            << tag << " " << message;
    }
    EXPECT_EQ(Image("12.5 I/TAG(P 10, T 11): f: g(1) > hi"),
              "03 31 2E 30 0A 06 54 41 47 2C 31 30 02 0B 01 D4 E1 00 00 21 02 68 69");
    EXPECT_EQ(Image("12.5 I/A(P 10, T 11): f: g(1) > hi"),
              "03 31 2E 30 08 04 41 2C 31 30 02 0B 01 D4 E1 00 00 21 02 41 FF");
    EXPECT_EQ(Hex(Snapshot(false)), "03 31 2E 30 00 00");
}

TEST(CodeTableTest, TheFirstBootLineFindsTheTables) {
    InFreshProcess([] {
        WritePolicy(kDefault, "<r><policy version='1'/><db logtag='T' name='t'/></r>");
        MakeCodeTable(kDefault + "/t", "('boot', '10110000')");
        fs::create_directories("/tmp/trelvo/boot");
        WriteFile("/tmp/trelvo/boot/RQB_Buffer", "1.0 I/T(P 1, T 2): f > boot\n");
        CLogCompressor::Instance();
        ASSERT_TRUE(Platform().WaitFor("E exception: =[TRELVO_BUFFER could not be opened]"));
        EXPECT_EQ(Decode(Snapshot(false)), std::vector<std::string>{"I/T(P 1, T 2): \xB0"});
    });
}

TEST(CodeTableTest, ATableBeyondItsBoundsOrFolderCostsItsOwnTagOnly) {
    const auto view = [](const std::string& name, const std::string& select) {
        MakeCodeTable(kDefault + "/" + name,
                      "('', ''); drop table HuffmanCode; create view HuffmanCode (log, huffmancode)"
                      " as with recursive n (i) as (select 1 union all select i + 1 from n) " +
                          select);
    };
    std::string policy = "<r><policy version='1&#10;pid=2'/>";
    for (const char* name :
         {"rows", "full", "endless", "wide", "row", "sort", "../Default.x", "a/../good"}) {
        policy += std::string("<db logtag='") + name + "' name='" + name + "'/>";
    }
    WritePolicy(kDefault, policy + "</r>");
    fs::create_directory(kDefault + "/a");
    view("rows", "select i, '00000001' from n");
    view("full", "select i, '00000001' from n limit 1000");
    view("endless", "select i, '00000001' from n where i < 0");
    view("wide", "select hex(zeroblob(100000)) || i, '00000001' from n");
    view("row", "select hex(zeroblob(5000000)), '00000001'");
    view("sort", "select i, '00000001' from n order by 1 desc");
    for (const char* name : {"good", "../Default.x"}) {
        MakeCodeTable(kDefault + "/" + name, "('hi', '00000010')");
    }
    InFreshProcess([] {
        Platform().launch_arguments = {{"LOGTAG", "A"},        {"LOGLEVEL", "I"},
                                       {"RQBBUFFER", "1"},     {"POLICYMODE", "0"},
                                       {"POLICYROWS", "1000"}, {"POLICYKIB", "1024"},
                                       {"POLICYSECONDS", "1"}};
        app_control(nullptr, nullptr);
        const std::string end = "E exception: =[TRELVO_BUFFER could not be opened]";
        EXPECT_TRUE(Platform().WaitFor(end));
        std::string log = Platform().Take();
        log.resize(log.find("; " + end));
        const std::string refusal = "E No codes for logtag [";
        for (const std::string& line :
             {refusal + "rows]: its table takes more than 1000 rows",
              "I HMap created for logtag [full]"s,
              refusal + "endless]: its table takes more than 1 s",
              refusal + "wide]: its table takes more than 1024 KiB",
              refusal + "row]: its table takes more than 1024 KiB",
              refusal + "sort]: its table takes more than 1024 KiB",
              "I DB FILE PATH = " + kDefault + "/../Default.x; E DB FILE PATH = " + kDefault +
                  "/../Default.x refused: not in " + kDefault + "; I DLOG",
              "I HMap created for logtag [a/../good]"s}) {
            EXPECT_NE(log.find(line), std::string::npos) << line;
        }
        size_t errors = 0;
        for (size_t at = log.find("; E "); at != std::string::npos; at = log.find("; E ", at + 1)) {
            ++errors;
        }
        EXPECT_EQ(errors, 6U) << log;
        status::DumpEnded("", "");
        EXPECT_THAT(Platform().Status(),
                    testing::HasSubstr("\npolicy_version=1 pid=2\ntables=2\n"));
    });
}

TEST(CodeTableTest, PolicyComesFromTheModesFolderOrTheDefaultOne) {
    const std::string read = "I ReadRawXML FUNCTION --; ";
    const std::string no_server =
        read + "E Unable to open XML file " + kServer +
        "/policy_version.xml; E XML Read Error for Server Policy - continue with default Policy; ";
    const std::string no_default = read + "E Unable to open XML file " + kDefault +
                                   "/policy_version.xml; E XML Read Error for Default Policy ";
    const std::tuple<int, std::string, std::string, std::string> rows[] = {
        {-1, "<policy/>", "<x/>", read + "I <policy/>; I POLICY_VERSION []"},
        {1, "0", "<policy/>", read + "I "},
        {1, "<a></b>", "<policy/>",
         read + "I <a></b>; E Error while parsing xml: mismatched tag, line: 1, col: 5; E Parsing "
                "failed.; E Policy Parsing failed!!!!"},
        {1, "", "<policy/>", no_server + read + "I <policy/>; I POLICY_VERSION []"},
        {1, "/", "/", no_server + no_default + "too - continue without hash map"},
        {0, "<x/>", "", no_default + "- continue without hash map"}};
    for (const auto& [mode, server, fallback, expected] : rows) {
        WritePolicy(kServer, server);
        WritePolicy(kDefault, fallback);
        EXPECT_EQ(Load(mode), expected);
    }
    WritePolicy(kDefault, "<policy version='" + std::string(64, 'v') + "'/>");
    Load(0);
    WritePolicy(kDefault, "<policy version='broken'/><x/>");
    const std::string log = Load(0);
    EXPECT_EQ(log.substr(log.rfind("; ")), "; E Policy Parsing failed!!!!");
    EXPECT_EQ(Hex(Snapshot(true)).substr(0, 12), "C0 00 76 76 ") << "the version is kept";
    WritePolicy(kDefault, "  ");
    Load(0);
    EXPECT_EQ(CDBOperations::Instance()->GetPolicyVersion(), "");
}

TEST(CodeTableTest, TablesLieInTheFolderOfThePolicyThatWasRead) {
    const std::string policy = "<r><policy version='1'/><db logtag='T' name='t'/></r>";
    for (const auto& [server, code] : {std::pair(policy, "01 B0"), {"", "01 0B"}}) {
        WritePolicy(kServer, server);
        WritePolicy(kDefault, policy);
        MakeCodeTable(kServer + "/t", "('hi', '10110000')");
        MakeCodeTable(kDefault + "/t", "('hi', '00001011')");
        Load(1);
        const std::string_view found = CDBOperations::Instance()->FindCode("T", "hi");
        EXPECT_EQ(Hex(Bytes(found.begin(), found.end())), code);
    }
}

TEST(CodeTableTest, FindsTheLastRowOfEachTextWhateverItsSize) {
    std::mt19937 random(1);
    const size_t sizes[] = {0, 1, 15, 63, 64, 300, 8191, 8192};
    std::map<std::string, std::string> expected;
    CodeTable table;
    const auto add = [&](const std::string& text, unsigned char code) {
        const std::string bits = std::bitset<8>(code).to_string();
        const size_t count = random() % 70;  // of bytes
        std::string digits;
        for (size_t i = 0; i < count; ++i) {
            digits += bits;
        }
        EXPECT_FALSE(table.Add(text, digits + "0000/001"));
        EXPECT_TRUE(table.Add(text, digits));
        expected[text] = std::string(count > 63 ? 2 : 1, static_cast<char>(count)) +
                         std::string(count, static_cast<char>(code));
        if (count > 63) {
            expected[text][0] = static_cast<char>(count | 0x80U);
            expected[text][1] = 0;
        }
    };
    for (int i = 0; i < 20000; ++i) {
        add(std::string(sizes[random() % 8], static_cast<char>('a' + random() % 26)) +
                std::to_string(random() % 50),
            static_cast<unsigned char>(random()));
    }
    for (const size_t size : std::initializer_list<size_t>{65536, 70000, 3 << 20, 2 << 20, 1}) {
        add(std::string(size, 'L'), 'L');
    }
    table.Index();
    for (const auto& [text, stored] : expected) {
        ASSERT_EQ(table.Find(text), stored) << text.size() << " bytes";
        ASSERT_EQ(table.Find(text + " "), "");
    }
}

TEST(CodeTableTest, TakesAtMost24BytesARowBeyondTextAndCode) {
    char text[] = "request 000000 to the session of the display was answered";
    for (const size_t rows :
         std::initializer_list<size_t>{1000, 1025, 4097, 20000, 65537, 100000}) {
        const size_t before = HeapInUse();
        CodeTable table;
        for (size_t i = 0; i < rows; ++i) {
            std::memcpy(text + 8, std::to_string(100000 + i).c_str(), 6);
            table.Add(text, "0100110001001101");
        }
        table.Index();
        EXPECT_LE(HeapInUse() - before, rows * (sizeof text - 1 + 2 + 24)) << rows;
        EXPECT_LE(HeapInUse() - before, table.Memory() * 21 / 20) << rows;
    }
}

// The hash of the library that builds this has no secret: two blocks of eight bytes, of which the
// second undoes what the first did.
std::vector<std::string> CollidingTexts(size_t count) {
    constexpr uint64_t kFactor = 0xC6A4A7935BD1E995U;
    constexpr uint64_t kInverse = 0x5F7A0EA7E59B19BDU;
    const uint64_t start = 0xC70F6907U ^ 16 * kFactor;
    const auto mix = [](uint64_t block) {
        block *= kFactor;
        return (block ^ block >> 47U) * kFactor;
    };
    std::vector<std::string> texts;
    for (uint64_t first = 0; first < count; ++first) {
        uint64_t second = start ^ mix(first);
        second = (second ^ second >> 47U) * kInverse;
        texts.emplace_back(16, '\0');
        std::memcpy(texts.back().data(), &first, 8);
        std::memcpy(texts.back().data() + 8, &second, 8);
    }
    return texts;
}

TEST(CollisionTest, WhatIsMadeToCollideCostsNoMoreProbesThanOtherKeys) {
    static_assert(0xC6A4A7935BD1E995U * 0x5F7A0EA7E59B19BDU == 1);
    constexpr size_t kCount = 100000;
    const auto in_table = [](const std::vector<std::string>& texts) {
        CodeTable table;
        for (const std::string& text : texts) {
            table.Add(text, "00000001");
        }
        const size_t memory = table.Memory();
        table.Index();
        EXPECT_GE(memory, table.Memory()) << "its bound counts what it will take";
        size_t sum = 0;
        for (const std::string& text : texts) {
            sum += table.Probes(text);
        }
        return static_cast<double>(sum) / kCount;
    };
    // Thread ids that differ in their high bits only were as easy to make, and process ids.
    const auto as_sources = [](const std::vector<std::string>& tags, int shift) {
        SourceDictionary sources;
        size_t sum = 0;
        for (int round = 0; round < 2; ++round) {
            for (size_t i = 0; i < kCount; ++i) {
                const int id = static_cast<int>(i) << shift;
                sources.Find(tags[i], id, id, i);
                sources.Find("tag", 1, id, i);
                sum +=
                    round == 0 ? 0 : sources.Probes(tags[i], id, id) + sources.Probes("tag", 1, id);
            }
        }
        return static_cast<double>(sum) / kCount;
    };
    const std::vector<std::string> colliding = CollidingTexts(kCount);
    if (sizeof(size_t) == sizeof(uint64_t)) {  // of fewer bits it is another hash
        ASSERT_EQ(std::hash<std::string>()(colliding.front()),
                  std::hash<std::string>()(colliding.back()));
    }
    std::vector<std::string> ordinary;
    for (size_t i = 0; i < kCount; ++i) {
        ordinary.push_back("display " + std::to_string(100000 + i) + " is on");
    }
    EXPECT_LE(in_table(colliding), 1.5 * in_table(ordinary));
    EXPECT_LE(as_sources(colliding, 14), 1.5 * as_sources(ordinary, 0));
}

}  // namespace
}  // namespace test_support
