#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "CDataProvider.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

double Milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// Takes a snapshot on a thread of its own, as the dump writer does, and encodes lines meanwhile.
// Appends the milliseconds that each of these lines took; the longest is how long it was stalled.
void EncodeDuringSnapshot(Corpus& corpus, bool consume, std::vector<double>& latencies) {
    if (!corpus.Advance()) {
        ResetRecorder(CDataProvider::Instance()->GetBufferSize() >> 20);
        FeedUntilFull(corpus);
    }
    // Room for the lines to come: one that finds the buffer full frees a tenth of it, which takes
    // longer than any snapshot.
    CDataProvider* const provider = CDataProvider::Instance();
    const unsigned long long limit = provider->GetBufferSize();
    provider->SetBufferSize(2 * limit >> 10);
    std::atomic<bool> is_taken{false};
    std::thread writer([&] {
        static_cast<void>(Snapshot(consume));
        is_taken = true;
    });
    for (std::string& line : corpus.Lines()) {
        const auto start = Clock::now();
        provider->m_GetDataDDP(line);
        latencies.push_back(Milliseconds(Clock::now() - start));
        if (is_taken) {
            break;
        }
    }
    writer.join();
    provider->SetBufferSize(limit >> 10);
}

constexpr size_t kSnapshots = 15;

// Of so many measurements; one that another program of the machine got in the way of does not
// count then.
double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + kSnapshots / 2, values.end());
    return values[kSnapshots / 2];
}

// Leaves nothing of the records in the processor's caches, as other work between two dumps does. A
// line that meets a dump finds them cold; so must what that is compared with.
void EvictCaches() {
    static std::vector<unsigned char> other(size_t{128} << 20);
    for (size_t i = 0; i < other.size(); i += 64) {
        ++other[i];
    }
    benchmark::ClobberMemory();
}

// The longest that a line had to wait.
void Stall(benchmark::State& state, Corpus& corpus, unsigned long long mib, bool consume) {
    std::vector<double> stalls;
    ResetRecorder(mib);
    for (size_t i = 0; i < kSnapshots; ++i) {
        FeedUntilFull(corpus);
        std::vector<double> latencies;
        EvictCaches();
        EncodeDuringSnapshot(corpus, consume, latencies);
        stalls.push_back(*std::max_element(latencies.begin(), latencies.end()));
    }
    state.counters["ms"] = Median(stalls);
}

// How long the buffer is locked for a snapshot that keeps it, with nobody waiting.
void Hold(benchmark::State& state, Corpus& corpus, unsigned long long mib) {
    ResetRecorder(mib);
    FeedUntilFull(corpus);
    std::vector<double> times;
    for (size_t i = 0; i < kSnapshots; ++i) {
        EvictCaches();
        const auto start = Clock::now();
        const std::vector<unsigned char> image = Snapshot(false);
        times.push_back(Milliseconds(Clock::now() - start));
    }
    state.counters["ms"] = Median(times);
}

void PlainCopy(benchmark::State& state, Corpus& corpus, unsigned long long mib) {
    ResetRecorder(mib);
    FeedUntilFull(corpus);
    const std::vector<unsigned char> records = Snapshot(true);
    std::vector<double> times;
    for (size_t i = 0; i < kSnapshots; ++i) {
        EvictCaches();
        const auto start = Clock::now();
        std::vector<unsigned char> copy(records);
        benchmark::DoNotOptimize(copy.data());
        times.push_back(Milliseconds(Clock::now() - start));
    }
    state.counters["ms"] = Median(times);
}

void Latency(benchmark::State& state, Corpus& corpus, unsigned long long mib) {
    ResetRecorder(mib);
    FeedUntilFull(corpus);
    std::vector<double> latencies;
    for (size_t i = 0; i < kSnapshots; ++i) {
        EncodeDuringSnapshot(corpus, false, latencies);
    }
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double share) {
        return latencies[static_cast<size_t>(share * static_cast<double>(latencies.size() - 1))];
    };
    state.counters["1. median us"] = 1000 * at(0.5);
    state.counters["2. 99 % us"] = 1000 * at(0.99);
    state.counters["3. longest us"] = 1000 * at(1);
}

}  // namespace

void AddSnapshot(Subject& subject) {
    // Every image gets memory of its own from the system, as that of a service's first dump does.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    Corpus& corpus = subject.corpus;
    for (const unsigned long long mib : {10, 100}) {
        const std::string name = "snapshot/" + std::to_string(mib) + " MiB/";
        const auto add = [&](const std::string& what, auto measure, auto... more) {
            AddMeasured(name + what, [&corpus, mib, measure, more...](benchmark::State& state) {
                measure(state, corpus, mib, more...);
            });
        };
        add("plain copy", PlainCopy);
        add("lock, kept", Hold);
        add("stall of a line, kept", Stall, false);
        add("stall of a line, consumed", Stall, true);
        add("line latency, kept", Latency);
    }
}

}  // namespace bench
