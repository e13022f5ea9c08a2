/* Wake-on-WLAN waker table. All return 0 on success. */
#ifndef QUILLON_PLATFORM_WOWL_H
#define QUILLON_PLATFORM_WOWL_H

#ifdef __cplusplus
extern "C" {
#endif

#define WOWL_ERROR_NONE 0
#define WOWL_ERROR_OPERATION_FAILED -1
#define WOWL_ERROR_INVALID_PARAMETER -22
#define WOWL_ERROR_NOT_FOUND -2

int wowl_add_waker_device(const char* mac, int flags);
int wowl_del_waker_device(const char* mac, int flags);
int wowl_clear_waker_table(void);

#ifdef __cplusplus
}
#endif
#endif
