#include "suites.h"

namespace bench {

benchmark::internal::Benchmark* AddTimed(const std::string& name,
                                         const std::function<void(benchmark::State&)>& body) {
    constexpr int kRepetitions = 5;
    return benchmark::RegisterBenchmark(name.c_str(), body)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(0.1)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly();
}

void AddMeasured(const std::string& name, const std::function<void(benchmark::State&)>& body) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [body](benchmark::State& state) {
                                     while (state.KeepRunning()) {
                                         body(state);
                                     }
                                 })
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
}

void CountRates(benchmark::State& state, size_t lines, size_t bytes) {
    using benchmark::Counter;
    const auto rate = Counter::kIsIterationInvariantRate;
    state.counters["lines/s"] = Counter(static_cast<double>(lines), rate);
    state.counters["MB/s"] = Counter(static_cast<double>(bytes) / 1e6, rate);
}

}  // namespace bench
