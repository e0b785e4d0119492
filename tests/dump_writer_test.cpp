#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/fsuid.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/algorithm/string/finder.hpp>
#include <boost/algorithm/string/iter_find.hpp>
#include <boost/filesystem/path.hpp>
#include <csignal>
#include <filesystem>
#include <map>
#include <new>
#include <stdexcept>

#include "CDataDump.h"
#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "FileDescriptor.h"
#include "Main.h"
#include "support/platform_fake.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

const std::string kFolder = "/tmp/Trelvo_Dump";
const std::string kTemporary = kFolder + "/trelvo_Temp.dump";
const std::string kCollecting = "/opt/usr/share/svc-rk/dump/";
const std::string kWaits = "writer waits";
constexpr uid_t kStranger = 65534;
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
    fs::remove_all(kFolder);
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

// Event by event, so that a failure names the one that differs.
auto Says(const std::string& events) {
    const auto split = [](const std::string& text) {
        std::vector<std::string> parts;
        boost::iter_split(parts, text, boost::first_finder("; "));
        return parts;
    };
    return testing::ResultOf(split, testing::ElementsAreArray(split(events)));
}

TEST(DumpWriterTest, EveryStepSaysWhereADumpWentOrWhyItDidNot) {
    InFreshProcess([] {
        for (const char* folder : {"/opt/usr/share/svc-rk/dump", "/tmp/out", "/tmp/other"}) {
            MakeFolder(folder);
        }
        MakeFile(kCollecting + "filler", 20971521);
        EXPECT_THAT(
            Start(),
            Says("I t_Main called; I Creating Trelvo Path [" + kFolder + "]; " + kSet +
                 "I MAX Limit dump folder is already over at start, Notifying RK; writer waits; "));
        std::string line = "12.5 I/TAG(P 10, T 11): f: g(1) > hi";
        CDataProvider::Instance()->m_GetDataDDP(line);
        const std::string started = "I Dumping to File Started..[" + kTemporary + "]; ";
        const std::string asked = started + "I getDumpPath called; ";
        const auto done = [](const std::string& path) {
            return "I Dump to File[" + path + "] Completed";
        };

        EXPECT_THAT(Dump(Signal), Says(asked + "E File Path Not Available Abort..Dumping"));
        const std::string image = ReadFile(kTemporary);
        EXPECT_EQ(Hex({image.begin(), image.end()}),
                  "00 0A 06 54 41 47 2C 31 30 02 0B 01 D4 E1 00 00 21 02 68 69");
        EXPECT_THAT(DumpTo("/tmp/out"), Says(asked + done("/tmp/out/trelvo.dump")));
        ASSERT_EQ(mount("tmpfs", "/tmp/other", "tmpfs", 0, nullptr), 0);
        EXPECT_THAT(DumpTo("/tmp/other/"), Says(asked + done("/tmp/other/trelvo.dump")));
        EXPECT_EQ(ReadFile("/tmp/other/trelvo.dump"), image) << "on another file system";
        EXPECT_EQ(umount("/tmp/other"), 0);
        EXPECT_THAT(DumpTo("/tmp/none"),
                    Says(asked + "E Could not copy file: error code: No such file or directory"));
        EXPECT_FALSE(fs::exists(kTemporary));

        Platform().vconf_get_result = -1;
        EXPECT_THAT(DumpBySelf(),
                    Says(kGet + "E Unable to get vconf:memory/trelvo/dlog_dump status, "
                                "aborting self initiated dump"));
        Platform().vconf_get_result = 0;
        Platform().vconf_value = -1;
        EXPECT_THAT(DumpBySelf(),
                    Says(kGet + "I Dump uploading pending from RK, abort self initiated dump"));
        EXPECT_THAT(DumpTo("/tmp/out"), Says(asked + done("/tmp/out/trelvo_1.dump")));
        EXPECT_EQ(ReadFile("/tmp/out/trelvo_1.dump"), std::string(3, '\0'))
            << "aborted dumps consume";

        Platform().vconf_value = 0;
        Platform().vconf_set_result = -1;
        MakeFile(kCollecting + "filler", 20971520 - 3);
        EXPECT_THAT(DumpBySelf(), Says(kGet + started + done(kCollecting + "trelvo.dump")));
        EXPECT_THAT(
            DumpBySelf(),
            Says(kGet + started + done(kCollecting + "trelvo_1.dump") + "; " + kSet +
                 "E Data dump complete, Unable to set vconf:memory/trelvo/dlog_dump to 1; I "
                 "MAX Limit reached of dump folder, Notifying RK"));

        fs::create_symlink("/tmp/out/target", kTemporary);
        EXPECT_THAT(DumpBySelf(), Says(kGet + "E symbolic link is detected: " + kTemporary +
                                       "; E Error occurred in CheckSymbolicLink..continuing"));
        MakeFolder(kTemporary);
        EXPECT_THAT(DumpBySelf(),
                    Says(kGet + "E Unable to open compressed file path: " + kTemporary));
    });
}

