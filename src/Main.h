#pragma once

#include <app.h>

// The lifecycle callbacks, all called on the platform's main loop thread.

// Creates the singletons, the dump writer thread among them.
bool app_create(void* user_data);
// The first call configures the service and starts the capture; every later one may only ask for a
// dump.
void app_control(app_control_h app_control, void* user_data);
void app_terminate(void* user_data);
void app_pause(void* user_data);
void app_resume(void* user_data);
