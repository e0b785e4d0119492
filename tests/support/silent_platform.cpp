#include "support/silent_platform.h"

#include <device/power-internal.h>
#include <dlog.h>
#include <system_info.h>
#include <vconf.h>

namespace {

test_support::LogHandler log_handler = [](const char* /*format*/, va_list /*arguments*/) {};

}  // namespace

namespace test_support {

void SetLogHandler(LogHandler handler) {
    log_handler = handler;
}

}  // namespace test_support

extern "C" {

int __dlog_print(log_id_t /*log_id*/, int /*prio*/, const char* /*tag*/, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    log_handler(fmt, arguments);
    va_end(arguments);
    return 0;
}

int vconf_get_int(const char* /*key*/, int* value) {
    *value = 0;
    return 0;
}

int vconf_set_int(const char* /*key*/, int /*value*/) {
    return 0;
}

int system_info_get_custom_int(const char* /*key*/, int* value) {
    *value = 2;
    return 0;
}

int device_power_subscribe_state_changed_event(device_power_state_changed_cb /*callback*/,
                                               void* /*user_data*/) {
    return 0;
}

int device_power_unsubscribe_state_changed_event(device_power_state_changed_cb /*callback*/) {
    return 0;
}

}  // extern "C"
