#include <algorithm>
#include <cstdint>

#include "memory.h"
#include "peers.h"
#include "recorder.h"
#include "suites.h"
#include "support/image.h"

namespace bench {

namespace {

constexpr size_t kLimit = 10;  // MiB
constexpr double kMiB = 1 << 20;

Counters CountHistory(const Corpus& corpus, double bytes_a_line, double lines) {
    const auto pass = static_cast<double>(corpus.Size());
    return {{"1. bytes/line", bytes_a_line},
            {"2. lines kept", lines},
            {"3. seconds kept", lines / pass * corpus.Span()}};
}

// Whatever a peer takes from the system counts, until that is the limit.
Counters KeepByPeer(Corpus& corpus, const std::function<std::unique_ptr<Peer>()>& make) {
    constexpr size_t kStep = 1000;
    const MemoryGrowth growth;
    Ring ring(make(), SIZE_MAX);
    Feeder feeder(corpus, [&ring](const std::string& line) { ring.Append(line); });
    double lines = 0;
    for (; growth.Bytes() < kLimit << 20; lines += kStep) {
        feeder.Feed(kStep);
    }
    const double bytes = static_cast<double>(growth.TrimmedBytes()) / lines;
    return CountHistory(corpus, bytes, kLimit * kMiB / bytes);
}

// A limit of memory; what is there is counted when the oldest was dropped for one pass.
Counters KeepByRecorder(Corpus& corpus) {
    Feeder feeder(corpus);
    const MemoryGrowth growth;
    SetLimit(kLimit, Count::kMemory);
    feeder.FeedUntilFull();
    feeder.Rewind();
    size_t most = 0;
    constexpr size_t kStep = 64;
    for (size_t fed = 0; fed < corpus.Size(); fed += kStep) {
        feeder.Feed(kStep);
        most = std::max(most, growth.Bytes());
    }
    const auto lines = static_cast<double>(RecordCount());
    Counters counters =
        CountHistory(corpus, static_cast<double>(growth.TrimmedBytes()) / lines, lines);
    counters["4. counted bytes/line"] = static_cast<double>(CountedMemory()) / lines;
    counters["5. MiB grown at most"] = static_cast<double>(most) / kMiB;
    return counters;
}

Counters CountPacked(const Corpus& corpus, const void* data, size_t size) {
    return {{"bytes/line",
             static_cast<double>(ZstdSize(data, size)) / static_cast<double>(corpus.Size())}};
}

// What a collector keeps and sends: the dump of all lines, compressed.
Counters CompressDump(Corpus& corpus) {
    SetLimit(1024, Count::kRecords);
    Feeder(corpus).Feed(corpus.Size());
    const test_support::Bytes image = test_support::Snapshot(false);
    return CountPacked(corpus, image.data(), image.size());
}

}  // namespace

void AddHistory(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        Corpus& corpus = subject.corpus;
        const std::string name = "history/" + corpus.Name() + "/";
        for (const PeerKind& kind : PeerKinds()) {
            AddMeasured(name + kind.name, [&] { return KeepByPeer(corpus, kind.make); });
        }
        AddMeasured(name + "recorder", [&] { return KeepByRecorder(corpus); });
        AddMeasured(name + "text in one zstd 3", [&] {
            return CountPacked(corpus, corpus.Text().data(), corpus.Text().size());
        });
        AddMeasured(name + "recorder, dump in zstd 3", [&] { return CompressDump(corpus); });
    }
}

void AddHistoryTrained(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "history/" + subject.corpus.Name() + "/";
        AddMeasured(name + "zstd 3 + dictionary", [&] {
            const std::string dictionary = TrainDictionary(subject.other);
            return KeepByPeer(subject.corpus, [&] { return MakeDictionaryPeer(dictionary); });
        });
        AddMeasured(name + "recorder, tables", [&] {
            LoadTrainedTables(subject.other);
            return KeepByRecorder(subject.corpus);
        });
        AddMeasured(name + "recorder, tables, dump in zstd 3", [&] {
            LoadTrainedTables(subject.other);
            return CompressDump(subject.corpus);
        });
    }
}

}  // namespace bench
