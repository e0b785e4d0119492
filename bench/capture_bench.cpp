#include <sys/resource.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

#include "suites.h"
#include "support/journal.h"
#include "support/private_namespace.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace bench {

namespace {

constexpr int kEntries = 200000;

// Microseconds of processor for a line, and what the capture holds besides mapped journal files.
struct Costs {
    double journalctl = 0;
    double dlogutil = 0;
    double resident_mb = 0;
};

double ChildrenSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Resident memory of a process without its maps of journal files.
double ResidentMegabytes(pid_t pid) {
    std::istringstream maps(test_support::ReadFile("/proc/" + std::to_string(pid) + "/smaps"));
    double kib = 0;
    bool is_journal = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.find('-') < line.find(' ')) {  // the first line of a map
            is_journal = line.find(".journal") != std::string::npos;
        } else if (!is_journal && line.rfind("Rss:", 0) == 0) {
            kib += std::stod(line.substr(4));
        }
    }
    return kib / 1024;
}

double Journalctl() {
    const double before = ChildrenSeconds();
    if (test_support::Process({"journalctl", "-o", "short-monotonic", "--no-pager"}, "/tmp/out")
            .Wait() != 0) {
        throw std::runtime_error("journalctl failed");
    }
    return ChildrenSeconds() - before;
}

// From its start until the last line is written.
double Dlogutil(double& resident_mb) {
    fs::remove_all("/tmp/capture");
    const double before = ChildrenSeconds();
    test_support::Process capture({(TRELVO_BIN_DIR "/dlogutil"), "-r", "1000000", "-f",
                                   "/tmp/capture/file", "*:V", "trelvo.clock:S"});
    const auto is_last = [] {
        const fs::path file = "/tmp/capture/file";
        std::error_code error;
        const auto size = fs::file_size(file, error);
        if (error || size < 100) {
            return false;
        }
        std::ifstream end(file);
        end.seekg(static_cast<std::streamoff>(size - 100));
        const std::string text{std::istreambuf_iterator<char>(end), {}};
        return text.find("the last entry\n") != std::string::npos;
    };
    if (!test_support::WaitForChange("/tmp", [] { return fs::exists("/tmp/capture"); }) ||
        !test_support::WaitForChange("/tmp/capture", is_last)) {
        throw std::runtime_error("dlogutil does not come to the end");
    }
    resident_mb = ResidentMegabytes(capture.Pid());
    capture.Signal(SIGTERM);
    (void)capture.Wait();
    return ChildrenSeconds() - before;
}

Costs Measure() {
    test_support::EnterPrivateNamespace();
    const test_support::Journal journal;
    for (int i = 0; i < kEntries; ++i) {
        sd_journal_send("MESSAGE=request %d of client 10.0.%d.%d done in %d ms", i, i % 7, i % 251,
                        i % 97, "PRIORITY=6", "SYSLOG_IDENTIFIER=tag%d", i % 20, nullptr);
    }
    test_support::LogFollower last("last");
    test_support::Journal::Send({"SYSLOG_IDENTIFIER=last", "MESSAGE=the last entry"});
    if (last.WaitFor("the last entry").empty()) {
        throw std::runtime_error("the journal does not come to the end");
    }
    Costs costs;
    constexpr int kRounds = 3;
    for (int round = 0; round < kRounds; ++round) {  // in turn, for the machine's moods
        costs.journalctl += Journalctl() / kRounds * 1e6 / kEntries;
        costs.dlogutil += Dlogutil(costs.resident_mb) / kRounds * 1e6 / kEntries;
    }
    return costs;
}

}  // namespace

void AddCapture() {
    AddMeasured("capture/200000 entries behind", [] {
        const Costs costs = Measure();
        return Counters{{"1. us a line, journalctl -o short-monotonic", costs.journalctl},
                        {"2. us a line, dlogutil", costs.dlogutil},
                        {"3. dlogutil, times journalctl's", costs.dlogutil / costs.journalctl},
                        {"4. dlogutil, resident MB without journal files", costs.resident_mb}};
    });
}

}  // namespace bench
