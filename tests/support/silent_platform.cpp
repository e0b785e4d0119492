// The platform, as far as the targets reach it: takes log messages and answers nothing.

#include <device/power-internal.h>
#include <dlog.h>
#include <system_info.h>
#include <vconf.h>

#include <array>
#include <cstdarg>
#include <cstdio>

extern "C" {

int __dlog_print(log_id_t /*log_id*/, int /*prio*/, const char* /*tag*/, const char* fmt, ...) {
    std::array<char, 512> message;  // formatted, since the arguments are hostile
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(message.data(), message.size(), fmt, args);
    va_end(args);
    return length;
}

int vconf_get_int(const char* /*key*/, int* /*value*/) {
    return -1;
}

int vconf_set_int(const char* /*key*/, int /*value*/) {
    return -1;
}

// The mode in which the buffer takes its size from the launch.
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
