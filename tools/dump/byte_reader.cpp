#include "dump/byte_reader.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace trelvo {

namespace {

// Many readers may be open, most of them of little.
constexpr size_t kFirstBuffer = size_t{4} * 1024;
constexpr size_t kLargestBuffer = size_t{64} * 1024;
constexpr int kMostBits = 5 * 7;  // 32 bits take at most five groups of seven

}  // namespace

ByteReader::ByteReader(Input& input) : input_(&input), buffer_(kFirstBuffer) {}

bool ByteReader::Refill() {
    if (input_ == nullptr) {
        return false;
    }
    const size_t count = input_->Read(buffer_.data(), buffer_.size());
    rest_ = {buffer_.data(), count};
    if (count == buffer_.size() && count < kLargestBuffer && buffer_charge_.Set(kLargestBuffer)) {
        std::vector<char> larger(kLargestBuffer);
        std::copy(buffer_.begin(), buffer_.end(), larger.begin());
        buffer_ = std::move(larger);
        rest_ = {buffer_.data(), count};
    }
    return count > 0;
}

void ByteReader::ThrowCutOff(uint64_t start, const char* field) {
    throw DamageError(start, std::string(field) + " is cut off");
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
            throw DamageError(start, std::string(field) + " does not fit in 32 bits");
        }
        return static_cast<int32_t>(value);
    }
    throw DamageError(start, std::string(field) + " is an integer of more than 5 bytes");
}

int32_t ByteReader::Unsigned(const char* field) {
    const uint64_t start = offset_;
    const int32_t value = Leb128(field);
    if (value < 0) {
        throw DamageError(start,
                          std::string(field) + " is negative (" + std::to_string(value) + ")");
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

void ByteReader::Counted(const char* field, std::string& bytes, MemoryCharge& charge) {
    const uint64_t start = offset_;
    Take(static_cast<size_t>(Unsigned(field)), start, field, bytes, &charge);
}

void ByteReader::Take(size_t length, uint64_t start, const char* field, std::string& bytes,
                      MemoryCharge* charge) {
    bytes.clear();
    while (bytes.size() < length) {
        if (AtEnd()) {
            throw DamageError(start, std::string(field) + " of " + std::to_string(length) +
                                         " bytes but only " + std::to_string(bytes.size()) +
                                         " are left");
        }
        const size_t count = std::min(length - bytes.size(), rest_.size());
        if (charge == nullptr && bytes.size() + count > kLongestField) {
            throw DamageError(start, std::string(field) + " of " + std::to_string(length) +
                                         " bytes, but no more than 2 MiB are read");
        }
        // Twice, since growing holds the bytes in two places.
        if (charge != nullptr && !charge->Add(2 * uint64_t{count})) {
            throw DamageError(start, std::string(field) + " " + MemoryCharge::kExceeded);
        }
        bytes.append(rest_.substr(0, count));
        rest_.remove_prefix(count);
        offset_ += count;
    }
}

}  // namespace trelvo
