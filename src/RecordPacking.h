#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// The byte-level encodings of a record; CUtility is their front.
//
//   delta (LEB128, ms)   header, 1 to 5 bytes           n (LEB128)   n bytes
//  +------------------+ +------------------------+    +----------+ +--------------+
//  | 0xxxxxxx ...     | |lvl:3|more:1|idx:4| ... |    |          | | code or text |
//  +------------------+ +------------------------+    +----------+ +--------------+
namespace packing {

using Bytes = std::vector<unsigned char>;

// In bytes, of any int.
constexpr size_t kLongestLeb128 = 5;

// Appends signed LEB128. It ends for every int, though the service packs negative values only when
// a log line forged them.
void AppendLeb128(int value, Bytes& out);
// The same where there is room; returns its end.
unsigned char* PutLeb128(int value, unsigned char* out);
// The bytes that it appends.
[[nodiscard]] size_t Leb128Size(int value);
// Reads a value of 0 or more that AppendLeb128 wrote; moves `data` behind it.
[[nodiscard]] uint32_t ReadLeb128(const unsigned char*& data);

// Appends the byte that each eight of the characters 0 and 1 stand for, the first being bit 7.
// REQUIRES: a length that is a multiple of 8. Throws std::invalid_argument at another character,
// with the bytes before it appended.
void AppendCodeText(std::string_view code, Bytes& out);
// The same where there is room. Returns how many bytes were put: all, or those before the first
// eight characters with another one among them.
size_t PutCodeText(std::string_view code, unsigned char* out);

// Appends a record header. `index` is at least 1.
//
//   index 1..15      |lvl:3|0|index:4|
//   larger           |lvl:3|1|top:4|  |1|7 bits| ...  |0|low 7 bits|
void AppendHeader(char level, int index, Bytes& out);

// The length of the record that starts at `data`, which holds at least one whole record.
[[nodiscard]] size_t RecordLength(const unsigned char* data, size_t size);

}  // namespace packing
