#include "suites.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>

#include "platform/handles.h"

namespace bench {

namespace {

// "name\tvalue" a line; or, with status 1, why there are none.
int WriteCounters(int fd, const std::function<Counters()>& body) {
    std::ostringstream text;
    text.precision(17);
    int status = 0;
    try {
        for (const auto& [name, value] : body()) {
            text << name << '\t' << value << '\n';
        }
    } catch (const std::exception& error) {
        text.str(error.what());
        status = 1;
    }
    const std::string bytes = text.str();
    return write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? status : 2;
}

}  // namespace

benchmark::internal::Benchmark* AddTimed(const std::string& name,
                                         const std::function<void(benchmark::State&)>& body) {
    constexpr int kRepetitions = 5;
    return benchmark::RegisterBenchmark(name.c_str(), body)
        ->Unit(benchmark::kMillisecond)
        ->MinTime(0.1)
        ->Repetitions(kRepetitions)
        ->DisplayAggregatesOnly();
}

Counters InChild(const std::function<Counters()>& body) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    const port::UniqueFd read_end(ends[0]);
    port::UniqueFd write_end(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        _exit(WriteCounters(write_end.Get(), body));
    }
    write_end = {};
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(read_end.Get(), part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<size_t>(count));
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error(text.empty() ? "the measuring process ended early" : text);
    }
    Counters counters;
    std::istringstream lines(text);
    for (std::string name, value; std::getline(lines, name, '\t') && std::getline(lines, value);) {
        counters[name] = std::stod(value);
    }
    return counters;
}

void AddMeasured(const std::string& name, const std::function<Counters()>& body) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [body](benchmark::State& state) {
                                     while (state.KeepRunning()) {
                                         try {
                                             for (const auto& [counter, value] : InChild(body)) {
                                                 state.counters[counter] = value;
                                             }
                                         } catch (const std::exception& error) {
                                             state.SkipWithError(error.what());
                                         }
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

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace bench
