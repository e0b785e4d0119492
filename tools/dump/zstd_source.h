#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <vector>

#include "dump/byte_source.h"

struct ZSTD_DCtx_s;

// The content of a file that was compressed by zstd, one frame or several. Decompresses as it is
// read and, to seek back, again from the start: memory is that of the frame's window, at most
// 128 MiB, whatever the content's size.
class ZstdSource : public ByteSource {
public:
    // Logs shrink a few times, or, where one line is repeated, a few hundred times. A small file
    // that claims to hold far more is no dump, and could use up the memory.
    static constexpr uint64_t kFreeBytes = uint64_t{64} << 20;
    static constexpr uint64_t kMostRatio = 1000;

    // Takes the compressed bytes from here.
    explicit ZstdSource(std::unique_ptr<ByteSource> compressed);

    // Throws DumpError, with the offset in the content, when the file is damaged or cut off, or
    // holds more than kFreeBytes and kMostRatio times its own size.
    [[nodiscard]] size_t Read(char* data, size_t size) override;
    void Seek(uint64_t offset) override;
    void ReadOnce() override { compressed_->ReadOnce(); }
    [[nodiscard]] std::optional<timespec> WriteTime() const override {
        return compressed_->WriteTime();
    }

private:
    struct FreeContext {
        void operator()(ZSTD_DCtx_s* context) const;
    };

    [[nodiscard]] size_t Decompress(char* data, size_t size);

    std::unique_ptr<ByteSource> compressed_;
    std::unique_ptr<ZSTD_DCtx_s, FreeContext> context_;
    std::vector<char> input_;
    size_t input_position_ = 0;
    size_t input_size_ = 0;
    bool in_frame_ = false;  // the frame under way is not complete yet
    uint64_t taken_ = 0;     // compressed bytes
    uint64_t position_ = 0;  // in the content, of the next byte to be decompressed
    uint64_t wanted_ = 0;    // in the content, of the next byte to be given out
};
