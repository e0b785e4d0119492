#include "dlogutil/boot_id.h"

#include <systemd/sd-id128.h>

#include <array>
#include <cstdlib>
#include <system_error>

namespace dlogutil {

std::string BootId() {
    sd_id128_t id{};
    const char* const told = std::getenv("TRELVO_BOOT_ID");
    if (told == nullptr || sd_id128_from_string(told, &id) < 0) {
        if (const int result = sd_id128_get_boot(&id); result < 0) {
            throw std::system_error(-result, std::generic_category(), "boot id");
        }
    }
    std::array<char, SD_ID128_STRING_MAX> text{};
    return sd_id128_to_string(id, text.data());
}

}  // namespace dlogutil
