#include <memory>

#include "memory.h"
#include "peers.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

// The steady state: a dictionary that knows every source and a scratch record that has its size.
void Encode(benchmark::State& state, Corpus& corpus) {
    ResetRecorder();
    Feed(corpus.Lines());
    size_t allocations = 0;
    while (state.KeepRunning()) {
        state.PauseTiming();
        if (!corpus.Advance()) {
            ResetRecorder();
        }
        const size_t before = Allocations();
        state.ResumeTiming();
        Feed(corpus.Lines());
        allocations += Allocations() - before;
    }
    const size_t lines = corpus.Lines().size();
    CountRates(state, lines, corpus.Text().size());
    state.counters["allocations/line"] = static_cast<double>(allocations) /
                                         static_cast<double>(state.iterations()) /
                                         static_cast<double>(lines);
}

// The first lines of the corpus, each from one of `sources` tags, processes and threads.
Corpus WithSources(const Corpus& corpus, size_t sources) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < 100000; ++i) {
        std::string line = corpus.Lines()[i % corpus.Lines().size()];
        const size_t process = line.find("(P");
        const size_t close = line.find("):");
        const size_t source = i % sources;
        line.replace(
            process, close - process,
            "(P " + std::to_string(1000 + source / 4) + ", T " + std::to_string(1000 + source));
        // All at one time, since the times of the corpus start over where its end is passed.
        line.replace(0, line.find(' '), "1.0");
        lines.push_back(std::move(line));
    }
    return {std::to_string(sources) + " sources", std::move(lines)};
}

}  // namespace

void AddEncode(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "encode/" + subject.corpus.Name() + "/";
        const auto corpus = std::make_shared<Corpus>(subject.corpus.Denser());
        AddTimed(name + "recorder", [corpus](benchmark::State& state) { Encode(state, *corpus); });
        for (auto& made : MakePeers(subject.other)) {
            const std::shared_ptr<Peer> peer = std::move(made);
            AddTimed(name + peer->Name(), [peer, &subject](benchmark::State& state) {
                const std::string& text = subject.corpus.Text();
                while (state.KeepRunning()) {
                    benchmark::DoNotOptimize(peer->Compress(text));
                }
                CountRates(state, subject.corpus.Lines().size(), text.size());
            });
        }
    }
    for (const size_t sources : {10, 1000, 100000}) {
        const auto corpus = std::make_shared<Corpus>(WithSources(subjects.front().corpus, sources));
        AddTimed("encode/" + corpus->Name() + "/recorder",
                 [corpus](benchmark::State& state) { Encode(state, *corpus); });
    }
}

void AddEncodeWithTables(Subject& subject) {
    for (const size_t entries : {1000, 100000}) {
        AddTimed(
            "encode/" + subject.corpus.Name() + "/recorder, tables of " + std::to_string(entries),
            [&subject, entries](benchmark::State& state) {
                std::vector<CodedText> texts = Train(subject.other);
                const std::string tag = texts.front().tag;
                texts.resize(std::min(texts.size(), entries));
                for (CodedText& text : UnseenTexts(tag, entries - texts.size())) {
                    texts.push_back(std::move(text));
                }
                LoadCodeTables(texts);
                Encode(state, subject.corpus);
            });
    }
}

}  // namespace bench
