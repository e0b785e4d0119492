#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace trelvo {

// Whether a file of this name in a folder is taken for a dump: NAME.dump or NAME.dump.zst.
[[nodiscard]] bool IsDumpName(std::string_view name);

// Orders names as people number them: trelvo.dump, trelvo_2.dump, trelvo_10.dump.
[[nodiscard]] bool NaturalLess(const std::string& a, const std::string& b);

// The files that the words of a command line stand for: in the place of a folder all dumps that lie
// in it, ordered by name. Throws std::system_error with the folder's name when it cannot be read.
[[nodiscard]] std::vector<std::string> ExpandInputs(const std::vector<std::string>& words);

// Bytes of all these files together, as far as they are files.
[[nodiscard]] uint64_t TotalSize(const std::vector<std::string>& files);

}  // namespace trelvo
