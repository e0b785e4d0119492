// Waiting for a dump of a service that this test plays.

#include "launch/dump_waiter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/handles.h"
#include "support/process.h"

using namespace trelvo;

namespace {

namespace fs = std::filesystem;
using test_support::WriteFile;
using testing::HasSubstr;

class Waiting : public testing::Test {
protected:
    static constexpr const char* kFolder = "/tmp/=waited";
    static constexpr const char* kStatus = "/run/trelvo/vconf/memory/trelvo";

    Waiting() {
        for (const char* folder : {kFolder, kStatus}) {
            fs::create_directories(folder);
        }
        WriteFile("/run/trelvo/lock", std::to_string(getpid()) + "\n");
        lock_ = open("/run/trelvo/lock", O_RDWR | O_CLOEXEC);
        EXPECT_EQ(flock(lock_, LOCK_EX | LOCK_NB), 0);
    }
    ~Waiting() override { close(lock_); }

    // The service's end of a dump; replaced as a whole, as it does it.
    void Publish(int dumps, const std::string& rest, bool until_read = false) const {
        WriteFile("/run/trelvo/new", "pid=" + std::to_string(service_) +
                                         "\ndumps=" + std::to_string(dumps) + "\n" + rest);
        const port::UniqueFd reads(inotify_init1(IN_CLOEXEC));
        inotify_add_watch(reads.Get(), "/run/trelvo/new", IN_CLOSE_NOWRITE);
        fs::rename("/run/trelvo/new", std::string(kStatus) + "/status");
        inotify_event event{};
        if (until_read) {
            ASSERT_EQ(read(reads.Get(), &event, sizeof event), sizeof event);
        }
    }
    static std::string Written(const std::string& name, const std::string& trigger = "request") {
        return "last_dump_trigger=" + trigger + "\nlast_dump_path=" + kFolder + "/" + name +
               "\nlast_dump_result=written\n";
    }

    // Waits while the service does at the n-th request what step n says; the path or the fault.
    std::string Wait(const std::vector<std::function<void()>>& steps, bool compressed = false,
                     std::chrono::seconds timeout = std::chrono::seconds(20)) {
        asked_ = 0;
        DumpWaiter waiter("/run/trelvo", folder_, compressed);
        try {
            return waiter.Wait([&](auto) { steps.at(asked_++)(); }, timeout);
        } catch (const DumpWaitError& error) {
            return error.what();
        }
    }

