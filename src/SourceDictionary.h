#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// The tag, process and thread dictionary: a small number, the index, for each source of log lines.
//
// Indexes count from 1 in the order of first appearance. Those that Forget() took back are given
// out again, the lowest first, before any new one.
//
// Flat tables, found by keyed hashes: log writers choose the keys. Copying it copies a few blocks
// of memory; a new one needs none. Not synchronised.
class SourceDictionary {
public:
    using Bytes = std::vector<unsigned char>;

    struct Entry {
        int index = 0;
        bool isNew = false;     // was added by this very call
        bool isNewKey = false;  // so was its tag with its process
    };

    // Finds or adds a source, and notes that record number `record` refers to it; the numbers must
    // not decrease. Throws std::bad_alloc, having changed nothing.
    Entry Find(std::string_view tag, int pid, int tid, uint64_t record);

    // Removes the entries to which no record from number `oldest` on refers.
    void Forget(uint64_t oldest);

    // Bytes that the entries take in an image.
    [[nodiscard]] size_t ImageSize() const { return image_size_; }
    // Bytes of memory.
    [[nodiscard]] size_t Memory() const;

    // Places of the tables that finding the source looks at.
    [[nodiscard]] size_t Probes(std::string_view tag, int pid, int tid);

    // Appends the entries as a dump has them: one for each "tag,pid", in the order of their bytes,
    // with pairs of tid and index in the order of the tids.
    void AppendImage(Bytes& out) const;

private:
    struct Tag {
        uint32_t start;  // in texts_
        uint32_t size;
    };
    struct Key {
        uint32_t tag;  // its number in tags_ plus 1; 0 in a free slot
        int pid;
        uint32_t pairs;  // bytes of its pairs in an image
    };
    struct Source {
        uint32_t tag;  // as in Key
        int pid;
        int tid;
        int index;
        uint64_t record;  // the last one that refers to it
    };

    [[nodiscard]] std::string_view Text(uint32_t tag) const;
    // The slot of the tag, key or source, or the free one where it belongs.
    uint32_t& TagSlot(std::string_view tag);
    Key& KeySlot(uint32_t tag, int pid);
    Source& SourceSlot(uint32_t tag, int pid, int tid);
    // Makes room in all tables for one more entry.
    void Reserve(std::string_view tag);
    // Adds a new source, with all but its tag's number. Returns true when its key is new, too.
    bool Add(std::string_view tag, Source source);

    std::vector<char> texts_;
    std::vector<Tag> tags_;
    // Open addressing, at most three quarters of the slots are used.
    std::vector<uint32_t> tag_slots_;  // number in tags_ plus 1; 0 in a free slot
    std::vector<Key> keys_;
    std::vector<Source> sources_;
    size_t key_count_ = 0;
    size_t source_count_ = 0;
    size_t last_ = 0;  // slot of the source that was found last

    std::vector<int> free_;  // indexes to be given out again, the lowest last
    int last_index_ = 0;     // the highest one in use
    size_t image_size_ = 0;
};
