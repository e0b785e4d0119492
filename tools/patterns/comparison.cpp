#include "patterns/comparison.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <tuple>
#include <utility>

namespace trelvo {

namespace {

uint64_t RowKey(uint32_t number, uint32_t tag) {
    return uint64_t{number} << 32U | tag;
}

// Of changed rows this share at most is chance's work.
constexpr double kFalseDiscoveries = 0.01;
// New rows are listed while chance is expected to bring no more than this share of all rows.
constexpr double kChanceNew = 0.005;
// Rates are doubtful as long as they are less likely than this, and differ by such a factor.
constexpr double kDoubtful = 0.5;
constexpr double kDoubtfulRatio = 1.5;
// Lines of a log's usual rows that tell their burst factor.
constexpr uint64_t kFewLines = 4;
// The weight of a row whose rate is known to a tenth, and of time, which counts as some of these.
constexpr double kRateVariance = 0.01;
constexpr double kTimeWeight = 2.5 / kRateVariance;
// A row that is last in a list of so many with its tag and kind waits until the others were listed.
constexpr size_t kOfOneKind = 3;

constexpr std::string_view kAnyTag = "*";

// By severity, the worst first.
int Rank(char level) {
    return level == 'F' ? 0 : level == 'E' ? 1 : level == 'W' ? 2 : 3;
}

// The value in the middle of the weights.
double Median(std::vector<std::pair<double, double>> values) {
    std::sort(values.begin(), values.end());
    double half = 0;
    for (const auto& [value, weight] : values) {
        half += weight / 2;
    }
    for (const auto& [value, weight] : values) {
        half -= weight;
        if (half <= 0) {
            return value;
        }
    }
    return 0;
}

void Merge(const SideCount& from, SideCount& into) {
    if (from.count == 0) {
        return;
    }
    if (into.count == 0 || from.first.line < into.first.line) {
        into.first = from.first;
    }
    if (into.count == 0 || from.last.line > into.last.line) {
        into.last = from.last;
    }
    into.count += from.count;
    for (size_t i = 0; i < SideCount::kSlices; ++i) {
        into.slices.at(i) += from.slices.at(i);
    }
}

}  // namespace

uint32_t Comparison::TagOf(const std::string& tag) {
    const auto [found, added] = tags_.try_emplace(tag, tag_names_.size());
    if (added) {
        tag_names_.push_back(tag);
    }
    return found->second;
}

Comparison::Row& Comparison::RowOf(uint32_t number, const std::string& tag, char level) {
    // What is known by its tag stays so; what comes when there are too many is not told apart.
    const auto known = tags_.find(tag);
    uint32_t index = known == tags_.end() ? UINT32_MAX : known->second;
    const auto key = [&] { return Key(RowKey(number, index), level); };
    if (index == UINT32_MAX || rows_.count(key()) == 0) {
        const bool fold = rows_.size() >= kMaxRows;
        folded_ = folded_ || fold;
        index = TagOf(fold ? std::string(kAnyTag) : tag);
    }
    std::unique_ptr<Row>& row = rows_[key()];
    if (!row) {
        row = std::make_unique<Row>();
        row->number = number;
        row->tag = index;
        row->level = level;
        row->line_numbers.push_back(line_numbers_++);
    }
    return *row;
}

size_t Comparison::SliceOf(Side side, const Line& line, const PatternTime& time) {
    SideState& state = sides_.at(side);
    // The time of a dump goes on from where that of the one before ended.
    const auto [last, is_first] = state.last_ms.try_emplace(line.dump, line.time_ms);
    if (!is_first) {
        state.all.span_ms += std::max<int64_t>(0, line.time_ms - last->second);
        last->second = line.time_ms;
    }
    while (state.all.span_ms / state.slice_ms >= static_cast<int64_t>(SideCount::kSlices)) {
        state.slice_ms *= 2;
        auto& begins = state.slice_begins;
        for (size_t i = 0; i < begins.size() / 2; ++i) {
            begins.at(i) = begins.at(2 * i);
        }
        state.slices_begun = (state.slices_begun + 1) / 2;
        for (const auto& [key, row] : rows_) {
            auto& slices = row->sides.at(side).slices;
            for (size_t i = 0; i < slices.size(); ++i) {
                slices.at(i) = 2 * i < slices.size() ? slices.at(2 * i) + slices.at(2 * i + 1) : 0;
            }
        }
    }
    const auto slice = static_cast<size_t>(state.all.span_ms / state.slice_ms);
    while (state.slices_begun <= slice) {
        state.slice_begins.at(state.slices_begun++) = time;
    }
    return slice;
}

uint32_t Comparison::Add(Side side, const Line& line, std::optional<int64_t> boot_time_ms) {
    std::string room;
    const std::string_view message = MessageText(line, room);
    const uint32_t number = finder_.Take(FinderText(line));
    if (finder_.Numbers() >= gather_at_) {
        Gather();
        gather_at_ = finder_.Numbers() + 4096;
    }
    const PatternTime time{line.time_ms, boot_time_ms, sides_.at(side).all.lines++};
    const size_t slice = SliceOf(side, line, time);
    Row& row = RowOf(number, std::string(line.source.tag), line.level);
    SideCount& counts = row.sides.at(side);
    if (counts.count == 0) {
        counts.first = time;
        row.example = PatternTable::ExampleOf(message);
        row.cut = message.size() > row.example.size();
        row.example_of_bad = side == kBad;
    }
    ++counts.count;
    ++counts.slices.at(slice);
    counts.last = time;
    return row.line_numbers.front();
}

void Comparison::Gather() {
    std::vector<std::unique_ptr<Row>> moved;
    for (auto row = rows_.begin(); row != rows_.end();) {
        if (finder_.Group(row->second->number) == row->second->number) {
            ++row;
            continue;
        }
        moved.push_back(std::move(row->second));
        row = rows_.erase(row);
    }
    for (std::unique_ptr<Row>& from : moved) {
        from->number = finder_.Group(from->number);
        std::unique_ptr<Row>& into = rows_[Key(RowKey(from->number, from->tag), from->level)];
        if (!into) {
            into = std::move(from);
            continue;
        }
        if (std::tuple(!from->example_of_bad, from->sides[from->example_of_bad].first.line) <
            std::tuple(!into->example_of_bad, into->sides[into->example_of_bad].first.line)) {
            into->example = std::move(from->example);
            into->cut = from->cut;
            into->example_of_bad = from->example_of_bad;
        }
        into->line_numbers.insert(into->line_numbers.end(), from->line_numbers.begin(),
                                  from->line_numbers.end());
        Merge(from->sides[kGood], into->sides[kGood]);
        Merge(from->sides[kBad], into->sides[kBad]);
    }
}

SliceCounts Comparison::Slices(Side side, const SideCount& counts) const {
    const SideState& state = sides_.at(side);
    const auto whole = static_cast<size_t>(state.all.span_ms / state.slice_ms);
    SliceCounts slices;
    slices.lines.assign(counts.slices.begin(),
                        counts.slices.begin() + static_cast<long>(whole) + 1);
    slices.last_slice = static_cast<double>(state.all.span_ms % state.slice_ms + 1) /
                        static_cast<double>(state.slice_ms);
    if (slices.last_slice < 0.5 && whole > 0) {
        slices.lines[whole - 1] += slices.lines[whole];
        slices.lines.pop_back();
        slices.last_slice += 1;
    }
    return slices;
}

double Comparison::TimeShare() const {
    return static_cast<double>(sides_[kBad].all.span_ms + 1) /
           static_cast<double>(sides_[kGood].all.span_ms + 1);
}

double Comparison::UsualShare() const {
    std::vector<std::pair<double, double>> shares{{std::log(TimeShare()), kTimeWeight}};
    for (const auto& [key, row] : rows_) {
        const double good = static_cast<double>(row->sides[kGood].count) + 0.5;
        const double bad = static_cast<double>(row->sides[kBad].count) + 0.5;
        if (good > 1) {
            shares.emplace_back(std::log(bad / good),
                                1 / (row->burst * (1 / good + 1 / bad) + kRateVariance));
        }
    }
    return std::exp(Median(std::move(shares)));
}

double Comparison::UsualBurst() const {
    std::vector<std::pair<double, double>> factors{{1, 1}};
    for (const auto& [key, row] : rows_) {
        if (row->sides[kGood].count >= kFewLines) {
            factors.emplace_back(BurstFactor(Slices(kGood, row->sides[kGood]), 1), 1);
        }
    }
    return Median(std::move(factors));
}

void Comparison::Test() {
    const double usual_burst = UsualBurst();
    Novelty novelty;
    for (const auto& [key, row] : rows_) {
        const SideCount& good = row->sides[kGood];
        const double bad_burst = BurstFactor(Slices(kBad, row->sides[kBad]), 1);
        if (good.count == 0) {
            row->burst = bad_burst;
        } else {
            const SliceCounts slices = Slices(kGood, good);
            row->good_burst = BurstFactor(slices, usual_burst);
            row->burst = JoinedBurstFactor(row->good_burst, bad_burst);
            novelty.Add(row->level, Episodes(slices, row->good_burst), row->good_burst);
        }
    }
    novelty.Finish();
    usual_share_ = UsualShare();
    const double time_share = TimeShare();
    const ShareRange range{std::min(usual_share_, time_share), std::max(usual_share_, time_share)};
    for (const auto& [key, row] : rows_) {
        const auto good = static_cast<double>(row->sides[kGood].count);
        const auto bad = static_cast<double>(row->sides[kBad].count);
        row->chance = ChanceOfRates(good, bad, range, row->burst, row->good_burst);
        if (good == 0) {
            // Each time but the first tells against chance.
            const double again = std::max(0.0, bad / row->burst - 1);
            const double expected = novelty.Expected(row->level, row->burst) * time_share *
                                    std::pow(range.high / (1 + range.high), again);
            row->chance = std::min(row->chance, expected / static_cast<double>(rows_.size()));
        } else if (bad > 0) {
            const Peak peak =
                FindPeak(Slices(kBad, row->sides[kBad]), good * range.high, row->good_burst);
            if (peak.chance < row->chance) {
                row->peak = peak.slice;
            }
            row->chance = std::min(1.0, 2 * std::min(peak.chance, row->chance));  // two tests
        }
    }
}

Differences Comparison::Finish() {
    finder_.Finish();
    Gather();
    Test();
    std::vector<double> chances;
    // Levels and lines of the good side, by number and tag.
    std::map<uint64_t, std::pair<uint64_t, char>> old_levels;
    for (const auto& [key, row] : rows_) {
        chances.push_back(row->chance);
        auto& old = old_levels[key.first];
        old = std::max(old, {row->sides[kGood].count, row->level});
    }
    const double bound = DiscoveryBound(std::move(chances), kFalseDiscoveries);

    const auto is_new = [](const Row& row) { return row.sides[kGood].count == 0; };
    const auto is_changed = [&](const Row& row) {
        return row.chance <= bound || (is_new(row) && row.chance <= kChanceNew);
    };
    std::map<uint64_t, char> raised;  // old level, by number and tag
    for (const auto& [key, row] : rows_) {
        if (const auto& old = old_levels[key.first];
            is_new(*row) && is_changed(*row) && old.first > 0) {
            raised[key.first] = old.second;
        }
    }
    Differences found;
    for (const auto& [key, row] : rows_) {
        const bool changed = is_changed(*row);
        if (!changed && !is_new(*row) && row->chance > kDoubtful) {
            continue;
        }
        Change change = ChangeOf(*row);
        if (const auto old = raised.find(key.first); old != raised.end()) {
            if (old->second == row->level && change.Falls()) {
                continue;  // told by the row of the new level
            }
            if (change.kind == Change::Kind::kNew) {
                change.kind = Change::Kind::kLevel;
                change.old_level = old->second;
            }
        }
        if (changed) {
            found.changes.push_back(std::move(change));
        } else if (change.kind == Change::Kind::kBurst || change.ratio >= kDoubtfulRatio ||
                   change.ratio <= 1 / kDoubtfulRatio) {
            found.doubtful.push_back(std::move(change));
        }
    }
    const auto by_chance = [](const Change& change) {
        return std::tuple(change.chance, Rank(change.level), change.time.line,
                          std::tie(change.tag, change.text));
    };
    std::sort(found.doubtful.begin(), found.doubtful.end(),
              [&](const Change& a, const Change& b) { return by_chance(a) < by_chance(b); });
    // Errors that are new or more frequent, then what chance explains least.
    std::sort(found.changes.begin(), found.changes.end(), [&](const Change& a, const Change& b) {
        const auto later = [](const Change& change) {
            return change.Falls() || Rank(change.level) > 1;
        };
        return std::tuple(later(a), by_chance(a)) < std::tuple(later(b), by_chance(b));
    });
    std::map<std::pair<std::string, Change::Kind>, size_t> listed;
    std::stable_partition(found.changes.begin(), found.changes.end(),
                          [&listed](const Change& change) {
                              return ++listed[{change.tag, change.kind}] <= kOfOneKind;
                          });
    return found;
}

Change Comparison::ChangeOf(const Row& row) const {
    Change change;
    change.good = row.sides[kGood];
    change.bad = row.sides[kBad];
    if (change.good.count > 0) {
        change.ratio = static_cast<double>(change.bad.count) /
                       static_cast<double>(change.good.count) / usual_share_;
    }
    change.kind = change.good.count == 0  ? Change::Kind::kNew
                  : change.bad.count == 0 ? Change::Kind::kGone
                  : row.peak              ? Change::Kind::kBurst
                  : change.ratio > 1      ? Change::Kind::kMore
                                          : Change::Kind::kLess;
    change.level = row.level;
    change.tag = tag_names_[row.tag];
    change.text = finder_.Text(row.number);
    change.example = row.example;
    change.cut = row.cut;
    change.chance = row.chance;
    change.numbers = row.line_numbers;
    change.time = change.kind == Change::Kind::kBurst ? sides_[kBad].slice_begins.at(*row.peak)
                  : change.bad.count > 0              ? change.bad.first
                                                      : change.good.last;
    return change;
}

}  // namespace trelvo
