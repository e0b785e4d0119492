#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "corpus.h"
#include "report.h"
#include "suites.h"

namespace {

constexpr size_t kLines = 100000;

bench::Subject Generated(const std::string& name, double verbatim_share) {
    bench::GeneratorSettings settings;
    settings.verbatim_share = verbatim_share;
    const bench::Generator generator(settings);
    return {bench::Corpus(name, generator.Lines(kLines, 1)), generator.Lines(kLines, 2)};
}

// Trained on its first half, recorded is the second.
bench::Subject FromFile(const std::string& path) {
    auto [first, second] = bench::Halves(bench::ReadLines(path));
    return {bench::Corpus(std::filesystem::path(path).stem(), std::move(second)), first};
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    try {
        std::vector<bench::Subject> subjects;
        subjects.push_back(Generated("repetitive", 0.95));
        subjects.push_back(Generated("mixed", 0.6));
        int idle_seconds = 5;
        for (int i = 1; i < argc; ++i) {
            if (std::string(argv[i]) == "--idle") {
                idle_seconds = 60;
            } else {
                subjects.push_back(FromFile(argv[i]));
            }
        }
        bench::AddEncode(subjects);
        bench::AddReader(subjects.front());
        bench::AddSnapshot(subjects.at(1));
        bench::AddHistory(subjects);
        bench::AddTools(subjects.front());
        bench::AddIdle(subjects.front(), idle_seconds);
        bench::AddHistoryWithTables(subjects);
        bench::AddEncodeWithTables(subjects.front());
        bench::AddStart();
        bench::TableReporter table;
        benchmark::RunSpecifiedBenchmarks(&table);
        benchmark::ClearRegisteredBenchmarks();  // and the files that they hold
        return table.IsComplete() ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "trelvo_bench: %s\n", error.what());
        return 1;
    }
}
