// For dictionaries by reference: the bases of a group lie in memory already. These calls are as
// old as the stable ones that are used here.
#define ZSTD_STATIC_LINKING_ONLY
#include "RecordStore.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

// Chosen by measurement, see docs/benchmarks.md.
constexpr int kLevel = 1;
constexpr size_t kGroupPages = 36;  // after so many the dictionary is made anew
constexpr double kGain = 0.95;      // it is used where pages get this much smaller by it
constexpr int kWindowLog = 20;      // reaches over a page and its dictionary
constexpr ZSTD_compressionParameters kDictionaryParameters = {kWindowLog, 6, 14,       1,
                                                              6,          0, ZSTD_fast};

template <typename Type, size_t (*Free)(Type*)>
struct FreeWith {
    void operator()(Type* object) const { static_cast<void>(Free(object)); }
};
using Packer = std::unique_ptr<ZSTD_CCtx, FreeWith<ZSTD_CCtx, ZSTD_freeCCtx>>;
using Dictionary = std::unique_ptr<ZSTD_CDict, FreeWith<ZSTD_CDict, ZSTD_freeCDict>>;

size_t Checked(size_t result) {
    if (ZSTD_isError(result) == 0) {
        return result;
    }
    if (ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation) {
        throw std::bad_alloc();
    }
    throw std::runtime_error(std::string("zstd: ") + ZSTD_getErrorName(result));
}

template <typename Owner>
Owner Made(typename Owner::pointer object) {
    if (object == nullptr) {
        throw std::bad_alloc();
    }
    return Owner(object);
}

Packer MakePacker() {
    Packer packer = Made<Packer>(ZSTD_createCCtx());
    Checked(ZSTD_CCtx_setParameter(packer.get(), ZSTD_c_compressionLevel, kLevel));
    Checked(ZSTD_CCtx_setParameter(packer.get(), ZSTD_c_checksumFlag, 1));
    return packer;
}

// Memory that is not written before it is used.
struct Block {
    std::unique_ptr<unsigned char[]> data;
    size_t size = 0;
};

// `scratch` grows to what the worst case needs; of that only the result's bytes are touched.
size_t Pack(ZSTD_CCtx* packer, const RecordStore::Bytes& plain, size_t skipped, Block& scratch) {
    const size_t bound = ZSTD_compressBound(plain.size());
    if (scratch.size < bound) {
        scratch = {std::unique_ptr<unsigned char[]>(new unsigned char[bound]), bound};
    }
    return Checked(ZSTD_compress2(packer, scratch.data.get(), bound, plain.data() + skipped,
                                  plain.size() - skipped));
}

// In memory of exactly its size. `dictionary` may be null.
Block Packed(const RecordStore::Bytes& plain, const ZSTD_CDict* dictionary) {
    // In use only while a page is sealed: it would be a large part of a small store.
    const Packer packer = MakePacker();
    if (dictionary != nullptr) {
        Checked(ZSTD_CCtx_setParameter(packer.get(), ZSTD_c_windowLog, kWindowLog));
        Checked(ZSTD_CCtx_refCDict(packer.get(), dictionary));
    }
    Block scratch;
    const size_t size = Pack(packer.get(), plain, 0, scratch);
    Block packed{std::unique_ptr<unsigned char[]>(new unsigned char[size]), size};
    std::copy_n(scratch.data.get(), size, packed.data.get());
    return packed;
}

}  // namespace

struct RecordStore::Page {
    std::shared_ptr<const Page> base;  // the page that is its dictionary; null for none
    bool isBase = false;
    size_t bytes = 0;
    size_t records = 0;
    Block packed;

    // With what the allocator and the reference count add.
    [[nodiscard]] size_t Memory() const { return sizeof(Page) + 64 + packed.size; }
};

struct RecordStore::Group {
    std::shared_ptr<const Page> base;
    Bytes plain;            // the base's bytes
    Dictionary dictionary;  // refers to `plain`; null until it is first needed
    size_t pages = 0;       // that were packed with it
    size_t memory = 0;      // bytes of all but the page
};

namespace {

class Unpacker {
public:
    // Valid until the next call.
    const RecordStore::Bytes& Unpack(const RecordStore::Page& page);

private:
    void UnpackTo(RecordStore::Bytes& out, const RecordStore::Page& page);

