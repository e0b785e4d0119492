#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

// Finds entries of an ordered container by hash: one place in memory to look at, where walking the
// container's tree takes a dozen. The container is the truth; entries say how to get to it.
template <typename Entry>
class HashIndex {
public:
    // The entry for which `isSame` holds; null when there is none. `hash` must be that of its
    // Add(). Valid until the next Add() or Clear().
    template <typename IsSame>
    [[nodiscard]] const Entry* Find(uint64_t hash, IsSame isSame) const {
        if (slots_.empty()) {
            return nullptr;
        }
        const uint64_t mark = Mark(hash);
        for (size_t at = First(mark);; at = Next(at)) {
            const Slot& slot = slots_[at];
            if (slot.mark == 0) {
                return nullptr;
            }
            if (slot.mark == mark && isSame(slot.entry)) {
                return &slot.entry;
            }
        }
    }

    // REQUIRES: Find() does not find it.
    void Add(uint64_t hash, const Entry& entry) {
        if (2 * (used_ + 1) > slots_.size()) {
            Resize(slots_.empty() ? kFirstSlots : 2 * slots_.size());
        }
        Put({Mark(hash), entry});
        ++used_;
    }

    // Makes room for `count` entries at once.
    void Reserve(size_t count) {
        size_t slots = kFirstSlots;
        while (slots < 2 * count) {
            slots *= 2;
        }
        Resize(slots);
    }

    void Clear() {
        slots_.clear();
        used_ = 0;
    }

private:
    static constexpr size_t kFirstSlots = 64;

    struct Slot {
        uint64_t mark;  // 0 in a free slot
        Entry entry;
    };

    static uint64_t Mark(uint64_t hash) { return hash << 1U | 1U; }
    // The factor is odd and has bits all over: hashes that differ little end far apart.
    size_t First(uint64_t mark) const {
        return static_cast<size_t>((mark * 0x9E3779B97F4A7C15U) >> 32U) & (slots_.size() - 1);
    }
    size_t Next(size_t at) const { return (at + 1) & (slots_.size() - 1); }

    void Put(const Slot& slot) {
        size_t at = First(slot.mark);
        while (slots_[at].mark != 0) {
            at = Next(at);
        }
        slots_[at] = slot;
    }

    void Resize(size_t size) {
        std::vector<Slot> old(size);
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.mark != 0) {
                Put(slot);
            }
        }
    }

    std::vector<Slot> slots_;  // none, or a power of two of which at most half are used
    size_t used_ = 0;
};
