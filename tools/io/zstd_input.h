#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/damage.h"
#include "io/input.h"

struct ZSTD_DCtx_s;

namespace trelvo {

// The content of a file that was compressed by zstd, one frame or several. Decompresses as it is
// read; to seek back, again from the start of the frame or the file. Parked it has no decompressor.
//
// A frame that tells its size, of at most kHeldFrame, is checked as a whole before the first of its
// bytes is given out; others are given out as they come.
class ZstdInput : public Input, private Parkable {
public:
    // Logs shrink a few times, or, where one line is repeated, a few hundred times. A small file
    // that claims to hold far more cannot be a dump, and could use up the time.
    static constexpr uint64_t kFreeBytes = uint64_t{64} << 20;
    static constexpr uint64_t kMostRatio = 1000;
    static constexpr size_t kHeldFrame = size_t{4} << 20;
    static constexpr int kMostWindowLog = 23;  // 8 MiB, as zstd takes up to level 19

    // Takes the compressed bytes from here.
    explicit ZstdInput(std::unique_ptr<Input> compressed);

    // Throws DamageError, with the offset of the frame in the compressed file, when a frame is
    // damaged or cut off, needs a larger window, or when the file holds more than kFreeBytes and
    // kMostRatio times its own size. Where the first frame is cut off, what it holds comes before.
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

    // Gives the next bytes of the content; 0 at its end.
    [[nodiscard]] size_t Decompress(char* data, size_t size);
    // Takes the buffers again after parking, and goes back to the start of the frame under way.
    void Unpark();
    void Park() override;
    // Starts over at this frame of the compressed file, whose content begins at `content`.
    void StartAt(uint64_t frame, uint64_t content);
    void ChargeMemory();
    // False at the end of the file. Resizes held_ to the content where the frame is to be held.
    [[nodiscard]] bool BeginFrame();
    // Fills held_ with the content of the frame.
    void HoldFrame();
    // Decompresses into `data`, at least one byte unless the frame ends before. Sets in_frame_.
    [[nodiscard]] size_t Advance(char* data, size_t size);
    // Reads on behind what was not taken yet; false at the end of the file.
    [[nodiscard]] bool Refill();
    [[nodiscard]] DamageError Fault(const std::string& cause) const;

    std::unique_ptr<Input> compressed_;
    std::unique_ptr<ZSTD_DCtx_s, FreeContext> context_;
    std::vector<char> input_;  // empty while this is parked
    MemoryCharge charge_;
    size_t input_position_ = 0;
    size_t input_size_ = 0;
    std::vector<char> held_;            // the whole frame under way, where it is held
    size_t held_position_ = 0;          // of the next byte of held_ to be given out
    std::optional<DamageError> fault_;  // to be thrown once held_ is given out
    bool in_frame_ = false;             // the frame under way is not complete yet
    uint64_t frame_ = 0;                // where the frame under way begins in the compressed file
    uint64_t frame_content_ = 0;        // and in the content
    uint64_t taken_ = 0;                // compressed bytes
    uint64_t position_ = 0;             // in the content, of the next byte to be decompressed
    uint64_t wanted_ = 0;               // in the content, of the next byte to be given out
};

}  // namespace trelvo
