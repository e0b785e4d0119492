#include "SourceDictionary.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "KeyedHash.h"
#include "RecordPacking.h"

namespace {

constexpr size_t kFirstSlots = 64;

bool HasRoom(size_t slots, size_t count) {
    return 4 * count <= 3 * slots;
}

// Grows by a half: what both tables take for a moment is memory, too.
size_t SlotsFor(size_t count) {
    size_t slots = kFirstSlots;
    while (!HasRoom(slots, count)) {
        slots += slots / 2;
    }
    return slots;
}

// The hash as a fraction of 1: any number of slots will do.
size_t FirstSlot(uint64_t hash, size_t slots) {
    return static_cast<size_t>((hash >> 32U) * slots >> 32U);
}

// The slot of open addressing for which `isIt` holds, or the first free one.
template <typename Slot, typename IsFree, typename IsIt>
Slot& Locate(std::vector<Slot>& slots, uint64_t hash, IsFree isFree, IsIt isIt) {
    size_t at = FirstSlot(hash, slots.size());
    while (!isFree(slots[at]) && !isIt(slots[at])) {
        at = at + 1 == slots.size() ? 0 : at + 1;
    }
    return slots[at];
}

// Room for one more of `count`; `place` finds a slot's new place.
template <typename Slot, typename IsFree, typename Place>
void MakeRoom(std::vector<Slot>& slots, size_t count, IsFree isFree, Place place) {
    if (HasRoom(slots.size(), count + 1)) {
        return;
    }
    std::vector<Slot> old(SlotsFor(count + 1));
    old.swap(slots);
    for (const Slot& slot : old) {
        if (!isFree(slot)) {
            place(slot) = slot;
        }
    }
}

template <typename Entry>
bool IsUnused(const Entry& entry) {
    return entry.tag == 0;
}

bool IsZero(uint32_t slot) {
    return slot == 0;
}

}  // namespace

std::string_view SourceDictionary::Text(uint32_t tag) const {
    const Tag& entry = tags_[tag - 1];
    return {texts_.data() + entry.start, entry.size};
}

uint32_t& SourceDictionary::TagSlot(std::string_view tag) {
    return Locate(tag_slots_, keyed::Hash(tag), IsZero,
                  [&](uint32_t slot) { return Text(slot) == tag; });
}

SourceDictionary::Key& SourceDictionary::KeySlot(uint32_t tag, int pid) {
    return Locate(keys_, keyed::Hash(tag, static_cast<uint32_t>(pid)), IsUnused<Key>,
                  [&](const Key& key) { return key.tag == tag && key.pid == pid; });
}

SourceDictionary::Source& SourceDictionary::SourceSlot(uint32_t tag, int pid, int tid) {
    return Locate(sources_,
                  keyed::Hash(tag, static_cast<uint32_t>(pid), static_cast<uint32_t>(tid)),
                  IsUnused<Source>, [&](const Source& source) {
                      return source.tag == tag && source.pid == pid && source.tid == tid;
                  });
}

void SourceDictionary::Reserve(std::string_view tag) {
    if (texts_.size() + tag.size() > UINT32_MAX) {
        throw std::bad_alloc();
    }
    MakeRoom(tag_slots_, tags_.size(), IsZero,
             [this](uint32_t slot) -> uint32_t& { return TagSlot(Text(slot)); });
    MakeRoom(keys_, key_count_, IsUnused<Key>,
             [this](const Key& key) -> Key& { return KeySlot(key.tag, key.pid); });
    MakeRoom(sources_, source_count_, IsUnused<Source>, [this](const Source& source) -> Source& {
        return SourceSlot(source.tag, source.pid, source.tid);
    });
}

SourceDictionary::Entry SourceDictionary::Find(std::string_view tag, int pid, int tid,
                                               uint64_t record) {
    // Lines come in bursts of one source.
    if (last_ < sources_.size()) {
        Source& source = sources_[last_];
        if (source.pid == pid && source.tid == tid && source.tag != 0 && Text(source.tag) == tag) {
            source.record = record;
            return {source.index};
        }
    }
    const uint32_t known = tag_slots_.empty() ? 0 : TagSlot(tag);
    if (known != 0) {
        Source& source = SourceSlot(known, pid, tid);
        if (source.tag != 0) {
            last_ = static_cast<size_t>(&source - sources_.data());
            source.record = record;
            return {source.index};
        }
    }
    Source added{0, pid, tid, free_.empty() ? last_index_ + 1 : free_.back(), record};
    const bool isNewKey = Add(tag, added);
    if (free_.empty()) {
        ++last_index_;
    } else {
        free_.pop_back();
    }
    return {added.index, true, isNewKey};
}

