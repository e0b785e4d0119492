#pragma once

/* The device's key/value store, as far as the service uses it. */

#ifdef __cplusplus
extern "C" {
#endif

/* Both return 0 on success and -1 on failure; a failed read leaves `*value` as it was. */
int vconf_get_int(const char* key, int* value);
int vconf_set_int(const char* key, int value);

/* The text under `key`, to be released with free(); NULL on failure. */
char* vconf_get_str(const char* key);
/* Returns 0 on success and -1 on failure. The text is there as a whole or not at all. */
int vconf_set_str(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
