#include "CodeTable.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

#include "KeyedHash.h"
#include "RecordPacking.h"

namespace {

constexpr unsigned kPlaceBits = 21;
constexpr size_t kHugePage = size_t{1} << kPlaceBits;
constexpr size_t kMaxChunks = (size_t{1} << (32 - kPlaceBits)) - 1;
constexpr uint32_t kNoRow = UINT32_MAX;  // would be in the chunk after the last

// A small table needs small chunks; the rest of a large one is small beside it, whatever its size.
constexpr size_t kSmallChunk = size_t{64} << 10;
constexpr size_t kSmallChunks = 4 * kHugePage / kSmallChunk;

// Larger memory is had in huge pages where the kernel gives them: of the time that filling a table
// takes, getting it page by page would be a fifth. Freed by free().
void* Allocate(size_t size) {
    void* memory = nullptr;
    if (size < kHugePage) {
        memory = std::malloc(size);
    } else if (posix_memalign(&memory, kHugePage, size) != 0) {
        memory = nullptr;
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    if (size >= kHugePage) {
        // Only what is filled up; best effort: without it, they are ordinary pages.
        static_cast<void>(madvise(memory, size / kHugePage * kHugePage, MADV_HUGEPAGE));
    }
    return memory;
}

std::string_view View(const unsigned char* begin, const unsigned char* end) {
    return {reinterpret_cast<const char*>(begin), static_cast<size_t>(end - begin)};
}

size_t SlotsFor(size_t rows) {
    return rows + rows / 2 + 1;
}

}  // namespace

bool CodeTable::Add(std::string_view text, std::string_view digits) {
    const size_t code_size = digits.size() / 8;
    unsigned char* const row = MakeRoom(2 * packing::kLongestLeb128 + text.size() + code_size);
    unsigned char* end = packing::PutLeb128(static_cast<int>(text.size()), row);
    std::memcpy(end, text.data(), text.size());
    end = packing::PutLeb128(static_cast<int>(code_size), end + text.size());
    if (packing::PutCodeText(digits, end) != code_size) {
        return false;
    }
    chunks_.back().used += static_cast<size_t>(end - row) + code_size;
    ++rows_;
    return true;
}

unsigned char* CodeTable::MakeRoom(size_t size) {
    // A row that is larger than a chunk has one of its own; no row begins behind it.
    if (chunks_.empty() || chunks_.back().used >= kHugePage ||
        chunks_.back().size - chunks_.back().used < size) {
        CloseChunk();
        if (chunks_.size() == kMaxChunks) {
            throw std::bad_alloc();
        }
        Chunk chunk;
        chunk.size = std::max(size, chunks_.size() < kSmallChunks ? kSmallChunk : kHugePage);
        chunk.bytes.reset(static_cast<unsigned char*>(Allocate(chunk.size)));
        chunks_.push_back(std::move(chunk));
        chunk_bytes_ += chunks_.back().size;
    }
    return &chunks_.back().bytes[chunks_.back().used];
}

void CodeTable::CloseChunk() {
    if (chunks_.empty() || chunks_.back().used == 0) {
        return;
    }
    // Gives the rest back where it lies. Should that fail, the chunk stays as large as it was.
    Chunk& chunk = chunks_.back();
    if (void* const shorter = std::realloc(chunk.bytes.get(), chunk.used)) {
        static_cast<void>(chunk.bytes.release());
        chunk.bytes.reset(static_cast<unsigned char*>(shorter));
        chunk_bytes_ -= chunk.size - chunk.used;
        chunk.size = chunk.used;
    }
}

void CodeTable::Index() {
    CloseChunk();
    slot_count_ = SlotsFor(rows_);
    slots_.reset(static_cast<Slot*>(Allocate(slot_count_ * sizeof(Slot))));
    std::fill_n(slots_.get(), slot_count_, Slot{kNoRow, 0});

    // A row's slot may be anywhere in memory: it is on its way while the rows behind are hashed.
    struct Waiting {
        std::string_view text;
        uint64_t hash;
        uint32_t row;
    };
    std::array<Waiting, 16> waiting{};
    const auto put = [this](const Waiting& row) {
        slots_[SlotOf(row.text, row.hash)] = {row.row, static_cast<uint32_t>(row.hash)};
    };
    size_t count = 0;
    for (size_t number = 0; number < chunks_.size(); ++number) {
        const Chunk& chunk = chunks_[number];
        for (size_t at = 0; at < chunk.used;) {
            const Row row = ReadRow(&chunk.bytes[at]);
            const uint64_t hash = keyed::Hash(row.text);
            __builtin_prefetch(&slots_[FirstSlot(hash)], 1);
            Waiting& next = waiting[count % waiting.size()];
            if (count >= waiting.size()) {
                put(next);
            }
            next = {row.text, hash, static_cast<uint32_t>(number << kPlaceBits | at)};
            ++count;
            at += row.size;
        }
    }
    for (size_t i = count - std::min(count, waiting.size()); i < count; ++i) {
        put(waiting[i % waiting.size()]);
    }
}

std::string_view CodeTable::Find(std::string_view text) const {
    const Slot& slot = slots_[SlotOf(text, keyed::Hash(text))];
    return slot.row == kNoRow ? std::string_view() : RowAt(slot.row).stored;
}

size_t CodeTable::Memory() const {
    return chunk_bytes_ + chunks_.capacity() * sizeof(Chunk) + SlotsFor(rows_) * sizeof(Slot);
}

size_t CodeTable::Probes(std::string_view text) const {
    const uint64_t hash = keyed::Hash(text);
    const size_t first = FirstSlot(hash);
    const size_t last = SlotOf(text, hash);
    return 1 + (last >= first ? last - first : last + slot_count_ - first);
}

CodeTable::Row CodeTable::ReadRow(const unsigned char* bytes) {
    const unsigned char* text = bytes;
    const size_t text_size = packing::ReadLeb128(text);
    const unsigned char* const stored = text + text_size;
    const unsigned char* code = stored;
    const size_t code_size = packing::ReadLeb128(code);
    const unsigned char* const end = code + code_size;
    return {View(text, stored), View(stored, end), static_cast<size_t>(end - bytes)};
}

CodeTable::Row CodeTable::RowAt(uint32_t row) const {
    return ReadRow(&chunks_[row >> kPlaceBits].bytes[row & (kHugePage - 1)]);
}

size_t CodeTable::FirstSlot(uint64_t hash) const {
    return static_cast<size_t>((hash >> 32U) * slot_count_ >> 32U);
}

size_t CodeTable::SlotOf(std::string_view text, uint64_t hash) const {
    size_t at = FirstSlot(hash);
    for (; slots_[at].row != kNoRow; at = at + 1 == slot_count_ ? 0 : at + 1) {
        if (slots_[at].mark == static_cast<uint32_t>(hash) && RowAt(slots_[at].row).text == text) {
            break;
        }
    }
    return at;
}
