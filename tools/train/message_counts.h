#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "train/keyed_hash.h"

namespace trelvo {

// Whether a code might have the same bytes as this message: codes are short and are never text.
[[nodiscard]] bool CouldBeCode(std::string_view message);

// How often each tag logged each text. Memory follows the distinct texts; where a bound is set and
// they outgrow it, the rarest are dropped until half of it is free again, of equally rare ones
// those that come first in byte order. A text that comes back is then counted from 0, so the counts
// of what was ever dropped are too low, by no more than the highest count that was dropped each
// time.
class MessageCounts {
public:
    using Texts = std::unordered_map<std::string, uint64_t, KeyedHash>;
    // A count stops here, so that sums of counts stay within 64 bits.
    static constexpr uint64_t kMostCount = 1'000'000'000'000;

    // In bytes; 0 sets no bound.
    explicit MessageCounts(uint64_t most_memory) : most_memory_(most_memory) {}

    void Add(std::string_view tag, std::string_view message, uint64_t count);

    [[nodiscard]] const std::unordered_map<std::string, Texts, KeyedHash>& Tags() const {
        return tags_;
    }
    // Of all that was added, dropped or not.
    [[nodiscard]] double Lines() const { return lines_; }
    // Their messages as text, with their lengths.
    [[nodiscard]] double MessageBytes() const { return message_bytes_; }
    // Texts that were dropped, one that came back and was dropped again twice.
    [[nodiscard]] uint64_t Dropped() const { return dropped_; }
    [[nodiscard]] uint64_t HighestDropped() const { return highest_dropped_; }
    // Whether one of them could be a code, so that nobody knows any more which codes are free.
    [[nodiscard]] bool DroppedCodes() const { return dropped_codes_; }
    // An estimate, in bytes.
    [[nodiscard]] uint64_t Memory() const { return memory_; }

private:
    using TagAndText = std::pair<std::string_view, std::string_view>;

    void DropRarest();
    // Tag and text: of all that were counted so often, in byte order, the one up to which they take
    // this memory; the last one when all take less.
    [[nodiscard]] std::pair<std::string, std::string> LastOfFirst(uint64_t count,
                                                                  uint64_t memory) const;

    uint64_t most_memory_;
    uint64_t memory_ = 0;
    uint64_t dropped_ = 0;
    uint64_t highest_dropped_ = 0;
    bool dropped_codes_ = false;
    double lines_ = 0;
    double message_bytes_ = 0;
    std::unordered_map<std::string, Texts, KeyedHash> tags_;
    std::string tag_;  // spare room for the next look-up
    std::string message_;
};

}  // namespace trelvo
