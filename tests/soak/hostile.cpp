#include "soak/hostile.h"

#include <grp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/journal.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const std::string kBin = TRELVO_BIN_DIR "/";
const fs::path kCapture = "/tmp/trelvo";
const fs::path kCollectingFolder = "/opt/usr/share/svc-rk/dump";
const fs::path kUploadKey = "/run/trelvo/vconf/memory/trelvo/dlog_dump";
constexpr int kLinesPerSecond = 400;
constexpr auto kCycle = 30s;  // with each fault once
constexpr auto kFault = 5s;
constexpr long kMaxServiceKib = 384L * 1024;
constexpr long kMaxCaptureKib = 24L * 1024;

// Floods until it is killed.
class Adversary {
public:
    Adversary() : pid_(fork()) {
        if (pid_ == 0) {
            static_cast<void>(prctl(PR_SET_PDEATHSIG, SIGKILL));
            Flood();
        }
    }
    Adversary(const Adversary&) = delete;
    Adversary& operator=(const Adversary&) = delete;
    ~Adversary() {
        static_cast<void>(kill(pid_, SIGKILL));
        static_cast<void>(waitpid(pid_, nullptr, 0));
    }

private:
    [[noreturn]] static void Flood() {
        constexpr int kNobody = 65534;
        // An ordinary user's namespace has no other user.
        const bool is_other =
            setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
        std::printf("the adversary is %s\n", is_other ? "another user" : "the same user");
        const std::string lines = "MESSAGE=" + Repeated("a\n", 32768);
        const std::string field = "CODE_FUNC=" + std::string(size_t{4} << 20, 'f');
        for (unsigned n = 0;; std::this_thread::sleep_for(20ms)) {
            for (const unsigned end = n + 50; n != end; ++n) {
                const std::string number = std::to_string(n);
                Send({"SYSLOG_IDENTIFIER=evil" + number, "TID=" + number, "MESSAGE=x"});
                Send({"SYSLOG_IDENTIFIER=evil", "TID=" + std::to_string(n % 100000 << 14),
                      "MESSAGE=y"});
            }
            for (const char* tag :
                 {"x, Ty", "x (P y", "x):", "x > y", "x\n1.0 I/HONEST(P1, T1): > 1", "trelvo.clock",
                  "trelvo.sync", "HONEST", "LOG_COMPRESSOR"}) {
                Send({std::string("SYSLOG_IDENTIFIER=") + tag, "TID=99999999999", "DLOG_LEVEL=",
                      "CODE_FILE=(P , T ): > ", "CODE_FUNC= > \n", "MESSAGE=7 \n\x1B[2J > "});
            }
            if (n % 500 == 0) {
                Send({"SYSLOG_IDENTIFIER=lines", lines});
                Send({"SYSLOG_IDENTIFIER=field", "MESSAGE=z", field});
            }
        }
    }

    static std::string Repeated(const std::string& text, int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            all += text;
        }
        return all;
    }

    static void Send(const std::vector<std::string>& fields) {
        try {
            Journal::Send(fields);
        } catch (const std::exception&) {  // the journal is not obliged to take it
        }
    }

    pid_t pid_;
};

class HostileSoak {
public:
    HostileSoak() {
        for (const fs::path& folder : {kCollectingFolder, kUploadKey.parent_path(), kCapture}) {
            fs::create_directories(folder);
        }
        fs::permissions("/run/trelvo", fs::perms::owner_all);
        WriteFile(kUploadKey, "0\n");
        // Small enough to be filled.
        if (mount("tmpfs", kCapture.c_str(), "tmpfs", 0, "mode=0700,size=32m") != 0) {
            ThrowErrno("mount");
        }
        losses_.emplace("dlogutil");
        LogFollower starts("LOG_COMPRESSOR");
        service_.emplace(std::vector<std::string>{
            kBin + "trelvo", "LOGTAG=*", "LOGLEVEL=V", "RQBBUFFER=4096", "POLICYMODE=0",
            "DLOGDUMPMODE=timer&bufferfull", "DLOGDUMPVALUE=5"});
        Expect(!starts.WaitFor("set buffer Size").empty(), "the service starts");
        const auto start = Clock::now();
        while ((capture_ = FindProgram(kBin + "dlogutil")) == 0 && Clock::now() - start < kLimit) {
            std::this_thread::sleep_for(10ms);
        }
    }

