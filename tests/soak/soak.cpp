// soak MINUTES
//
// The whole road under load, on a journal of its own: numbered lines in bursts, the capture rotated
// several times a minute, dumps by timer, by full buffer and on request at once. Every number must
// come out of the dumps exactly once. In the second third of the time the service counts memory,
// drops what is too old and compresses its dumps: each dump is then one run of numbers up to the
// newest, and none comes after a dump that consumed it. Prints what happened, and the memory,
// descriptors and threads of the service and its capture early on and at the end. Exit status 1
// where anything is lost, repeated or grows.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "soak/hostile.h"
#include "support/journal.h"
#include "support/private_namespace.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const std::string kBin = TRELVO_BIN_DIR "/";
const fs::path kCollectingFolder = "/opt/usr/share/svc-rk/dump";
const fs::path kRequestFolder = "/opt/dumps";
const fs::path kFetched = "/opt/fetched";
const fs::path kUploadKey = "/run/trelvo/vconf/memory/trelvo/dlog_dump";

// A second of the fastest phase is some 2 MiB of captured text: the capture file holds more, so
// that no pass of the reader sees two rotations. The buffer is full after some 60,000 lines.
constexpr const char* kBufferKib = "4096";
constexpr const char* kTimerSeconds = "6";

struct Phase {
    int lines_per_second;
    std::chrono::seconds length;
    int requested_dumps;
};
// When it drops, the fastest phase fills this several times between two dumps.
constexpr const char* kHistoryKib = "64";
// Fast enough to fill the buffer before the timer fires; with requests; then the timer alone.
constexpr Phase kCycle[] = {{20000, 6s, 1}, {5000, 5s, 4}, {1000, 8s, 0}};

// What the service says, gathered on a thread of its own. Must end before the journal does.
class ServiceLog {
public:
    ServiceLog() : follower_("LOG_COMPRESSOR"), thread_([this] { Follow(); }) {}
    ServiceLog(const ServiceLog&) = delete;
    ServiceLog& operator=(const ServiceLog&) = delete;
    ~ServiceLog() {
        ends_ = true;
        thread_.join();
    }

    // The dumps that were completed since the last call, in order.
    std::vector<fs::path> TakeDumps() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(dumps_, {});
    }
    // How often the service said what contains one of the texts below.
    int Count(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return counts_[text];
    }

    static constexpr const char* kRotation = "buffer to be switched to";
    static constexpr const char* kTimer = "t_startTimerDump called";
    static constexpr const char* kFull = "RequestDumpOnFullBuffer called";
    static constexpr const char* kRequest = "Trigger received";
    static constexpr const char* kException = "exception";
    static constexpr const char* kFailure = "Could not copy";
    static constexpr const char* kPass = "Lines Read from /tmp/trelvo/RQB_Buffer:";

private:
    void Follow() {
        while (!ends_) {
            const std::string message = follower_.WaitFor("", 1s);
            const std::lock_guard<std::mutex> lock(mutex_);
            for (const char* text :
                 {kRotation, kTimer, kFull, kRequest, kException, kFailure, kPass}) {
                counts_[text] += message.find(text) != std::string::npos ? 1 : 0;
            }
            if (message.find("Dump to File[") != std::string::npos) {
                const size_t begin = message.rfind('[') + 1;
                dumps_.push_back(message.substr(begin, message.rfind(']') - begin));
            }
        }
    }

    LogFollower follower_;
    std::mutex mutex_;
    std::vector<fs::path> dumps_;
    std::map<std::string, int> counts_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

struct Usage {
    long kib = 0;
    long descriptors = 0;
    long threads = 0;
};

Usage UsageOf(pid_t pid) {
    // Not the journal's own files, which the capture maps: their number is the journal's affair.
    std::error_code error;
    long descriptors = 0;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        const std::string target = fs::read_symlink(entry, error);
        descriptors += target.rfind("/run/log/journal/", 0) == 0 ? 0 : 1;
    }
    return {StatusValue(pid, "RssAnon"), descriptors, StatusValue(pid, "Threads")};
}

