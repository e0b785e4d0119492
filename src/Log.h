#pragma once

// The macros through which every message of the service goes to the device's log, one
// __dlog_print call each, under the tag "LOG_COMPRESSOR".
//
// Every message starts with "file: function(line) > ", which is also what makes the service's own
// lines readable to its parser when it captures itself.

#include <dlog.h>

namespace log_detail {

// The last component of a path; only the base name goes into the log.
constexpr const char* BaseName(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            name = at + 1;
        }
    }
    return name;
}

}  // namespace log_detail

#define TR_LOG(priority, format, ...)                                                     \
    __dlog_print(LOG_ID_MAIN, priority, "LOG_COMPRESSOR", "%s: %s(%d) > [%s:%d] " format, \
                 log_detail::BaseName(__FILE__), __func__, __LINE__, __func__, __LINE__,  \
                 ##__VA_ARGS__)

#define TR_LOGD(format, ...) TR_LOG(DLOG_DEBUG, format, ##__VA_ARGS__)
#define TR_LOGI(format, ...) TR_LOG(DLOG_INFO, format, ##__VA_ARGS__)
#define TR_LOGE(format, ...) TR_LOG(DLOG_ERROR, format, ##__VA_ARGS__)
