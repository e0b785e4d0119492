#include <malloc.h>

#include <memory>

#include "memory.h"
#include "peers.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

constexpr double kBuffer = 10 << 20;  // bytes

void CountHistory(benchmark::State& state, const Corpus& corpus, double bytes) {
    const auto lines = static_cast<double>(corpus.Lines().size());
    state.counters["1. bytes/line"] = bytes / lines;
    state.counters["2. lines kept"] = kBuffer / bytes * lines;
    state.counters["3. seconds kept"] = kBuffer / bytes * corpus.Span();
}

void Record(benchmark::State& state, Corpus& corpus) {
    // Beyond what any corpus takes, so that nothing is dropped.
    ResetRecorder(1024);
    malloc_trim(0);
    const size_t before = ResidentBytes();
    Feed(corpus.Lines());
    const size_t resident = ResidentBytes() - before;
    const size_t bytes = RecordBytes();
    CountHistory(state, corpus, static_cast<double>(bytes));
    // Fewer lines may fit into memory that the process had before.
    constexpr size_t kEnoughLines = 50000;
    if (corpus.Lines().size() >= kEnoughLines) {
        state.counters["4. resident bytes/line"] =
            static_cast<double>(resident) / static_cast<double>(corpus.Lines().size());
    }
    ResetRecorder();
}

// What a collector keeps and sends: the dump of all lines, compressed.
void CompressDump(benchmark::State& state, Corpus& corpus) {
    ResetRecorder(1024);
    Feed(corpus.Lines());
    const std::vector<unsigned char> image = Snapshot(true);
    const auto lines = static_cast<double>(corpus.Lines().size());
    state.counters["1. bytes/line"] =
        static_cast<double>(ZstdSize(image.data(), image.size())) / lines;
    ResetRecorder();
}

void AddRecorder(Subject& subject, const std::string& name) {
    AddMeasured(name, [&](benchmark::State& state) { Record(state, subject.corpus); });
    AddMeasured(name + ", dump in zstd 3",
                [&](benchmark::State& state) { CompressDump(state, subject.corpus); });
}

}  // namespace

void AddHistory(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "history/" + subject.corpus.Name() + "/";
        for (auto& made : MakePeers(subject.other)) {
            const std::shared_ptr<Peer> peer = std::move(made);
            AddMeasured(name + peer->Name(), [peer, &subject](benchmark::State& state) {
                const std::string& text = subject.corpus.Text();
                CountHistory(state, subject.corpus, static_cast<double>(peer->Compress(text)));
            });
        }
        AddMeasured(name + "text in one zstd 3", [&](benchmark::State& state) {
            const std::string& text = subject.corpus.Text();
            const auto bytes = static_cast<double>(ZstdSize(text.data(), text.size()));
            state.counters["1. bytes/line"] =
                bytes / static_cast<double>(subject.corpus.Lines().size());
        });
        AddRecorder(subject, name + "recorder");
    }
}

void AddHistoryWithTables(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "history/" + subject.corpus.Name() + "/recorder, tables";
        AddMeasured(name + " are loaded", [&](benchmark::State& state) {
            const std::vector<CodedText> texts = Train(subject.other);
            LoadCodeTables(texts);
            state.counters["entries"] = static_cast<double>(texts.size());
        });
        AddRecorder(subject, name);
    }
}

}  // namespace bench
