#include "train/message_counts.h"

#include <algorithm>
#include <map>

#include "train/record_cost.h"

namespace {

// What a table entry takes besides its text: the node, its place in the bucket array, and what the
// heap keeps for two blocks.
constexpr uint64_t kEntryBytes = 104;

uint64_t EntryMemory(const std::string& text) {
    return kEntryBytes + text.size();
}

}  // namespace

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
            memory_of[count] += EntryMemory(text);
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
    uint64_t at_limit = too_much > below ? too_much - below : 0;

    for (auto tag = tags_.begin(); tag != tags_.end();) {
        Texts& texts = tag->second;
        for (auto text = texts.begin(); text != texts.end();) {
            const uint64_t memory = EntryMemory(text->first);
            const bool last_ones = text->second == limit && at_limit > 0;
            if (text->second >= limit && !last_ones) {
                ++text;
                continue;
            }
            at_limit -= last_ones ? std::min(at_limit, memory) : 0;
            memory_ -= memory;
            ++dropped_;
            highest_dropped_ = std::max(highest_dropped_, text->second);
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
