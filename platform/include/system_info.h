/* System information: product feature flags. */
#ifndef QUILLON_PLATFORM_SYSTEM_INFO_H
#define QUILLON_PLATFORM_SYSTEM_INFO_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SYSTEM_INFO_ERROR_NONE 0
#define SYSTEM_INFO_ERROR_INVALID_PARAMETER -22
#define SYSTEM_INFO_ERROR_IO_ERROR -5

/* 0 on success; *value untouched on failure. */
int system_info_get_custom_bool(const char* key, bool* value);

#ifdef __cplusplus
}
#endif
#endif
