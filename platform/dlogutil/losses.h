#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace dlogutil {

// What the capture could not write, since it started.
struct LossCounts {
    uint64_t removed = 0;     // entries that the journal removed before they were read
    uint64_t unreadable = 0;  // entries that could not be read
    uint64_t left_out = 0;    // lines of entries that are too long
    uint64_t uncounted = 0;   // gaps of unknown size

    [[nodiscard]] bool operator==(const LossCounts& other) const;
};

// Says in words what is lost, at most once a minute.
class LossReport {
public:
    using Time = std::chrono::steady_clock::time_point;

    // `said` is what is known already.
    explicit LossReport(const LossCounts& said = {}) : said_(said) {}

    [[nodiscard]] const LossCounts& Said() const { return said_; }

    // One message about all since the last one; nothing when there is none or it is too early.
    [[nodiscard]] std::optional<std::string> Take(const LossCounts& counts, Time now);
    // When to ask again at the latest.
    [[nodiscard]] std::optional<Time> Next(const LossCounts& counts) const;

private:
    LossCounts said_;
    std::optional<Time> last_;
};

}  // namespace dlogutil
