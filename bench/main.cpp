#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "corpus.h"
#include "recorder.h"
#include "report.h"
#include "suites.h"

namespace {

using Lines = std::vector<std::string>;

constexpr size_t kMinText = 32 << 20;  // bytes, so that neither caches nor branches know it all
constexpr size_t kOtherLines = 100000;

bench::Subject Generated(const std::string& name, double verbatim_share) {
    constexpr size_t kLines = 210000;
    bench::GeneratorSettings settings;
    settings.verbatim_share = verbatim_share;
    const bench::Generator generator(settings);
    return {bench::Corpus(name, generator.Lines(kLines, 1), kMinText),
            generator.Lines(kOtherLines, 2)};
}

}  // namespace

int main(int argc, char** argv) {
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, 128 * 1024));  // as the service does
    bench::CountLogMessages();
    benchmark::Initialize(&argc, argv);
    try {
        std::vector<bench::Subject> subjects;
        subjects.push_back(Generated("repetitive", 0.95));
        subjects.push_back(Generated("mixed", 0.6));
        std::vector<bench::Subject> trained = subjects;
        int idle_seconds = 5;
        std::vector<Lines> files;
        for (int i = 1; i < argc; ++i) {
            if (std::string(argv[i]) == "--idle") {
                idle_seconds = 60;
                continue;
            }
            const std::string name = std::filesystem::path(argv[i]).stem();
            files.push_back(bench::ReadLines(argv[i]));
            subjects.push_back({bench::Corpus(name, files.back(), kMinText), {}});
            // Trained on its first half, recorded is the second.
            auto [first, second] = bench::Halves(files.back());
            trained.push_back({bench::Corpus(name + ", half", second, kMinText), first});
        }
        if (!files.empty()) {
            subjects.push_back({bench::Corpus("mix", bench::Interleave(files), kMinText), {}});
        }
        bench::AddEncode(subjects);
        bench::AddEncodeTrained(trained);
        bench::AddReader(subjects.front());
        bench::AddHistory(subjects);
        bench::AddJournal(subjects.back());
        bench::AddHistoryTrained(trained);
        bench::AddMemory(subjects.at(1));
        bench::AddSnapshot(subjects.at(1));
        bench::AddTools(subjects.front());
        bench::AddIdle(subjects.front(), idle_seconds);
        bench::AddStart();
        bench::AddCapture();
        bench::TableReporter table;
        benchmark::RunSpecifiedBenchmarks(&table);
        benchmark::ClearRegisteredBenchmarks();  // and the files that they hold
        return table.IsComplete() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "trelvo_bench: %s\n", error.what());
        return 1;
    }
}
