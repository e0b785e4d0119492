#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <filesystem>
#include <stdexcept>

#include "CDataDump.h"
#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "support/platform_fake.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

const std::string kFolder = "/tmp/Trelvo_Dump";
const std::string kTemporary = kFolder + "/trelvo_Temp.dump";
const std::string kCollecting = "/opt/usr/share/svc-rk/dump/";
const std::string kWaits = "writer waits";
const std::string kGet = "get memory/trelvo/dlog_dump; ";
const std::string kSet = "set memory/trelvo/dlog_dump=1; ";

void MakeFolder(const std::string& path) {
    fs::remove_all(path);
    fs::create_directories(path);
}

void MakeFile(const std::string& path, uintmax_t size) {
    WriteFile(path, "");
    fs::resize_file(path, size);
}

// What the writer does up to its first wait.
std::string Start() {
    CTREventManager::GetInstance();
    CDataProvider::Instance();
    Platform().Take();
    CDataDump::Instance();
    EXPECT_TRUE(Platform().WaitFor("I CDataDump created") && Platform().WaitFor(kWaits));
    std::string events = Platform().Take() + "; ";
    return events.erase(events.find("I CDataDump created; "), 21);
}

// What the writer does about one trigger once it has the image.
std::string Dump(const std::function<void(CTREventManager&)>& trigger) {
    Platform().Take();
    trigger(*CTREventManager::GetInstance());
    EXPECT_TRUE(Platform().WaitFor(kWaits));
    EXPECT_FALSE(CUtility::Instance()->isSelfInitiatePending());
    const std::string events = Platform().Take();
    const size_t start = events.find(';', events.find("I mapData.size()")) + 2;
    return events.substr(start, events.rfind("; ") - start);
}

std::string DumpTo(const std::string& folder) {
    return Dump([&](CTREventManager& manager) { manager.RequestDumpOnFile(folder); });
}

std::string DumpBySelf() {
    return Dump([](CTREventManager& manager) { manager.RequestDumpOnFullBuffer(); });
}

void Signal(CTREventManager& manager) {
    g_mutex_lock(manager.GetMutex());
    g_cond_signal(manager.GetCondition());
    g_mutex_unlock(manager.GetMutex());
}

