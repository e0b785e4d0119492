#include "train/keyed_hash.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <system_error>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace trelvo {

namespace {

using Secret = std::array<unsigned char, XXH3_SECRET_DEFAULT_SIZE>;

Secret DrawSecret() {
    Secret secret;
    // So few bytes come all or not at all.
    if (getrandom(secret.data(), secret.size(), 0) != static_cast<ssize_t>(secret.size())) {
        throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return secret;
}

}  // namespace

size_t KeyedHash::operator()(std::string_view text) const {
    static const Secret secret = DrawSecret();
    return static_cast<size_t>(
        XXH3_64bits_withSecret(text.data(), text.size(), secret.data(), secret.size()));
}

}  // namespace trelvo
