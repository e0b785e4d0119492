#include "memory.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

constexpr size_t kStep = 64;  // lines from one look at the memory to the next

Counters InMiB(size_t most) {
    return {{"MiB grown at most", static_cast<double>(most) / (1 << 20)}};
}

// On a thread of its own, whose heap is new, as that of the service's threads is: in the one that
// the process has used before, what is taken lies scattered over pages that were given back.
void OnNewHeap(const std::function<void()>& body) {
    std::thread(body).join();
}

// Dumps of a full history follow one another, and lines come all the time, one every `interval`.
Counters DuringDumps(Corpus& corpus, size_t mib, bool consume, std::chrono::microseconds interval) {
    constexpr size_t kDumps = 5;
    const MemoryGrowth growth;
    DumpWriter writer;
    size_t most = 0;
    OnNewHeap([&] {
        SetLimit(mib, Count::kMemory);
        Feeder feeder(corpus);
        for (size_t i = 0; i < kDumps; ++i) {
            feeder.FeedUntilFull();
            writer.Request(consume);
            while (!writer.IsComplete()) {
                const auto end = std::chrono::steady_clock::now() + kStep * interval;
                feeder.Feed(kStep);
                do {
                    most = std::max(most, growth.Bytes());
                } while (std::chrono::steady_clock::now() < end);
            }
            writer.Finish();
        }
    });
    return InMiB(most);
}

// Each source logs three lines and is never heard of again.
Counters ManySources(const Corpus& corpus, size_t mib, size_t sources) {
    constexpr size_t kLines = 3;
    std::vector<std::string> heads;
    std::vector<std::string> tails;
    for (size_t i = 0; i < 1000; ++i) {
        const std::string line(corpus.Line(i));
        const size_t tag = line.find(' ');
        heads.push_back(line.substr(tag, line.find("(P") - tag));
        tails.push_back(line.substr(line.find("):")));
    }
    const MemoryGrowth growth;
    size_t most = 0;
    OnNewHeap([&] {
        SetLimit(mib, Count::kMemory);
        std::string line;
        for (size_t i = 0; i < sources * kLines; ++i) {
            const size_t source = i / kLines;
            // A line each millisecond.
            line = std::to_string(100 + i / 1000) + "." + std::to_string(1000 + i % 1000).substr(1);
            line += heads[source % heads.size()] + "(P " + std::to_string(source / 4) + ", T " +
                    std::to_string(source) + tails[i % tails.size()];
            FeedLine(line);
            if (i % kStep == 0) {
                most = std::max(most, growth.Bytes());
            }
        }
    });
    return InMiB(most);
}

}  // namespace

void AddMemory(Subject& subject) {
    Corpus& corpus = subject.corpus;
    using std::chrono::microseconds;
    AddMeasured("memory/10 MiB/dumps, kept",
                [&] { return DuringDumps(corpus, 10, false, microseconds(10)); });
    AddMeasured("memory/10 MiB/dumps, consumed",
                [&] { return DuringDumps(corpus, 10, true, microseconds(10)); });
    AddMeasured("memory/10 MiB/dumps, kept, lines at full speed",
                [&] { return DuringDumps(corpus, 10, false, microseconds(0)); });
    AddMeasured("memory/10 MiB/1000000 sources", [&] { return ManySources(corpus, 10, 1000000); });
}

}  // namespace bench
