/* Power manager: the TV's power state and the standby (instant-off) event. */
#ifndef QUILLON_PLATFORM_DEVICE_POWER_H
#define QUILLON_PLATFORM_DEVICE_POWER_H

#ifdef __cplusplus
extern "C" {
#endif

#define DEVICE_ERROR_NONE 0
#define DEVICE_ERROR_OPERATION_FAILED -1
#define DEVICE_ERROR_INVALID_PARAMETER -22

typedef enum {
    DEVICE_POWER_STATE_NORMAL = 0, /* fully on: the only state in which a prompt is shown */
    DEVICE_POWER_STATE_SCREEN_OFF = 1,
    DEVICE_POWER_STATE_STANDBY = 2,
} device_power_state_e;

typedef int (*device_power_standby_cb)(int type, void* user_data);

int device_power_subscribe_standby(device_power_standby_cb cb, void* user_data);
int device_power_unsubscribe_standby(device_power_standby_cb cb);
/* The current device_power_state_e. */
int device_power_get_state(void);

#ifdef __cplusplus
}
#endif
#endif
