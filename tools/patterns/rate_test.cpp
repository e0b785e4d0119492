#include "patterns/rate_test.h"

#include <algorithm>
#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>
#include <numeric>

namespace trelvo {

namespace {

constexpr size_t kLeastSlices = 4;
constexpr size_t kMostSlices = 16;
// How many lines it takes to say as much about bursts as the log's other patterns do together.
constexpr double kUsualWeight = 4;
// What came less often than this came once.
constexpr double kOnce = 1.5;

// Slices and their sizes.
struct Slices {
    std::vector<double> lines;
    std::vector<double> sizes;

    // Makes one of every two.
    void Join() {
        for (size_t i = 0; i < lines.size(); i += 2) {
            const bool pair = i + 1 < lines.size();
            lines[i / 2] = lines[i] + (pair ? lines[i + 1] : 0);
            sizes[i / 2] = sizes[i] + (pair ? sizes[i + 1] : 0);
        }
        lines.resize((lines.size() + 1) / 2);
        sizes.resize(lines.size());
    }
};

Slices Coarse(const SliceCounts& counts) {
    Slices slices{counts.lines, std::vector<double>(counts.lines.size(), 1)};
    if (!slices.sizes.empty()) {
        slices.sizes.back() = counts.last_slice;
    }
    while (slices.lines.size() > kMostSlices) {
        slices.Join();
    }
    return slices;
}

// P(at least `hits` of `all`), each with this probability; the counts need not be whole.
double UpperTail(double hits, double all, double probability) {
    return hits <= 0 ? 1 : boost::math::ibeta(hits, all - hits + 1, probability);
}

}  // namespace

double SliceCounts::Total() const {
    return std::accumulate(lines.begin(), lines.end(), 0.0);
}

double BurstFactor(const SliceCounts& counts, double usual) {
    const double total = counts.Total();
    double factor = std::max(1.0, total > 1 ? 1.0 : usual);
    for (Slices slices = Coarse(counts); slices.lines.size() >= kLeastSlices && total > 0;
         slices.Join()) {
        const double rate = total / std::accumulate(slices.sizes.begin(), slices.sizes.end(), 0.0);
        double deviation = 0;
        for (size_t i = 0; i < slices.lines.size(); ++i) {
            const double expected = rate * slices.sizes[i];
            deviation += (slices.lines[i] - expected) * (slices.lines[i] - expected) / expected;
        }
        const auto freedom = static_cast<double>(slices.lines.size() - 1);
        const double weight = std::min(freedom, total - 1);
        factor = std::max(factor, (kUsualWeight * usual + weight * deviation / freedom) /
                                      (kUsualWeight + weight));
    }
    return factor;
}

double Episodes(const SliceCounts& counts, double burst) {
    double runs = 0;
    bool inside = false;
    for (const double lines : Coarse(counts).lines) {
        runs += lines > 0 && !inside ? 1 : 0;
        inside = lines > 0;
    }
    return std::max(runs, counts.Total() / burst);
}

double JoinedBurstFactor(double good, double bad) {
    return bad <= good ? good : good * std::pow(bad / good, 1 - 1 / good);
}

double ChanceOfRates(double good, double bad, const ShareRange& share, double burst,
                     double good_burst) {
    const double all = good + bad;
    const double high = share.high * kLeastChange;
    const double low = kLeastChange / share.low;
    const double more = UpperTail(bad / burst, all / burst, high / (1 + high));
    const double less = UpperTail(good / good_burst, all / good_burst, low / (1 + low));
    return std::min(1.0, 2 * std::min(more, less));
}

Peak FindPeak(const SliceCounts& counts, double expected, double burst) {
    const auto slices = static_cast<double>(counts.lines.size());
    const double length = slices - 1 + counts.last_slice;
    Peak peak;
    for (size_t i = 0; i < counts.lines.size(); ++i) {
        const double size = i + 1 < counts.lines.size() ? 1 : counts.last_slice;
        const double bursts = counts.lines[i] / (burst * burst);
        const double mean = kLeastChange * expected * size / length / burst;
        const double chance =
            bursts <= mean ? 1 : std::min(1.0, slices * boost::math::gamma_p(bursts, mean));
        if (chance < peak.chance) {
            peak = {i, chance};
        }
    }
    return peak;
}

size_t Novelty::Severity(char level) {
    return level == 'F' || level == 'E' ? 2 : level == 'W' ? 1 : 0;
}

void Novelty::Add(char level, double episodes, double burst) {
    // What came several times is as likely to have come once as by chance.
    const double once = episodes < kOnce ? 1 : episodes * std::exp(-episodes);
    for (size_t severity = 0; severity <= Severity(level); ++severity) {
        levels_.at(severity).push_back({burst, once, 0});
    }
}

void Novelty::Finish() {
    for (std::vector<Once>& patterns : levels_) {
        std::sort(patterns.begin(), patterns.end(),
                  [](const Once& a, const Once& b) { return a.burst < b.burst; });
        double lines = 0;
        for (Once& pattern : patterns) {
            pattern.less_lines = lines;
            lines += pattern.times * pattern.burst;
        }
        double times = 0;
        for (auto pattern = patterns.rbegin(); pattern != patterns.rend(); ++pattern) {
            pattern->times += times;
            times = pattern->times;
        }
    }
}

double Novelty::Expected(char level, double burst) const {
    // Of a level that was not seen there may be one pattern in all that can come.
    const double any = ExpectedOf(levels_.front(), burst);
    return std::max(ExpectedOf(levels_.at(Severity(level)), burst),
                    any / static_cast<double>(levels_.front().size() + 1));
}

double Novelty::ExpectedOf(const std::vector<Once>& patterns, double burst) {
    if (patterns.empty()) {
        return 0;
    }
    const auto larger =
        std::lower_bound(patterns.begin(), patterns.end(), burst,
                         [](const Once& pattern, double value) { return pattern.burst < value; });
    // Smaller bursts tell of larger ones by Markov's inequality.
    const Once& last = patterns.back();
    const double once = last.times * last.burst;
    return larger == patterns.end() ? (last.less_lines + once) / burst
                                    : larger->times + larger->less_lines / burst;
}

double DiscoveryBound(std::vector<double> chances, double rate) {
    std::sort(chances.begin(), chances.end());
    double bound = -1;
    for (size_t i = 0; i < chances.size(); ++i) {
        if (chances[i] <= rate * static_cast<double>(i + 1) / static_cast<double>(chances.size())) {
            bound = chances[i];
        }
    }
    return bound;
}

}  // namespace trelvo
