#include "dump/dictionary.h"

#include <algorithm>
#include <charconv>
#include <tuple>
#include <utility>

#include "dump/byte_reader.h"

namespace trelvo {

namespace {

// The key must be all of "tag,pid"; a tag may hold commas itself.
std::pair<size_t, int32_t> SplitKey(const std::string& key, uint64_t offset) {
    const size_t comma = key.rfind(',');
    if (comma == std::string::npos) {
        throw DamageError(offset, "dictionary key has no comma before its PID");
    }
    int32_t pid = 0;
    const char* const end = key.data() + key.size();
    const auto [stop, error] = std::from_chars(key.data() + comma + 1, end, pid);
    if (error != std::errc{} || stop != end) {
        throw DamageError(offset, "dictionary key has a PID that is not a 32-bit number");
    }
    return {comma, pid};
}

}  // namespace

Dictionary::Dictionary(std::string entries, uint64_t offset, MemoryCharge charge)
    : charge_(std::move(charge)), entries_(std::move(entries)) {
    entries_.shrink_to_fit();
    static_cast<void>(charge_.Set(0));
    Charge(entries_.size(), offset);
    ReadEntries(offset);
    RefuseRepetition(offset);
    keys_.shrink_to_fit();
    threads_.shrink_to_fit();
    static_cast<void>(charge_.Set(entries_.size() + keys_.size() * sizeof(Key) +
                                  threads_.size() * sizeof(Thread)));
}

void Dictionary::Charge(uint64_t bytes, uint64_t offset) {
    if (!charge_.Add(bytes)) {
        throw DamageError(offset, std::string("dictionary ") + MemoryCharge::kExceeded);
    }
}

void Dictionary::ReadEntries(uint64_t offset) {
    ByteReader reader(entries_, offset);
    std::string key;
    std::string spare;
    while (!reader.AtEnd()) {
        const uint64_t key_offset = reader.Offset();
        reader.Counted("dictionary key", key);
        const auto [tag_length, pid] = SplitKey(key, key_offset);
        Charge(2 * sizeof(Key), offset);  // growing, and looking for repetitions, take it twice
        keys_.push_back({static_cast<uint32_t>(key_offset - offset),
                         static_cast<uint32_t>(reader.Offset() - offset - key.size()),
                         static_cast<uint32_t>(tag_length), pid});

        const std::string_view pairs = reader.CountedView("pair list", spare);
        ByteReader pair_reader(pairs, reader.Offset() - pairs.size());
        while (!pair_reader.AtEnd()) {
            const uint64_t pair_offset = pair_reader.Offset();
            const int32_t tid = pair_reader.Leb128("TID");
            const int32_t index = pair_reader.Unsigned("dictionary index");
            if (index == 0) {
                throw DamageError(pair_offset, "dictionary index is 0");
            }
            Charge(2 * sizeof(Thread), offset);
            threads_.push_back({static_cast<uint32_t>(index), tid,
                                static_cast<uint32_t>(keys_.size() - 1),
                                static_cast<uint32_t>(pair_offset - offset)});
        }
    }
}

void Dictionary::RefuseRepetition(uint64_t offset) {
    std::sort(threads_.begin(), threads_.end(), [](const Thread& a, const Thread& b) {
        return std::tie(a.index, a.pair) < std::tie(b.index, b.pair);
    });
    const auto thread =
        std::adjacent_find(threads_.begin(), threads_.end(),
                           [](const Thread& a, const Thread& b) { return a.index == b.index; });
    if (thread != threads_.end()) {
        throw DamageError(offset + std::next(thread)->pair,
                          "dictionary index " + std::to_string(thread->index) + " comes twice");
    }

    std::vector<Key> keys = keys_;
    const auto text = [this](const Key& key) { return std::make_tuple(Tag(key), key.pid); };
    std::sort(keys.begin(), keys.end(), [&text](const Key& a, const Key& b) {
        return std::tuple_cat(text(a), std::tie(a.entry)) <
               std::tuple_cat(text(b), std::tie(b.entry));
    });
    const auto key =
        std::adjacent_find(keys.begin(), keys.end(),
                           [&text](const Key& a, const Key& b) { return text(a) == text(b); });
    if (key != keys.end()) {
        throw DamageError(offset + std::next(key)->entry, "dictionary key comes twice");
    }
}

std::optional<Source> Dictionary::Find(uint32_t index) const {
    // The recorder numbers them 1, 2, 3, ...; others may leave numbers out.
    auto thread = threads_.begin() +
                  static_cast<std::ptrdiff_t>(std::min<size_t>(index - size_t{1}, threads_.size()));
    if (thread == threads_.end() || thread->index != index) {
        thread = std::lower_bound(
            threads_.begin(), threads_.end(), index,
            [](const Thread& entry, uint32_t wanted) { return entry.index < wanted; });
    }
    if (thread == threads_.end() || thread->index != index) {
        return std::nullopt;
    }
    return At(static_cast<size_t>(thread - threads_.begin()));
}

Source Dictionary::At(size_t place) const {
    const Key& key = keys_[threads_[place].key];
    return {Tag(key), key.pid, threads_[place].tid, static_cast<uint32_t>(place)};
}

bool Dictionary::HasTag(std::string_view tag) const {
    return std::any_of(keys_.begin(), keys_.end(),
                       [this, tag](const Key& key) { return Tag(key) == tag; });
}

}  // namespace trelvo
