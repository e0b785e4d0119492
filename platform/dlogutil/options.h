#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace dlogutil {

// The level letters, the most talkative first. As a filter, S (silent) lets nothing through.
inline constexpr std::string_view kLevels = "VDIWEFS";

// Which tags are written from which level on. "*" stands for all tags that have no filter of their
// own; without it they are silent.
class TagFilters {
public:
    // Takes one word TAG:LEVEL, the level in either case; the last word for a tag counts. An empty
    // tag is taken and matches nothing. Throws std::invalid_argument for any other word.
    void Add(std::string_view word);

    // `level` is one of kLevels.
    [[nodiscard]] bool Passes(std::string_view tag, char level) const;

    // Whether the tag has a filter of its own.
    [[nodiscard]] bool Has(std::string_view tag) const { return minimum_.count(tag) != 0; }

    // Whether a filter of the tag's own silences it.
    [[nodiscard]] bool Silences(std::string_view tag) const;

    [[nodiscard]] bool IsEmpty() const { return minimum_.empty(); }

private:
    std::map<std::string, size_t, std::less<>> minimum_;  // positions in kLevels
};

struct Options {
    uint64_t limit_bytes = uint64_t{1024} * 1024;  // size at which the file is rotated
    int rotated_count = 1;
    std::string file;  // empty for standard output
    TagFilters filters;
};

// Reads the program's arguments. Throws std::invalid_argument with one line for the user.
[[nodiscard]] Options ParseOptions(int argc, char** argv);

}  // namespace dlogutil
