#include "RecordStore.h"

#include <gtest/gtest.h>
#include <zstd.h>

#include <random>
#include <stdexcept>

#include "support/failing_memory.h"

namespace test_support {
namespace {

using Bytes = RecordStore::Bytes;
using Records = std::deque<Bytes>;

// A record says its own size first: in a byte, or in three after FF.
Bytes MakeRecord(size_t size, const std::function<unsigned()>& random) {
    Bytes record{static_cast<unsigned char>(size)};
    if (size >= 255) {
        record = {0xFF, static_cast<unsigned char>(size >> 16U),
                  static_cast<unsigned char>(size >> 8U), static_cast<unsigned char>(size)};
    }
    const bool is_text = random() % 8 != 0;
    for (unsigned word = random() % 4; record.size() < size; word = word * 5 + 1) {
        record.push_back(static_cast<unsigned char>(is_text ? word : random()));
    }
    return record;
}

size_t LengthOf(const unsigned char* at, size_t size) {
    EXPECT_GT(size, 0U);
    const size_t length = at[0] < 255 ? at[0] : size_t{at[1]} << 16U | size_t{at[2]} << 8U | at[3];
    return std::max<size_t>(length, 1);
}

Bytes Joined(const Records& records, size_t count = SIZE_MAX) {
    Bytes joined;
    for (size_t i = 0; i < std::min(count, records.size()); ++i) {
        joined.insert(joined.end(), records[i].begin(), records[i].end());
    }
    return joined;
}

RecordStore::Sink AppendTo(Bytes& out) {
    return [&out](const unsigned char* data, size_t size) {
        out.insert(out.end(), data, data + size);
    };
}

Bytes Drained(RecordStore::Snapshot snapshot) {
    Bytes drained;
    snapshot.Drain(AppendTo(drained));
    return drained;
}

// Each frame must stand for itself, and say its size and its checksum.
Bytes Unpacked(RecordStore::Snapshot snapshot, const Bytes& head) {
    Bytes packed, unpacked;
    snapshot.DrainPacked(head, AppendTo(packed));
    for (size_t at = 0; at < packed.size();) {
        const size_t frame = ZSTD_findFrameCompressedSize(&packed[at], packed.size() - at);
        const auto size =
            static_cast<size_t>(ZSTD_getFrameContentSize(&packed[at], packed.size() - at));
        if (ZSTD_isError(frame) != 0 || (packed[at + 4] & 4) == 0 || size > (64U << 20U)) {
            throw std::runtime_error("a frame without size or checksum");
        }
        Bytes content(size);
        EXPECT_EQ(ZSTD_decompress(content.data(), size, &packed[at], frame), size);
        unpacked.insert(unpacked.end(), content.begin(), content.end());
        at += frame;
    }
    return unpacked;
}

void CompareWithADeque(size_t page, bool with_dictionary) {
    std::mt19937 generator(static_cast<unsigned>(page) + (with_dictionary ? 1 : 0));
    const auto below = [&](size_t limit) { return generator() % limit; };
    RecordStore store(page, with_dictionary);
    Records records;
    std::deque<std::pair<RecordStore::Snapshot, Bytes>> shared;
    const auto drop = [&](size_t count) {
        const Bytes dropped = Joined(records, count);
        records.erase(records.begin(), records.begin() + static_cast<ptrdiff_t>(count));
        return dropped.size();
    };
    for (int step = 0; step < 2500; ++step) {
        const size_t kind = below(100);
        if (kind < 2) {
            const size_t count = below(1 + records.size() / (1 + below(8) * below(100)));
            const size_t more = count == records.size() ? 1 : 0;
            ASSERT_EQ(store.DropOldest(count + more, LengthOf), drop(count));
        } else if (kind < 4) {
            const size_t bytes = store.DropOldestPage();
            ASSERT_EQ(drop(records.size() - store.Records()), bytes);
        } else if (kind < 7) {
            shared.emplace_back(store.Share(), Joined(records));
        } else if (kind < 10 && !shared.empty()) {
            const auto& [snapshot, content] = shared.front();
            ASSERT_EQ(Drained(snapshot), content);
            Bytes whole{'h', 'e', 'a', 'd'};
            whole.insert(whole.end(), content.begin(), content.end());
            ASSERT_EQ(Unpacked(snapshot, {'h', 'e', 'a', 'd'}), whole);
            shared.pop_front();
        } else if (kind == 10 && below(20) == 0) {
            store.Clear();
            records.clear();
            ASSERT_LE(store.Memory(), 8 * page);
        } else if (kind == 11 && below(8) == 0) {
            store.SetPages(below(2) == 0 ? page : 1 + below(2 * page), below(2) == 0);
        } else {
            const size_t largest = below(200) == 0 ? 20 * page + 300 : 2 + page / 4 + below(40);
            records.push_back(MakeRecord(1 + below(largest), generator));
            store.Append(records.back().data(), records.back().size());
        }
        ASSERT_EQ(store.Records(), records.size());
    }
    ASSERT_EQ(Drained(store.Share()), Joined(records));
    store.SetPages(page, with_dictionary);
    while (store.Records() != 0) {
        store.DropOldestPage();
    }
    EXPECT_LE(store.Memory(), 8 * page) << "memory of what was dropped";
}

TEST(RecordStoreTest, HoldsWhatADequeHolds) {
    for (const size_t page : std::initializer_list<size_t>{1, 16, 64, 4096}) {
        for (const bool with_dictionary : {false, true}) {
            SCOPED_TRACE(page);
            CompareWithADeque(page, with_dictionary);
        }
    }
}

TEST(RecordStoreTest, MemoryCountsNoPageThatNothingNeeds) {
    const size_t free = HeapInUse();
    constexpr size_t kPage = 4096;
    RecordStore store(kPage, true);
    std::mt19937 random(1);
    const auto append = [&](int count) {
        for (int i = 0; i < count; ++i) {
            const Bytes record = MakeRecord(100, random);
            store.Append(record.data(), record.size());
        }
    };
    for (int round = 0; round < 20; ++round) {
        append(200);
        while (store.Records() != 0) {
            store.DropOldestPage();
        }
    }
    EXPECT_LE(HeapInUse() - free, 32U << 10U) << "the memory of a dictionary that nothing needs";
    append(1);
    EXPECT_LE(store.Memory(), 4 * kPage) << "of pages that are gone";
    append(4000);
    const size_t before = store.Memory();
    for (int i = 0; i < 100000; i += 1000) {
        append(1000);
        while (store.Records() > 4000) {
            store.DropOldestPage();
        }
        ASSERT_LE(store.Memory(), before * 6 / 5) << i;
        ASSERT_LE(HeapInUse() - free + 3 * kPage, store.Memory())
            << "what it counts is what it takes, and what sealing and draining will";
    }
    const Bytes large(1 << 20, 'x');
    store.Append(large.data(), large.size());
    while (store.Records() != 0) {
        store.DropOldestPage();
    }
    EXPECT_LE(store.Memory(), 64U << 10U) << "the large record's memory";
}

TEST(RecordStoreTest, ADamagedPageIsNotedWhenItIsRead) {
    RecordStore store(64);
    for (int i = 0; i < 10; ++i) {
        const Bytes record = MakeRecord(50, [i] { return static_cast<unsigned>(8 + i); });
        store.Append(record.data(), record.size());
    }
    // What is handed on as it lies is the memory that the other snapshot shares.
    RecordStore::Snapshot damaged = store.Share();
    int frames = 0;
    store.Share().DrainPacked({}, [&](const unsigned char* data, size_t size) {
        if (++frames == 3) {
            const_cast<unsigned char*>(data)[size / 2] ^= 1U;
        }
    });
    Bytes drained;
    EXPECT_THROW(damaged.Drain(AppendTo(drained)), std::runtime_error);
    EXPECT_EQ(drained.size(), 50U) << "the pages before it";
}

TEST(RecordStoreTest, AppendingWithoutMemoryChangesNothing) {
    RecordStore store(64, true);
    Records records;
    int failures = 0;
    for (unsigned i = 0; i < 150; ++i) {
        const Bytes record = MakeRecord(i % 40 == 39 ? 3000 : 30, [] { return 9U; });
        for (int allocations = 0;; ++allocations) {
            FailAllocationAfter(allocations);
            try {
                store.Append(record.data(), record.size());
                EXPECT_FALSE(AllocationFailed());
                break;
            } catch (const std::bad_alloc&) {
                ASSERT_TRUE(AllocationFailed());
            }
            ++failures;
            ASSERT_EQ(store.Records(), records.size());
            ASSERT_EQ(Drained(store.Share()), Joined(records)) << allocations;
        }
        records.push_back(record);
    }
    EXPECT_EQ(Drained(store.Share()), Joined(records));
    EXPECT_GT(failures, 100);
}

}  // namespace
}  // namespace test_support