class Soak {
public:
    explicit Soak(bool drops) : drops_(drops) {
        for (const fs::path& folder :
             {kCollectingFolder, kRequestFolder, kFetched, kUploadKey.parent_path()}) {
            fs::create_directories(folder);
        }
        fs::permissions("/run/trelvo", fs::perms::owner_all);
        WriteFile(kUploadKey, "0\n");
        log_.emplace();
        LogFollower starts("LOG_COMPRESSOR");
        std::vector<std::string> command = {
            kBin + "trelvo", "LOGTAG=SOAK",
            "LOGLEVEL=V",    std::string("RQBBUFFER=") + kBufferKib,
            "POLICYMODE=0",  std::string("DLOGDUMPVALUE=") + kTimerSeconds};
        if (drops_) {
            command.insert(command.end(), {"DLOGDUMPMODE=timer", "RQBCOUNT=memory", "DUMPFORM=zstd",
                                           std::string("RQBHISTORY=") + kHistoryKib});
        } else {
            command.emplace_back("DLOGDUMPMODE=timer&bufferfull");
        }
        service_.emplace(command);
        if (starts.WaitFor("set buffer Size").empty()) {
            Fault("the service does not start");
        }
    }

    int Run(std::chrono::seconds length) {
        const auto start = Clock::now();
        RunCycle();
        const pid_t capture = FindProgram(kBin + "dlogutil");
        const Usage service_first = UsageOf(service_->Pid());
        const Usage capture_first = UsageOf(capture);
        const auto cycle = Clock::now() - start;
        while (Clock::now() - start + cycle / 2 < length) {
            RunCycle();
        }
        Finish();
        const std::chrono::duration<double> seconds = Clock::now() - start;
        std::printf("%" PRId64 " lines in %.0f s, %d rotations\n", sent_, seconds.count(),
                    log_->Count(ServiceLog::kRotation));
        std::printf("dumps: %d triggered by timer, %d by full buffer, %d on request; %d written\n",
                    log_->Count(ServiceLog::kTimer), log_->Count(ServiceLog::kFull),
                    log_->Count(ServiceLog::kRequest), dumps_);
        Compare("service", service_first, UsageOf(service_->Pid()));
        Compare("capture", capture_first, UsageOf(capture));
        for (const char* event :
             {ServiceLog::kRotation, ServiceLog::kTimer, ServiceLog::kFull, ServiceLog::kRequest}) {
            if (log_->Count(event) == 0 && !(drops_ && event == ServiceLog::kFull)) {
                Fault(std::string("never: ") + event);
            }
        }
        if (drops_) {
            std::printf("dropped %" PRId64 "\n", dropped_);
        }
        if ((dropped_ != 0) != drops_) {
            Fault("it drops when it should not, or the other way round");
        }
        for (const char* failure : {ServiceLog::kException, ServiceLog::kFailure}) {
            if (log_->Count(failure) != 0) {
                Fault(std::string("the service said: ") + failure);
            }
        }
        // What the capture gives up when the service does not keep up, it tells the journal.
        const bool is_told =
            RunProgram({"journalctl", "--identifier=dlogutil"}).out.find("lost: ") !=
            std::string::npos;
        std::printf("lost %" PRId64 "%s, repeated %" PRId64 ", faults %d\n", lost_,
                    is_told ? " (overload, as the capture told)" : "", repeated_, faults_);
        return faults_ == 0 && (lost_ == 0 || is_told) && (repeated_ == 0 || is_told) ? 0 : 1;
    }

private:
    void Fault(const std::string& what) {
        ++faults_;
        std::printf("FAULT: %s\n", what.c_str());
    }

