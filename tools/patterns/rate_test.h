#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace trelvo {

// Lines in slices of a log's time, which are equally long but for the last.
struct SliceCounts {
    std::vector<double> lines;
    double last_slice = 1;  // as a share of the others, above 0

    [[nodiscard]] double Total() const;
};

// How much more the counts vary from slice to slice than chance explains, at least 1: the mean
// number of lines that come together. Slices are looked at one by one and in ever longer runs, down
// to four of them, since bursts may be as long; the highest factor counts. What few lines say is
// drawn towards `usual`, the factor of a log's other patterns.
[[nodiscard]] double BurstFactor(const SliceCounts& counts, double usual);

// How many times something came: bursts that follow each other without a pause count as one, and so
// many lines as come together.
[[nodiscard]] double Episodes(const SliceCounts& counts, double burst);

// The factor for both sides of a comparison. A burst of the bad side is a change where the good
// side has none; the more the good side's lines come in bursts, the less is a larger one told from
// them.
[[nodiscard]] double JoinedBurstFactor(double good, double bad);

// How many lines the bad side has for each line of the good one where nothing has changed: by one
// measure and by another.
struct ShareRange {
    double low = 1;
    double high = 1;
};

// How likely it is that, of good + bad lines that come in bursts of `burst` lines, chance alone
// puts as many as this on one of two sides, if the bad one's rate is up to kLeastChange times as
// high or as low as the good one's. `share`: what the bad side has for each line of the good one
// when nothing has changed. Both tails of the binomial distribution, for counts divided by the
// factor; by that of the good side alone for fewer lines, which no burst of the bad side explains.
inline constexpr double kLeastChange = 1.25;
[[nodiscard]] double ChanceOfRates(double good, double bad, const ShareRange& share, double burst,
                                   double good_burst);

// The slice whose lines chance explains least, and how likely it is that any holds as many for its
// length where `expected` come in all, if bursts of `burst` lines are usual, and vary in size by as
// much.
struct Peak {
    size_t slice = 0;
    double chance = 1;
};
[[nodiscard]] Peak FindPeak(const SliceCounts& counts, double expected, double burst);

// What the good side holds by chance, since it has come there once, and could as well have come on
// the other side alone (Good and Turing): each of its patterns by level and burst factor.
class Novelty {
public:
    // E and F 2, W 1, others 0.
    [[nodiscard]] static size_t Severity(char level);

    // A pattern of the good side.
    void Add(char level, double episodes, double burst);
    // To be called once all are added.
    void Finish();
    // How many new patterns chance is expected to bring that are as severe as this and come in
    // bursts as large, on a bad side of the good one's length.
    [[nodiscard]] double Expected(char level, double burst) const;

private:
    struct Once {
        double burst = 0;
        double times = 0;       // that patterns of this burst factor and of larger ones came once
        double less_lines = 0;  // of all that have smaller ones
    };
    [[nodiscard]] static double ExpectedOf(const std::vector<Once>& patterns, double burst);

    std::array<std::vector<Once>, 3> levels_;  // by severity: patterns as severe, by burst factor
};

// Which of the probabilities are small enough that of those chosen only a part of `rate` is
// chance's work, by Benjamini and Hochberg: the highest of them, or -1.
[[nodiscard]] double DiscoveryBound(std::vector<double> chances, double rate);

}  // namespace trelvo
