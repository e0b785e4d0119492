#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

// The records of the compressed buffer, oldest first, in as little memory as they can be had.
//
// Records are appended to an open page, which is plain. A page that is full is sealed: packed by
// zstd, with a checksum, into memory of exactly that size, and never changed again, so that a
// snapshot shares it. With a dictionary, the first page of each group is the base with which the
// others are packed; it stays for as long as one of them:
//
//  +------+------+------+--   --+------+------+------+--
//  | base | page | page |  ...  | page | base | page | ...    open page
//  +------+------+------+--   --+------+------+------+--
//
// Bytes in, bytes out: what a record, a limit or a lock is, the owner knows. Not synchronised.
// Any call that adds throws std::bad_alloc where memory runs out and then changes nothing.
class RecordStore {
public:
    using Bytes = std::vector<unsigned char>;
    using Sink = std::function<void(const unsigned char* data, size_t size)>;
    // The length of the record that starts at `data`, where `size` bytes of records are left.
    using RecordLength = size_t (*)(const unsigned char* data, size_t size);

    struct Page;

    // What was in the store at one moment. Borrows nothing, may be used on another thread.
    class Snapshot {
    public:
        // All record bytes, oldest first, a page at a time. Gives every page back as soon as it is
        // handed on; needs memory for a page and for a base.
        // Throws std::runtime_error where a page does not unpack to what it was made from.
        void Drain(const Sink& sink);
        // The same as a chain of zstd frames, each with size and checksum: one of `head`, one for
        // each page, one of the open page. Pages that were packed without a dictionary are handed
        // on as they lie.
        void DrainPacked(const Bytes& head, const Sink& sink);

    private:
        friend class RecordStore;
        std::deque<std::shared_ptr<const Page>> pages_;
        size_t skipped_ = 0;  // bytes of the first page that were dropped
        Bytes open_;
    };

    // `pageSize` in bytes, at least 1: a page is sealed before a record that would make it larger.
    // A record larger than that has a page of its own.
    explicit RecordStore(size_t pageSize, bool withDictionary = false);
    RecordStore(const RecordStore&) = delete;
    RecordStore& operator=(const RecordStore&) = delete;
    ~RecordStore();

    // For the pages to come.
    void SetPages(size_t pageSize, bool withDictionary);

    // Returns true when a page was sealed: only then Memory() grows.
    bool Append(const unsigned char* data, size_t size);

    // Drops the oldest `count` records, or all. Returns the bytes they had. Unpacks the page in
    // which the cut lies, and its base.
    size_t DropOldest(size_t count, RecordLength length);
    // Drops the oldest page, the open one when it is the only one. Returns the bytes it had.
    size_t DropOldestPage();

    [[nodiscard]] Snapshot Share() const;
    void Clear() noexcept;

    [[nodiscard]] size_t Records() const { return records_; }
    // Bytes of memory: packed pages and what they need, the open page, the prepared dictionary,
    // and, with a dictionary, what sealing a page and draining a snapshot take for a moment.
    [[nodiscard]] size_t Memory() const;

private:
    struct Group;  // whose pages are being packed with one dictionary

    [[nodiscard]] bool IsBaseOpen() const;
    void Seal();
    void EmptyOpenPage() noexcept;

    size_t pageSize_;
    bool withDictionary_;
    std::deque<std::shared_ptr<const Page>> pages_;
    // Of the first page, what DropOldest() took.
    size_t skippedBytes_ = 0;
    size_t skippedRecords_ = 0;

    Bytes plain_;  // the open page
    size_t openRecords_ = 0;
    std::unique_ptr<Group> group_;  // null where the next page is a base or has none
    size_t withoutDictionary_ = 0;  // so many pages to come, since it did not gain

    size_t records_ = 0;
    size_t packed_ = 0;  // bytes of all pages and of a base that only later pages need
    size_t kept_ = 0;    // of these, the base's, when it was dropped already
};
