#pragma once

#include <string>

namespace dlogutil {

// The boot as the journal names it, 32 hexadecimal digits: $TRELVO_BOOT_ID, which the unit sets,
// or what the kernel says. In a container a sandbox that mounts /proc anew shows the kernel's boot,
// which is the host's. Throws std::system_error.
[[nodiscard]] std::string BootId();

}  // namespace dlogutil
