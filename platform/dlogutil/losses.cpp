#include "dlogutil/losses.h"

namespace dlogutil {
namespace {

constexpr std::chrono::minutes kPause(1);

}  // namespace

bool LossCounts::operator==(const LossCounts& other) const {
    return removed == other.removed && unreadable == other.unreadable &&
           left_out == other.left_out && uncounted == other.uncounted;
}

std::optional<std::string> LossReport::Take(const LossCounts& counts, Time now) {
    const std::optional<Time> next = Next(counts);
    if (!next || now < *next) {
        return std::nullopt;
    }
    std::string text;
    const auto add = [&text](uint64_t count, uint64_t said, const char* what) {
        if (count > said) {
            text += (text.empty() ? "lost: " : ", ") + std::to_string(count - said) + what;
        }
    };
    add(counts.removed, said_.removed, " entries that the journal removed before they were read");
    add(counts.unreadable, said_.unreadable, " entries that could not be read");
    add(counts.left_out, said_.left_out, " lines of entries that are too long");
    add(counts.uncounted, said_.uncounted,
        " times an unknown number of entries, as the journal's files went and it counts anew");
    said_ = counts;
    last_ = now;
    return text;
}

std::optional<LossReport::Time> LossReport::Next(const LossCounts& counts) const {
    if (counts == said_) {
        return std::nullopt;
    }
    return last_ ? *last_ + kPause : Time();
}

}  // namespace dlogutil
