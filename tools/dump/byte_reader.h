#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "io/damage.h"
#include "io/input.h"
#include "io/shared_limits.h"

namespace trelvo {

// Reads the fields of a dump one after another, and keeps count of the offset. Every `field` is
// the field's name in the cause of the DamageError that a fault is thrown as.
//
// Memory follows the bytes that are there, never the lengths that they claim. A field is of at most
// kLongestField, but for one that is charged.
class ByteReader {
public:
    static constexpr size_t kLongestField = size_t{2} << 20;

    // Reads on until the input ends; the input must outlive the reader.
    explicit ByteReader(Input& input);
    // Reads bytes that the caller keeps, and that stand at this offset of the dump.
    ByteReader(std::string_view bytes, uint64_t offset) : offset_(offset), rest_(bytes) {}

    [[nodiscard]] uint64_t Offset() const { return offset_; }
    [[nodiscard]] bool AtEnd() { return rest_.empty() && !Refill(); }

    // `start` is the offset of the field that the byte belongs to.
    [[nodiscard]] uint8_t Byte(uint64_t start, const char* field) {
        if (AtEnd()) {
            ThrowCutOff(start, field);
        }
        const auto byte = static_cast<uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        ++offset_;
        return byte;
    }
    // Signed LEB128 of at most 5 bytes, within 32 bits; need not be the shortest form.
    [[nodiscard]] int32_t Leb128(const char* field) {
        // Most are of one byte and not negative.
        if (!rest_.empty() && static_cast<uint8_t>(rest_.front()) < 0x40) {
            const char value = rest_.front();
            rest_.remove_prefix(1);
            ++offset_;
            return value;
        }
        return LongLeb128(field);
    }
    // The same, refusing negative values.
    [[nodiscard]] int32_t Unsigned(const char* field);
    // A length and that many bytes, which replace those in `bytes`.
    void Counted(const char* field, std::string& bytes);
    // The same without a copy where the bytes lie in one piece, else through `spare`. The view
    // lives until the next call.
    [[nodiscard]] std::string_view CountedView(const char* field, std::string& spare);
    // As Counted, for a field of any length: what it takes is added to the charge.
    void Counted(const char* field, std::string& bytes, MemoryCharge& charge);

private:
    [[nodiscard]] bool Refill();
    [[noreturn]] static void ThrowCutOff(uint64_t start, const char* field);
    [[nodiscard]] int32_t LongLeb128(const char* field);
    // The `length` bytes of the field that began at `start`.
    void Take(size_t length, uint64_t start, const char* field, std::string& bytes,
              MemoryCharge* charge = nullptr);

    Input* input_ = nullptr;
    std::vector<char> buffer_;
    MemoryCharge buffer_charge_;
    uint64_t offset_ = 0;    // of the first byte of rest_
    std::string_view rest_;  // read from the input, not yet taken
};

}  // namespace trelvo
