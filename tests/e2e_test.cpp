// The real programs end to end: journal, capture, service, dump, trelvoctl.

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/fake_logind.h"
#include "support/journal.h"
#include "support/process.h"
#include "support/sanitizers.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::MatchesRegex;
using Lines = std::vector<std::string>;

const std::string kBin = TRELVO_BIN_DIR "/";
const std::string kServiceTag = "LOG_COMPRESSOR";
const fs::path kCollectingFolder = "/opt/usr/share/svc-rk/dump";
const fs::path kPolicyFolder = "/opt/usr/share/Trelvo/Server";
const fs::path kDefaultPolicyFolder = "/opt/usr/share/Trelvo/Default";
const fs::path kConfiguration = "/etc/trelvo";
const fs::path kUploadKey = "/run/trelvo/vconf/memory/trelvo/dlog_dump";
const fs::path kStatusKey = "/run/trelvo/vconf/memory/trelvo/status";
const fs::path kCapture = "/tmp/trelvo/RQB_Buffer";

void Log(const std::string& tag, const std::string& text, int priority = 6) {
    Journal::Send(
        {"MESSAGE=" + text, "SYSLOG_IDENTIFIER=" + tag, "PRIORITY=" + std::to_string(priority)});
}

// How the decoder prints a line of this process, without the time.
std::string Printed(const std::string& level_and_tag, const std::string& text) {
    const std::string pid = std::to_string(getpid());
    return level_and_tag + "(P " + pid + ", T " + pid + "): " + text;
}

// Whether no capture holds its folder, or none any more after so many seconds.
bool IsCaptureGone(const std::string& seconds) {
    return RunProgram({"flock", "--timeout", seconds, kCapture.parent_path(), "true"}).status == 0;
}

// The process id of the service's capture, as this process sees it.
pid_t CapturePid(const Process& service) {
    const auto found = RunProgram(
        {"pgrep", "--ns", std::to_string(service.Pid()), "--nslist", "mnt", "--exact", "dlogutil"});
    return found.status == 0 ? std::stoi(found.out) : 0;
}

// A machine with a journal and with what the installation lays.
class EndToEnd : public testing::Test {
protected:
    EndToEnd() {
        for (const fs::path& folder :
             {kCollectingFolder, kPolicyFolder, kDefaultPolicyFolder, kConfiguration,
              kUploadKey.parent_path(), fs::path("/tmp/dumps")}) {
            fs::create_directories(folder);
        }
        fs::permissions("/run/trelvo", fs::perms::owner_all);
        WriteFile(kUploadKey, "0\n");
    }

    // Returns when the log of the service says `message`.
    void StartService(std::vector<std::string> arguments, const std::string& message) {
        LogFollower log(kServiceTag);
        arguments.insert(arguments.begin(), kBin + "trelvo");
        service_.emplace(arguments);
        ASSERT_NE(log.WaitFor(message), "");
    }

    // Starts and launches it.
    void StartCapture(const std::string& tags, const std::string& levels,
                      const std::string& buffer_kib, const std::string& dump_mode = "") {
        StartService({"LOGTAG=" + tags, "LOGLEVEL=" + levels, "RQBBUFFER=" + buffer_kib,
                      "POLICYMODE=0", "DLOGDUMPMODE=" + dump_mode, "DLOGDUMPVALUE=1"},
                     "set buffer Size");
    }

    // Waits until the service has read the line that ends in `text`, and all before it.
    static void AwaitRead(const std::string& text) {
        const auto is_captured = [&text] {
            return ReadFile(kCapture).find(text + "\n") != std::string::npos &&
                   !fs::exists(kCapture.string() + ".1");
        };
        ASSERT_TRUE(WaitForChange("/tmp", [] { return fs::exists(kCapture.parent_path()); }));
        ASSERT_TRUE(WaitForChange(kCapture.parent_path(), is_captured)) << text;
        LogFollower log(kServiceTag);
        // The first pass that ends now may have begun before the line was there.
        for (int pass = 0; pass < 2; ++pass) {
            ASSERT_NE(log.WaitFor("Lines Read from " + kCapture.string() + ": ["), "") << text;
        }
    }

    // The path of a dump that is complete, of what the service says of it.
    static std::string PathIn(const std::string& message) {
        const auto begin = message.rfind('[') + 1;
        return message.substr(begin, message.rfind(']') - begin);
    }

