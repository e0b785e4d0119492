#pragma once

#include <cstddef>
#include <string_view>

namespace trelvo {

// For containers whose keys come out of a log, so that anybody may have chosen them: depends on a
// secret of this run, so that nobody can choose many that fall together. So does the order of
// such a container, on which no result may depend.
struct KeyedHash {
    // Throws std::system_error when the kernel has no random bytes.
    size_t operator()(std::string_view text) const;
};

}  // namespace trelvo
