#pragma once

/* The device's application framework, as far as the service uses it. */

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    APP_ERROR_NONE = 0,
    APP_ERROR_INVALID_PARAMETER = -22,
    APP_ERROR_ALREADY_RUNNING = -0x01100000 | 0x03,
    APP_ERROR_IO = -5
} app_error_e;

typedef enum {
    APP_CONTROL_ERROR_NONE = 0,
    APP_CONTROL_ERROR_INVALID_PARAMETER = -22,
    APP_CONTROL_ERROR_OUT_OF_MEMORY = -12,
    APP_CONTROL_ERROR_KEY_NOT_FOUND = -126
} app_control_error_e;

/* One launch request; valid only during the callback that receives it. */
typedef struct app_control_s* app_control_h;

typedef struct {
    bool (*create)(void* user_data);
    void (*terminate)(void* user_data);
    void (*pause)(void* user_data);
    void (*resume)(void* user_data);
    void (*app_control)(app_control_h app_control, void* user_data);
} ui_app_lifecycle_callback_s;

/* Runs the main loop and the callbacks on the calling thread; returns when the application ends. */
int ui_app_main(int argc, char** argv, ui_app_lifecycle_callback_s* callback, void* user_data);

/* Asks the main loop to end. */
void ui_app_exit(void);

/* Gives a copy of the value under `key`, to be released with free(). A failure leaves `*value` as
 * it was. */
int app_control_get_extra_data(app_control_h app_control, const char* key, char** value);

#ifdef __cplusplus
}
#endif
