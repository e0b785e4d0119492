#include "peers.h"

#include <lz4.h>
#include <zdict.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
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
    std::string Name() const override { return "plain text"; }

protected:
    size_t CompressChunk(std::string_view chunk, std::vector<char>& out) override {
        std::memcpy(out.data(), chunk.data(), chunk.size());
        return chunk.size();
    }
};

class Zlib : public Peer {
public:
    std::string Name() const override { return "zlib 6"; }

protected:
    size_t CompressChunk(std::string_view chunk, std::vector<char>& out) override {
        uLongf size = out.size();
        if (compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                      reinterpret_cast<const Bytef*>(chunk.data()), chunk.size(), 6) != Z_OK) {
            throw std::runtime_error("zlib failed");
        }
        return size;
    }
};

class Lz4 : public Peer {
public:
    std::string Name() const override { return "lz4"; }

protected:
    size_t CompressChunk(std::string_view chunk, std::vector<char>& out) override {
        return static_cast<size_t>(LZ4_compress_default(chunk.data(), out.data(),
                                                        static_cast<int>(chunk.size()),
                                                        static_cast<int>(out.size())));
    }
};

class Zstd : public Peer {
public:
    explicit Zstd(int level, Dictionary dictionary = nullptr)
        : level_(level), context_(ZSTD_createCCtx()), dictionary_(std::move(dictionary)) {}

    std::string Name() const override {
        return "zstd " + std::to_string(level_) + (dictionary_ != nullptr ? " + dictionary" : "");
    }

protected:
    size_t CompressChunk(std::string_view chunk, std::vector<char>& out) override {
        if (dictionary_ != nullptr) {
            return Checked(ZSTD_compress_usingCDict(context_.get(), out.data(), out.size(),
                                                    chunk.data(), chunk.size(), dictionary_.get()));
        }
        return Checked(ZSTD_compressCCtx(context_.get(), out.data(), out.size(), chunk.data(),
                                         chunk.size(), level_));
    }

private:
    int level_;
    Context context_;
    Dictionary dictionary_;
};

Dictionary Train(const std::vector<std::string>& lines) {
    std::string samples;
    std::vector<size_t> sizes;
    for (const std::string& line : lines) {
        samples += line + '\n';
        sizes.push_back(line.size() + 1);
    }
    std::vector<char> dictionary(kDictionary);
    const size_t size = ZDICT_trainFromBuffer(dictionary.data(), dictionary.size(), samples.data(),
                                              sizes.data(), static_cast<unsigned>(sizes.size()));
    if (ZDICT_isError(size) != 0) {
        return nullptr;
    }
    return Dictionary(ZSTD_createCDict(dictionary.data(), size, 3));
}

}  // namespace

size_t Peer::Compress(std::string_view text) {
    size_t total = 0;
    for (size_t at = 0; at < text.size(); at += kChunk) {
        total += CompressChunk(text.substr(at, kChunk), out_);
    }
    return total;
}

std::vector<std::unique_ptr<Peer>> MakePeers(const std::vector<std::string>& other) {
    std::vector<std::unique_ptr<Peer>> peers;
    peers.push_back(std::make_unique<PlainText>());
    peers.push_back(std::make_unique<Zlib>());
    peers.push_back(std::make_unique<Lz4>());
    peers.push_back(std::make_unique<Zstd>(1));
    peers.push_back(std::make_unique<Zstd>(3));
    if (Dictionary dictionary = Train(other)) {
        peers.push_back(std::make_unique<Zstd>(3, std::move(dictionary)));
    }
    return peers;
}

size_t ZstdSize(const void* data, size_t size) {
    std::vector<char> out(ZSTD_compressBound(size));
    return Checked(ZSTD_compress(out.data(), out.size(), data, size, 3));
}

}  // namespace bench
