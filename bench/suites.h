#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "corpus.h"

namespace bench {

// A corpus to record and other lines of the same kind, for what is trained beforehand.
struct Subject {
    Corpus corpus;
    std::vector<std::string> other;
};

// Each registers its benchmarks, named "suite/case/...". The subjects must live while they run.
// They run in the order of registration, and tables once loaded stay: those that record without
// tables come first.
void AddEncode(std::vector<Subject>& subjects);
void AddReader(Subject& subject);
void AddSnapshot(Subject& subject);
void AddHistory(std::vector<Subject>& subjects);
void AddHistoryWithTables(std::vector<Subject>& subjects);
void AddEncodeWithTables(Subject& subject);
void AddStart();
void AddTools(Subject& subject);
void AddIdle(Subject& subject, int seconds);

// The median of five repetitions, by processor time unless the caller says otherwise.
benchmark::internal::Benchmark* AddTimed(const std::string& name,
                                         const std::function<void(benchmark::State&)>& body);

// Something that is counted or measured once: `body` sets the counters.
void AddMeasured(const std::string& name, const std::function<void(benchmark::State&)>& body);

// Sets the counters "lines/s" and "MB/s"; what was processed in one iteration.
void CountRates(benchmark::State& state, size_t lines, size_t bytes);

}  // namespace bench
