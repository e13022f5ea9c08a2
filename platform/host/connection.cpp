// Network connection manager: not on the host yet; every call fails.
#include "missing_service.h"
#include "net_connection.h"

namespace {
void Warn(const char* function) {
    host::WarnMissingService("network connection service", function);
}
}  // namespace

extern "C" int connection_create(connection_h* connection) {
    if (connection)
        *connection = nullptr;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}

extern "C" int connection_get_type(connection_h connection, connection_type_e* type) {
    (void)connection;
    (void)type;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}

extern "C" int connection_get_current_profile(connection_h connection,
                                              connection_profile_h* profile) {
    (void)connection;
    if (profile)
        *profile = nullptr;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}

extern "C" int connection_profile_get_wifi_security_type(connection_profile_h profile,
                                                         connection_wifi_security_type_e* type) {
    (void)profile;
    (void)type;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}

extern "C" int connection_profile_get_wifi_encryption_type(
    connection_profile_h profile, connection_wifi_encryption_type_e* type) {
    (void)profile;
    (void)type;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}

extern "C" int connection_destroy(connection_h connection) {
    (void)connection;
    Warn(__func__);
    return CONNECTION_ERROR_OPERATION_FAILED;
}
