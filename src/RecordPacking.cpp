#include "RecordPacking.h"

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

}  // namespace packing