bool SourceDictionary::Add(std::string_view tag, Source source) {
    Reserve(tag);
    uint32_t& tagSlot = TagSlot(tag);
    if (tagSlot == 0) {
        tags_.push_back({static_cast<uint32_t>(texts_.size()), static_cast<uint32_t>(tag.size())});
        try {
            texts_.insert(texts_.end(), tag.begin(), tag.end());
        } catch (...) {
            tags_.pop_back();
            throw;
        }
        tagSlot = static_cast<uint32_t>(tags_.size());
    }
    source.tag = tagSlot;
    Key& key = KeySlot(tagSlot, source.pid);
    const bool isNewKey = key.tag == 0;
    if (isNewKey) {
        const size_t size = tag.size() + 1 + std::to_string(source.pid).size();
        image_size_ += packing::Leb128Size(static_cast<int>(size)) + size;
        key = {tagSlot, source.pid, 0};
        ++key_count_;
    } else {
        image_size_ -= packing::Leb128Size(static_cast<int>(key.pairs)) + key.pairs;
    }
    key.pairs +=
        static_cast<uint32_t>(packing::Leb128Size(source.tid) + packing::Leb128Size(source.index));
    image_size_ += packing::Leb128Size(static_cast<int>(key.pairs)) + key.pairs;
    SourceSlot(tagSlot, source.pid, source.tid) = source;
    ++source_count_;
    return isNewKey;
}

void SourceDictionary::Forget(uint64_t oldest) {
    const auto isKept = [&](const Source& source) {
        return source.tag != 0 && source.record >= oldest;
    };
    const auto count = static_cast<size_t>(std::count_if(sources_.begin(), sources_.end(), isKept));
    if (count == source_count_) {
        return;
    }
    SourceDictionary kept;
    kept.sources_.resize(SlotsFor(count));
    std::vector<bool> isUsed(static_cast<size_t>(last_index_) + 1);
    for (const Source& source : sources_) {
        if (isKept(source)) {
            kept.Add(Text(source.tag), source);
            kept.last_index_ = std::max(kept.last_index_, source.index);
            isUsed[static_cast<size_t>(source.index)] = true;
        }
    }
    for (int index = kept.last_index_ - 1; index >= 1; --index) {
        if (!isUsed[static_cast<size_t>(index)]) {
            kept.free_.push_back(index);
        }
    }
    *this = std::move(kept);
}

size_t SourceDictionary::Memory() const {
    return texts_.capacity() + tags_.capacity() * sizeof(Tag) +
           tag_slots_.capacity() * sizeof(uint32_t) + keys_.capacity() * sizeof(Key) +
           sources_.capacity() * sizeof(Source) + free_.capacity() * sizeof(int);
}

size_t SourceDictionary::Probes(std::string_view tag, int pid, int tid) {
    const auto probes = [](const auto& slots, uint64_t hash, const auto& slot) {
        const size_t first = FirstSlot(hash, slots.size());
        const auto at = static_cast<size_t>(&slot - slots.data());
        return 1 + (at >= first ? at - first : at + slots.size() - first);
    };
    const uint32_t& slot = TagSlot(tag);
    const auto process = static_cast<uint32_t>(pid);
    return probes(tag_slots_, keyed::Hash(tag), slot) +
           probes(keys_, keyed::Hash(slot, process), KeySlot(slot, pid)) +
           probes(sources_, keyed::Hash(slot, process, static_cast<uint32_t>(tid)),
                  SourceSlot(slot, pid, tid));
}

void SourceDictionary::AppendImage(Bytes& out) const {
    // The keys' texts one after the other, and which entry has which.
    struct Row {
        size_t start;
        size_t size;
        const Source* source;
    };
    std::string texts;
    std::vector<Row> rows;
    rows.reserve(source_count_);
    for (const Source& source : sources_) {
        if (source.tag != 0) {
            const size_t start = texts.size();
            texts.append(Text(source.tag)).append(",").append(std::to_string(source.pid));
            rows.push_back({start, texts.size() - start, &source});
        }
    }
    const auto key = [&](const Row& row) {
        return std::string_view(texts).substr(row.start, row.size);
    };
    std::sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) {
        const int order = key(a).compare(key(b));
        return order != 0 ? order < 0 : a.source->tid < b.source->tid;
    });
    out.reserve(out.size() + image_size_);
    Bytes pairs;
    for (auto row = rows.begin(); row != rows.end();) {
        const std::string_view text = key(*row);
        pairs.clear();
        for (; row != rows.end() && key(*row) == text; ++row) {
            packing::AppendLeb128(row->source->tid, pairs);
            packing::AppendLeb128(row->source->index, pairs);
        }
        packing::AppendLeb128(static_cast<int>(text.size()), out);
        out.insert(out.end(), text.begin(), text.end());
        packing::AppendLeb128(static_cast<int>(pairs.size()), out);
        out.insert(out.end(), pairs.begin(), pairs.end());
    }
}
