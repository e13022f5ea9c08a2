/* Platform watchdog. */
#ifndef QUILLON_PLATFORM_SMART_DEADLOCK_H
#define QUILLON_PLATFORM_SMART_DEADLOCK_H

#ifdef __cplusplus
extern "C" {
#endif

/* Negative on failure. */
int smart_deadlock_register_watchdog_service(int timeout_sec);
int smart_deadlock_watchdog_notify(void);
int smart_deadlock_unregister_watchdog_service(void);

#ifdef __cplusplus
}
#endif
#endif
