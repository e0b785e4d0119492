#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "train/code_assignment.h"

namespace trelvo {

// The code table of one tag.
struct TagTable {
    std::string tag;
    std::vector<CodedText> codes;  // ordered by text
};

// Whether the policy file can hold this as an attribute and give it back as it is.
[[nodiscard]] bool IsPolicyText(std::string_view text);

// Throws PolicyError when a policy folder cannot be written here: something exists and must be
// kept, or is not a policy folder. One to be replaced may hold a policy file and databases only, so
// that a mistaken name costs nothing else.
void RequireTarget(const std::string& folder, bool replace);

// Writes the policy file and a database for each tag into a folder of its own next to the target
// and moves it there, safe on disk and complete; of two writers none mixes with the other. The same
// tables give the same bytes. Returns the bytes of all the files. Throws PolicyError; then the
// target is as it was.
uint64_t WritePolicyFolder(const std::string& folder, bool replace, const std::string& version,
                           const std::vector<TagTable>& tables);

}  // namespace trelvo
