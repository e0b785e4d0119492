// The device's interfaces for a program that runs only the recorder: messages go nowhere, and the
// buffer takes the size that it is given.

#include <app.h>
#include <device/power-internal.h>
#include <dlog.h>
#include <system_info.h>
#include <vconf.h>

extern "C" {

int __dlog_print(log_id_t /*log_id*/, int /*prio*/, const char* /*tag*/, const char* /*fmt*/, ...) {
    return 0;
}

int system_info_get_custom_int(const char* /*key*/, int* value) {
    *value = 2;
    return 0;
}

int vconf_get_int(const char* /*key*/, int* value) {
    *value = 0;
    return 0;
}

int vconf_set_int(const char* /*key*/, int /*value*/) {
    return 0;
}

int device_power_subscribe_state_changed_event(device_power_state_changed_cb /*callback*/,
                                               void* /*data*/) {
    return 0;
}

int device_power_unsubscribe_state_changed_event(device_power_state_changed_cb /*callback*/) {
    return 0;
}

}  // extern "C"
