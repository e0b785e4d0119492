#include "dump/byte_reader.h"

#include <algorithm>
#include <limits>

namespace {

constexpr size_t kBufferSize = size_t{64} * 1024;
constexpr int kMostBits = 5 * 7;  // 32 bits take at most five groups of seven

}  // namespace

ByteReader::ByteReader(ByteSource& source) : source_(&source), buffer_(kBufferSize) {}

bool ByteReader::Refill() {
    if (source_ == nullptr) {
        return false;
    }
    rest_ = {buffer_.data(), source_->Read(buffer_.data(), buffer_.size())};
    return !rest_.empty();
}

void ByteReader::Seek(uint64_t offset) {
    source_->Seek(offset);
    offset_ = offset;
    rest_ = {};
}

void ByteReader::ThrowCutOff(uint64_t start, const char* field) {
    throw DumpError(start, std::string(field) + " is cut off");
}

int32_t ByteReader::LongLeb128(const char* field) {
    const uint64_t start = offset_;
    int64_t value = 0;
    for (int shift = 0; shift < kMostBits; shift += 7) {
        const uint8_t byte = Byte(start, field);
        value |= static_cast<int64_t>(byte & 0x7F) << shift;
        if ((byte & 0x80) != 0) {
            continue;
        }
        if ((byte & 0x40) != 0) {
            value -= int64_t{0x80} << shift;  // bit 6 of the last byte is the sign
        }
        if (value < std::numeric_limits<int32_t>::min() ||
            value > std::numeric_limits<int32_t>::max()) {
            throw DumpError(start, std::string(field) + " does not fit in 32 bits");
        }
        return static_cast<int32_t>(value);
    }
    throw DumpError(start, std::string(field) + " is an integer of more than 5 bytes");
}

int32_t ByteReader::Unsigned(const char* field) {
    const uint64_t start = offset_;
    const int32_t value = Leb128(field);
    if (value < 0) {
        throw DumpError(start, std::string(field) + " is negative (" + std::to_string(value) + ")");
    }
    return value;
}

void ByteReader::Counted(const char* field, std::string& bytes) {
    const uint64_t start = offset_;
    Take(static_cast<size_t>(Unsigned(field)), start, field, bytes);
}

std::string_view ByteReader::CountedView(const char* field, std::string& spare) {
    const uint64_t start = offset_;
    const auto length = static_cast<size_t>(Unsigned(field));
    if (rest_.size() < length) {
        Take(length, start, field, spare);
        return spare;
    }
    const std::string_view bytes = rest_.substr(0, length);
    rest_.remove_prefix(length);
    offset_ += length;
    return bytes;
}

void ByteReader::Take(size_t length, uint64_t start, const char* field, std::string& bytes) {
    bytes.clear();
    while (bytes.size() < length) {
        if (AtEnd()) {
            throw DumpError(start, std::string(field) + " of " + std::to_string(length) +
                                       " bytes but only " + std::to_string(bytes.size()) +
                                       " are left");
        }
        const size_t count = std::min(length - bytes.size(), rest_.size());
        bytes.append(rest_.substr(0, count));
        rest_.remove_prefix(count);
        offset_ += count;
    }
}
