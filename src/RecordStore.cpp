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
constexpr size_t kBases = 4;        // pages of a group that are the dictionary of the others
constexpr size_t kGroupPages = 36;  // after so many the dictionary is made anew
constexpr double kGain = 0.95;      // the dictionary is used where pages get this much smaller
constexpr int kWindowLog = 20;      // reaches over a page and all its bases
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
size_t Pack(ZSTD_CCtx* packer, const unsigned char* data, size_t size, Block& scratch) {
    const size_t bound = ZSTD_compressBound(size);
    if (scratch.size < bound) {
        scratch.data.reset(new unsigned char[bound]);
        scratch.size = bound;
    }
    return Checked(ZSTD_compress2(packer, scratch.data.get(), bound, data, size));
}

}  // namespace

struct RecordStore::Page {
    std::shared_ptr<const Page> base;  // the last of those that are its dictionary; null for none
    bool isBase = false;
    size_t bytes = 0;
    size_t records = 0;
    Block packed;

    // With what the allocator and the reference count add.
    [[nodiscard]] size_t Memory() const { return sizeof(Page) + 64 + packed.size; }
};

struct RecordStore::Prepared {
    Bytes bases;
    Dictionary dictionary;  // refers to `bases`
    size_t memory = 0;      // bytes of both
};

namespace {

class Unpacker {
public:
    // Valid until the next call.
    const RecordStore::Bytes& Unpack(const std::shared_ptr<const RecordStore::Page>& page);

private:
    void LoadBases(const std::shared_ptr<const RecordStore::Page>& last);
    void AppendTo(RecordStore::Bytes& out, size_t baseBytes, const RecordStore::Page& page);

    using Context = std::unique_ptr<ZSTD_DCtx, FreeWith<ZSTD_DCtx, ZSTD_freeDCtx>>;
    Context context_ = Made<Context>(ZSTD_createDCtx());
    RecordStore::Bytes bases_;
    std::shared_ptr<const RecordStore::Page> lastBase_;  // up to which bases_ goes
    RecordStore::Bytes page_;
};

const RecordStore::Bytes& Unpacker::Unpack(const std::shared_ptr<const RecordStore::Page>& page) {
    LoadBases(page->base);
    page_.clear();
    AppendTo(page_, bases_.size(), *page);
    return page_;
}

void Unpacker::LoadBases(const std::shared_ptr<const RecordStore::Page>& last) {
    if (last == lastBase_) {
        return;
    }
    lastBase_.reset();  // nothing is loaded when the rest throws
    if (last == nullptr) {
        bases_.clear();
        return;
    }
    LoadBases(last->base);
    AppendTo(bases_, bases_.size(), *last);
    lastBase_ = last;
}

void Unpacker::AppendTo(RecordStore::Bytes& out, size_t baseBytes, const RecordStore::Page& page) {
    const size_t start = out.size();
    out.resize(start + page.bytes);
    if (baseBytes != 0) {
        Checked(ZSTD_DCtx_refPrefix(context_.get(), bases_.data(), baseBytes));
    }
    const size_t size = Checked(ZSTD_decompressDCtx(context_.get(), out.data() + start, page.bytes,
                                                    page.packed.data.get(), page.packed.size));
    if (size != page.bytes) {
        throw std::runtime_error("zstd: a page unpacks to another size");
    }
}

}  // namespace

void RecordStore::Snapshot::Drain(const Sink& sink) {
    Unpacker unpacker;
    for (; !pages_.empty(); pages_.pop_front()) {
        const Bytes& page = unpacker.Unpack(pages_.front());
        sink(page.data() + skipped_, page.size() - skipped_);
        skipped_ = 0;
    }
    sink(open_.data(), open_.size());
}

void RecordStore::Snapshot::DrainPacked(const Bytes& head, const Sink& sink) {
    Unpacker unpacker;
    const Packer packer = MakePacker();
    Block scratch;
    const auto pack = [&](const unsigned char* data, size_t size) {
        const size_t packed = Pack(packer.get(), data, size, scratch);
        sink(scratch.data.get(), packed);
    };
    pack(head.data(), head.size());
    for (; !pages_.empty(); pages_.pop_front()) {
        const Page& page = *pages_.front();
        if (page.base == nullptr && skipped_ == 0) {
            sink(page.packed.data.get(), page.packed.size);
        } else {
            const Bytes& plain = unpacker.Unpack(pages_.front());
            pack(plain.data() + skipped_, plain.size() - skipped_);
        }
        skipped_ = 0;
    }
    if (!open_.empty()) {
        pack(open_.data(), open_.size());
    }
}

RecordStore::RecordStore(size_t pageSize, bool withDictionary)
    : pageSize_(pageSize), withDictionary_(withDictionary) {}
RecordStore::~RecordStore() = default;

void RecordStore::SetPages(size_t pageSize, bool withDictionary) {
    pageSize_ = pageSize;
    withDictionary_ = withDictionary;
    StartGroup();
}

void RecordStore::Append(const unsigned char* data, size_t size) {
    if (OpenSize() != 0 && OpenSize() + size > pageSize_) {
        Seal();
    }
    ReserveFor(size);
    plain_.insert(plain_.end(), data, data + size);
    ++openRecords_;
    ++records_;
}

