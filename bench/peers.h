#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// What else could keep the log in memory: a general compressor over independent chunks of text.
class Peer {
public:
    static constexpr size_t kChunk = 65536;

    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    virtual std::string Name() const = 0;
    // Bytes that the text takes, cut into chunks of kChunk.
    size_t Compress(std::string_view text);

protected:
    // Bytes that one chunk takes in `out`.
    virtual size_t CompressChunk(std::string_view chunk, std::vector<char>& out) = 0;

private:
    std::vector<char> out_ = std::vector<char>(2 * kChunk);
};

// Plain text, zlib 6, lz4, zstd 1 and 3, and zstd 3 with a dictionary that was trained on `other`
// lines; that one is left out when they are too few for a dictionary.
std::vector<std::unique_ptr<Peer>> MakePeers(const std::vector<std::string>& other);

// Bytes of the data in one zstd 3 frame, as a collector stores it.
size_t ZstdSize(const void* data, size_t size);

}  // namespace bench
