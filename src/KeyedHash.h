#pragma once

#include <cstdint>
#include <string_view>

// Hashes for indexes whose keys a stranger may choose, as every log writer does. They depend on a
// secret that is drawn at random, once for each process, and that nothing can set or read: texts
// that all meet in one place of an index cannot be worked out beforehand.
//
// All 64 bits are equally good. A hash is worth nothing outside the process that made it, and must
// not leave it. Any thread may call these. The first call draws the secret and throws
// std::system_error when the kernel has none.
namespace keyed {

[[nodiscard]] uint64_t Hash(std::string_view bytes);
[[nodiscard]] uint64_t Hash(uint32_t a, uint32_t b);
[[nodiscard]] uint64_t Hash(uint32_t a, uint32_t b, uint32_t c);

}  // namespace keyed
