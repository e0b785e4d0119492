#include "RecordPacking.h"

#include <endian.h>

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstring>
#include <string>

namespace packing {

namespace {

unsigned LevelCode(char level) {
    switch (level) {
        case 'I':
            return 1;
        case 'W':
            return 2;
        case 'E':
            return 3;
        case 'F':
            return 4;
        default:
            return 0;
    }
}

// Gives `put` one byte after the other.
template <typename Put>
void Leb128(int value, Put put) {
    for (;;) {
        const auto group = static_cast<unsigned char>(value & 0x7F);
        value >>= 7;
        // Bit 6 is the sign that a reader extends: the last group must carry the right one.
        const bool negative = (group & 0x40) != 0;
        if (value == (negative ? -1 : 0)) {
            put(group);
            return;
        }
        put(static_cast<unsigned char>(group | 0x80));
    }
}

}  // namespace

void AppendLeb128(int value, Bytes& out) {
    Leb128(value, [&out](unsigned char byte) { out.push_back(byte); });
}

unsigned char* PutLeb128(int value, unsigned char* out) {
    Leb128(value, [&out](unsigned char byte) { *out++ = byte; });
    return out;
}

size_t Leb128Size(int value) {
    size_t size = 1;
    // Until nothing but the sign, bit 6 of the last group, is left.
    for (value >>= 6; value != 0 && value != -1; value >>= 7) {
        ++size;
    }
    return size;
}

uint32_t ReadLeb128(const unsigned char*& data) {
    uint32_t value = 0;
    unsigned shift = 0;
    unsigned char group = 0;
    do {
        group = *data++;
        value |= static_cast<uint32_t>(group & 0x7F) << shift;
        shift += 7;
    } while ((group & 0x80) != 0);
    return value;
}

void AppendCodeText(std::string_view code, Bytes& out) {
    const size_t start = out.size();
    out.resize(start + code.size() / 8);
    const size_t count = PutCodeText(code, out.data() + start);
    out.resize(start + count);
    if (count != code.size() / 8) {
        static_cast<void>(std::bitset<8>(std::string(code.substr(8 * count, 8))));  // throws
    }
}

size_t PutCodeText(std::string_view code, unsigned char* out) {
    const size_t size = code.size() / 8;
    for (size_t count = 0; count < size; ++count) {
        uint64_t digits;  // the first one in the lowest byte
        std::memcpy(&digits, code.data() + 8 * count, sizeof digits);
        digits = le64toh(digits) ^ 0x3030303030303030U;
        if ((digits & ~uint64_t{0x0101010101010101}) != 0) {
            return count;
        }
        // The factor moves the bit of byte k to bit 63 - k; no two of all the sums meet.
        out[count] = static_cast<unsigned char>(digits * 0x8040201008040201U >> 56);
    }
    return size;
}

void AppendHeader(char level, int index, Bytes& out) {
    const auto value = static_cast<unsigned>(index);
    const unsigned level_bits = LevelCode(level) << 5;
    int groups = 0;
    while (value >> (7 * groups) > 0xFU) {
        ++groups;
    }
    if (groups == 0) {
        out.push_back(static_cast<unsigned char>(level_bits | value));
        return;
    }
    out.push_back(static_cast<unsigned char>(level_bits | 0x10U | (value >> (7 * groups))));
    for (int group = groups - 1; group >= 1; --group) {
        out.push_back(static_cast<unsigned char>(0x80U | ((value >> (7 * group)) & 0x7FU)));
    }
    out.push_back(static_cast<unsigned char>(value & 0x7FU));
}

size_t RecordLength(const unsigned char* data, size_t size) {
    const unsigned char* at = data;
    static_cast<void>(ReadLeb128(at));  // the time delta
    bool more = (*at++ & 0x10) != 0;
    while (more) {
        more = (*at++ & 0x80) != 0;
    }
    const size_t message = ReadLeb128(at);
    return std::min(static_cast<size_t>(at - data) + message, size);
}

}  // namespace packing