    int Run(std::chrono::seconds length) {
        const auto start = Clock::now();
        {
            const Adversary adversary;
            for (auto now = start; now - start < length; now = Clock::now()) {
                const std::chrono::duration<double> passed = now - start;
                while (static_cast<double>(seen_.size()) < passed.count() * kLinesPerSecond) {
                    Send();
                }
                Disturb((now - start) % kCycle);
                Fetch();
                std::this_thread::sleep_for(20ms);
            }
            Disturb(0s);
        }
        Send();
        const auto end = Clock::now();
        while (seen_.back() == 0 && Clock::now() - end < 4 * kLimit) {
            Fetch();
            std::this_thread::sleep_for(100ms);
        }
        const std::chrono::duration<double> late = Clock::now() - end;
        const auto lost = std::count(seen_.begin(), seen_.end(), 0);
        // Told at most once a minute.
        while (lost > told_ && Clock::now() - end < 7 * kLimit) {
            Fetch();
            std::this_thread::sleep_for(100ms);
        }
        const auto repeated = std::count_if(seen_.begin(), seen_.end(),
                                            [](unsigned char count) { return count > 1; });
        const long service = StatusValue(service_->Pid(), "VmHWM");
        const long capture = StatusValue(capture_, "RssAnon");
        std::printf(
            "hostile: %zu honest lines, %d dumps, all there after %.0f s; "
            "missing %td, told as lost %" PRId64
            ", repeated %td; service at most %ld KiB, "
            "capture %ld KiB\n",
            seen_.size(), dumps_, late.count(), lost, told_, repeated, service, capture);
        Expect(seen_.back() != 0, "the last line is recorded");
        Expect(lost <= told_, "what is missing was told");
        Expect(repeated == 0, "nothing comes twice");
        Expect(service != 0 && service < kMaxServiceKib, "the service lives, within its bound");
        Expect(capture != 0 && capture < kMaxCaptureKib, "the capture lives, within its bound");
        return failed_ ? 1 : 0;
    }

private:
    void Expect(bool holds, const char* what) {
        if (!holds) {
            failed_ = true;
            std::printf("FAULT: not so: %s\n", what);
        }
    }

    void Send() {
        Journal::Send({"SYSLOG_IDENTIFIER=HONEST", "PRIORITY=6",
                       "MESSAGE=" + std::to_string(seen_.size()) + " " + std::string(50, '.')});
        seen_.push_back(0);
    }

    // First the file system is full, then the capture stops, then all is well.
    void Disturb(Clock::duration time) {
        const bool fills = time >= kCycle / 3 && time < kCycle / 3 + kFault;
        if (fills) {
            // Again and again: what the reader removes makes room.
            std::ofstream(kCapture / "fill", std::ios::app) << std::string(1 << 20, '.');
        } else {
            fs::remove(kCapture / "fill");
        }
        const bool stops = time >= kCycle * 2 / 3 && time < kCycle * 2 / 3 + kFault;
        if (stops != is_stopped_) {
            is_stopped_ = stops;
            static_cast<void>(kill(capture_, stops ? SIGSTOP : SIGCONT));
        }
    }

    // Does what the collecting service does, and hears what the capture says.
    void Fetch() {
        for (std::string told; !(told = losses_->WaitFor("lost: ", 1ms)).empty();) {
            if (told.find("entries that the journal removed") != std::string::npos) {
                told_ += std::atoll(told.c_str() + told.find("lost: ") + 6);
            }
        }
        std::vector<fs::path> dumps;
        for (const auto& entry : fs::directory_iterator(kCollectingFolder)) {
            if (entry.path().extension() == ".dump") {
                dumps.push_back(entry.path());
            }
        }
        for (const fs::path& dump : dumps) {
            Account(dump);
            fs::remove(dump);
            ++dumps_;
        }
        if (!dumps.empty()) {
            WriteFile(kUploadKey, "0\n");
        }
    }

    void Account(const fs::path& dump) {
        const fs::path text = "/tmp/text";
        // The journal vouches for the process, whatever others log under this tag.
        Expect(Process({kBin + "trelvoctl", "decode", "--pid", std::to_string(getpid()),
                        "--output=raw", "*:S", "HONEST:V", dump},
                       text)
                       .Wait() == 0,
               "a dump decodes");
        std::ifstream decoded(text);
        size_t number = 0;
        for (std::string dots; decoded >> number >> dots;) {
            Expect(number < seen_.size(), "the number was logged");
            if (number < seen_.size()) {
                ++seen_[number];
            }
        }
        decoded.close();
        fs::remove(text);
    }

    // Under the flood it keeps what some seconds bring.
    Journal journal_{"RuntimeMaxUse=1G\n"};
    std::optional<LogFollower> losses_;
    std::optional<Process> service_;
    pid_t capture_ = 0;
    std::vector<unsigned char> seen_;  // how often, by number
    int64_t told_ = 0;                 // entries
    int dumps_ = 0;
    bool is_stopped_ = false;
    bool failed_ = false;
};

}  // namespace

int RunHostileSoak(std::chrono::seconds length) {
    return HostileSoak().Run(length);
}

}  // namespace test_support
