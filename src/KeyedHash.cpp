#include "KeyedHash.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <system_error>

// The library's header brings the whole hash: there is nothing to link, and nothing that a device
// would have to bring.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace keyed {

namespace {

// XXH3 takes a key of this size; a seed of 64 bits would only be spread over a known one.
using Secret = std::array<unsigned char, XXH3_SECRET_DEFAULT_SIZE>;

Secret DrawSecret() {
    Secret secret;
    size_t count = 0;
    while (count < secret.size()) {
        // Waits, early after boot, until the kernel has collected enough.
        const ssize_t drawn = getrandom(secret.data() + count, secret.size() - count, 0);
        if (drawn >= 0) {
            count += static_cast<size_t>(drawn);
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "getrandom");
        }
    }
    return secret;
}

uint64_t HashBytes(const void* bytes, size_t size) {
    static const Secret secret = DrawSecret();
    return XXH3_64bits_withSecret(bytes, size, secret.data(), secret.size());
}

}  // namespace

uint64_t Hash(std::string_view bytes) {
    return HashBytes(bytes.data(), bytes.size());
}

uint64_t Hash(uint32_t a, uint32_t b) {
    const std::array<uint32_t, 2> key{a, b};
    return HashBytes(key.data(), sizeof key);
}

uint64_t Hash(uint32_t a, uint32_t b, uint32_t c) {
    const std::array<uint32_t, 3> key{a, b, c};
    return HashBytes(key.data(), sizeof key);
}

}  // namespace keyed