    int lock_;
    std::string folder_ = kFolder;
    pid_t service_ = getpid();
    size_t asked_ = 0;
};

TEST_F(Waiting, ARequestThatWasLostIsRepeated) {
    Publish(0, "");
    EXPECT_EQ(Wait({[] {},
                    [&] {
                        fs::remove_all("/run/trelvo/vconf");  // its folder is not the dump's
                        fs::create_directories(kStatus);
                        Publish(1, Written("trelvo.dump"));
                    }}),
              "/tmp/=waited/trelvo.dump");
    EXPECT_EQ(asked_, 2U);
}

TEST_F(Waiting, AnotherDumpInItsPlaceIsNoAnswer) {
    const std::string path = "/tmp/=waited/trelvo_1.dump";
    Publish(3, Written("trelvo.dump"));
    EXPECT_EQ(Wait({[&] { Publish(4, Written("trelvo.dump", "timer")); },
                    [&] { Publish(5, Written("../other/trelvo.dump")); },
                    [&] { Publish(6, Written("trelvo.dump.zst")); },
                    [&] { Publish(7, Written("trelvo_1.dump")); }}),
              path);
    EXPECT_EQ(asked_, 4U);
    EXPECT_EQ(Wait({[&] { Publish(8, Written("trelvo.dump.zst")); }}, true),
              "/tmp/=waited/trelvo.dump.zst");
    EXPECT_THAT(Wait({[&] {
                    Publish(9,
                            "last_dump_trigger=request\nlast_dump_path=/tmp/=waited/trelvo.dump\n"
                            "last_dump_result=No space left on device\n");
                }}),
                HasSubstr("could not be written: No space left on device"));
    folder_ = "/";
    EXPECT_EQ(Wait({[&] {
                  Publish(10,
                          "last_dump_trigger=request\nlast_dump_path=/trelvo.dump\n"
                          "last_dump_result=written\n");
              }}),
              "/trelvo.dump");
}

TEST_F(Waiting, WhatIsStillWrittenIsWaitedFor) {
    std::thread service;
    Publish(3, "");
    EXPECT_EQ(Wait({[&] {
                  service = std::thread([this] {
                      // Read once to see who was asked, and then to see what came of it.
                      const std::string others = Written("trelvo.dump", "timer") + "pending=1\n";
                      Publish(4, others, true);
                      Publish(4, others, true);
                      Publish(5,
                              "last_dump_trigger=request\nlast_dump_path=\n"
                              "last_dump_result=No such file or directory\npending=1\n",
                              true);
                      Publish(6, Written("trelvo_1.dump"));
                  });
              }}),
              "/tmp/=waited/trelvo_1.dump");
    service.join();
}

TEST_F(Waiting, AServiceThatIsStartedAgainCountsItsDumpsAnew) {
    Publish(1, "");
    std::optional<test_support::Process> other;
    EXPECT_EQ(
        Wait({[&] {
            close(lock_);
            other.emplace(std::vector<std::string>{
                "sh", "-c", "cd /run/trelvo; echo $$ >lock; exec flock --no-fork lock sleep 60"});
            service_ = other->Pid();
            while (ReadServiceStatus("/run/trelvo").pid != service_) {
            }
            Publish(1, Written("trelvo.dump"));
        }}),
        "/tmp/=waited/trelvo.dump");
    lock_ = -1;
}

TEST_F(Waiting, WhereNothingIsPublishedTheFolderTells) {
    std::ofstream half[3];
    EXPECT_EQ(Wait({[&] {
                  WriteFile("/tmp/=waited/other.dump", "");
                  WriteFile("/tmp/=waited/trelvo.dump.zst", "");
                  WriteFile("/tmp/=waited/.trelvo-gone", "");
                  fs::rename("/tmp/=waited/.trelvo-gone", "/tmp/=waited/elsewhere");
                  half[0].open("/tmp/=waited/trelvo_5.dump");
                  WriteFile("/tmp/=waited/.trelvo-x", "");
                  half[1].open("/tmp/=waited/trelvo_6.dump");
                  fs::create_hard_link("/tmp/=waited/.trelvo-x", "/tmp/=waited/trelvo_2.dump");
              }}),
              "/tmp/=waited/trelvo_2.dump");
    EXPECT_EQ(Wait({[&] {
                  WriteFile("/tmp/=waited/trelvo_4.dump", "");
                  half[2].open("/tmp/=waited/trelvo_3.dump");
              }}),
              "/tmp/=waited/trelvo_4.dump");
    for (std::ofstream& file : half) {
        file.close();
    }
    EXPECT_THAT(Wait({[] { fs::remove_all(kFolder); }}), HasSubstr("was moved or removed"));
}

TEST_F(Waiting, OnlyADumpOfTheServicesUserIsItsOwn) {
    const std::string path = "/tmp/=waited/trelvo.dump";
    WriteFile(path, "");
    fs::create_symlink(path, "/tmp/=waited/trelvo_1.dump");
    EXPECT_THROW(ServiceFile("/tmp/=waited/trelvo_1.dump", "/run/trelvo"), DumpWaitError);
    EXPECT_NO_THROW(ServiceFile(path, "/run/trelvo"));
    if (chown(path.c_str(), 1, 1) == 0) {  // as root, who may ask another user's service
        EXPECT_THROW(ServiceFile(path, "/run/trelvo"), DumpWaitError);
        ASSERT_EQ(chown("/run/trelvo", 1, 1), 0);
        EXPECT_NO_THROW(ServiceFile(path, "/run/trelvo"));
    }
}

TEST(ServiceStatus, OnlyAServiceThatHasJustStartedIsGivenTimeToRead) {
    const std::pair<const char*, bool> rows[] = {
        {"started=1000\n", true},
        {"started=1000\nnewest_ms=49999", true},
        {"started=998\nnewest_ms=47999", true},
        {"started=998\nnewest_ms=48001", false},
        {"started=997\nnewest_ms=40000", false},
        {"started=4600\n", false},  // the clock was set back
        {"newest_ms=49999", false},
    };
    EXPECT_GT(ReadServiceStatus("/tmp/none").now_ms, 0) << "no service";
    for (const auto& [fields, expected] : rows) {
        ServiceStatus status;
        status.pid = 7;
        status.now_ms = 50000;
        status.service = Fields(fields);
        EXPECT_EQ(status.IsAboutToRead(1000), expected) << fields;
    }
}

TEST_F(Waiting, AFullFileSystemIsTheReasonWhyNothingComes) {
    ASSERT_EQ(mount("none", kFolder, "tmpfs", 0, "size=64k"), 0);
    const auto fill = [] { WriteFile("/tmp/=waited/else", std::string(64 << 10U, 'x')); };
    EXPECT_EQ(Wait({fill}, false, std::chrono::seconds(1)),
              "/tmp/=waited: the file system is full");
    EXPECT_EQ(umount(kFolder), 0);
    EXPECT_THAT(Wait({[] {}}, false, std::chrono::seconds(1)),
                HasSubstr("no dump came into /tmp/=waited within 1 s; "));
    EXPECT_THROW(DumpWaiter("/run/trelvo", "/tmp/=none", false), DumpWaitError);
}

}  // namespace
