// Devices of a fleet, each with the real recorder, which records a day's log and leaves the dump in
// an archive under the name that trelvo-collect gives it. All run the same software, and now and
// then one of them has a fault of its own.
//
//   fleet_record ARCHIVE FIRST LAST DAY [POLICY]   devices and day by number, with these code
//   tables fleet_record --history [POLICY]                prints how many lines 10 MiB of memory
//   hold
#include <sys/wait.h>
#include <unistd.h>
#include <zstd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "bench/corpus.h"
#include "support/image.h"
#include "support/private_namespace.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kLines = 2000;  // of a device and day
constexpr int64_t kDayMs = 86'400'000;
constexpr int64_t kFirstDayMs = 1'764'028'800'000;  // since 1970
// The device that has a failing flash, and the one that restarts in the afternoon.
constexpr int kFlashFails = 7;
constexpr int kRestarts = 23;

template <typename... Values>
std::string Text(const char* format, Values... values) {
    char text[256];
    static_cast<void>(std::snprintf(text, sizeof text, format, values...));
    return text;
}

CDataProvider& Recorder() {
    return *CDataProvider::Instance();
}

void LoadPolicy(const fs::path& policy) {
    test_support::EnterPrivateNamespace();
    const fs::path target = "/opt/usr/share/Trelvo/Default";
    fs::create_directories(target);
    if (!policy.empty()) {
        fs::copy(policy, target, fs::copy_options::recursive);
    }
    CDBOperations::Instance()->CreateHashMap();
}

// A device's log of one boot, from `from_ms` to `to_ms` of the day, and its dump.
class Boot {
public:
    Boot(int device, int day, int number, int64_t from_ms)
        : device_(device),
          id_(Text("%016x%08x%08x", 0xf1ee7, day * 8 + number, device)),
          boot_ms_(kFirstDayMs + day * kDayMs + from_ms) {}

    void Log(int64_t ms, const std::string& line) {
        if (first_ || ms >= clock_ms_ + 600'000) {
            first_ = false;
            clock_ms_ = ms;
            const int64_t wall_ms = boot_ms_ + ms;
            Feed(ms,
                 "I/trelvo.clock(P300, T300): dlogutil: dlogutil(0) > boot=" + id_ +
                     Text(" host=device%04d wall=%lld.%03lld000 monotonic=%lld.%03lld000", device_,
                          wall_ms / 1000LL, wall_ms % 1000LL, ms / 1000LL, ms % 1000LL));
        }
        Feed(ms, line);
    }
    void Write(const fs::path& archive) const {
        const test_support::Bytes image = test_support::Snapshot(false);
        std::string packed(ZSTD_compressBound(image.size()), '\0');
        packed.resize(ZSTD_compress(packed.data(), packed.size(), image.data(), image.size(), 3));
        const time_t wall = (boot_ms_ + last_ms_) / 1000;
        char time[32];
        static_cast<void>(std::strftime(time, sizeof time, "%Y%m%dT%H%M%S", std::gmtime(&wall)));
        const std::string name =
            Text("device%04d_%s.%03lldZ_", device_, time, (boot_ms_ + last_ms_) % 1000LL) + id_ +
            Text("_%08zx.dump.zst", packed.size());
        test_support::WriteFile(archive / name, packed);
    }

private:
    void Feed(int64_t ms, const std::string& line) {
        last_ms_ = ms;
        std::string whole = Text("%05lld.%03lld ", ms / 1000LL, ms % 1000LL) + line;
        Recorder().m_GetDataDDP(whole);
    }

    int device_;
    std::string id_;
    int64_t boot_ms_;  // since 1970
    bool first_ = true;
    int64_t clock_ms_ = 0;
    int64_t last_ms_ = 0;
};

// The day of one device in this process, whose recorder is empty. `number` of its boots of the day.
void RecordDay(const bench::Generator& software, const fs::path& archive, int device, int day,
               int number) {
    const bool restarts = device == kRestarts;
    const int64_t noon = restarts ? kDayMs / 3 * 2 : 0;
    Boot boot(device, day, number, number == 0 ? 0 : noon);
    const auto seed = static_cast<uint64_t>(day) * 100'000 + static_cast<uint64_t>(device);
    const std::vector<std::string> lines = software.Lines(kLines, seed);
    for (size_t i = 0; i < kLines; ++i) {
        int64_t ms = static_cast<int64_t>(i) * kDayMs / static_cast<int64_t>(kLines);
        if (restarts && (ms >= noon) != (number > 0)) {
            continue;
        }
        ms += 60'000 - (number > 0 ? noon : 0);
        boot.Log(ms, lines[i].substr(lines[i].find(' ') + 1));
        if (device == kFlashFails && i % 10 == 0) {
            boot.Log(ms, Text("E/FLASH(P310, T310): flash.c: write(77) > block %zu: write failed",
                              i * 7919 % 65536));
        }
    }
    if (restarts && number == 0) {
        boot.Log(noon + 60'000,
                 "F/WATCHDOG(P311, T311): watchdog.c: bite(9) > nobody fed the watchdog for 60 s");
    }
    boot.Write(archive);
}

int Record(const fs::path& archive, int first, int last, int day, const fs::path& policy) {
    const fs::path folder = fs::absolute(archive);
    const bench::Generator software({});
    LoadPolicy(policy.empty() ? policy : fs::absolute(policy));
    Recorder().SetBufferCount(false);
    Recorder().SetHistorySize(1 << 20);
    for (int device = first; device <= last; ++device) {
        for (int boot = 0; boot < (device == kRestarts ? 2 : 1); ++boot) {
            // The recorder is made of singletons.
            const pid_t child = fork();
            if (child == 0) {
                RecordDay(software, folder, device, day, boot);
                _exit(0);
            }
            int status = 0;
            if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
                throw std::runtime_error("a device failed");
            }
        }
    }
    return 0;
}

// On the log of a day that no table was trained on, with fresh numbers over and over.
int PrintHistory(const fs::path& policy) {
    LoadPolicy(policy.empty() ? policy : fs::absolute(policy));
    Recorder().SetBufferCount(true);
    Recorder().SetHistorySize(10 << 10);
    bench::Corpus corpus("day", bench::Generator({}).Lines(100'000, 99'999'999), 0);
    size_t kept = 0;
    for (size_t before = 0; kept >= before; kept = Recorder().GetRecordCount()) {
        before = kept;
        for (size_t i = 0; i < corpus.Size(); ++i) {
            std::string line(corpus.Line(i));
            Recorder().m_GetDataDDP(line);
        }
        corpus.Advance();
    }
    std::printf("%zu\n", kept);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc >= 2 && std::string(argv[1]) == "--history") {
            return PrintHistory(argc > 2 ? argv[2] : "");
        }
        if (argc < 5) {
            throw std::runtime_error("ARCHIVE FIRST LAST DAY [POLICY]");
        }
        return Record(argv[1], std::atoi(argv[2]), std::atoi(argv[3]), std::atoi(argv[4]),
                      argc > 5 ? argv[5] : "");
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "fleet_record: %s\n", error.what()));
        return 1;
    }
}
