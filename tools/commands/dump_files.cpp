#include "commands/dump_files.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "commands/input_files.h"
#include "dump/clock_line.h"

namespace trelvo {

namespace {

// A pipe or standard input, which can be read only once, read again by everybody who wants it.
class SharedInput : public Input {
public:
    explicit SharedInput(std::shared_ptr<Input> input) : input_(std::move(input)) {
        input_->Seek(0);
    }
    [[nodiscard]] size_t Read(char* data, size_t size) override { return input_->Read(data, size); }
    void Seek(uint64_t offset) override { input_->Seek(offset); }
    [[nodiscard]] std::optional<timespec> WriteTime() const override { return input_->WriteTime(); }

private:
    std::shared_ptr<Input> input_;
};

int64_t ToNanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

// Reads up to the first clock line.
void FindClock(DumpReader& reader, DumpFile& dump) {
    try {
        for (Record record; reader.Next(record);) {
            if (const auto clock = ReadClockLine(record)) {
                dump.boot = clock->boot;
                dump.clock_ms = clock->monotonic_ms;
                return;
            }
        }
    } catch (const DamageError&) {
        // Will be told when the lines before the damage are read.
    }
}

// In the place of the first dump of a boot all of them, by log time: files lose their own times.
void GatherBoots(std::vector<DumpFile>& dumps) {
    std::map<std::string, size_t> first;
    std::vector<std::pair<size_t, DumpFile>> placed;
    for (DumpFile& dump : dumps) {
        const size_t place = placed.size();
        placed.emplace_back(
            dump.boot.empty() ? place : first.emplace(dump.boot, place).first->second,
            std::move(dump));
    }
    std::stable_sort(placed.begin(), placed.end(), [](const auto& a, const auto& b) {
        const auto key = [](const auto& entry) {
            const DumpFile& dump = entry.second;
            return std::tuple(entry.first, dump.last_log_time, dump.clock_ms);
        };
        return key(a) < key(b);
    });
    for (size_t i = 0; i < placed.size(); ++i) {
        dumps[i] = std::move(placed[i].second);
    }
}

}  // namespace

std::unique_ptr<Input> DumpFiles::Open(const std::string& path) {
    auto shared = shared_.find(path);
    if (shared == shared_.end()) {
        auto input = OpenInput(path, observer_);
        if (path != kStandardInput && input->WriteTime()) {
            return input;
        }
        shared = shared_.emplace(path, std::move(input)).first;
    }
    return std::make_unique<SharedInput>(shared->second);
}

std::vector<DumpFile> DumpFiles::InOrder(const std::vector<std::string>& paths, bool one_boot,
                                         Faults& faults, const HeadObserver& seen) {
    const bool with_clocks = paths.size() > 1 && !one_boot;
    std::vector<DumpFile> dumps;
    for (const std::string& path : paths) {
        DumpFile dump;
        dump.path = path;
        dump.name = InputName(path);
        const bool read = faults.Try(dump.name, [&] {
            const auto input = Open(path);
            const auto reader = OpenDump(*input);
            dump.version = reader->PolicyVersion();
            dump.last_log_time = reader->LastLogTime();
            if (seen) {
                seen(*reader);
            }
            // What has no time of its own is being written now.
            const auto written = input->WriteTime();
            dump.written_ns = written ? ToNanoseconds(*written) : INT64_MAX;
            if (with_clocks && reader->Sources().HasTag(kClockTag)) {
                FindClock(*reader, dump);
            }
        });
        if (read) {
            dumps.push_back(std::move(dump));
        }
    }
    std::stable_sort(dumps.begin(), dumps.end(), [one_boot](const DumpFile& a, const DumpFile& b) {
        if (!one_boot && a.written_ns != b.written_ns) {
            return a.written_ns < b.written_ns;
        }
        if (a.last_log_time != b.last_log_time) {
            return a.last_log_time < b.last_log_time;
        }
        return NaturalLess(a.path, b.path);
    });
    if (with_clocks) {
        GatherBoots(dumps);
    }
    return dumps;
}

}  // namespace trelvo