    static fs::path RequestDump() {
        const auto dump = RunProgram({kBin + "trelvoctl", "dump", "/tmp/dumps"});
        return dump.out.substr(0, dump.out.find('\n'));
    }

    // The lines of a dump without their times, which must not run backwards.
    static Lines Decode(const fs::path& dump, const std::string& policy_folder = {}) {
        std::vector<std::string> command = {kBin + "trelvoctl", "decode", "--monotonic", dump};
        if (!policy_folder.empty()) {
            command.insert(command.end(), {"--policy", policy_folder});
        }
        const auto decoded = RunProgram(command);
        EXPECT_EQ(decoded.status, 0);
        // Without tables it says how many codes there are.
        EXPECT_TRUE(
            decoded.err.empty() ||
            (policy_folder.empty() && decoded.err.find(": --policy DIR\n") < std::string::npos))
            << decoded.err;
        Lines lines;
        std::istringstream text(decoded.out);
        double last = 0;
        double time = 0;
        const std::regex head(R"(^(./.*?) *\(P (-?\d+)(, T +(-?\d+))?\): )");
        for (std::string line; text >> time && std::getline(text.ignore(), line); last = time) {
            EXPECT_GE(time, last);
            std::smatch parts;
            EXPECT_TRUE(std::regex_search(line, parts, head)) << line;
            const std::string tid = parts[parts[4].matched ? 4 : 2];
            lines.push_back(parts[1].str() + "(P " + parts[2].str() + ", T " + tid +
                            "): " + parts.suffix().str());
        }
        return lines;
    }

    Journal journal_;
    std::optional<Process> service_;
};

TEST_F(EndToEnd, LoggedLinesComeBackInOrder) {
    Log("ALPHA", "before the service");
    StartCapture("ALPHA/BETA", "V/W", "64");
    Log("ALPHA", "caf\u00e9 \\ (P 1, T 2): a > b");
    Log("ALPHA", "low", 7);
    Log("BETA", "below its level");
    Log("GAMMA", "not asked for", 0);
    Journal::Send({"MESSAGE=from a thread", "SYSLOG_IDENTIFIER=BETA", "PRIORITY=4", "TID=7",
                   "CODE_FILE=/src/beta.cpp", "CODE_FUNC=run", "CODE_LINE=52"});
    Log("BETA", "up\n\tdown", 2);
    // Its socket is another one than that of the lines around it, which does not keep their order.
    LogFollower alpha("ALPHA");
    Process logger({"logger", "--socket", "/run/systemd/journal/dev-log", "-t", "ALPHA", "-p",
                    "user.err", "from logger"});
    ASSERT_EQ(logger.Wait(), 0);
    ASSERT_NE(alpha.WaitFor("from logger"), "");
    Log("ALPHA", "last");
    AwaitRead("last");

    const fs::path dump = RequestDump();
    const std::string pid = std::to_string(getpid());
    const std::string logger_pid = std::to_string(logger.Pid());
    EXPECT_THAT(Decode(dump),
                ElementsAre(Printed("I/ALPHA", "before the service"),
                            Printed("I/ALPHA", "caf\u00e9 \\\\ (P 1, T 2): a > b"),
                            Printed("D/ALPHA", "low"), "W/BETA(P " + pid + ", T 7): from a thread",
                            Printed("F/BETA", "up"), Printed("F/BETA", "\\x09down"),
                            "E/ALPHA(P " + logger_pid + ", T " + logger_pid + "): from logger",
                            Printed("I/ALPHA", "last")));
    // Times are seconds since the machine started.
    const double time =
        std::stod(RunProgram({kBin + "trelvoctl", "decode", "--monotonic", dump}).out);
    const std::chrono::duration<double> uptime =
        std::chrono::steady_clock::now().time_since_epoch();
    EXPECT_NEAR(time, uptime.count(), 60);
}

