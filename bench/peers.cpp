#include "peers.h"

#include <lz4.h>
#include <zdict.h>
#include <zlib.h>
#include <zstd.h>

#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

constexpr size_t kDictionary = 112640;  // bytes; zstd's own default

template <typename Type, size_t (*Free)(Type*)>
struct FreeWith {
    void operator()(Type* object) const { static_cast<void>(Free(object)); }
};
using Context = std::unique_ptr<ZSTD_CCtx, FreeWith<ZSTD_CCtx, ZSTD_freeCCtx>>;
using Dictionary = std::unique_ptr<ZSTD_CDict, FreeWith<ZSTD_CDict, ZSTD_freeCDict>>;

size_t Checked(size_t result) {
    if (ZSTD_isError(result) != 0) {
        throw std::runtime_error(ZSTD_getErrorName(result));
    }
    return result;
}

class PlainText : public Peer {
public:
    size_t Pack(std::string_view chunk, std::vector<char>& out) override {
        std::memcpy(out.data(), chunk.data(), chunk.size());
        return chunk.size();
    }
};

class Zlib : public Peer {
public:
    Zlib() {
        if (deflateInit(&stream_, 6) != Z_OK) {
            throw std::runtime_error("zlib failed");
        }
    }
    ~Zlib() override { deflateEnd(&stream_); }

    size_t Pack(std::string_view chunk, std::vector<char>& out) override {
        deflateReset(&stream_);
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(chunk.data()));
        stream_.avail_in = static_cast<uInt>(chunk.size());
        stream_.next_out = reinterpret_cast<Bytef*>(out.data());
        stream_.avail_out = static_cast<uInt>(out.size());
        if (deflate(&stream_, Z_FINISH) != Z_STREAM_END) {
            throw std::runtime_error("zlib failed");
        }
        return out.size() - stream_.avail_out;
    }

private:
    z_stream stream_{};
};

class Lz4 : public Peer {
public:
    size_t Pack(std::string_view chunk, std::vector<char>& out) override {
        return static_cast<size_t>(LZ4_compress_default(chunk.data(), out.data(),
                                                        static_cast<int>(chunk.size()),
                                                        static_cast<int>(out.size())));
    }
};

class Zstd : public Peer {
public:
    explicit Zstd(int level) : level_(level) {}
    explicit Zstd(const std::string& dictionary)
        : level_(3), dictionary_(ZSTD_createCDict(dictionary.data(), dictionary.size(), 3)) {}

    size_t Pack(std::string_view chunk, std::vector<char>& out) override {
        if (dictionary_ != nullptr) {
            return Checked(ZSTD_compress_usingCDict(context_.get(), out.data(), out.size(),
                                                    chunk.data(), chunk.size(), dictionary_.get()));
        }
        return Checked(ZSTD_compressCCtx(context_.get(), out.data(), out.size(), chunk.data(),
                                         chunk.size(), level_));
    }

private:
    int level_;
    Context context_ = Context(ZSTD_createCCtx());
    Dictionary dictionary_;
};

// Each line can be read back as soon as it is in; dropping the oldest is what it cannot do.
class ZstdStream : public Peer {
public:
    ZstdStream() { Checked(ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_compressionLevel, 3)); }

    size_t Pack(std::string_view chunk, std::vector<char>& out) override {
        ZSTD_outBuffer target{out.data(), out.size(), 0};
        for (size_t end = 0; !chunk.empty(); chunk.remove_prefix(end)) {
            end = chunk.find('\n') + 1;
            ZSTD_inBuffer line{chunk.data(), end, 0};
            if (Checked(ZSTD_compressStream2(context_.get(), &target, &line, ZSTD_e_flush)) != 0) {
                throw std::runtime_error("no room for a flushed line");
            }
        }
        return target.pos;
    }

private:
    Context context_ = Context(ZSTD_createCCtx());
};

template <typename Made, auto... Arguments>
std::unique_ptr<Peer> Make() {
    return std::make_unique<Made>(Arguments...);
}

}  // namespace

void Ring::Append(std::string_view line) {
    if (used_ + line.size() + 1 > kChunk) {
        Seal();
    }
    line = line.substr(0, kChunk - 1);
    std::memcpy(open_.data() + used_, line.data(), line.size());
    used_ += line.size();
    open_[used_++] = '\n';
}

void Ring::Seal() {
    const size_t size = peer_->Pack({open_.data(), used_}, out_);
    used_ = 0;
    sealed_.emplace_back(out_.data(), out_.data() + size);
    for (stored_ += size; stored_ > limit_; sealed_.pop_front()) {
        stored_ -= sealed_.front().size();
    }
}

const std::vector<PeerKind>& PeerKinds() {
    static const std::vector<PeerKind> kinds = {
        {"plain text", Make<PlainText>},
        {"zlib 6", Make<Zlib>},
        {"lz4", Make<Lz4>},
        {"zstd 1", Make<Zstd, 1>},
        {"zstd 3", Make<Zstd, 3>},
        {"zstd 3, flushed a line", Make<ZstdStream>},
    };
    return kinds;
}

std::string TrainDictionary(const std::vector<std::string>& lines) {
    std::string samples;
    std::vector<size_t> sizes;
    for (const std::string& line : lines) {
        samples += line + '\n';
        sizes.push_back(line.size() + 1);
    }
    std::string dictionary(kDictionary, '\0');
    dictionary.resize(
        Checked(ZDICT_trainFromBuffer(dictionary.data(), dictionary.size(), samples.data(),
                                      sizes.data(), static_cast<unsigned>(sizes.size()))));
    return dictionary;
}

std::unique_ptr<Peer> MakeDictionaryPeer(const std::string& dictionary) {
    return std::make_unique<Zstd>(dictionary);
}

size_t ZstdSize(const void* data, size_t size) {
    std::vector<char> out(ZSTD_compressBound(size));
    return Checked(ZSTD_compress(out.data(), out.size(), data, size, 3));
}

}  // namespace bench