// At once for all that is to come, so that a page's memory is what it holds.
void RecordStore::ReserveFor(size_t size) {
    const size_t needed = plain_.size() + size;
    if (needed <= plain_.capacity()) {
        return;
    }
    plain_.reserve(
        std::max({needed, openAt_ + pageSize_, CollectsBases() ? kBases * pageSize_ : 0}));
}

void RecordStore::Seal() {
    const auto page = std::make_shared<Page>();
    {
        const Packer packer = MakePacker();
        if (prepared_ != nullptr || openAt_ != 0) {
            Checked(ZSTD_CCtx_setParameter(packer.get(), ZSTD_c_windowLog, kWindowLog));
            Checked(prepared_ != nullptr
                        ? ZSTD_CCtx_refCDict(packer.get(), prepared_->dictionary.get())
                        : ZSTD_CCtx_refPrefix(packer.get(), plain_.data(), openAt_));
        }
        Block scratch;
        const size_t size = Pack(packer.get(), plain_.data() + openAt_, OpenSize(), scratch);
        page->packed = {std::unique_ptr<unsigned char[]>(new unsigned char[size]), size};
        std::copy_n(scratch.data.get(), size, page->packed.data.get());
    }
    page->base = lastBase_;
    page->isBase = CollectsBases();
    page->bytes = OpenSize();
    page->records = openRecords_;

    const double ratio = static_cast<double>(page->packed.size) / static_cast<double>(page->bytes);
    const bool areBasesComplete = page->isBase && groupPages_ + 1 == kBases;
    std::unique_ptr<Prepared> prepared;
    if (areBasesComplete && ratio < kGain * firstRatio_) {
        prepared = std::make_unique<Prepared>();
        prepared->dictionary = Made<Dictionary>(ZSTD_createCDict_advanced(
            plain_.data(), plain_.size(), ZSTD_dlm_byRef, ZSTD_dct_rawContent,
            kDictionaryParameters, ZSTD_defaultCMem));
        prepared->memory = plain_.capacity() + ZSTD_sizeof_CDict(prepared->dictionary.get());
    }
    pages_.push_back(page);

    // From here on nothing throws.
    packed_ += page->Memory();
    openRecords_ = 0;
    firstRatio_ = groupPages_ == 0 ? ratio : firstRatio_;
    ++groupPages_;
    if (page->isBase) {
        lastBase_ = page;
        openAt_ = plain_.size();
    } else if (plain_.capacity() > 2 * pageSize_) {
        Bytes().swap(plain_);  // was made for a large record
    } else {
        plain_.clear();
    }
    if (prepared != nullptr) {
        prepared->bases.swap(plain_);
        prepared_ = std::move(prepared);
        openAt_ = 0;
    } else if (areBasesComplete) {
        StartGroup();
        withoutDictionary_ = kGroupPages;
        return;
    }
    withoutDictionary_ -= std::min<size_t>(withoutDictionary_, 1);
    if (groupPages_ == kGroupPages) {
        StartGroup();
    }
}

bool RecordStore::CollectsBases() const {
    return withDictionary_ && prepared_ == nullptr && withoutDictionary_ == 0;
}

void RecordStore::StartGroup() noexcept {
    prepared_.reset();
    lastBase_.reset();
    plain_.erase(plain_.begin(), plain_.begin() + static_cast<std::ptrdiff_t>(openAt_));
    openAt_ = 0;
    groupPages_ = 0;
}

void RecordStore::Clear() noexcept {
    plain_.clear();
    openAt_ = 0;
    StartGroup();
    pages_.clear();
    skippedBytes_ = skippedRecords_ = openRecords_ = records_ = packed_ = kept_ = 0;
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
        const size_t dropped = cut(plain_.data() + openAt_, OpenSize());
        const auto open = plain_.begin() + static_cast<std::ptrdiff_t>(openAt_);
        plain_.erase(open, open + static_cast<std::ptrdiff_t>(dropped));
        openRecords_ -= count;
        bytes += dropped;
    } else {
        Unpacker unpacker;
        const Bytes& page = unpacker.Unpack(pages_.front());
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
        const size_t bytes = OpenSize();
        plain_.resize(openAt_);
        records_ = openRecords_ = 0;
        return bytes;
    }
    const std::shared_ptr<const Page> page = std::move(pages_.front());
    pages_.pop_front();
    const size_t bytes = page->bytes - skippedBytes_;
    records_ -= page->records - skippedRecords_;
    skippedBytes_ = skippedRecords_ = 0;
    // A base stays until all pages of its group are gone; they lie one after the other.
    (page->isBase ? kept_ : packed_) += page->isBase ? page->Memory() : 0 - page->Memory();
    if (pages_.empty()) {
        StartGroup();
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
    snapshot.open_.assign(plain_.begin() + static_cast<std::ptrdiff_t>(openAt_), plain_.end());
    return snapshot;
}

size_t RecordStore::Memory() const {
    const size_t bytes = packed_ + pages_.size() * sizeof(pages_.front()) + plain_.capacity();
    return bytes + (prepared_ == nullptr ? 0 : prepared_->memory);
}