// Several times what is copied at once.
void Fill() {
    for (int i = 0; i < 5000; ++i) {
        std::string line = std::to_string(i + 1) + ".5 I/TAG(P 10, T 11): f: g(1) > " +
                           std::string(100, static_cast<char>('a' + i % 26));
        CDataProvider::Instance()->m_GetDataDDP(line);
    }
}

std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(DumpWriterTest, AFailedStepLeavesNoFileAndSaysWhy) {
    InFreshProcess([] {
        fs::remove_all(kFolder);
        MakeFolder("/tmp/out");
        Start();
        Fill();
        const struct {
            const char* step;
            const char* call;
            int number;  // of the calls of that name
            int error;   // 0 throws instead
            const char* message;
            size_t files;
        } rows[] = {
            {"temporary file", "write", 2, ENOSPC, "Could not copy file: error code: No space", 0},
            {"out of memory", "write", 2, 0, "Dump failed: std::bad_alloc", 0},
            {"hidden file", "create", 2, EDQUOT, "Could not copy file: error code: Disk quota", 0},
            {"copy", "write", 30, ENOSPC, "Could not copy file: error code: No space left", 0},
            {"sync", "fsync", 1, EIO, "Could not copy file: error code: Input/output error", 0},
            {"name", "rename", 1, EACCES, "Could not copy file: error code: Permission denied", 0},
            {"link", "rename", 1, EINVAL, "Completed", 1},
            {"no such call", "rename", 1, ENOSYS, "Completed", 2},
            {"sync not known", "fsync", 2, EINVAL, "Completed", 3},
            {"folder not to be read", "fsync", 2, EBADF, "Completed", 4},
            {"sync of the name", "fsync", 2, EIO, "Could not copy file: error code: Input", 5},
        };
        std::string whole;
        for (const auto& row : rows) {
            int count = 0;
            Platform().on_file_call = [&](const FileCall& call, const std::function<long()>& real) {
                if (call.name != row.call || ++count != row.number) {
                    return real();
                }
                if (row.error == 0) {
                    throw std::bad_alloc();
                }
                errno = row.error;
                return -1L;
            };
            EXPECT_THAT(DumpTo("/tmp/out"), testing::HasSubstr(row.message)) << row.step;
            EXPECT_GE(count, row.number) << row.step;
            const bool is_written = row.message == std::string("Completed");
            const std::string status = Platform().Status();
            EXPECT_EQ(status.find("last_dump_result=written") < status.size(), is_written)
                << status;
            EXPECT_EQ(status.find("last_dump_path=/tmp/out/t") < status.size(), is_written);
            const std::vector<std::string> names = Names("/tmp/out");
            EXPECT_EQ(names.size(), row.files) << row.step << testing::PrintToString(names);
            EXPECT_FALSE(fs::exists(kTemporary)) << row.step;
            for (const std::string& name : names) {
                whole = whole.empty() ? ReadFile("/tmp/out/" + name) : whole;
                EXPECT_EQ(ReadFile("/tmp/out/" + name), whole) << row.step << name;
            }
        }
        Platform().on_file_call = [](const FileCall&, const std::function<long()>&) -> long {
            throw std::bad_alloc();
        };
        EXPECT_THAT(DumpBySelf(), testing::HasSubstr("Dump failed: std::bad_alloc"));
    });
}

// The calls that change one folder, and what the folder may hold after a power cut between them.
class PowerCuts {
public:
    explicit PowerCuts(const std::string& folder) {
        for (const std::string& name : Names(folder)) {
            start_[name] = Create();
        }
        now_ = start_;
    }

