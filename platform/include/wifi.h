/* Wi-Fi manager. */
#ifndef QUILLON_PLATFORM_WIFI_H
#define QUILLON_PLATFORM_WIFI_H

#ifdef __cplusplus
extern "C" {
#endif

#define WIFI_ERROR_NONE 0
#define WIFI_ERROR_INVALID_PARAMETER -22
#define WIFI_ERROR_OPERATION_FAILED -1
#define WIFI_ERROR_NOT_SUPPORTED -95

typedef enum {
    WIFI_CONNECTION_STATE_FAILURE = -1,
    WIFI_CONNECTION_STATE_DISCONNECTED = 0,
    WIFI_CONNECTION_STATE_ASSOCIATION = 1,
    WIFI_CONNECTION_STATE_CONFIGURATION = 2,
    WIFI_CONNECTION_STATE_CONNECTED = 3,
} wifi_connection_state_e;

typedef struct wifi_ap_s* wifi_ap_h;

typedef void (*wifi_connection_state_changed_cb)(wifi_connection_state_e state, wifi_ap_h ap,
                                                 void* user_data);

int wifi_initialize(void);
int wifi_deinitialize(void);
int wifi_set_connection_state_changed_cb(wifi_connection_state_changed_cb callback,
                                         void* user_data);
int wifi_unset_connection_state_changed_cb(void);
/* *essid is allocated; release with g_free. */
int wifi_ap_get_essid(wifi_ap_h ap, char** essid);

#ifdef __cplusplus
}
#endif
#endif