    using Context = std::unique_ptr<ZSTD_DCtx, FreeWith<ZSTD_DCtx, ZSTD_freeDCtx>>;
    Context context_ = Made<Context>(ZSTD_createDCtx());
    std::shared_ptr<const RecordStore::Page> base_;  // what dictionary_ is of
    RecordStore::Bytes dictionary_;
    RecordStore::Bytes page_;
};

const RecordStore::Bytes& Unpacker::Unpack(const RecordStore::Page& page) {
    if (page.base != nullptr) {
        if (page.base != base_) {
            base_.reset();  // nothing is loaded when the rest throws
            UnpackTo(dictionary_, *page.base);
            base_ = page.base;
        }
        Checked(ZSTD_DCtx_refPrefix(context_.get(), dictionary_.data(), dictionary_.size()));
    }
    UnpackTo(page_, page);
    return page_;
}

void Unpacker::UnpackTo(RecordStore::Bytes& out, const RecordStore::Page& page) {
    out.resize(page.bytes);
    const size_t size = Checked(ZSTD_decompressDCtx(context_.get(), out.data(), out.size(),
                                                    page.packed.data.get(), page.packed.size));
    if (size != page.bytes) {
        throw std::runtime_error("zstd: a page unpacks to another size");
    }
}

}  // namespace

void RecordStore::Snapshot::Drain(const Sink& sink) {
    Unpacker unpacker;
    for (; !pages_.empty(); pages_.pop_front()) {
        const Bytes& page = unpacker.Unpack(*pages_.front());
        sink(page.data() + skipped_, page.size() - skipped_);
        skipped_ = 0;
    }
    sink(open_.data(), open_.size());
}

void RecordStore::Snapshot::DrainPacked(const Bytes& head, const Sink& sink) {
    Unpacker unpacker;
    const Packer packer = MakePacker();
    Block scratch;
    const auto pack = [&](const Bytes& plain, size_t skipped) {
        const size_t size = Pack(packer.get(), plain, skipped, scratch);
        sink(scratch.data.get(), size);
    };
    pack(head, 0);
    for (; !pages_.empty(); pages_.pop_front()) {
        const Page& page = *pages_.front();
        if (page.base == nullptr && skipped_ == 0) {
            sink(page.packed.data.get(), page.packed.size);
        } else {
            pack(unpacker.Unpack(page), skipped_);
        }
        skipped_ = 0;
    }
    if (!open_.empty()) {
        pack(open_, 0);
    }
}

RecordStore::RecordStore(size_t pageSize, bool withDictionary)
    : pageSize_(pageSize), withDictionary_(withDictionary) {}
RecordStore::~RecordStore() = default;

void RecordStore::SetPages(size_t pageSize, bool withDictionary) {
    pageSize_ = pageSize;
    withDictionary_ = withDictionary;
    group_.reset();
}

bool RecordStore::Append(const unsigned char* data, size_t size) {
    if (group_ != nullptr && group_->dictionary == nullptr) {
        // Not when the base is sealed: no single call is to wait for both.
        group_->dictionary = Made<Dictionary>(ZSTD_createCDict_advanced(
            group_->plain.data(), group_->plain.size(), ZSTD_dlm_byRef, ZSTD_dct_rawContent,
            kDictionaryParameters, ZSTD_defaultCMem));
        group_->memory = group_->plain.capacity() + ZSTD_sizeof_CDict(group_->dictionary.get());
    }
    const bool isFull = !plain_.empty() && plain_.size() + size > pageSize_;
    if (isFull) {
        Seal();
    }
    if (plain_.size() + size > plain_.capacity()) {
        // At once for all that is to come, so that a page's memory is what it holds.
        plain_.reserve(std::max(plain_.size() + size, pageSize_));
    }
    plain_.insert(plain_.end(), data, data + size);
    ++openRecords_;
    ++records_;
    return isFull;
}

bool RecordStore::IsBaseOpen() const {
    return withDictionary_ && group_ == nullptr && withoutDictionary_ == 0;
}