TEST_F(EndToEnd, AsInstalledItIsSilentAndWritesALastDump) {
    FakeLogind logind;
    const fs::path installed = TRELVO_SOURCE_DIR "/platform/systemd";
    fs::copy(installed / "policy_version.xml", kDefaultPolicyFolder);
    fs::copy(installed / "trelvo.conf", kConfiguration);
    fs::copy(installed / "system-info.ini", kConfiguration);
    // An ordinary user's namespace has one group.
    const bool has_groups =
        RunProgram({"setpriv", "--regid=adm", "--keep-groups", "true"}).status == 0;
    const std::string group = has_groups ? "adm" : "root";
    std::ofstream(kConfiguration / "trelvo.conf", std::ios::app) << "[dump]\ngroup=" + group + "\n";
    service_.emplace(std::vector{"env"s, "--unset=TRELVO_LOG_LEVEL"s, kBin + "trelvo"});
    ASSERT_TRUE(logind.WaitForInhibitor());
    Log(kServiceTag, "of the service's tag");
    Log("LOUD", "below the level", 7);
    Log("LOUD", "a line");
    const auto dump = RunProgram({kBin + "trelvoctl", "dump", "/tmp/dumps"});
    ASSERT_EQ(dump.status, 0) << dump.err;
    Lines lines = Decode(dump.out.substr(0, dump.out.size() - 1));
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) {
                                   return line.find("LOUD") == std::string::npos &&
                                          line.find(kServiceTag) == std::string::npos;
                               }),
                lines.end());
    EXPECT_THAT(lines, ElementsAre(Printed("I/LOUD", "a line")));
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->Wait(), 0);
    EXPECT_THAT(Decode(kCollectingFolder / "trelvo.dump"), Contains(Printed("I/LOUD", "a line")));
    for (const char* folder : {"/opt/usr/share/svc-rk/dump", "/tmp/dumps"}) {
        const auto modes = RunProgram({"stat", "--format=%a %G", folder + "/trelvo.dump"s});
        EXPECT_EQ(modes.out, "640 " + group + "\n") << folder;
    }
    // Nothing at all of a service that is well.
    const auto own = RunProgram(
        {"journalctl", "--quiet", "--output=cat", "_PID=" + std::to_string(service_->Pid())});
    EXPECT_EQ(own.out + own.err, "");
}

// `trelvoctl dump`, as a shell runs it.
Output Dump(const std::string& arguments) {
    return RunProgram({"bash", "-c", "exec " + kBin + "trelvoctl dump --timeout 20 " + arguments});
}

