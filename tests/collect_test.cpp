// The collecting service, on folders of its own.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <future>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/dump_builder.h"
#include "support/process.h"
#include "support/sanitizers.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const std::string kBoot(32, 'b');
const std::string kStored = "cp \"$DUMP\" /tmp/store/";

// A dump of a machine and boot.
std::string Dump(const std::string& host, const std::string& text) {
    return DumpBuilder()
        .Line(0, "boot=" + kBoot + " host=" + host + " wall=1764000000.250000 monotonic=1.000000",
              "trelvo.clock,7")
        .Line(5, text)
        .Image(1000);
}

std::vector<std::string> Names(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (!entry.is_directory()) {
            names.push_back(entry.path().filename());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void SetTime(const fs::path& file, time_t seconds, long nanoseconds = 0) {
    const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

class Collect : public testing::Test {
protected:
    const fs::path from_ = "/tmp/from";
    const fs::path archive_ = "/tmp/archive";
    const fs::path sent_ = archive_ / "sent";
    const fs::path key_ = "/run/trelvo/vconf/memory/trelvo/dlog_dump";

    Collect() {
        setenv("DUMP", "/tmp/of the caller", 1);  // the command gets its own
        setenv("OTHER", "kept", 1);
        Reset();
    }

    // The recorder has written three dumps and waits for the key.
    void Reset() {
        for (const fs::path& folder :
             {from_, archive_, fs::path("/tmp/store"), key_.parent_path()}) {
            fs::remove_all(folder);
            fs::create_directories(folder);
        }
        WriteFile(from_ / "trelvo.dump", Dump("pi", "first"));
        WriteFile(from_ / "trelvo_1.dump.zst", RunProgram({"sh", "-c", "echo second | zstd"}).out);
        WriteFile(from_ / "trelvo_2.dump", RunProgram({"seq", "20045"}).out);  // checksum 08bd9232
        WriteFile(key_, "1\n");
    }

    [[nodiscard]] std::vector<std::string> Argv(const std::string& command,
                                                const std::vector<std::string>& words = {}) const {
        const std::string program = TRELVO_BIN_DIR "/trelvo-collect";
        std::vector<std::string> argv{program, "--from", from_, "--archive", archive_};
        if (!command.empty()) {
            argv.insert(argv.end(), {"--command", command});
        }
        argv.insert(argv.end(), words.begin(), words.end());
        return argv;
    }
    [[nodiscard]] Output Run(const std::string& command = "",
                             const std::vector<std::string>& words = {}) const {
        return RunProgram(Argv(command, words));
    }
    // What strace saw of these calls of a run.
    [[nodiscard]] std::pair<int, std::string> Trace(const std::string& calls,
                                                    const std::string& injected = "") const {
        std::vector<std::string> argv{"strace", "-qq",           "-y", "-o", "/tmp/trace",
                                      "-e",     "trace=" + calls};
        if (!injected.empty()) {
            argv.insert(argv.end(), {"-e", "inject=" + calls + ":" + injected});
        }
        const auto run = Argv(kStored);
        argv.insert(argv.end(), run.begin(), run.end());
        fs::remove("/tmp/trace");
        return {RunProgram(argv).status, ReadFile("/tmp/trace")};
    }

    // The contents of all dumps of a folder.
    static std::vector<std::string> Contents(const fs::path& folder) {
        std::vector<std::string> contents;
        for (const std::string& name : Names(folder)) {
            contents.push_back(
                RunProgram({"zstd", "-dcq", "-f", (folder / name).string()}).out.substr(0, 200));
        }
        std::sort(contents.begin(), contents.end());
        return contents;
    }
};

// A kill comes before each call that changes a file or waits for the command.
TEST_F(Collect, KilledAtAnyMomentItNeitherLosesNorDoublesADump) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which does not work for a traced program
    const std::vector<std::string> all = Contents(from_);
    std::vector<std::string> calls{"write",    "fsync", "rename",    "renameat", "unlink",
                                   "unlinkat", "mkdir", "utimensat", "wait4"};
    constexpr int kStep = kIsSanitized ? 3 : 1;  // a traced run takes long there
    int kills = 0;
    for (int number = 1; !calls.empty(); number += kStep) {
        Reset();
        const int status = Trace(calls.back(), "signal=KILL:when=" + std::to_string(number)).first;
        if (status == 0) {  // it has made fewer of these calls
            calls.pop_back();
            number = 1 - kStep;
            continue;
        }
        ++kills;
        ASSERT_EQ(status, 128 + SIGKILL);
        std::vector<std::string> kept = Contents(from_);
        for (const fs::path& folder : {archive_, sent_}) {
            const auto more = fs::exists(folder) ? Contents(folder) : std::vector<std::string>();
            kept.insert(kept.end(), more.begin(), more.end());
        }
        for (const std::string& content : all) {
            EXPECT_THAT(kept, Contains(content)) << kills;
        }
        const auto again = Run(kStored);
        EXPECT_EQ(again.status, 0) << kills << again.err;
        EXPECT_THAT(Names(from_), IsEmpty()) << kills;
        EXPECT_THAT(Names(archive_), IsEmpty()) << kills;
        EXPECT_EQ(Contents(sent_), all) << kills;
        EXPECT_EQ(Names("/tmp/store"), Names(sent_)) << kills;
        EXPECT_EQ(ReadFile(key_), "0\n") << kills;
    }
    EXPECT_GT(kills, 40 / kStep);
}

TEST_F(Collect, APowerCutFindsEachDumpOnTheDisk) {
    fs::remove(from_ / "trelvo_1.dump.zst");
    fs::remove(from_ / "trelvo_2.dump");
    const std::string order = Trace("fsync,rename,renameat,unlink").second;
    size_t place = 0;
    for (const char* call :
         {"fsync(N</tmp/archive/.part>", "renameat(N</tmp/archive>, \".part\"",
          "fsync(N</tmp/archive>)", "unlink(\"/tmp/from/trelvo.dump\")", "fsync(N</tmp/from>)",
          "rename(\"/run/trelvo/vconf/memory/trelvo/dlog_dump.new\"",
          "renameat(N</tmp/archive>, \"pi", "fsync(N</tmp/archive/sent>)"}) {
        const std::string text = std::regex_replace(order, std::regex("\\d+<"), "N<");
        place = text.find(call, place);
        ASSERT_NE(place, std::string::npos) << call << text;
    }
}

TEST_F(Collect, NamesSortByMachineAndTimeAndTellTheBoot) {
    SetTime(from_ / "trelvo.dump", 1764000000, 7999999);
    WriteFile(from_ / "trelvo_4.dump.zst", RunProgram({"sh", "-c", "echo fourth | zstd"}).out);
    for (const char* name : {"trelvo_1.dump.zst", "trelvo_2.dump", "trelvo_4.dump.zst"}) {
        SetTime(from_ / name, 1764000000);
    }
    WriteFile(from_ / "trelvo_3.dump", Dump("../.._etc\x1B" + std::string(80, 'x'), "third"));
    WriteFile(from_ / "trelvo_10.dump", Dump("pi", "last"));
    WriteFile(from_ / "other.dump", "");
    SetTime(from_ / "trelvo_3.dump", -1);
    SetTime(from_ / "trelvo_10.dump", 1764000000, 8000000);
    EXPECT_EQ(Run().status, 0);
    EXPECT_THAT(Names(from_), ElementsAre("other.dump"));
    char host[65] = "";
    gethostname(host, 64);
    const std::string sum = "_[0-9a-f]{8}\\.dump\\.zst";
    const std::string unknown = std::string(host) + "_20251124T160000\\.000Z_unknown" + sum;
    EXPECT_THAT(Names(archive_),
                UnorderedElementsAre(
                    MatchesRegex("-\\.\\.-\\.\\.-etc-x{54}_19691231T235959\\.000Z_" + kBoot + sum),
                    MatchesRegex("pi_20251124T160000\\.007Z_" + kBoot + sum),
                    MatchesRegex("pi_20251124T160000\\.008Z_" + kBoot + sum), MatchesRegex(unknown),
                    MatchesRegex(unknown), MatchesRegex(unknown)));
    EXPECT_EQ(ReadFile(key_), "0\n");
    const auto decoded =
        RunProgram({"sh", "-c", TRELVO_BIN_DIR "/trelvoctl decode -o raw /tmp/archive/pi*"});
    EXPECT_EQ(decoded.out, "first\nlast\n");
    // For no other user to read, and damage is seen.
    const auto kept =
        RunProgram({"sh", "-c",
                    "cd /tmp/archive; stat -c %a ./* | sort -u; zstd -lv ./*.zst | grep -c XXH64"});
    EXPECT_EQ(kept.out, "600\n700\n6\n");
}

TEST_F(Collect, WhatFailsIsToldKeptAndTriedAgain) {
    // A command for the folders, the collector's command, its error, and how many dumps stay in the
    // collecting folder and wait in the archive.
    const std::vector<std::tuple<std::string, std::string, std::string, size_t, size_t>> rows{
        {"", "exit 6", "dump.zst: the command ended with exit code 6\n", 0, 3},
        {"", "kill -9 $$", "dump.zst: the command ended by signal 9\n", 0, 3},
        {"", "mv \"$DUMP\" /tmp/store/", "", 0, 0},
        {"", "case $DUMP in */pi*) mkdir /tmp/archive/sent/${DUMP##*/}; esac",
         "dump.zst: Is a directory\n", 0, 1},
        {"touch -d @3 /tmp/from/trelvo.dump", "case $DUMP in */pi*) exit 1; esac",
         "the command ended with exit code 1\n", 0, 1},
        {"mount -t tmpfs -o size=16k none /tmp/archive", kStored,
         ".part: No space left on device\n", 1, 0},
        {"ln -s trelvo.dump /tmp/from/trelvo_3.dump", kStored,
         "/tmp/from/trelvo_3.dump: Too many levels of symbolic links\n", 1, 0},
        {"mkdir /tmp/from/trelvo_3.dump", kStored,
         "/tmp/from/trelvo_3.dump: not a regular file: Invalid argument\n", 0, 0},
        {"mkfifo /tmp/from/trelvo_3.dump", kStored,
         "/tmp/from/trelvo_3.dump: not a regular file: Invalid argument\n", 1, 0},
        {"chown 1 /tmp/from", kStored, "/tmp/from: belongs to another user; run it as this one\n",
         3, 0},
        {"mount --bind /tmp/from /tmp/from && mount -o remount,bind,ro /tmp/from", kStored,
         "/tmp/from/trelvo.dump: Read-only file system\n", 3, 0},
        {"rm -r /tmp/archive", kStored, "", 0, 0},
        {"rm -r /tmp/from", kStored, "/tmp/from: No such file or directory\n", 0, 0},
    };
    for (const auto& [before, command, error, from, waiting] : rows) {
        Reset();
        if (RunProgram({"sh", "-c", before}).status != 0) {
            continue;  // an ordinary user has only one user to give files to
        }
        const auto result = Run(command);
        EXPECT_EQ(result.status, error.empty() ? 0 : 1) << before << command;
        EXPECT_THAT(result.err, HasSubstr(error)) << before << command;
        EXPECT_THAT(fs::exists(from_) ? Names(from_) : std::vector<std::string>(), SizeIs(from));
        EXPECT_THAT(fs::exists(archive_) ? Names(archive_) : std::vector<std::string>(),
                    SizeIs(waiting))
            << before << command;
        const bool is_moved = command != kStored || error.empty();
        EXPECT_EQ(ReadFile(key_), is_moved ? "0\n" : "1\n") << before << command;
        const auto archived = RunProgram(
            {"sh", "-c",
             "find /tmp/archive -name '*.zst' -type f -printf '%s\\n' | awk '{ size += $1 } END "
             "{ printf \"dumps=%d\\nbytes=%d\\n\", NR, size }'"});
        // Of several errors the first one; and nothing of an archive that it does not come to.
        const bool is_known = error.rfind("/tmp/from: ", 0) != 0;
        EXPECT_THAT(
            ReadFile(key_.parent_path() / "collector"),
            EndsWith((error.empty() ? "\nresult=done\nfailed=0\n" : error + "failed=1\n") +
                     (is_known ? archived.out + "waiting=" + std::to_string(waiting) + "\n" : "")));
        RunProgram({"sh", "-c",
                    "umount /tmp/archive /tmp/from; mkdir /tmp/from; chown 0 /tmp/from; rm -r "
                    "/tmp/from/trelvo_3*; rmdir /tmp/archive/sent/*.zst"});
        const auto again = Run(kStored);
        EXPECT_EQ(again.status, 0) << again.err;
        EXPECT_THAT(Names(from_), IsEmpty());
        EXPECT_THAT(Names(archive_), IsEmpty());
    }
    // Nobody asked for the key.
    fs::remove(key_);
    WriteFile(from_ / "trelvo.dump", "");
    EXPECT_EQ(Run().status, 0);
    EXPECT_FALSE(fs::exists(key_));
    EXPECT_THAT(ReadFile(key_.parent_path() / "collector"), EndsWith("\nwaiting=0\n"))
        << "without a command for none";
}

TEST_F(Collect, ACommandThatHangsKeepsNoOtherDumpWaiting) {
    WriteFile("/tmp/timeout",
              "#!/bin/sh\n"
              "test \"$2\" = 15m && shift 2 || exit\n"
              "case $DUMP in */pi*) limit=0.1s ;; *) limit=60s ;; esac\n"
              "exec /usr/bin/timeout --kill-after=10s $limit \"$@\"\n");
    fs::permissions("/tmp/timeout", fs::perms::owner_all);
    setenv("PATH", ("/tmp:" + std::string(getenv("PATH"))).c_str(), 1);
    const auto result = Run("case $DUMP in */pi*) sleep 60; esac");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                MatchesRegex("[^\n]*/pi[^\n]*: the command took too long and was ended\n"));
    EXPECT_THAT(Names(archive_), SizeIs(1));
    EXPECT_THAT(Names(sent_), SizeIs(2));
}

TEST_F(Collect, ADumpThatComesDuringTheCommandIsTakenToo) {
    SetTime(from_ / "trelvo.dump", 3);
    const std::string later =
        "stat -c \"%Y $OTHER\" \"$DUMP\" >> /tmp/order; test -e /tmp/later || echo x "
        ">/tmp/from/trelvo_9.dump; touch /tmp/later; "
        "grep -o 'result.*/' /run/trelvo/vconf/memory/trelvo/collector > /tmp/said";
    EXPECT_EQ(Run(later).status, 0);
    EXPECT_EQ(ReadFile("/tmp/order").substr(0, 7), "3 kept\n") << "the oldest first";
    EXPECT_EQ(ReadFile("/tmp/said"), "result=handing over /tmp/archive/\n");
    EXPECT_THAT(Names(from_), IsEmpty());
    EXPECT_THAT(Names(sent_), SizeIs(4));
}

TEST_F(Collect, OneRunWaitsForTheOther) {
    const auto slow = std::async(
        std::launch::async, [this] { EXPECT_EQ(Run("touch /tmp/busy; sleep 0.3").status, 0); });
    while (!fs::exists("/tmp/busy")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto result = Run(kStored);
    EXPECT_EQ(result.status, 0) << result.err;
    slow.wait();
}

TEST_F(Collect, TheArchiveIsBoundedBySizeAndAge) {
    // Of six dumps of 1,000 bytes, those with a higher number are newer, by a clock that was wrong,
    // and those with an even number were sent.
    for (const auto& [age, size, command, left, complaints] :
         std::vector<std::tuple<std::string, std::string, std::string, std::string, int>>{
             {"30d", "6000", "exit 1", "0 1 2 3 4 5 ", 0},
             {"30d", "5999", "exit 1", "1 2 3 4 5 ", 0},
             {"30d", "3000", "exit 1", "1 3 5 ", 0},
             {"30d", "1000", "exit 1", "5 ", 2},
             {"30d", "1000", kStored, "5 ", 2},  // which does not get them any more
             {"30d", "1", "", "5 ", 0},
             {"1s", "6000", "exit 1", "", 3},
             {"1s", "6000", "", "", 0},
             {"1s", "4000", "", "4 5 ", 0},  // which come when the others are old
         }) {
        Reset();
        fs::remove_all(from_);
        fs::create_directories(from_);
        fs::create_directories(sent_);
        for (int i = 0; i < 6; ++i) {
            if (i == 4 && size == "4000") {
                sleep(2);
            }
            const fs::path file =
                (i % 2 == 0 ? sent_ : archive_) / (std::to_string(i) + ".dump.zst");
            WriteFile(file, std::string(1000, 'x'));
            SetTime(file, i);
        }
        std::string found;
        std::string errors;
        const auto deadline = std::chrono::steady_clock::now() + kLimit;
        do {
            errors += Run(command, {"--max-age", age, "--max-size", size}).err;
            found = RunProgram(
                        {"sh", "-c", "cd /tmp/archive; ls . sent | grep ^[0-9] | cut -c 1 | sort"})
                        .out;
            std::replace(found.begin(), found.end(), '\n', ' ');
        } while (found != left && age == "1s" && std::chrono::steady_clock::now() < deadline);
        EXPECT_EQ(found, left) << age << size;
        const std::regex complaint("before the command took it\n");
        EXPECT_EQ(std::distance(std::sregex_iterator(errors.begin(), errors.end(), complaint), {}),
                  complaints)
            << errors;
    }
}

TEST_F(Collect, TheConfigurationIsCheckedBeforeAnythingIsDone) {
    for (const auto& [text, status, error] : std::vector<std::tuple<std::string, int, std::string>>{
             {"# none\nmax-age = 1d\ncommand = ': \" # \"; cp \"$DUMP\" /tmp/store/'\n", 0, ""},
             {"max-age = 1d # a day\n", 2, "--max-age: "},
             {"max-ag = 1d\n", 2, "/tmp/collect.conf: INI was not able to parse max-ag\n"},
             {"max-age = 30\n", 2, "--max-age: "},
             {"max-size = big\n", 2, "--max-size: "},
             {"command = cp $DUMP /tmp/store/\n", 2, "--command: "},
         }) {
        Reset();
        WriteFile("/tmp/collect.conf", text);
        const auto result = Run("", {"--config", "/tmp/collect.conf"});
        EXPECT_EQ(result.status, status) << text << result.err;
        EXPECT_THAT(result.err, HasSubstr(error)) << text;
        EXPECT_THAT(Names(from_), SizeIs(status == 0 ? 0 : 3)) << text;
        EXPECT_THAT(Names("/tmp/store"), SizeIs(status == 0 ? 3 : 0)) << text;
    }
    // As it is installed, and with its examples.
    EXPECT_EQ(Run("", {"--config", TRELVO_SOURCE_DIR "/platform/systemd/collect.conf"}).status, 0);
    EXPECT_EQ(Run("", {"--config", "/tmp/missing"}).status, 2);
}

}  // namespace
}  // namespace test_support
