#pragma once

#include <cstddef>

namespace bench {

// Dumps that the dump writer has said to be complete.
size_t CompletedDumps();

}  // namespace bench