    // Both are allowed what an allocator keeps back.
    void Compare(const char* name, const Usage& first, const Usage& last) {
        std::printf("%s: memory %ld to %ld KiB, descriptors %ld to %ld, threads %ld to %ld\n", name,
                    first.kib, last.kib, first.descriptors, last.descriptors, first.threads,
                    last.threads);
        if (last.kib == 0 || last.kib > first.kib * 3 / 2 + 8192 ||
            last.descriptors > first.descriptors + 2 || last.threads > first.threads) {
            Fault(std::string(name) + " grows, or is gone");
        }
    }

    void RunCycle() {
        for (const Phase& phase : kCycle) {
            RunPhase(phase);
            // A self-initiated dump empties the buffer: no dump after it repeats one before it.
            const auto last = std::find_if(fetched_.rbegin(), fetched_.rend(),
                                           [](const auto& dump) { return dump.is_self_initiated; });
            Decode(static_cast<size_t>(fetched_.rend() - last));
        }
    }

    void RunPhase(const Phase& phase) {
        const auto start = Clock::now();
        int requested = 0;
        for (int64_t sent = 0; Clock::now() - start < phase.length;) {
            const std::chrono::duration<double> passed = Clock::now() - start;
            const auto due = static_cast<int64_t>(passed.count() * phase.lines_per_second);
            for (; sent < due; ++sent) {
                Send();
            }
            if (requested < phase.requested_dumps &&
                passed > phase.length * (requested + 1) / (phase.requested_dumps + 1)) {
                ++requested;
                Request();
            }
            Fetch();
            std::this_thread::sleep_for(10ms);
        }
    }

    void Send() {
        Journal::Send({"SYSLOG_IDENTIFIER=SOAK", "PRIORITY=6",
                       "MESSAGE=" + std::to_string(sent_++) + " " + std::string(50, '.')});
    }

    void Request() {
        const auto answer =
            RunProgram({kBin + "trelvoctl", "launch", "DUMP=" + kRequestFolder.string(),
                        drops_ ? "DUMPFORM=zstd" : "DUMPFORM=plain"});
        if (answer.status != 0) {
            Fault("a launch request: " + answer.err);
        }
    }

    // Does what the collecting service does.
    void Fetch() {
        for (const fs::path& dump : log_->TakeDumps()) {
            const fs::path fetched = kFetched / (std::to_string(dumps_++) + ".dump");
            fs::rename(dump, fetched);
            fetched_.push_back({fetched, dump.parent_path() == kCollectingFolder});
        }
    }

    // Accounts for the first `count` dumps that were fetched and removes them.
    void Decode(size_t count) {
        const auto end = fetched_.begin() + static_cast<std::ptrdiff_t>(count);
        for (auto dump = fetched_.begin(); drops_ && dump != end; ++dump) {
            AccountForRun(*dump);
        }
        if (!drops_ && count != 0) {
            AccountForAll(end);
        }
        std::for_each(fetched_.begin(), end, [](const Dump& dump) { fs::remove(dump.path); });
        fetched_.erase(fetched_.begin(), end);
    }

    std::vector<int64_t> Numbers(std::vector<std::string> command) {
        const fs::path lines = "/tmp/lines";
        if (Process(std::move(command), lines).Wait() != 0) {
            Fault("trelvoctl decode");
        }
        std::vector<int64_t> numbers;
        std::ifstream text(lines);
        for (std::string line; std::getline(text, line);) {
            const size_t message = line.find("): ");
            if (message != std::string::npos) {  // not a line of dashes between two dumps
                numbers.push_back(std::atoll(line.c_str() + message + 3));
            }
        }
        fs::remove(lines);
        return numbers;
    }

    void Account(int64_t number) {
        if (number > next_) {
            std::printf("lost %" PRId64 " to %" PRId64 "\n", next_, number - 1);
            lost_ += number - next_;
        }
        repeated_ += number < next_ ? 1 : 0;
        next_ = std::max(next_, number + 1);
    }

    struct Dump {
        fs::path path;
        bool is_self_initiated;
    };

