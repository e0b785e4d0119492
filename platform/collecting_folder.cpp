#include "collecting_folder.h"

#include <dlog.h>
#include <vconf.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

namespace port {
namespace {

constexpr const char* kFolder = "/opt/usr/share/svc-rk/dump";
constexpr const char* kUploadKey = "memory/trelvo/dlog_dump";
constexpr uintmax_t kLimit = 20971520;  // bytes, as the service has it

// What the regular files in it hold. An entry that is gone meanwhile counts nothing.
uintmax_t Size() {
    uintmax_t size = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(kFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone;
        if (entry->symlink_status(gone).type() == std::filesystem::file_type::regular) {
            const uintmax_t bytes = entry->file_size(gone);
            size += gone ? 0 : bytes;
        }
    }
    return size;
}

}  // namespace

void WatchCollectingFolder() {
    int pending = 0;
    if (vconf_get_int(kUploadKey, &pending) == 0 && pending != 0) {
        return;
    }
    const uintmax_t size = Size();
    if (size > kLimit && vconf_set_int(kUploadKey, 1) == 0) {
        static_cast<void>(__dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "LOG_COMPRESSOR",
                                       "%s holds %ju bytes, more than its limit: set %s to 1, no "
                                       "further dumps are added until "
                                       "it is 0 again",
                                       kFolder, size, kUploadKey));
    }
}

}  // namespace port
