#include <sys/resource.h>

#include <algorithm>
#include <chrono>

#include "lock_watch.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

// How often another thread got this thread's processor, although it had not to wait for anything.
long Preemptions() {
    rusage usage{};
    static_cast<void>(getrusage(RUSAGE_THREAD, &usage));
    return usage.ru_nivcsw;
}

// How long lines took, in milliseconds. What a line lost because the thread was preempted says
// something of the machine and its other programs; waiting for a lock is not preemption.
class Waits {
public:
    void Feed(Feeder& feeder) {
        const long preemptions = Preemptions();
        const auto start = Clock::now();
        feeder.Feed(1);
        last_ = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        is_preempted_ = Preemptions() != preemptions;
        worst_ = std::max(worst_, last_);
    }

    [[nodiscard]] double Last() const { return last_; }
    [[nodiscard]] bool IsPreempted() const { return is_preempted_; }
    // Of all lines, preempted or not.
    [[nodiscard]] double Worst() const { return worst_; }

private:
    double last_ = 0;
    double worst_ = 0;
    bool is_preempted_ = false;
};

// Leaves nothing of the records in the processor's caches, as other work between two dumps does.
void EvictCaches() {
    static std::vector<unsigned char> other(size_t{128} << 20);
    for (size_t i = 0; i < other.size(); i += 64) {
        ++other[i];
    }
    benchmark::ClobberMemory();
}

// The dump writer takes dumps, another thread encodes lines meanwhile, one after the other.
Counters MeasureDumps(Corpus& corpus, size_t mib, bool consume) {
    const size_t dumps = mib > 10 ? 5 : 15;
    DumpWriter writer;
    SetLimit(mib, Count::kRecords);
    Feeder feeder(corpus);
    WatchBufferMutex();
    Waits waits;
    std::vector<double> longest;  // of each dump
    std::vector<double> locks;
    std::vector<double> lines;
    double messages = 0;
    for (size_t i = 0; i < dumps; ++i) {
        feeder.FeedUntilFull();
        EvictCaches();
        static_cast<void>(TakeLockUse());
        longest.push_back(0);
        writer.Request(consume);
        while (!writer.IsComplete()) {
            waits.Feed(feeder);
            if (!waits.IsPreempted()) {
                lines.push_back(waits.Last());
                longest.back() = std::max(longest.back(), waits.Last());
            }
        }
        writer.Finish();
        const LockUse use = TakeLockUse();
        locks.push_back(use.us);
        messages += static_cast<double>(use.messages);
    }
    std::sort(lines.begin(), lines.end());
    return {{"1. ms", Median(longest)},
            {"2. ms at worst", waits.Worst()},
            {"3. us locked", Median(locks)},
            {"4. us a line, 99 %", 1000 * lines.at(lines.size() * 99 / 100)},
            {"5. messages when locked", messages / static_cast<double>(dumps)}};
}

// The lines that find the history full and drop its oldest.
Counters MeasureDrops(Corpus& corpus, size_t mib, Count count) {
    constexpr size_t kDrops = 9;
    SetLimit(mib, count);
    Feeder feeder(corpus);
    WatchBufferMutex();
    feeder.FeedUntilFull();
    static_cast<void>(TakeLockUse());
    Waits waits;
    std::vector<double> drops;
    double worst = 0;
    while (drops.size() < kDrops) {
        const size_t before = RecordCount();
        waits.Feed(feeder);
        if (RecordCount() < before) {
            worst = std::max(worst, waits.Last());
            if (!waits.IsPreempted()) {
                drops.push_back(waits.Last());
            }
        }
    }
    return {{"1. ms", Median(drops)},
            {"2. ms at worst", worst},
            {"3. messages when locked", static_cast<double>(TakeLockUse().messages) / kDrops}};
}

// The lines that are refused, one in each way, which log a message.
Counters MeasureRefusals() {
    SetLimit(10, Count::kRecords);
    WatchBufferMutex();
    for (std::string line : {"2.000 I/TAG  (P 1, T 1): a.c: b(1) > taken", "", "no log line",
                             "1.000 I/TAG  (P 1, T 1): a.c: b(1) > runs backwards"}) {
        FeedLine(line);
    }
    return {{"messages when locked", static_cast<double>(TakeLockUse().messages)}};
}

}  // namespace

void AddSnapshot(Subject& subject) {
    Corpus& corpus = subject.corpus;
    for (const size_t mib : std::initializer_list<size_t>{10, 100}) {
        const std::string name = "snapshot/" + std::to_string(mib) + " MiB/";
        AddMeasured(name + "dump, kept", [=, &corpus] { return MeasureDumps(corpus, mib, false); });
        AddMeasured(name + "dump, consumed",
                    [=, &corpus] { return MeasureDumps(corpus, mib, true); });
        AddMeasured(name + "drop",
                    [=, &corpus] { return MeasureDrops(corpus, mib, Count::kRecords); });
    }
    AddMeasured("snapshot/10 MiB/drop, RQBCOUNT=memory",
                [&corpus] { return MeasureDrops(corpus, 10, Count::kMemory); });
    AddMeasured("snapshot/refused lines", MeasureRefusals);
}

}  // namespace bench
