#include "dump/zstd_source.h"

#include <zstd.h>

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

#include "dump/byte_reader.h"

namespace {

// No dump begins like this: its policy version would be 40 bytes long and not be UTF-8.
constexpr std::string_view kFrameStart = "\x28\xB5\x2F\xFD";

}  // namespace

std::unique_ptr<ByteSource> OpenSource(const std::string& path, FileSource::Observer observer) {
    auto file = std::make_unique<FileSource>(path, std::move(observer));
    std::array<char, kFrameStart.size()> start{};
    size_t size = 0;
    while (size < start.size()) {
        const size_t count = file->Read(start.data() + size, start.size() - size);
        if (count == 0) {
            break;
        }
        size += count;
    }
    file->Seek(0);
    if (std::string_view(start.data(), size) != kFrameStart) {
        return file;
    }
    return std::make_unique<ZstdSource>(std::move(file));
}

void ZstdSource::FreeContext::operator()(ZSTD_DCtx_s* context) const {
    ZSTD_freeDCtx(context);
}

ZstdSource::ZstdSource(std::unique_ptr<ByteSource> compressed)
    : compressed_(std::move(compressed)),
      context_(ZSTD_createDCtx()),
      input_(ZSTD_DStreamInSize()) {
    if (!context_) {
        throw std::bad_alloc();
    }
}

size_t ZstdSource::Decompress(char* data, size_t size) {
    ZSTD_outBuffer out{data, size, 0};
    while (out.pos == 0) {
        if (input_position_ == input_size_) {
            input_position_ = 0;
            input_size_ = compressed_->Read(input_.data(), input_.size());
            if (input_size_ == 0) {
                if (in_frame_) {
                    throw DumpError(position_, "the compressed file is cut off");
                }
                return 0;
            }
        }
        ZSTD_inBuffer in{input_.data(), input_size_, input_position_};
        const size_t result = ZSTD_decompressStream(context_.get(), &out, &in);
        if (ZSTD_isError(result) != 0) {
            throw DumpError(position_, std::string("the compressed file is damaged: ") +
                                           ZSTD_getErrorName(result));
        }
        in_frame_ = result != 0;
        taken_ += in.pos - input_position_;
        input_position_ = in.pos;
    }
    position_ += out.pos;
    if (position_ > kFreeBytes + kMostRatio * taken_) {
        throw DumpError(position_, "the compressed file holds too much for its size");
    }
    return out.pos;
}

size_t ZstdSource::Read(char* data, size_t size) {
    std::array<char, 65536> skipped;
    while (position_ < wanted_) {
        const auto left =
            static_cast<size_t>(std::min<uint64_t>(wanted_ - position_, skipped.size()));
        if (Decompress(skipped.data(), left) == 0) {
            return 0;
        }
    }
    const size_t count = Decompress(data, size);
    wanted_ = position_;
    return count;
}

void ZstdSource::Seek(uint64_t offset) {
    wanted_ = offset;
    if (offset < position_) {
        ZSTD_DCtx_reset(context_.get(), ZSTD_reset_session_only);
        compressed_->Seek(0);
        input_position_ = input_size_ = 0;
        in_frame_ = false;
        taken_ = 0;
        position_ = 0;
    }
}