void RecordStore::Seal() {
    const auto page = std::make_shared<Page>();
    page->bytes = plain_.size();
    page->records = openRecords_;
    page->isBase = IsBaseOpen();
    page->base = group_ == nullptr ? nullptr : group_->base;
    page->packed = Packed(plain_, group_ == nullptr ? nullptr : group_->dictionary.get());
    if (group_ != nullptr && group_->pages == 0) {
        Block without = Packed(plain_, nullptr);
        if (static_cast<double>(page->packed.size) > kGain * static_cast<double>(without.size)) {
            page->base = nullptr;
            page->packed = std::move(without);
        }
    }
    std::unique_ptr<Group> group;
    if (page->isBase) {
        group = std::make_unique<Group>();
        group->base = page;
        group->memory = plain_.capacity();
    }
    pages_.push_back(page);

    // From here on nothing throws.
    packed_ += page->Memory();
    openRecords_ = 0;
    if (group != nullptr) {
        group->plain.swap(plain_);
        group_ = std::move(group);
        return;
    }
    EmptyOpenPage();
    if (group_ == nullptr) {
        withoutDictionary_ -= std::min<size_t>(withoutDictionary_, 1);
    } else if (page->base == nullptr) {
        group_.reset();
        withoutDictionary_ = kGroupPages;
    } else if (++group_->pages == kGroupPages) {
        group_.reset();
    }
}

void RecordStore::EmptyOpenPage() noexcept {
    if (plain_.capacity() > 2 * pageSize_) {
        Bytes().swap(plain_);  // was made for a large record
    } else {
        plain_.clear();
    }
    openRecords_ = 0;
}

void RecordStore::Clear() noexcept {
    EmptyOpenPage();
    group_.reset();
    pages_.clear();
    skippedBytes_ = skippedRecords_ = records_ = packed_ = kept_ = 0;
}

size_t RecordStore::DropOldest(size_t count, RecordLength length) {
    size_t bytes = 0;
    while (count != 0 && !pages_.empty() && count >= pages_.front()->records - skippedRecords_) {
        count -= pages_.front()->records - skippedRecords_;
        bytes += DropOldestPage();
    }
    if (count == 0 || records_ == 0) {
        return bytes;
    }
    const auto cut = [&](const unsigned char* data, size_t size) {
        size_t at = 0;
        for (size_t i = 0; i < count; ++i) {
            at += length(data + at, size - at);
        }
        return at;
    };
    count = std::min(count, records_);
    if (pages_.empty()) {
        const size_t dropped = cut(plain_.data(), plain_.size());
        plain_.erase(plain_.begin(), plain_.begin() + static_cast<std::ptrdiff_t>(dropped));
        openRecords_ -= count;
        bytes += dropped;
    } else {
        Unpacker unpacker;
        const Bytes& page = unpacker.Unpack(*pages_.front());
        const size_t dropped = cut(page.data() + skippedBytes_, page.size() - skippedBytes_);
        skippedBytes_ += dropped;
        skippedRecords_ += count;
        bytes += dropped;
    }
    records_ -= count;
    return bytes;
}

size_t RecordStore::DropOldestPage() {
    if (pages_.empty()) {
        const size_t bytes = plain_.size();
        EmptyOpenPage();
        records_ = 0;
        return bytes;
    }
    const std::shared_ptr<const Page> page = std::move(pages_.front());
    pages_.pop_front();
    const size_t bytes = page->bytes - skippedBytes_;
    records_ -= page->records - skippedRecords_;
    skippedBytes_ = skippedRecords_ = 0;
    // A base stays until all pages of its group, which come one after the other, are gone.
    (page->isBase ? kept_ : packed_) += page->isBase ? page->Memory() : 0 - page->Memory();
    if (pages_.empty()) {
        group_.reset();
    }
    if (pages_.empty() || pages_.front()->base == nullptr) {
        packed_ -= kept_;
        kept_ = 0;
    }
    return bytes;
}

RecordStore::Snapshot RecordStore::Share() const {
    Snapshot snapshot;
    snapshot.pages_ = pages_;
    snapshot.skipped_ = skippedBytes_;
    snapshot.open_.assign(plain_.begin(), plain_.end());
    return snapshot;
}

size_t RecordStore::Memory() const {
    if (records_ == 0) {
        return plain_.capacity();
    }
    // The open page with the room that it is going to take. A snapshot that is drained holds a copy
    // of it, a page and a base, and sealing less.
    const size_t open = std::max(plain_.capacity(), pageSize_);
    const size_t moment = withDictionary_ ? 3 * pageSize_ : 0;
    return packed_ + pages_.size() * sizeof(pages_.front()) + open + moment +
           (group_ == nullptr ? 0 : group_->memory);
}
