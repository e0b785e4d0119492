#pragma once

#include <cstddef>
#include <string_view>

#include "dump/dictionary.h"

namespace trelvo {

// How wide the columns before a message are, by what is in the dumps.
struct Columns {
    size_t time = 0;
    bool latest = false;  // before some times stands a mark: no later than that
    size_t tag = 0;
    size_t pid = 0;
    size_t tid = 0;  // 0: every thread is the first of its process

    // Makes room for each source.
    void Fit(const Source& source);
};

// Columns of a terminal that escaped text takes.
[[nodiscard]] size_t DisplayWidth(std::string_view text);
// How many of its first bytes fit into so many columns; one character at least.
[[nodiscard]] size_t BytesWithin(std::string_view text, size_t width);

}  // namespace trelvo
