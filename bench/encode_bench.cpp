#include <ctime>
#include <memory>

#include "MatchTrigger.h"
#include "memory.h"
#include "peers.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

constexpr size_t kRepetitions = 5;

// Seconds of processor time that all threads of the process have had.
double ProcessorTime() {
    timespec time{};
    static_cast<void>(clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time));
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// `seconds` for each line, of each repetition.
Counters CountSpeed(const Corpus& corpus, const std::vector<double>& seconds) {
    const double line = Median(seconds);
    const auto bytes = static_cast<double>(corpus.Text().size());
    return {{"1. MB/s", bytes / static_cast<double>(corpus.Size()) / line / 1e6},
            {"2. us/line", 1e6 * line}};
}

// The steady state: a full history that drops its oldest, a dictionary that knows every source.
Counters EncodeByRecorder(Corpus& corpus, Count count) {
    SetLimit(10, count);
    Feeder feeder(corpus);
    feeder.FeedUntilFull();
    const auto lines = static_cast<double>(corpus.Size());
    double allocations = 0;
    std::vector<double> seconds;
    for (size_t i = 0; i < kRepetitions; ++i) {
        feeder.Rewind();
        const size_t allocations_before = Allocations();
        const double before = ProcessorTime();
        feeder.Feed(corpus.Size());
        seconds.push_back((ProcessorTime() - before) / lines);
        allocations += static_cast<double>(Allocations() - allocations_before);
    }
    Counters counters = CountSpeed(corpus, seconds);
    counters["3. allocations/line"] = allocations / kRepetitions / lines;
    return counters;
}

// How many times what it takes otherwise a line takes that is looked at for what asks for a dump,
// and does not match.
Counters CompareWithMatch(Corpus& corpus) {
    const double without = EncodeByRecorder(corpus, Count::kMemory).at("2. us/line");
    MatchTrigger::Instance().Enable({"*:E:a text that is never logged&NO_SUCH_TAG:V", 0, 0});
    return {{"times without", EncodeByRecorder(corpus, Count::kMemory).at("2. us/line") / without}};
}

// One pass at the most of each repetition, and no more of it than takes long enough.
Counters EncodeByPeer(Corpus& corpus, std::unique_ptr<Peer> peer) {
    constexpr double kEnough = 0.15;  // seconds
    constexpr size_t kStep = 1000;
    Ring ring(std::move(peer), 10 << 20);
    Feeder feeder(corpus, [&ring](const std::string& line) { ring.Append(line); });
    std::vector<double> seconds;
    for (size_t i = 0; i < kRepetitions; ++i) {
        feeder.Rewind();
        const double before = ProcessorTime();
        size_t lines = 0;
        double taken = 0;
        while (lines + kStep <= corpus.Size() && taken < kEnough) {
            feeder.Feed(kStep);
            lines += kStep;
            taken = ProcessorTime() - before;
        }
        seconds.push_back(taken / static_cast<double>(lines));
    }
    return CountSpeed(corpus, seconds);
}

constexpr size_t kLines = 100000;

// Lines of the corpus, each from one of `sources` tags, processes and threads.
Corpus WithSources(const Corpus& corpus, size_t sources) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < kLines; ++i) {
        std::string line(corpus.Line(i % corpus.Size()));
        const size_t process = line.find("(P");
        const size_t close = line.find("):");
        const size_t source = i % sources;
        line.replace(
            process, close - process,
            "(P " + std::to_string(1000 + source / 4) + ", T " + std::to_string(1000 + source));
        lines.push_back(std::move(line));
    }
    return {std::to_string(sources) + " sources", lines, 0};
}

// Lines that give the trainer texts that occur nowhere else, each often enough for a code.
std::vector<std::string> WithUnseenTexts(const std::vector<std::string>& lines, size_t count) {
    std::vector<std::string> more = lines;
    for (const CodedText& text : UnseenTexts("UNSEEN", count)) {
        more.insert(more.end(), 2,
                    "1.000 I/" + text.tag + "  (P    1, T    1): a.c: b(1) > " + text.text);
    }
    return more;
}

}  // namespace

void AddEncode(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "encode/" + subject.corpus.Name() + "/";
        AddMeasured(name + "recorder",
                    [&subject] { return EncodeByRecorder(subject.corpus, Count::kMemory); });
        for (const PeerKind& kind : PeerKinds()) {
            AddMeasured(name + kind.name,
                        [&] { return EncodeByPeer(subject.corpus, kind.make()); });
        }
    }
    Corpus& first = subjects.front().corpus;
    AddMeasured("encode/" + first.Name() + "/recorder, match",
                [&] { return CompareWithMatch(first); });
    for (const size_t sources : std::initializer_list<size_t>{10, 1000, 100000}) {
        const auto corpus = std::make_shared<Corpus>(WithSources(subjects.front().corpus, sources));
        AddMeasured("encode/" + corpus->Name() + "/recorder",
                    [corpus] { return EncodeByRecorder(*corpus, Count::kRecords); });
    }
}

void AddEncodeTrained(std::vector<Subject>& subjects) {
    for (Subject& subject : subjects) {
        const std::string name = "encode/" + subject.corpus.Name() + "/";
        AddMeasured(name + "zstd 3 + dictionary", [&] {
            return EncodeByPeer(subject.corpus, MakeDictionaryPeer(TrainDictionary(subject.other)));
        });
        AddMeasured(name + "recorder, tables", [&] {
            LoadTrainedTables(subject.other);
            return EncodeByRecorder(subject.corpus, Count::kMemory);
        });
    }
    Subject& first = subjects.front();
    AddMeasured("encode/" + first.corpus.Name() + "/recorder, tables of 60000 more", [&] {
        LoadTrainedTables(WithUnseenTexts(first.other, 60000));
        return EncodeByRecorder(first.corpus, Count::kMemory);
    });
}

}  // namespace bench