TEST_F(EndToEnd, DumpWaitsForAServiceThatStarts) {
    EXPECT_THAT(Dump("/tmp/dumps").err, HasSubstr("no service answers"));
    service_.emplace(std::vector{
        "bash"s, "-c"s,
        "sleep 0.5; exec " + kBin + "trelvo LOGTAG=DUMPED LOGLEVEL=V RQBBUFFER=64 POLICYMODE=0"});
    EXPECT_THAT(Dump("/tmp/dumps").err, HasSubstr("/tmp/dumps/trelvo.dump: empty: "));
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->Wait(), 0);
    service_.emplace(std::vector{kBin + "trelvo"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(Dump("/tmp/dumps").err, HasSubstr("DUMP: nothing is recorded yet"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10))
        << "one that refuses is not asked again";
}

TEST_F(EndToEnd, DumpSaysWhatItHoldsOrWhyThereIsNone) {
    StartCapture("DUMPED", "V", "64");
    const auto empty = Dump("/tmp/dumps");
    EXPECT_EQ(empty.status, 3);
    EXPECT_EQ(empty.err,
              "trelvoctl: /tmp/dumps/trelvo.dump: empty: the service has recorded nothing yet\n");
    fs::remove("/tmp/dumps/trelvo.dump");
    Log("DUMPED", "first");
    Log("DUMPED", "last");

    fs::create_directory_symlink("/tmp/dumps", "/tmp/link");
    fs::create_directory("/run/full");
    ASSERT_EQ(mount("tmpfs", "/run/full", "tmpfs", 0, "size=4k"), 0);
    Log("DUMPED", std::string(8000, '.'));
    const std::string time = "[0-9-]{10} [0-9:.]{12}";
    constexpr size_t time_size = 23;
    std::string told;
    setenv("TZ", "UTC-9", 1);
    // Another user's, in a folder that both may write to, while the command waits.
    const std::string intruder =
        "(cd /tmp/dumps; mkfifo trelvo_9.dump; echo x >trelvo_8.dump; mv trelvo_8.dump "
        "trelvo_7.dump) & ";
    for (const auto& [arguments, status, out, err] :
         std::vector<std::tuple<std::string, int, std::string, std::string>>{
             {"/tmp/link & dump=$!; " + intruder + "wait $!; wait $dump", 0,
              "/tmp/dumps/trelvo.dump\n",
              "trelvoctl: 3 lines, " + time + " to " + time + "; the newest is [0-9.]+ s old\n"},
             {"--zstd /tmp/dumps 2>/dev/null", 0, "/tmp/dumps/trelvo.dump.zst\n", ""},
             {"/run/full", 1, "",
              "trelvoctl: /run/full: the dump could not be written: No space left on device\n"},
             {kUploadKey, 2, "", "trelvoctl: dump: " + kUploadKey.string() + ": Not a directory\n"},
             {"/run/none", 2, "", "trelvoctl: dump: /run/none: No such file or directory\n"}}) {
        const auto start = std::chrono::steady_clock::now();
        const auto result = Dump(arguments);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << arguments;
        EXPECT_EQ(result.status, status) << arguments;
        EXPECT_EQ(result.out, out) << arguments;
        EXPECT_THAT(result.err, MatchesRegex(err)) << arguments;
        told += result.err;
    }
    const auto lines = RunProgram({kBin + "trelvoctl", "decode", "/tmp/dumps/trelvo.dump"}).out;
    EXPECT_THAT(told, HasSubstr("3 lines, " + lines.substr(0, time_size) + " to "));
    EXPECT_THAT(Decode("/tmp/dumps/trelvo.dump"),
                ElementsAre(Printed("I/DUMPED", "first"), Printed("I/DUMPED", "last"),
                            Printed("I/DUMPED", std::string(8000, '.'))));
}

TEST_F(EndToEnd, DumpOfAServiceThatDoesNotRecordIsCalledStale) {
    StartCapture("DUMPED", "V", "64");
    Log("DUMPED", "a line");
    AwaitRead("a line");
    // What had been recorded before is not in it, unless the service says otherwise first.
    std::string err;
    for (int attempt = 0; attempt < 9 && err.find("newer") == std::string::npos; ++attempt) {
        std::ofstream(kStatusKey, std::ios::app) << "newest_ms=99999999999\n";
        err = Dump("/tmp/dumps").err;
    }
    EXPECT_THAT(err, HasSubstr("stale: the service had recorded newer lines before\n"));
    WriteFile(kUploadKey.parent_path() / "capture", "alive=0\nreason=it\x1B died\n");
    const auto stale = Dump("/tmp/dumps");
    EXPECT_EQ(stale.status, 3);
    EXPECT_THAT(stale.out, MatchesRegex("/tmp/dumps/trelvo[_0-9]*.dump\n"));
    EXPECT_THAT(stale.err, HasSubstr("stale: the service does not record: it\\x1B died\n"));
    WriteFile(kUploadKey.parent_path() / "capture", "alive=0\n");
    EXPECT_THAT(Dump("/tmp/dumps").err,
                HasSubstr("stale: the service does not record: its capture is dead\n"));
}

// By `kind`, "native", "logger" or "systemd-cat"; returns when the program that logs has.
void LogBy(const std::string& kind, const std::string& text) {
    if (kind == "native") {
        Log("FRESH", text);
    } else if (kind == "logger") {
        ASSERT_EQ(
            RunProgram({"logger", "--socket", "/run/systemd/journal/dev-log", "-t", "FRESH", text})
                .status,
            0);
    } else {
        ASSERT_EQ(RunProgram({"systemd-cat", "-t", "FRESH", "echo", text}).status, 0);
    }
}

// So many lines a second, until it is destroyed.
class Load {
public:
    Load(const std::string& tag, int lines) : thread_([this, tag, lines] { Run(tag, lines); }) {}
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;
    ~Load() {
        ends_ = true;
        thread_.join();
    }

private:
    void Run(const std::string& tag, int lines) {
        constexpr int kParts = 100;  // of a second
        auto next = std::chrono::steady_clock::now();
        for (int64_t number = 0; !ends_; next += std::chrono::milliseconds(1000 / kParts)) {
            for (int line = 0; line < lines / kParts; ++line) {
                Log(tag, "line " + std::to_string(number++) + " of the load beside it");
            }
            std::this_thread::sleep_until(next);
        }
    }

    std::atomic<bool> ends_{false};
    std::thread thread_;
};

TEST_F(EndToEnd, WhatWasLoggedBeforeADumpWasAskedForIsInIt) {
    const char* const wanted = std::getenv("TRELVO_TEST_DUMPS");  // for a longer proof by hand
    const int dumps = wanted != nullptr ? std::stoi(wanted) : kIsSanitized ? 3 : 25;
    StartCapture("FRESH/LOAD", "V/V", "1024");
    const auto descriptors = [this] {
        const fs::path folder = "/proc/" + std::to_string(service_->Pid()) + "/fd";
        return std::distance(fs::directory_iterator(folder), {});
    };
    const auto opened = descriptors();
    for (const int lines : {0, kIsSanitized ? 500 : 5000}) {
        std::optional<Load> load;
        if (lines > 0) {
            load.emplace("LOAD", lines);
        }
        for (const std::string kind : {"native", "logger", "systemd-cat"}) {
            int whole = 0;
            for (int number = 0; number < dumps; ++number) {
                const std::string text = kind + " " + std::to_string(lines + number) + ".";
                LogBy(kind, text);
                const auto dump = RunProgram({kBin + "trelvoctl", "dump", "/tmp/dumps"});
                const std::string path = dump.out.substr(0, dump.out.find('\n'));
                const bool has_line = ReadFile(path).find(text) != std::string::npos;
                whole += has_line ? 1 : 0;
                // A machine too busy for the time that a dump may wait makes it say so.
                EXPECT_EQ(dump.status, dump.err.find(": stale: ") == std::string::npos ? 0 : 3)
                    << dump.err;
                EXPECT_TRUE(has_line || dump.status == 3) << text << " " << dump.err;
                fs::remove(path);
            }
            EXPECT_GE(whole, dumps * 9 / 10);
        }
    }
    EXPECT_LT(descriptors(), opened + 5) << "each dump leaves some open";
}

// The journal keeps the order of what programs send natively: the service's messages too.
TEST_F(EndToEnd, DumpsByTheServiceItselfHoldWhatWasLoggedBefore) {
    FakeLogind logind;
    StartService({"LOGTAG=BESIDE/MATCHED", "LOGLEVEL=V/V", "RQBBUFFER=256", "POLICYMODE=0",
                  "DLOGDUMPMODE=timer&poweroff&match", "DLOGDUMPVALUE=3", "DLOGDUMPMATCH=MATCHED:W",
                  "DLOGDUMPDELAY=1"},
                 "set buffer Size");
    ASSERT_TRUE(logind.WaitForInhibitor());
    std::optional<Load> load(std::in_place, "BESIDE", 500);
    LogFollower log(kServiceTag);
    // A machine too busy for the time that a dump may wait makes the service say so.
    std::map<std::string, bool> is_current;
    const auto await_dump = [&] {
        const std::string path = PathIn(log.WaitFor("Dump to File["));
        std::string status;
        EXPECT_TRUE(WaitForChange(kStatusKey.parent_path(), [&] {
            status = ReadFile(kStatusKey);
            return status.find("last_dump_path=" + path + "\n") != std::string::npos;
        })) << path;
        is_current[path] = status.find("last_dump_current=1\n") != std::string::npos;
    };
    await_dump();  // by the timer
    Log("MATCHED", "it happened", 4);
    await_dump();
    logind.Emit("PrepareForShutdown", true);
    ASSERT_TRUE(logind.WaitForRelease());
    load.reset();
    await_dump();
    const auto journal =
        RunProgram({"journalctl", "--quiet", "--output=cat", "_PID=" + std::to_string(getpid()),
                    "_PID=" + std::to_string(service_->Pid())});
    std::istringstream entries(journal.out);
    std::string newest;
    std::string before;
    std::map<std::string, int> triggers;
    int whole = 0;
    for (std::string entry; std::getline(entries, entry);) {
        const auto begins = [&entry](const char* text) {
            return entry.find(text) != std::string::npos;
        };
        for (const char* trigger :
             {"t_startTimerDump called", "RequestDumpOnMatch called", "t_OnPoweroff called"}) {
            triggers[trigger] += begins(trigger) ? 1 : 0;
        }
        if (begins("Dumping Start..")) {
            before = newest;
        } else if (begins("Dump to File[")) {
            const std::string path = PathIn(entry);
            const bool has_line = ReadFile(path).find(before) != std::string::npos;
            EXPECT_TRUE(has_line || !is_current[path]) << before << " " << path;
            whole += has_line ? 1 : 0;
        } else if (entry.rfind("line ", 0) == 0) {
            newest = entry;
        }
    }
    EXPECT_NE(before, "");
    EXPECT_GT(whole, 0);
    for (const auto& [trigger, count] : triggers) {
        EXPECT_GT(count, 0) << trigger;
    }
}

TEST_F(EndToEnd, OneServiceWithOneCaptureThatEndsWithIt) {
    // After the first one's death its socket is there for the second to take over.
    for (const int signal : {SIGKILL, SIGTERM}) {
        StartCapture("ONE", "V", "64");
        Log("ONE", "captured");
        AwaitRead("captured");
        const auto other = RunProgram(
            {kBin + "trelvo", "LOGTAG=ONE", "LOGLEVEL=V", "RQBBUFFER=64", "POLICYMODE=0"});
        EXPECT_NE(other.status, 0);
        EXPECT_THAT(other.err, HasSubstr("already running"));
        EXPECT_THAT(Decode(RequestDump()), Contains(Printed("I/ONE", "captured")));

        EXPECT_FALSE(IsCaptureGone("0"));
        service_->Signal(signal);
        EXPECT_EQ(service_->Wait(), signal == SIGKILL ? 128 + SIGKILL : 0);
        EXPECT_TRUE(IsCaptureGone("10"));
        const auto launch = RunProgram({kBin + "trelvoctl", "launch", "DUMP=/tmp/dumps"});
        EXPECT_EQ(launch.status, 1);
        EXPECT_EQ(std::count(launch.err.begin(), launch.err.end(), '\n'), 1) << launch.err;
    }
}

TEST_F(EndToEnd, BrokenTablesCostTheirOwnTagOnly) {
    std::string policy = "<p><policy version='1'/>";
    for (const char* name : {"missing", "folder", "cut", "other", "locked", "huge", "good"}) {
        policy += std::string("<db logtag='") + name + "' name='" + name + "'/>";
    }
    for (const char* name : {"cut", "locked", "huge", "good"}) {
        MakeCodeTable(kPolicyFolder / name, "('known', '0000011111110000')");
    }
    fs::create_directory(kPolicyFolder / "folder");
    WriteFile(kPolicyFolder / "other", "not a database, and longer than the header of one is");
    fs::resize_file(kPolicyFolder / "cut", 5000);
    fs::resize_file(kPolicyFolder / "huge", 1 << 30);
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open((kPolicyFolder / "locked").c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    std::string bomb = "<!DOCTYPE p [<!ENTITY a 'aaaaaaaaaa'>";
    for (char name = 'b'; name <= 'z'; ++name) {
        const std::string twice = "&" + std::string(1, static_cast<char>(name - 1)) + ";";
        bomb += std::string("<!ENTITY ") + name + " '" + twice + twice + twice + twice + "'>";
    }
    for (const auto& [text, shown] : {std::pair(policy, "<code 07F0>"),
                                      {bomb + "]><p><policy version='&z;'/></p>", "known"},
                                      {policy + std::string(3000000, ' ') + "<", "<code 07F0>"}}) {
        WriteFile(kPolicyFolder / "policy_version.xml", text);
        StartService({}, "CDataDump created");
        LogFollower log(kServiceTag);
        EXPECT_EQ(RunProgram({kBin + "trelvoctl", "launch", "LOGTAG=cut/locked/huge/good",
                              "LOGLEVEL=V/V/V/V", "RQBBUFFER=64", "POLICYMODE=1"})
                      .status,
                  0);
        ASSERT_NE(log.WaitFor("Start reading data"), "");
        for (const char* tag : {"cut", "locked", "huge", "good"}) {
            Log(tag, "known");
        }
        AwaitRead("known");
        const Lines lines = Decode(RequestDump());
        EXPECT_THAT(lines, Contains(Printed("I/locked", "known"))) << text.substr(0, 30);
        EXPECT_THAT(lines, Contains(Printed("I/huge", shown))) << text.substr(0, 30);
        EXPECT_THAT(lines, Contains(Printed("I/good", shown))) << text.substr(0, 30);
        service_.reset();
        ASSERT_TRUE(IsCaptureGone("10"));
    }
    sqlite3_close(database);
}

TEST_F(EndToEnd, MillionsOfSourcesDoNotOutgrowTheUnit) {
    SKIP_WHERE_SANITIZED();
    constexpr long kMaxKiB = 384L * 1024;  // KiB; the unit has 512 MiB, also for /tmp
    const fs::path boot = kCapture.parent_path() / "boot" / kCapture.filename();
    // A history by records refers to less than a million of them.
    for (const auto& [counts, sources] : {std::pair("memory", 2000000), {"records", 1000000}}) {
        fs::create_directories(boot.parent_path());
        fs::permissions(kCapture.parent_path(), fs::perms::owner_all);
        std::ofstream file(boot);
        for (int i = 0; i < sources; ++i) {
            file << 100 + i / 10000 << ".0 I/hostile" << i << "(P" << i << ", T" << i + 1
                 << "): f: g(1) > x\n";
            if (i % 1000 == 999) {
                file << 100 + i / 10000 << ".0 I/HONEST(P1, T1): f: g(1) > " << i / 1000 << "\n";
            }
        }
        file.close();
        LogFollower log(kServiceTag);
        service_.emplace(std::vector{"env"s, "TRELVO_LOG_LEVEL=info"s, kBin + "trelvo", "LOGTAG=*"s,
                                     "LOGLEVEL=I"s, "RQBBUFFER=4096"s, "POLICYMODE=0"s,
                                     "RQBHISTORY=10240"s, "RQBCOUNT="s + counts});
        ASSERT_NE(log.WaitFor("TRELVO_BOOT_BUFFER is finished", 2 * kLimit), "");
        std::istringstream honest(RunProgram({kBin + "trelvoctl", "decode", "--output=raw",
                                              RequestDump(), "*:S", "HONEST:V"})
                                      .out);
        int next = 0;
        honest >> next;
        EXPECT_LT(next, sources / 1000 - 20) << counts;
        // As far as the history goes back, all of them.
        for (int number = next; honest; honest >> number) {
            ASSERT_EQ(number, next++) << counts;
        }
        EXPECT_EQ(next, sources / 1000) << counts;
        const long peak = StatusValue(service_->Pid(), "VmHWM");
        RecordProperty("peak KiB, "s + counts, std::to_string(peak));
        EXPECT_LT(peak, kMaxKiB) << counts;
        service_.reset();
        ASSERT_TRUE(IsCaptureGone("10"));
    }
}

TEST_F(EndToEnd, ACaptureThatStandsStillHoldsUpNoDumpAndOddBytesAreKept) {
    StartCapture("STOPPED", "V", "64");
    Log("STOPPED", "before");
    AwaitRead("before");
    Lines expected = {Printed("I/STOPPED", "before")};
    const pid_t capture = CapturePid(*service_);
    ASSERT_GT(capture, 0);
    kill(capture, SIGSTOP);
    EXPECT_THAT(Decode(RequestDump()), ElementsAreArray(expected));
    // The capture file is this test's now; the service reads it on.
    std::ofstream(kCapture, std::ios::app | std::ios::binary)
        << "2.5 I/OLD(P 1, T 2): a > backwards\n\r\n"
        << std::string(3, '\0') << "\n2147483.5 I/NEW(P 1, T 2): a > b\0c\r\n"s
        << "2147483.5 I/NEW(P 1, T 2): a > " << std::string(1 << 20, 'x') << "\nhalf";
    AwaitRead(std::string(1000, 'x'));
    expected.push_back("I/NEW(P 1, T 2): b\\x00c\\x0D");
    expected.push_back("I/NEW(P 1, T 2): " + std::string(1 << 20, 'x'));
    EXPECT_THAT(Decode(RequestDump()), ElementsAreArray(expected));
    kill(capture, SIGKILL);
}

TEST_F(EndToEnd, ACaptureThatEndsIsStartedAgainAtItsPlaceAndSaysSo) {
    LogFollower log(kServiceTag);
    StartCapture("WATCHED", "V", "16");
    const auto await_status = [](const std::string& text) {
        return WaitForChange("/run/trelvo/vconf/memory/trelvo", [&] {
            return ReadFile("/run/trelvo/vconf/memory/trelvo/capture").find(text) !=
                   std::string::npos;
        });
    };
    ASSERT_TRUE(await_status("alive=1\nreason=\nrestarts=0\n"));
    Lines expected;
    int restarts = 0;
    for (const int signal : {SIGKILL, SIGTERM, SIGSEGV}) {
        std::string text;
        for (int line = 0; line < 200; ++line) {
            text = std::to_string(expected.size()) + std::string(40, '.');
            Log("WATCHED", text);
            expected.push_back(Printed("I/WATCHED", text));
            if (line == 100) {
                kill(CapturePid(*service_), signal);
            }
        }
        AwaitRead(text);
        EXPECT_TRUE(await_status("alive=1\nreason=\nrestarts=" + std::to_string(++restarts)));
    }
    EXPECT_THAT(Decode(RequestDump()), ElementsAreArray(expected));
    EXPECT_THAT(log.WaitFor("the capture was killed by signal"),
                HasSubstr("signal 9 (Killed); starting it again"));
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->Wait(), 0);
    EXPECT_TRUE(IsCaptureGone("10"));
}

TEST_F(EndToEnd, NobodyElseWritesWhatItWroteOrReachesIt) {
    umask(0);
    StartCapture("MODES", "V", "64");
    Log("MODES", "a line");
    AwaitRead("a line");
    std::list<Process> flood;
    for (int i = 0; i < 40; ++i) {
        flood.emplace_back(std::vector{kBin + "trelvoctl", "launch"s, "OTHER=x"s});
    }
    std::for_each(flood.begin(), flood.end(), [](Process& launch) { (void)launch.Wait(); });
    EXPECT_THAT(Decode(RequestDump()), ElementsAre(Printed("I/MODES", "a line")));
    const auto mode = [](const char* path) {
        return static_cast<int>(fs::status(path).permissions());
    };
    EXPECT_EQ(mode("/run/trelvo") | mode("/tmp/trelvo"), 0700);
    EXPECT_EQ(mode("/run/trelvo/lock") | mode("/tmp/trelvo/RQB_Buffer"), 0600);
    EXPECT_EQ(mode("/tmp/Trelvo_Dump"), 0700);
    EXPECT_EQ(mode("/tmp/dumps/trelvo.dump"), 0600);
    std::vector<std::string> stranger = {
        "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "test", "-e", "/tmp"};
    // An ordinary user's namespace has no other users.
    if (RunProgram(stranger).status == 0) {
        for (const char* path : {"/run/trelvo/launch.sock", "/tmp/trelvo/RQB_Buffer"}) {
            stranger.back() = path;
            EXPECT_EQ(RunProgram(stranger).status, 1) << path;
        }
        // Root reaches a service of another user.
        service_.reset();
        ASSERT_TRUE(IsCaptureGone("10"));
        for (const char* folder : {"/run/trelvo", "/tmp/trelvo", "/tmp/Trelvo_Dump"}) {
            fs::remove_all(folder);
        }
        fs::create_directory("/run/trelvo");
        RunProgram({"chown", "65534", "/run/trelvo"});
        fs::permissions("/run/trelvo", fs::perms::owner_all);
        fs::permissions("/tmp", fs::perms::all);
        fs::copy(kBin + "trelvo", "/tmp/program");
        stranger.resize(4);
        stranger.insert(stranger.end(), {"env", "XDG_RUNTIME_DIR=run", "/tmp/program"});
        EXPECT_THAT(RunProgram(stranger).err, HasSubstr("XDG_RUNTIME_DIR does not name a folder"));
        stranger[5] = "XDG_RUNTIME_DIR=/run";
        service_.emplace(stranger);
        ASSERT_TRUE(
            WaitForChange("/run/trelvo", [] { return fs::exists("/run/trelvo/launch.sock"); }));
        const auto launch = RunProgram({kBin + "trelvoctl", "launch", "DUMP=/tmp/dumps"});
        EXPECT_THAT(launch.err, HasSubstr("DUMP: nothing is recorded yet"));
        RunProgram({kBin + "trelvoctl", "launch", "LOGTAG=*", "LOGLEVEL=V", "RQBBUFFER=64",
                    "POLICYMODE=0"});
        const auto dump = RunProgram({kBin + "trelvoctl", "dump", "/tmp"});
        EXPECT_EQ(dump.out, "/tmp/trelvo.dump\n") << dump.err;
    }
}

}  // namespace
}  // namespace test_support
