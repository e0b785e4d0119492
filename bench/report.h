#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Prints one table: a row for each benchmark, with its goal where it has one. The rows come as the
// benchmarks end, the judgement of the goals at the end, since a goal compares two of them.
class TableReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

    // False when a benchmark failed; a missed goal does not count as one.
    [[nodiscard]] bool IsComplete() const { return is_complete_; }

private:
    using Values = std::map<std::string, double>;

    // The value itself without a peer, otherwise how many times the peer's it is.
    [[nodiscard]] double Measure(const std::string& row, const std::string& value,
                                 const std::string& peer) const;
    void Judge(const std::string& row, const std::string& value, const std::string& peer,
               double goal, bool at_least, const std::string& what) const;

    std::map<std::string, Values> rows_;
    bool is_complete_ = true;
};

}  // namespace bench
