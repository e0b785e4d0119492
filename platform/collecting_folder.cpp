#include "collecting_folder.h"

#include <dlog.h>
#include <vconf.h>

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "src/FixedPaths.h"

namespace port {
namespace {

// What the regular files in it hold. An entry that is gone meanwhile counts nothing.
uintmax_t Size() {
    uintmax_t size = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(paths::kCollectingFolder, error), end;
         !error && entry != end; entry.increment(error)) {
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
    if (vconf_get_int(paths::kUploadKey, &pending) == 0 && pending != 0) {
        return;
    }
    const uintmax_t size = Size();
    if (size > paths::kCollectingLimit && vconf_set_int(paths::kUploadKey, 1) == 0) {
        static_cast<void>(
            __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "LOG_COMPRESSOR",
                         "%s holds %ju bytes, more than its limit: set %s to 1, no "
                         "further dumps are added until "
                         "it is 0 again",
                         std::filesystem::path(paths::kCollectingFolder).parent_path().c_str(),
                         size, paths::kUploadKey));
    }
}

}  // namespace port
