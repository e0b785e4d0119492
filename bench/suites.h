#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "corpus.h"

namespace bench {

// A corpus to record and other lines of the same kind, for what is trained beforehand; none where
// nothing is trained.
struct Subject {
    Corpus corpus;
    std::vector<std::string> other;
};

// Each registers its benchmarks, named "suite/case/...". The subjects must live while they run.
void AddEncode(std::vector<Subject>& subjects);
void AddReader(Subject& subject);
void AddMemory(Subject& subject);
void AddSnapshot(Subject& subject);
void AddHistory(std::vector<Subject>& subjects);
void AddJournal(Subject& subject);
void AddEncodeTrained(std::vector<Subject>& subjects);
void AddHistoryTrained(std::vector<Subject>& subjects);
void AddStart();
void AddTools(Subject& subject);
void AddIdle(Subject& subject, int seconds);
void AddCapture();

// The median of five repetitions, by processor time unless the caller says otherwise.
benchmark::internal::Benchmark* AddTimed(const std::string& name,
                                         const std::function<void(benchmark::State&)>& body);

// Counters by name; they are shown in the order of their names, and "1. " in front is left out.
using Counters = std::map<std::string, double>;

// Runs the body in a child process of its own: the recorder is made of singletons, a process that
// has used memory does not give all of it back, and one leaves a mount namespace only by ending.
// Throws std::runtime_error with what the body has thrown.
Counters InChild(const std::function<Counters()>& body);

// Something that the body counts or measures itself, once, in a child.
void AddMeasured(const std::string& name, const std::function<Counters()>& body);

// Sets the counters "lines/s" and "MB/s"; what was processed in one iteration.
void CountRates(benchmark::State& state, size_t lines, size_t bytes);

// The median; of an even number of values the upper one of the two.
double Median(std::vector<double> values);

}  // namespace bench
