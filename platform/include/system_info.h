#pragma once

/* The device's feature configuration, as far as the service uses it. */

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    SYSTEM_INFO_ERROR_NONE = 0,
    SYSTEM_INFO_ERROR_INVALID_PARAMETER = -22,
    SYSTEM_INFO_ERROR_IO_ERROR = -5
} system_info_error_e;

/* Reads an integer that the device maker configured. A failure leaves `*value` as it was. */
int system_info_get_custom_int(const char* key, int* value);

#ifdef __cplusplus
}
#endif
