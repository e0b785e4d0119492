#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "train/keyed_hash.h"

namespace trelvo {

// A text of one tag and how often it was logged. The text is the caller's.
struct CountedText {
    std::string_view text;
    uint64_t count = 0;
};

using TextSet = std::unordered_set<std::string_view, KeyedHash>;

// A text, and the bytes that stand for it.
struct CodedText {
    std::string_view text;
    uint64_t count = 0;
    std::string code;
};

// How many codes of one byte and of two bytes there are; of three bytes there are always enough.
struct CodeSupply {
    size_t one_byte = 0;
    size_t two_bytes = 0;
};

// Code tables of a tag are bounded by this, so that codes of three bytes never run out.
constexpr size_t kMostEntries = size_t{1} << 20;

// The sizes of the codes in bytes, 0 for a text that stays text, so that all the messages together
// take as few bytes as they can (docs/code-tables.md has the argument).
[[nodiscard]] std::vector<uint8_t> AssignSizes(const std::vector<CountedText>& texts,
                                               CodeSupply supply);

// Gives codes to the texts of one tag, at most `most_entries` of them. No code can be read as text,
// and none is one of `taken`. The result depends on the set of texts alone, not on their order, and
// is ordered by text.
[[nodiscard]] std::vector<CodedText> AssignCodes(std::vector<CountedText> texts,
                                                 const TextSet& taken, size_t most_entries);

}  // namespace trelvo
