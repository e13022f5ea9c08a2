/* Network connection manager. */
#ifndef QUILLON_PLATFORM_NET_CONNECTION_H
#define QUILLON_PLATFORM_NET_CONNECTION_H

#ifdef __cplusplus
extern "C" {
#endif

#define CONNECTION_ERROR_NONE 0
#define CONNECTION_ERROR_INVALID_PARAMETER -22
#define CONNECTION_ERROR_OPERATION_FAILED -1
#define CONNECTION_ERROR_NO_CONNECTION -2

typedef struct connection_s* connection_h;
typedef struct connection_profile_s* connection_profile_h;

typedef enum {
    CONNECTION_TYPE_DISCONNECTED = 0,
    CONNECTION_TYPE_WIFI = 1,
    CONNECTION_TYPE_CELLULAR = 2,
    CONNECTION_TYPE_ETHERNET = 3,
    CONNECTION_TYPE_BT = 4,
} connection_type_e;

typedef enum {
    CONNECTION_WIFI_SECURITY_TYPE_NONE = 0,
    CONNECTION_WIFI_SECURITY_TYPE_WEP = 1,
    CONNECTION_WIFI_SECURITY_TYPE_WPA_PSK = 2,
    CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK = 3,
    CONNECTION_WIFI_SECURITY_TYPE_EAP = 4,
} connection_wifi_security_type_e;

typedef enum {
    CONNECTION_WIFI_ENCRYPTION_TYPE_NONE = 0,
    CONNECTION_WIFI_ENCRYPTION_TYPE_WEP = 1,
    CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP = 2,
    CONNECTION_WIFI_ENCRYPTION_TYPE_AES = 3,
    CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP_AES_MIXED = 4,
} connection_wifi_encryption_type_e;

int connection_create(connection_h* connection);
int connection_get_type(connection_h connection, connection_type_e* type);
/* The profile belongs to the connection handle. */
int connection_get_current_profile(connection_h connection, connection_profile_h* profile);
int connection_profile_get_wifi_security_type(connection_profile_h profile,
                                              connection_wifi_security_type_e* type);
int connection_profile_get_wifi_encryption_type(connection_profile_h profile,
                                                connection_wifi_encryption_type_e* type);
int connection_destroy(connection_h connection);

#ifdef __cplusplus
}
#endif
#endif
