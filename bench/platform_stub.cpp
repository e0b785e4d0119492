// The device's interfaces for a program that runs only the recorder: messages are counted and go
// nowhere.

#include "platform_stub.h"

#include <app.h>
#include <device/power-internal.h>
#include <dlog.h>
#include <system_info.h>
#include <vconf.h>

#include <atomic>
#include <cstring>

#include "lock_watch.h"

namespace {

std::atomic<size_t> completed_dumps = 0;

}  // namespace

namespace bench {

size_t CompletedDumps() {
    return completed_dumps;
}

}  // namespace bench

extern "C" {

int __dlog_print(log_id_t /*log_id*/, int /*prio*/, const char* /*tag*/, const char* fmt, ...) {
    bench::CountMessage();
    completed_dumps += std::strstr(fmt, "Dump to File[") != nullptr ? 1 : 0;
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