    // Together, merged, they must hold the numbers that follow the last one seen, each once.
    void AccountForAll(std::vector<Dump>::iterator end) {
        std::vector<std::string> command = {kBin + "trelvoctl", "decode", "--one-boot"};
        std::for_each(fetched_.begin(), end,
                      [&](const Dump& dump) { command.push_back(dump.path.string()); });
        for (const int64_t number : Numbers(command)) {
            Account(number);
        }
    }

    // What is missing before its first number was dropped; what was consumed must not come again.
    void AccountForRun(const Dump& dump) {
        const auto numbers = Numbers({kBin + "trelvoctl", "decode", dump.path.string()});
        const int64_t before = next_;
        if (!numbers.empty()) {
            dropped_ += std::max<int64_t>(numbers.front() - next_, 0);
            next_ = std::max(numbers.front(), consumed_);
        }
        for (const int64_t number : numbers) {
            Account(number);
        }
        if (next_ < before) {
            Fault("a dump ends before an earlier one");
        }
        consumed_ = dump.is_self_initiated ? next_ : consumed_;
    }

    // Waits until all is read, and takes what the buffer holds.
    void Finish() {
        const std::string last = " > " + std::to_string(sent_) + " ";
        Send();
        const fs::path capture = "/tmp/trelvo/RQB_Buffer";
        const auto is_captured = [&] {
            return ReadFile(capture).find(last) != std::string::npos &&
                   !fs::exists(capture.string() + ".1");
        };
        if (!WaitForChange(capture.parent_path(), is_captured)) {
            Fault("the last line is not captured");
        }
        const auto await = [&](const auto& holds) {
            for (const auto start = Clock::now(); !holds(); std::this_thread::sleep_for(50ms)) {
                if (Clock::now() - start > kLimit) {
                    Fault("the service does not go on");
                    return;
                }
            }
        };
        // The first pass that ends may have begun before the line was there.
        const int passes = log_->Count(ServiceLog::kPass);
        await([&] { return log_->Count(ServiceLog::kPass) >= passes + 2; });
        Fetch();
        const int dumps = dumps_;
        Request();
        await([&] {
            Fetch();
            return dumps_ > dumps;
        });
        Decode(fetched_.size());
        if (next_ != sent_) {
            std::printf("lost %" PRId64 " to %" PRId64 "\n", next_, sent_ - 1);
            lost_ += sent_ - next_;
        }
    }

    Journal journal_;
    std::optional<ServiceLog> log_;
    std::optional<Process> service_;
    std::vector<Dump> fetched_;  // and not decoded yet, in order
    int64_t sent_ = 0;
    int64_t next_ = 0;  // the number to be decoded next
    int64_t lost_ = 0;
    int64_t repeated_ = 0;
    int64_t consumed_ = 0;  // the numbers below it were in a self-initiated dump
    int64_t dropped_ = 0;
    const bool drops_;
    int dumps_ = 0;
    int faults_ = 0;
};

}  // namespace
}  // namespace test_support

int main(int argc, char** argv) {
    const int minutes = argc == 2 ? std::atoi(argv[1]) : 0;
    if (minutes < 1) {
        std::fputs("usage: soak MINUTES\n", stderr);
        return 2;
    }
    setenv("TRELVO_LOG_LEVEL", "info", 1);  // its messages are waited for
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
    int result = 0;
    const std::chrono::seconds length(20 * minutes);
    for (const std::function<int()>& part : std::initializer_list<std::function<int()>>{
             [&] { return test_support::Soak(false).Run(length); },
             [&] { return test_support::Soak(true).Run(length); },
             [&] { return test_support::RunHostileSoak(length); }}) {
        const pid_t child = fork();
        if (child == 0) {
            test_support::EnterPrivateNamespace();
            const int failed = part();
            std::exit(failed);  // now that the service and the journal are gone
        }
        int status = -1;
        result |= waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
    }
    return result;
}
