#include "io/zstd_input.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

namespace trelvo {

namespace {

constexpr size_t kMagicSize = 4;
constexpr size_t kLongestFrameHeader = 18;

// Frames of data and frames to be skipped. No dump begins like either of them: its policy version
// would be 40 bytes long and not be UTF-8, or have a negative length.
bool BeginsFrame(std::string_view start) {
    return start == "\x28\xB5\x2F\xFD" ||
           (start.size() == kMagicSize && (start.front() & 0xF0) == 0x50 &&
            start.substr(1) == "\x2A\x4D\x18");
}

}  // namespace

std::unique_ptr<Input> OpenInput(const std::string& path, FileInput::Observer observer) {
    auto file = std::make_unique<FileInput>(path, std::move(observer));
    std::array<char, kMagicSize> start{};
    size_t size = 0;
    while (size < start.size()) {
        const size_t count = file->Read(start.data() + size, start.size() - size);
        if (count == 0) {
            break;
        }
        size += count;
    }
    file->Seek(0);
    if (!BeginsFrame({start.data(), size})) {
        return file;
    }
    return std::make_unique<ZstdInput>(std::move(file));
}

void ZstdInput::FreeContext::operator()(ZSTD_DCtx_s* context) const {
    ZSTD_freeDCtx(context);
}

ZstdInput::ZstdInput(std::unique_ptr<Input> compressed) : compressed_(std::move(compressed)) {}

void ZstdInput::Unpark() {
    context_.reset(ZSTD_createDCtx());
    if (!context_) {
        throw std::bad_alloc();
    }
    ZSTD_DCtx_setParameter(context_.get(), ZSTD_d_windowLogMax, kMostWindowLog);
    input_.resize(ZSTD_DStreamInSize());
    StartAt(frame_, frame_content_);
    ChargeMemory();
}

void ZstdInput::Park() {
    context_.reset();
    input_ = std::vector<char>();
    held_ = std::vector<char>();
    static_cast<void>(charge_.Set(0));
}

void ZstdInput::StartAt(uint64_t frame, uint64_t content) {
    compressed_->Seek(frame);
    input_position_ = input_size_ = 0;
    held_.clear();
    held_position_ = 0;
    fault_.reset();
    in_frame_ = false;
    frame_ = taken_ = frame;
    frame_content_ = position_ = content;
}

void ZstdInput::ChargeMemory() {
    if (!charge_.Set(ZSTD_sizeof_DCtx(context_.get()) + input_.size() + held_.capacity())) {
        throw Fault(MemoryCharge::kExceeded);
    }
}

DamageError ZstdInput::Fault(const std::string& cause) const {
    return {frame_, "the zstd frame that begins here " + cause};
}

bool ZstdInput::Refill() {
    std::copy(input_.begin() + static_cast<std::ptrdiff_t>(input_position_),
              input_.begin() + static_cast<std::ptrdiff_t>(input_size_), input_.begin());
    input_size_ -= input_position_;
    input_position_ = 0;
    const size_t count =
        compressed_->Read(input_.data() + input_size_, input_.size() - input_size_);
    input_size_ += count;
    return count > 0;
}

bool ZstdInput::BeginFrame() {
    while (input_size_ - input_position_ < kLongestFrameHeader && Refill()) {
    }
    if (input_position_ == input_size_) {
        return false;
    }
    in_frame_ = true;
    frame_ = taken_;
    frame_content_ = position_;
    held_position_ = 0;
    // What has no size yet, or is not a frame at all, is left to the decompressor to refuse.
    const unsigned long long size =
        ZSTD_getFrameContentSize(input_.data() + input_position_, input_size_ - input_position_);
    held_.resize(size <= kHeldFrame ? static_cast<size_t>(size) : 0);
    ChargeMemory();
    return true;
}

size_t ZstdInput::Advance(char* data, size_t size) {
    ZSTD_outBuffer out{data, size, 0};
    while (out.pos == 0 && in_frame_) {
        if (input_position_ == input_size_ && !Refill()) {
            throw Fault("is cut off");
        }
        ZSTD_inBuffer in{input_.data(), input_size_, input_position_};
        const size_t result = ZSTD_decompressStream(context_.get(), &out, &in);
        if (ZSTD_getErrorCode(result) == ZSTD_error_frameParameter_windowTooLarge) {
            throw Fault(
                "needs a window of more than 8 MiB; decompress the file first: "
                "zstd -d --long=31");
        }
        if (ZSTD_isError(result) != 0) {
            throw Fault(std::string("is damaged: ") + ZSTD_getErrorName(result));
        }
        ChargeMemory();  // the frame's header may have asked for a window
        in_frame_ = result != 0;
        taken_ += in.pos - input_position_;
        input_position_ = in.pos;
    }
    if (position_ + out.pos > kFreeBytes + kMostRatio * taken_) {
        throw Fault("makes the content more than 64 MiB and 1000 times the file");
    }
    return out.pos;
}

void ZstdInput::HoldFrame() {
    size_t size = 0;
    try {
        while (in_frame_) {
            size += Advance(held_.data() + size, held_.size() - size);
        }
    } catch (const DamageError& fault) {
        // A file that was compressed as a whole is in its first frame, and holds the dump's head.
        const bool cut = input_position_ == input_size_;
        held_.resize(frame_ == 0 && cut ? size : 0);
        fault_ = fault;
    }
}

size_t ZstdInput::Decompress(char* data, size_t size) {
    for (;;) {
        if (held_position_ < held_.size()) {
            const size_t count = std::min(size, held_.size() - held_position_);
            std::copy_n(held_.begin() + static_cast<std::ptrdiff_t>(held_position_), count, data);
            held_position_ += count;
            position_ += count;
            return count;
        }
        if (fault_) {
            throw DamageError(*fault_);
        }
        if (!in_frame_ && !BeginFrame()) {
            return 0;
        }
        if (!held_.empty()) {
            HoldFrame();
        } else if (const size_t count = Advance(data, size); count > 0) {
            position_ += count;
            return count;
        }
    }
}

size_t ZstdInput::Read(char* data, size_t size) {
    Use();
    if (!context_) {
        Unpark();
    }
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

void ZstdInput::Seek(uint64_t offset) {
    wanted_ = offset;
    if (offset >= position_) {
        return;
    }
    const bool within = offset >= frame_content_;
    const uint64_t frame = within ? frame_ : 0;
    const uint64_t content = within ? frame_content_ : 0;
    if (context_) {
        ZSTD_DCtx_reset(context_.get(), ZSTD_reset_session_only);
    }
    StartAt(frame, content);
}

}  // namespace trelvo