    long Record(const FileCall& call, const std::function<long()>& real) {
        const long result = real();
        if (result < 0 || call.fd == AT_FDCWD) {
            descriptors_.erase(static_cast<int>(result));
            return result;
        }
        Step step{call.name, 0, call.from, call.to};
        if (call.name == "create") {
            step.file = descriptors_[static_cast<int>(result)] = now_[call.to] = Create();
        } else if (call.name == "write" || call.name == "fsync") {
            struct stat status {};
            static_cast<void>(fstat(call.fd, &status));
            if (!S_ISDIR(status.st_mode) && descriptors_.count(call.fd) == 0) {
                return result;  // not in this folder
            }
            step.file = S_ISDIR(status.st_mode) ? kTheFolder : descriptors_[call.fd];
            unwritten_[step.file] += call.name == "write" ? 1 : 0;
        } else {
            step.file = now_[call.from];
            now_.erase(call.name == "link" ? "" : call.from);
            if (!call.to.empty()) {
                now_[call.to] = step.file;
            }
        }
        steps_.push_back(step);
        return result;
    }

    void Announce(const std::string& name) { steps_.push_back({"announce", 0, "", name}); }

    // Every name that may be there belongs to a file all of whose data is there, and whoever was
    // announced or there at the start is there. Returns the number of folders seen.
    int Check() {
        int seen = 0;
        std::map<std::string, int> synced = start_;
        std::map<int, int> unsynced;  // writes
        std::vector<Step> pending;    // changes of names, of which each may have reached the disk
        std::vector<std::string> promised;
        for (const auto& [name, file] : start_) {
            promised.push_back(name);
        }
        for (const Step& step : steps_) {
            if (step.call == "write") {
                --unwritten_[step.file];
                ++unsynced[step.file];
            } else if (step.call == "announce") {
                promised.push_back(step.to);
            } else if (step.call != "fsync") {
                pending.push_back(step);
            } else if (step.file != kTheFolder) {
                unsynced[step.file] = 0;
            } else {
                std::for_each(pending.begin(), pending.end(),
                              [&](const Step& change) { Apply(change, synced); });
                pending.clear();
            }
            for (unsigned subset = 0; subset < 1U << pending.size(); ++subset, ++seen) {
                std::map<std::string, int> folder = synced;
                for (size_t i = 0; i < pending.size(); ++i) {
                    if ((subset >> i & 1U) != 0) {
                        Apply(pending[i], folder);
                    }
                }
                for (const std::string& name : promised) {
                    EXPECT_TRUE(name[0] == '.' || folder.count(name) == 1)
                        << name << " lost after " << step.call;
                }
                for (const auto& [name, file] : folder) {
                    EXPECT_TRUE(name[0] == '.' || unwritten_[file] + unsynced[file] == 0)
                        << name << " cut after " << step.call;
                }
            }
        }
        return seen;
    }

private:
    static constexpr int kTheFolder = 0;
    struct Step {
        std::string call;
        int file;
        std::string from;
        std::string to;
    };

    int Create() { return ++files_; }
    static void Apply(const Step& change, std::map<std::string, int>& folder) {
        folder.erase(change.call == "link" ? "" : change.from);
        if (!change.to.empty()) {
            folder[change.to] = change.file;
        }
    }

    int files_ = 0;
    std::map<std::string, int> start_;
    std::map<std::string, int> now_;
    std::map<int, int> descriptors_;
    std::map<int, int> unwritten_;  // writes of each file that are still to come
    std::vector<Step> steps_;
};

