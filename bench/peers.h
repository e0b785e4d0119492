#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

constexpr size_t kChunk = 65536;  // bytes of text that are packed together

// What else could keep the log in memory: a general compressor over chunks of text.
class Peer {
public:
    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    // Bytes that a chunk of whole lines takes in `out`, which has room for twice kChunk.
    virtual size_t Pack(std::string_view chunk, std::vector<char>& out) = 0;
};

// A log in memory as a daemon keeps it: an open chunk of text, and sealed chunks that are packed,
// each of exactly its size, the oldest of which goes when they have more than `limit` bytes.
class Ring {
public:
    Ring(std::unique_ptr<Peer> peer, size_t limit) : peer_(std::move(peer)), limit_(limit) {}

    void Append(std::string_view line);

private:
    void Seal();

    std::unique_ptr<Peer> peer_;
    size_t limit_;
    std::vector<char> open_ = std::vector<char>(kChunk);
    size_t used_ = 0;  // of open_
    std::vector<char> out_ = std::vector<char>(2 * kChunk);
    std::list<std::vector<char>> sealed_;
    size_t stored_ = 0;  // bytes in sealed_
};

struct PeerKind {
    std::string name;
    std::function<std::unique_ptr<Peer>()> make;
};

// Plain text; zlib 6, lz4, zstd 1 and 3 over independent chunks; one zstd 3 stream that is flushed
// after each line.
const std::vector<PeerKind>& PeerKinds();

// A zstd dictionary of 110 KiB for such lines.
std::string TrainDictionary(const std::vector<std::string>& lines);

// zstd 3 over independent chunks with a dictionary.
std::unique_ptr<Peer> MakeDictionaryPeer(const std::string& dictionary);

// Bytes of the data in one zstd 3 frame, as a collector stores it.
size_t ZstdSize(const void* data, size_t size);

}  // namespace bench
