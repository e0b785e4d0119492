#include "system_info.h"

#include <glib.h>

#include "handles.h"

namespace {

// [custom] of this file holds what the maker of the machine configured, one `key=integer` a line.
constexpr const char* kFile = "/etc/trelvo/system-info.ini";
constexpr const char* kGroup = "custom";

}  // namespace

int system_info_get_custom_int(const char* key, int* value) {
    if (key == nullptr || value == nullptr) {
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    const port::Handle<GKeyFile, g_key_file_unref> file(g_key_file_new());
    g_autoptr(GError) error = nullptr;
    if (g_key_file_load_from_file(file.get(), kFile, G_KEY_FILE_NONE, &error) == FALSE) {
        return SYSTEM_INFO_ERROR_IO_ERROR;
    }
    const int found = g_key_file_get_integer(file.get(), kGroup, key, &error);
    if (error != nullptr) {
        return g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_INVALID_VALUE) != FALSE
                   ? SYSTEM_INFO_ERROR_IO_ERROR
                   : SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    }
    *value = found;
    return SYSTEM_INFO_ERROR_NONE;
}
