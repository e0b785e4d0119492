#include "patterns/pattern_table.h"

#include <algorithm>
#include <utility>

#include "text/escape.h"

namespace trelvo {

std::string_view MessageText(const Line& line, std::string& room) {
    if (line.kind != Line::Message::kCode) {
        return line.message;
    }
    room = "<code " + Hex(line.message) + '>';
    return room;
}

std::string_view FinderText(const Line& line) {
    return line.kind == Line::Message::kCode ? "<code 00>" : line.message;
}

char PatternRow::WorstLevel() const {
    for (const char level : {'F', 'E', 'W', 'I'}) {
        if (levels.count(level) > 0) {
            return level;
        }
    }
    return 'D';
}

size_t PatternTable::PartOf(const PatternTime& time, size_t boot) {
    // Within a boot its clock may be set. Where time runs back, as at a reboot, or is of another
    // kind than before, the log goes on from where it was.
    int64_t step = 0;
    if (last_ && boot == last_boot_) {
        step = time.time_ms - last_->time_ms;
    } else if (last_ && last_->boot_time_ms.has_value() == time.boot_time_ms.has_value()) {
        step = time.Ms() - last_->Ms();
    }
    at_ms_ += std::max<int64_t>(0, step);
    last_ = time;
    last_boot_ = boot;
    while (at_ms_ / part_ms_ >= static_cast<int64_t>(PatternRow::kParts)) {
        part_ms_ *= 2;
        for (const auto& row : rows_) {
            if (row) {
                auto& parts = row->timeline;
                for (size_t i = 0; i < parts.size(); ++i) {
                    parts[i] = 2 * i < parts.size() ? parts[2 * i] + parts[2 * i + 1] : 0;
                }
            }
        }
    }
    part_ = static_cast<size_t>(at_ms_ / part_ms_);
    return part_;
}

uint32_t PatternTable::Add(const Line& line, std::optional<int64_t> boot_time_ms, size_t boot) {
    std::string room;
    const std::string_view message = MessageText(line, room);
    const uint32_t number = finder_.Take(FinderText(line));
    rows_.resize(finder_.Numbers());  // what is gathered may go to a new number
    if (finder_.Numbers() >= gather_at_) {
        Gather();
        gather_at_ = finder_.Numbers() + 4096;
    }
    const PatternTime time{line.time_ms, boot_time_ms, lines_++};
    const size_t part = PartOf(time, boot);
    if (!rows_[number]) {
        rows_[number] = std::make_unique<PatternRow>();
        PatternRow& row = *rows_[number];
        row.first = time;
        row.tag = std::string(line.source.tag);
        row.example = ExampleOf(message);
        row.cut = message.size() > row.example.size();
    }
    PatternRow& row = *rows_[number];
    ++row.count;
    ++row.levels[line.level];
    ++row.timeline[part];
    row.last = time;
    return number;
}

std::string PatternTable::ExampleOf(std::string_view message) {
    if (message.size() <= kMaxExample) {
        return std::string(message);
    }
    constexpr size_t kMostFollowing = 3;
    size_t size = kMaxExample;
    while (size > kMaxExample - kMostFollowing && (message[size] & 0xC0) == 0x80) {
        --size;  // not within a character of UTF-8
    }
    return std::string(message.substr(0, size));
}

void PatternTable::Gather() {
    for (uint32_t number = 0; number < rows_.size(); ++number) {
        const uint32_t group = finder_.Group(number);
        if (group == number || !rows_[number]) {
            continue;
        }
        std::unique_ptr<PatternRow> from = std::move(rows_[number]);
        std::unique_ptr<PatternRow>& into = rows_[group];
        if (!into) {
            into = std::move(from);
            continue;
        }
        if (from->first.line < into->first.line) {
            std::swap(from, into);
        }
        into->count += from->count;
        for (const auto& [level, count] : from->levels) {
            into->levels[level] += count;
        }
        for (size_t i = 0; i < into->timeline.size(); ++i) {
            into->timeline[i] += from->timeline[i];
        }
        if (from->last.line > into->last.line) {
            into->last = from->last;
        }
    }
}

void PatternTable::Finish() {
    finder_.Finish();
    rows_.resize(finder_.Numbers());
    Gather();
    std::vector<uint32_t> order;
    for (uint32_t number = 0; number < rows_.size(); ++number) {
        if (rows_[number]) {
            rows_[number]->text = finder_.Text(number);
            rows_[number]->fold = finder_.IsFold(number);
            order.push_back(number);
        }
    }
    std::sort(order.begin(), order.end(), [this](uint32_t a, uint32_t b) {
        return rows_[a]->count != rows_[b]->count ? rows_[a]->count > rows_[b]->count
                                                  : rows_[a]->first.line < rows_[b]->first.line;
    });
    places_.resize(rows_.size());
    std::vector<std::unique_ptr<PatternRow>> rows;
    for (const uint32_t number : order) {
        places_[number] = rows.size();
        rows.push_back(std::move(rows_[number]));
    }
    rows_ = std::move(rows);
}

std::string Sparkline(const PatternRow& row, size_t parts) {
    static constexpr std::array<const char*, 8> kHeights{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const uint64_t most = *std::max_element(row.timeline.begin(), row.timeline.end());
    std::string text;
    for (size_t i = 0; i < parts; ++i) {
        const uint64_t count = row.timeline.at(i);
        text += count == 0 ? " "
                           : kHeights.at(static_cast<size_t>((count * kHeights.size() - 1) / most));
    }
    return text;
}

}  // namespace trelvo
