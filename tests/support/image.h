#pragma once

#include <string>
#include <vector>

namespace test_support {

using Bytes = std::vector<unsigned char>;

// The dump image, taken as the dump writer takes it.
Bytes Snapshot(bool consume);

// The records of an image as trelvoctl reads them, "level/tag(P pid, T tid): message" each. Throws
// DamageError where it is damaged.
std::vector<std::string> Decode(const Bytes& image);

}  // namespace test_support