TEST(DumpWriterTest, APowerCutAtAnyMomentLeavesWholeDumpsAndAllThatWereAnnounced) {
    InFreshProcess([] {
        MakeFolder("/tmp/out");
        WriteFile("/tmp/out/trelvo.dump", "earlier");
        const std::string hidden = "/tmp/out/.trelvo-0123456789abcdef.part";
        WriteFile(hidden, "left by a crash");
        WriteFile("/tmp/out/.trelvo-notes", "somebody's own");
        fs::create_symlink("/tmp/out/trelvo.dump", hidden + ".part");
        fs::create_hard_link("/tmp/out/trelvo.dump", "/tmp/out/.trelvo-2.part");
        const FileDescriptor writer(open("/tmp/out/.trelvo-3.part", O_CREAT | O_RDWR, 0600));
        EXPECT_EQ(flock(writer.Get(), LOCK_EX), 0) << "as one does that lives";
        const std::string theirs = "/tmp/out/.trelvo-4.part";
        WriteFile(theirs, "another user's");
        const bool is_theirs = chown(theirs.c_str(), kStranger, kStranger) == 0;
        Start();
        Fill();
        PowerCuts cuts("/tmp/out");
        bool can_rename = true;
        Platform().on_file_call = [&](const FileCall& call, const std::function<long()>& real) {
            if (call.name == "rename" && !can_rename) {
                errno = EINVAL;
                return -1L;
            }
            return cuts.Record(call, real);
        };
        Platform().on_event = [&](const std::string& event) {
            const size_t name = event.find("trelvo", event.find("Dump to File["));
            if (event.find("] Completed") != std::string::npos) {
                cuts.Announce(event.substr(name, event.find(']') - name));
            }
        };
        for (const bool renames : {true, false}) {
            can_rename = renames;
            EXPECT_THAT(DumpTo("/tmp/out"), testing::HasSubstr("Completed"));
        }
        Platform().on_event = nullptr;
        Platform().on_file_call = nullptr;
        EXPECT_GT(cuts.Check(), 20);
        EXPECT_EQ(fs::remove(theirs), is_theirs);
        EXPECT_EQ(Names("/tmp/out"),
                  (std::vector<std::string>{".trelvo-0123456789abcdef.part.part", ".trelvo-2.part",
                                            ".trelvo-3.part", ".trelvo-notes", "trelvo.dump",
                                            "trelvo_1.dump", "trelvo_2.dump"}));
        EXPECT_EQ(ReadFile("/tmp/out/trelvo.dump"), "earlier");
        Bytes image = Snapshot(false);
        for (const char* name : {"/tmp/out/trelvo_1.dump", "/tmp/out/trelvo_2.dump"}) {
            EXPECT_EQ(ReadFile(name), std::string(image.begin(), image.end()));
        }
    });
}

TEST(DumpWriterTest, AFolderThatTakesFilesButIsNotListedHoldsTheDump) {
    MakeFolder("/tmp/out");
    fs::permissions("/tmp/out", fs::perms(0333));
    fs::permissions("/tmp", fs::perms::all);
    InFreshProcess([] {
        (void)setfsuid(kStranger);  // root may list all
        Start();
        Fill();
        EXPECT_THAT(DumpTo("/tmp/out"), testing::HasSubstr("Completed"));
    });
    EXPECT_TRUE(fs::exists("/tmp/out/trelvo.dump"));
}

// Changes names in its folder, as another user, until the test ends.
[[noreturn]] void SwapNames(uid_t user, const char* folder) {
    const char* const dump = "trelvo.dump";
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || chdir(folder) != 0 || setgid(user) != 0 ||
        setuid(user) != 0) {
        _exit(1);
    }
    for (;;) {
        for (const char* target : {"/tmp/created", "/tmp/kept", ""}) {
            static_cast<void>(*target != '\0' ? symlink(target, dump) : mkfifo(dump, 0666));
            std::error_code error;
            for (const auto& entry : fs::directory_iterator(".", error)) {
                const fs::path name = entry.path().filename();
                if (name.string()[0] == '.' && unlink(name.c_str()) == 0) {
                    static_cast<void>(symlink("/tmp/kept", name.c_str()));
                }
            }
            static_cast<void>(unlink(dump));
        }
    }
}

TEST(DumpWriterTest, TheOwnerOfTheFolderReachesNothingElseAndStopsNoDump) {
    MakeFolder("/tmp/theirs");
    if (chown("/tmp/theirs", kStranger, kStranger) != 0) {
        GTEST_SKIP() << "needs root and another user";
    }
    WriteFile("/tmp/kept", "root's");
    InFreshProcess([] {
        Start();
        Fill();
        const pid_t stranger = fork();
        if (stranger == 0) {
            SwapNames(kStranger, "/tmp/theirs");
        }
        for (int i = 0; i < 50; ++i) {
            EXPECT_THAT(DumpTo("/tmp/theirs"),
                        testing::AnyOf(testing::HasSubstr("Completed"),
                                       testing::HasSubstr("Could not copy file: error code: ")));
        }
        int status = -1;
        EXPECT_EQ(waitpid(stranger, &status, WNOHANG), 0) << "it still swaps";
        kill(stranger, SIGKILL);
        waitpid(stranger, &status, 0);
    });
    EXPECT_FALSE(fs::exists("/tmp/created"));
    EXPECT_EQ(ReadFile("/tmp/kept"), "root's");
}

