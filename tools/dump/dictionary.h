#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "io/shared_limits.h"

namespace trelvo {

// Who wrote a record. The tag lives as long as the dictionary that it came from.
struct Source {
    std::string_view tag;
    int32_t pid = 0;
    int32_t tid = 0;
    uint32_t place = 0;  // 0, 1, 2, ... in order of the indexes: another for each source of a dump
};

// What the indexes in the records of one dump stand for.
class Dictionary {
public:
    // Takes the entries as they stand in the dump, at this offset, and the charge that they were
    // read with. Throws DamageError when they are damaged, when a key or an index comes twice, or
    // when they take too much memory.
    Dictionary(std::string entries, uint64_t offset, MemoryCharge charge = {});

    [[nodiscard]] std::optional<Source> Find(uint32_t index) const;
    // That of a place below Size().
    [[nodiscard]] Source At(size_t place) const;
    [[nodiscard]] bool HasTag(std::string_view tag) const;
    // What the entries take in the dump.
    [[nodiscard]] size_t Bytes() const { return entries_.size(); }
    // How many indexes there are.
    [[nodiscard]] size_t Size() const { return threads_.size(); }

private:
    // Positions instead of views: entries_ may move together with the dictionary.
    struct Key {
        uint32_t entry = 0;  // position of the entry in entries_
        uint32_t tag = 0;    // position of the tag in entries_
        uint32_t tag_length = 0;
        int32_t pid = 0;
    };
    struct Thread {
        uint32_t index = 0;
        int32_t tid = 0;
        uint32_t key = 0;   // place in keys_
        uint32_t pair = 0;  // position of the pair in entries_
    };

    void ReadEntries(uint64_t offset);
    void RefuseRepetition(uint64_t offset);
    [[nodiscard]] std::string_view Tag(const Key& key) const {
        return std::string_view(entries_).substr(key.tag, key.tag_length);
    }

    // Lets one more key or thread be held, at the offset.
    void Charge(uint64_t bytes, uint64_t offset);

    MemoryCharge charge_;
    std::string entries_;
    std::vector<Key> keys_;        // in the order of the entries
    std::vector<Thread> threads_;  // ordered by index
};

}  // namespace trelvo
