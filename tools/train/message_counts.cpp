#include "train/message_counts.h"

#include <algorithm>
#include <map>
#include <vector>

#include "text/escape.h"
#include "train/record_cost.h"

namespace trelvo {

namespace {

// What a counted text takes besides itself: the node, its share of the bucket array, and what the
// heap keeps for two blocks.
constexpr uint64_t kEntryBytes = 104;

uint64_t EntryMemory(std::string_view text) {
    return kEntryBytes + text.size();
}

// With a share of what its tag takes, which goes with the last of its texts.
uint64_t TextMemory(std::string_view tag, const MessageCounts::Texts& texts,
                    std::string_view text) {
    return EntryMemory(text) + (EntryMemory(tag) + texts.size() - 1) / texts.size();
}

}  // namespace

bool CouldBeCode(std::string_view message) {
    constexpr size_t kLongestCode = 3;
    return message.size() <= kLongestCode && !IsText(message);
}

void MessageCounts::Add(std::string_view tag, std::string_view message, uint64_t count) {
    count = std::min(count, kMostCount);
    lines_ += static_cast<double>(count);
    message_bytes_ += static_cast<double>(count) * static_cast<double>(MessageCost(message.size()));
    tag_.assign(tag);
    message_.assign(message);
    const auto [texts, new_tag] = tags_.try_emplace(tag_);
    const auto [text, new_text] = texts->second.try_emplace(message_, 0);
    text->second = std::min(text->second + count, kMostCount);
    memory_ += (new_tag ? EntryMemory(tag_) : 0) + (new_text ? EntryMemory(message_) : 0);
    if (most_memory_ != 0 && memory_ > most_memory_) {
        DropRarest();
    }
}

void MessageCounts::DropRarest() {
    std::map<uint64_t, uint64_t> memory_of;  // by count
    for (const auto& [tag, texts] : tags_) {
        for (const auto& [text, count] : texts) {
            memory_of[count] += TextMemory(tag, texts, text);
        }
    }
    // All below the limit goes, and of those at the limit as many as it takes.
    const uint64_t too_much = memory_ - most_memory_ / 2;
    uint64_t limit = 0;
    uint64_t below = 0;
    for (const auto& [count, memory] : memory_of) {
        limit = count;
        if (below + memory >= too_much) {
            break;
        }
        below += memory;
    }
    // Copies, since the text itself goes.
    const auto [last_tag, last_text] = LastOfFirst(limit, too_much - below);
    const TagAndText last(last_tag, last_text);

    for (auto tag = tags_.begin(); tag != tags_.end();) {
        Texts& texts = tag->second;
        for (auto text = texts.begin(); text != texts.end();) {
            if (text->second > limit ||
                (text->second == limit && TagAndText(tag->first, text->first) > last)) {
                ++text;
                continue;
            }
            memory_ -= EntryMemory(text->first);
            ++dropped_;
            highest_dropped_ = std::max(highest_dropped_, text->second);
            dropped_codes_ = dropped_codes_ || CouldBeCode(text->first);
            text = texts.erase(text);
        }
        if (texts.empty()) {
            memory_ -= EntryMemory(tag->first);
            tag = tags_.erase(tag);
        } else {
            ++tag;
        }
    }
}

std::pair<std::string, std::string> MessageCounts::LastOfFirst(uint64_t count,
                                                               uint64_t memory) const {
    std::vector<std::pair<TagAndText, uint64_t>> found;  // and the memory of each
    for (const auto& [tag, texts] : tags_) {
        for (const auto& [text, number] : texts) {
            if (number == count) {
                found.emplace_back(TagAndText(tag, text), TextMemory(tag, texts, text));
            }
        }
    }
    // By halving, not by sorting: what is before `begin` goes, what is behind `end` stays.
    auto begin = found.begin();
    auto end = found.end();
    while (end - begin > 1) {
        const auto middle = begin + (end - begin) / 2;
        std::nth_element(begin, middle, end);
        uint64_t lower = 0;
        std::for_each(begin, middle, [&](const auto& text) { lower += text.second; });
        if (lower < memory) {
            memory -= lower;
            begin = middle;
        } else {
            end = middle;
        }
    }
    return {std::string(begin->first.first), std::string(begin->first.second)};
}

}  // namespace trelvo
