#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dump/byte_reader.h"
#include "dump/dictionary.h"

namespace trelvo {

// One log line as the dump holds it. The views live until the reader's next call.
struct Record {
    uint64_t offset = 0;         // of its first byte, the time delta's
    uint64_t header_offset = 0;  // of the record header
    uint64_t length_offset = 0;  // of the message's length
    uint64_t end_offset = 0;     // of the byte after the message
    int32_t delta_ms = 0;        // since the record before
    char level = 0;      // I, W, E, F; D stands for every level that the dump does not tell apart
    uint32_t index = 0;  // into the dictionary
    Source source;
    std::string_view message;  // a code of the tag's table, or text: the dump does not say which
};

// Reads one dump from its start to its end, a record at a time (docs/dump-format.md). Holds the
// dictionary and one message, whatever the number of records.
class DumpReader {
public:
    // Reads all that stands before the records; the input must outlive the reader. Throws
    // DamageError when that is damaged, std::system_error when the input cannot be read.
    explicit DumpReader(Input& input);

    [[nodiscard]] const std::string& PolicyVersion() const { return policy_version_; }
    [[nodiscard]] const Dictionary& Sources() const { return dictionary_; }
    // Milliseconds; the time of the newest record of a whole dump.
    [[nodiscard]] int32_t LastLogTime() const { return last_log_time_; }
    // Of the first record, or of the end where there is none.
    [[nodiscard]] uint64_t RecordsOffset() const { return records_offset_; }

    // False where the dump ends, as it should, between two records. Throws as the constructor.
    [[nodiscard]] bool Next(Record& record);

private:
    [[nodiscard]] std::string ReadPolicyVersion();
    [[nodiscard]] Dictionary ReadDictionary();
    void ReadHeader(Record& record);

    // In the order in which they are read.
    ByteReader bytes_;
    std::string policy_version_;
    Dictionary dictionary_;
    int32_t last_log_time_;
    uint64_t records_offset_;
    std::string message_;
};

}  // namespace trelvo