TEST(DumpWriterTest, EveryStepSaysWhereADumpWentOrWhyItDidNot) {
    InFreshProcess([] {
        fs::remove_all(kFolder);
        for (const char* folder : {"/opt/usr/share/svc-rk/dump", "/tmp/out", "/tmp/other"}) {
            MakeFolder(folder);
        }
        MakeFile(kCollecting + "filler", 20971521);
        EXPECT_EQ(
            Start(),
            "I t_Main called; I Creating Trelvo Path [" + kFolder + "]; " + kSet +
                "I MAX Limit dump folder is already over at start, Notifying RK; writer waits; ");
        std::string line = "12.5 I/TAG(P 10, T 11): f: g(1) > hi";
        CDataProvider::Instance()->m_GetDataDDP(line);
        const std::string started = "I Dumping to File Started..[" + kTemporary + "]; ";
        const std::string asked = started + "I getDumpPath called; ";
        const auto done = [](const std::string& path) {
            return "I Dump to File[" + path + "] Completed";
        };

        EXPECT_EQ(Dump(Signal), asked + "E File Path Not Available Abort..Dumping");
        const std::string image = ReadFile(kTemporary);
        EXPECT_EQ(Hex({image.begin(), image.end()}),
                  "00 0A 06 54 41 47 2C 31 30 02 0B 01 D4 E1 00 00 21 02 68 69");
        EXPECT_EQ(DumpTo("/tmp/out"), asked + done("/tmp/out/trelvo.dump"));
        ASSERT_EQ(mount("tmpfs", "/tmp/other", "tmpfs", 0, nullptr), 0);
        EXPECT_EQ(DumpTo("/tmp/other/"), asked + done("/tmp/other/trelvo.dump"));
        EXPECT_EQ(ReadFile("/tmp/other/trelvo.dump"), image) << "on another file system";
        EXPECT_EQ(umount("/tmp/other"), 0);
        EXPECT_EQ(DumpTo("/tmp/none"),
                  asked + "E Could not copy file: error code: No such file or directory");
        EXPECT_FALSE(fs::exists(kTemporary));

        Platform().vconf_get_result = -1;
        EXPECT_EQ(DumpBySelf(), kGet +
                                    "E Unable to get vconf:memory/trelvo/dlog_dump status, "
                                    "aborting self initiated dump");
        Platform().vconf_get_result = 0;
        Platform().vconf_value = -1;
        EXPECT_EQ(DumpBySelf(),
                  kGet + "I Dump uploading pending from RK, abort self initiated dump");
        EXPECT_EQ(DumpTo("/tmp/out"), asked + done("/tmp/out/trelvo_1.dump"));
        EXPECT_EQ(ReadFile("/tmp/out/trelvo_1.dump"), std::string(3, '\0'))
            << "aborted dumps consume";

        Platform().vconf_value = 0;
        Platform().vconf_set_result = -1;
        MakeFile(kCollecting + "filler", 20971520 - 3);
        EXPECT_EQ(DumpBySelf(), kGet + started + done(kCollecting + "trelvo.dump"));
        EXPECT_EQ(DumpBySelf(),
                  kGet + started + done(kCollecting + "trelvo_1.dump") + "; " + kSet +
                      "E Data dump complete, Unable to set vconf:memory/trelvo/dlog_dump to 1; I "
                      "MAX Limit reached of dump folder, Notifying RK");

        fs::create_symlink("/tmp/out/target", kTemporary);
        EXPECT_EQ(DumpBySelf(), kGet + "E symbolic link is detected: " + kTemporary +
                                    "; E Error occurred in CheckSymbolicLink..continuing");
        MakeFolder(kTemporary);
        EXPECT_EQ(DumpBySelf(), kGet + "E Unable to open compressed file path: " + kTemporary);
    });
}

TEST(DumpFolderTest, HelpersAnswerForOddFolders) {
    CUtility& utility = *CUtility::Instance();
    MakeFolder("/tmp/f/trelvo_1.dump");
    boost::filesystem::path free;
    for (const char* name : {"trelvo.dump", "trelvo_2.dump", "trelvo_3.dump"}) {
        EXPECT_TRUE(utility.GenerateUniqueName("/tmp/f", "trelvo.dump", free));
        EXPECT_EQ(free.string(), std::string("/tmp/f/") + name);
        fs::create_directory(free.string());
    }
    EXPECT_THROW(utility.GenerateUniqueName("/tmp", "f", free), std::out_of_range);
    MakeFolder("/tmp/f");
    for (const char* name : {"a.db", "b.DB", "c.db.bak", "db"}) {
        MakeFile(std::string("/tmp/f/") + name, 10);
    }
    unsigned long long size = 7;
    utility.GetFoldersize("/tmp/f", size);
    EXPECT_EQ(size, 40U);
    std::vector<std::string> names{"old"};
    utility.GetFileList("/tmp/f", "bak", names);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a", "db"}));

    Platform().Take();
    EXPECT_FALSE(utility.GenerateUniqueName(std::string(300, 'x'), "a.b", free));
    EXPECT_TRUE(utility.CheckSymbolicLink("/tmp/f/none/file"));
    EXPECT_FALSE(utility.CheckSymbolicLink("/tmp/f/db/file"));
    MakeFolder("/tmp/f/folder");
    utility.GetFoldersize("/tmp/f", size);
    EXPECT_EQ(Platform().Take().find(
                  "E Not expected boost error 36; E lstat error occured path:/tmp/f/db/file "
                  "errno:20; E Get folder size failed with error code: "),
              0U);
}

}  // namespace
}  // namespace test_support
