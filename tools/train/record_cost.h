#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "train/keyed_hash.h"

namespace trelvo {

// Sizes in bytes of what the recorder writes (docs/dump-format.md).

[[nodiscard]] size_t Leb128Size(uint64_t value);
// The length and the bytes of a message or a code of this size.
[[nodiscard]] size_t MessageCost(size_t size);

// Gives the sizes of the records that a recorder makes of the lines it sees, from a start of the
// service on: indexes of the dictionary come in the order of first sight.
class RecordModel {
public:
    // Time delta, record header and message of `message_cost` bytes.
    [[nodiscard]] size_t RecordSize(uint64_t delta_ms, std::string_view tag, int32_t pid,
                                    int32_t tid, size_t message_cost);

private:
    std::unordered_map<std::string, uint32_t, KeyedHash> indexes_;  // by tag, PID and TID
    std::string key_;  // spare room for the next look-up
};

}  // namespace trelvo
