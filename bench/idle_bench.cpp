#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "suites.h"
#include "support/private_namespace.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace bench {

namespace {

// What the threads of a process have used since they started.
struct Usage {
    double cpu_ms = 0;
    double wakeups = 0;
};

Usage Read(pid_t pid) {
    Usage usage;
    const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const fs::directory_entry& task : fs::directory_iterator(tasks)) {
        double nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        usage.cpu_ms += nanoseconds / 1e6;
        const std::string key = "\nvoluntary_ctxt_switches:";
        const std::string status = test_support::ReadFile(task.path() / "status");
        usage.wakeups += std::stod(status.substr(status.find(key) + key.size()));
    }
    return usage;
}

// Writes the capture in dlogutil's stead, `per_second` lines of it, for so many seconds.
void Capture(const Corpus& corpus, size_t per_second, int seconds) {
    constexpr int kParts = 10;  // of a second
    constexpr size_t kRotation = 1 << 20;
    const fs::path path = "/tmp/trelvo/RQB_Buffer";
    std::ofstream file(path, std::ios::app);
    size_t next = 0;
    auto at = std::chrono::steady_clock::now();
    for (int part = 0; part < seconds * kParts; ++part) {
        for (size_t i = 0; i < per_second / kParts; ++i) {
            file << corpus.Line(next++ % corpus.Size()) << '\n';
        }
        file.flush();
        if (fs::file_size(path) > kRotation) {
            file.close();
            fs::rename(path, path.string() + ".1");
            file.open(path);
        }
        at += std::chrono::milliseconds(1000 / kParts);
        std::this_thread::sleep_until(at);
    }
}

// The real service with the real port, in a mount namespace of its own and with no dlogutil.
Usage MeasureService(const Corpus& corpus, size_t per_second, int seconds) {
    test_support::EnterPrivateNamespace();
    fs::create_directories("/tmp/bin");
    fs::create_directories("/tmp/trelvo");
    // The service runs the dlogutil beside it.
    fs::copy_file(TRELVO_BIN_DIR "/trelvo", "/tmp/bin/trelvo");
    fs::create_symlink("/bin/true", "/tmp/bin/dlogutil");
    fs::permissions("/tmp/trelvo", fs::perms::owner_all);
    test_support::WriteFile("/tmp/trelvo/RQB_Buffer", "");
    const test_support::Process service(
        {"/tmp/bin/trelvo", "LOGTAG=*", "LOGLEVEL=V", "RQBBUFFER=1024", "POLICYMODE=0"}, "/tmp/out",
        "/tmp/err");
    Capture(corpus, per_second, 3);  // until it has started and every source is known
    const Usage before = Read(service.Pid());
    Capture(corpus, per_second, seconds);
    const Usage after = Read(service.Pid());
    return {after.cpu_ms - before.cpu_ms, after.wakeups - before.wakeups};
}

}  // namespace

void AddIdle(Subject& subject, int seconds) {
    for (const size_t per_second : std::initializer_list<size_t>{0, 1000}) {
        AddMeasured("idle/" + std::to_string(per_second) + " lines a second",
                    [&subject, per_second, seconds] {
                        const Usage usage = MeasureService(subject.corpus, per_second, seconds);
                        const double minutes = seconds / 60.0;
                        return Counters{{"1. ms of processor a minute", usage.cpu_ms / minutes},
                                        {"2. wake-ups a minute", usage.wakeups / minutes}};
                    });
    }
}

}  // namespace bench
