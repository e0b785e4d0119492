#include "dump/dump_reader.h"

#include <utility>

namespace trelvo {

namespace {

constexpr std::string_view kLevels = "DIWEF";  // by level code
constexpr int kMostHeaderBytes = 5;

}  // namespace

DumpReader::DumpReader(Input& input)
    : bytes_(input),
      policy_version_(ReadPolicyVersion()),
      dictionary_(ReadDictionary()),
      last_log_time_(bytes_.Leb128("last log time")),
      records_offset_(bytes_.Offset()) {}

std::string DumpReader::ReadPolicyVersion() {
    std::string version;
    bytes_.Counted("policy version", version);
    return version;
}

Dictionary DumpReader::ReadDictionary() {
    std::string entries;
    MemoryCharge charge;
    bytes_.Counted("dictionary", entries, charge);
    const uint64_t offset = bytes_.Offset() - entries.size();
    return {std::move(entries), offset, std::move(charge)};
}

//  byte 0                     further bytes, while the one before says "more"
// +---------+--------+------+ +--------+-------+
// | level:3 | more:1 | idx:4| | more:1 | idx:7 | ...    index, most significant group first
// +---------+--------+------+ +--------+-------+
void DumpReader::ReadHeader(Record& record) {
    static constexpr const char* kField = "record header";
    const uint64_t start = bytes_.Offset();
    uint8_t byte = bytes_.Byte(start, kField);
    const auto level = static_cast<size_t>(byte >> 5);
    if (level >= kLevels.size()) {
        throw DamageError(start,
                          "record header has the unknown level code " + std::to_string(level));
    }
    uint64_t index = byte & 0x0F;
    bool more = (byte & 0x10) != 0;
    for (int count = 1; more; ++count) {
        if (count == kMostHeaderBytes) {
            throw DamageError(start, "record header is longer than 5 bytes");
        }
        byte = bytes_.Byte(start, kField);
        index = index << 7 | (byte & 0x7F);
        more = (byte & 0x80) != 0;
    }
    const auto source = dictionary_.Find(static_cast<uint32_t>(index));
    if (!source) {
        throw DamageError(start, "record header has index " + std::to_string(index) +
                                     ", which the dictionary lacks");
    }
    record.level = kLevels[level];
    record.index = static_cast<uint32_t>(index);
    record.source = *source;
}

bool DumpReader::Next(Record& record) {
    if (bytes_.AtEnd()) {
        return false;
    }
    record.offset = bytes_.Offset();
    record.delta_ms = bytes_.Unsigned("time delta");
    record.header_offset = bytes_.Offset();
    ReadHeader(record);
    record.length_offset = bytes_.Offset();
    record.message = bytes_.CountedView("message", message_);
    record.end_offset = bytes_.Offset();
    return true;
}

}  // namespace trelvo