TEST(DumpWriterTest, WhatIsAskedForMeanwhileIsOneDumpUnderTheMutex) {
    InFreshProcess([] {
        MakeFolder(kCollecting);
        MakeFolder("/tmp/out");
        CTREventManager& manager = *CTREventManager::GetInstance();
        const auto hold = [&](bool holds) {
            g_mutex_lock(manager.GetMutex());
            Platform().holds_writer = holds;
            g_mutex_unlock(manager.GetMutex());
        };
        Platform().on_event = [&](const std::string& event) {
            if (event.find("Dumping") != std::string::npos || event.find("Completed") < 100) {
                const bool is_free = g_mutex_trylock(manager.GetMutex()) != FALSE;
                EXPECT_FALSE(is_free) << event;
                if (is_free) {
                    g_mutex_unlock(manager.GetMutex());
                }
            }
        };
        Start();
        const std::string self = kGet + "I Dumping to File Started..[" + kTemporary +
                                 "]; I Dump to File[" + kCollecting + "trelvo.dump] Completed";
        hold(true);
        manager.RequestDumpOnFile("/tmp/out");
        manager.RequestDumpOnFullBuffer();
        manager.RequestDumpOnFile("/tmp/out");
        EXPECT_EQ(Dump([&](CTREventManager&) { (hold(false), Signal(manager)); }), self);
        EXPECT_TRUE(fs::is_empty("/tmp/out")) << "the request is absorbed";
        EXPECT_THAT(Platform().Status(), testing::HasSubstr("\npending=0\nlast_dump_time="));
        EXPECT_THAT(Platform().Status(), testing::HasSubstr("\nlast_dump_trigger=full\n"));
        manager.RequestDumpOnFile("");
        Dump(Signal);
        EXPECT_TRUE(fs::exists("/tmp/out/trelvo.dump")) << "its path is kept";
        Dump([](CTREventManager& events) { events.RequestDumpOnMatch(); });
        EXPECT_THAT(Platform().Status(), testing::HasSubstr("\nlast_dump_trigger=match\n"));
    });
}

TEST(DumpWriterTest, CompressedDumpsAreThePlainOnes) {
    InFreshProcess([] {
        MakeFolder(kCollecting);
        MakeFolder("/tmp/out");
        Platform().launch_arguments = {{"LOGTAG", "T"},       {"LOGLEVEL", "I"},
                                       {"RQBBUFFER", "1"},    {"POLICYMODE", "0"},
                                       {"RQBHISTORY", "256"}, {"DUMPFORM", "zstd"}};
        Start();
        app_control(nullptr, nullptr);
        for (const bool count_memory : {false, true}) {
            CDataProvider::Instance()->SetBufferCount(count_memory);
            for (int i = 0; i < 20000; ++i) {
                std::string line = "1.5 I/T(P 1, T 2): f > line " + std::to_string(i);
                CDataProvider::Instance()->m_GetDataDDP(line);
            }
            const auto request = [](const char* form) {
                Platform().launch_arguments = {{"DUMP", "/tmp/out"}, {"DUMPFORM", form}};
                Dump([](CTREventManager&) { app_control(nullptr, nullptr); });
            };
            const std::string number = count_memory ? "_1" : "";
            request("plain");
            request("zstd");
            Platform().launch_arguments["DUMPFORM"] = "Zstd";
            app_control(nullptr, nullptr);
            DumpBySelf();
            const std::string plain = ReadFile("/tmp/out/trelvo" + number + ".dump");
            EXPECT_GT(plain.size(), 200000U);
            for (const std::string& folder : {std::string("/tmp/out/"), kCollecting}) {
                const std::string packed = folder + "trelvo" + number + ".dump.zst";
                EXPECT_LT(fs::file_size(packed), plain.size());
                EXPECT_EQ(RunProgram({"zstd", "-dcq", packed}).out, plain) << packed;
            }
        }
        EXPECT_EQ(std::distance(fs::directory_iterator("/tmp/out"), {}), 4);
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
    EXPECT_TRUE(utility.GenerateUniqueName("/tmp/f", "c.db.bak", free));
    EXPECT_EQ(free.string(), "/tmp/f/c.db_1.bak");
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
