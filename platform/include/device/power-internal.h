#pragma once

/* The device's power-state events, as far as the service uses them. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A power state is one bit of a 64-bit set. */
#define DEVICE_POWER_STATE_NORMAL UINT64_C(0x100000000)
#define DEVICE_POWER_STATE_STANDBY UINT64_C(0x200000000)

struct _device_power_state_info {
    uint64_t prev_state;
    uint64_t next_state;
    int32_t reason;
};

typedef int (*device_power_state_changed_cb)(struct _device_power_state_info* info,
                                             void* user_data);

/* One subscription a process. Both return 0 on success and a negative value on failure. The
 * callback runs on the main loop. */
int device_power_subscribe_state_changed_event(device_power_state_changed_cb callback,
                                               void* user_data);
int device_power_unsubscribe_state_changed_event(device_power_state_changed_cb callback);

#ifdef __cplusplus
}
#endif
