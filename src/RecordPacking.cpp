#include "RecordPacking.h"

#include <algorithm>
#include <bitset>
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

}  // namespace

void AppendLeb128(int value, Bytes& out) {
    for (;;) {
        const auto group = static_cast<unsigned char>(value & 0x7F);
        value >>= 7;
        // Bit 6 is the sign that a reader extends: the last group must carry the right one.
        const bool negative = (group & 0x40) != 0;
        if (value == (negative ? -1 : 0)) {
            out.push_back(group);
            return;
        }
        out.push_back(static_cast<unsigned char>(group | 0x80));
    }
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
    for (size_t at = 0; at < code.size(); at += 8) {
        unsigned byte = 0;
        for (const char digit : code.substr(at, 8)) {
            if (digit != '0' && digit != '1') {
                static_cast<void>(std::bitset<8>(std::string(code.substr(at, 8))));  // throws
            }
            byte = byte << 1 | static_cast<unsigned>(digit - '0');
        }
        out.push_back(static_cast<unsigned char>(byte));
    }
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
