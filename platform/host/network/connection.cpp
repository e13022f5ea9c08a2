// Network connection manager: not on the host yet; every call fails.
#include "common/missing_service.h"
#include "net_connection.h"

namespace {
// Says once per function that the service is missing; every call fails.
int Failed(const char* function) {
    host::WarnMissingService("network connection service", function);
    return CONNECTION_ERROR_OPERATION_FAILED;
}
}  // namespace

extern "C" int connection_create(connection_h* connection) {
    if (connection)
        *connection = nullptr;
    return Failed(__func__);
}

extern "C" int connection_get_type(connection_h /*connection*/, connection_type_e* /*type*/) {
    return Failed(__func__);
}

extern "C" int connection_get_current_profile(connection_h /*connection*/,
                                              connection_profile_h* profile) {
    if (profile)
        *profile = nullptr;
    return Failed(__func__);
}

extern "C" int connection_profile_get_wifi_security_type(
    connection_profile_h /*profile*/, connection_wifi_security_type_e* /*type*/) {
    return Failed(__func__);
}

extern "C" int connection_profile_get_wifi_encryption_type(
    connection_profile_h /*profile*/, connection_wifi_encryption_type_e* /*type*/) {
    return Failed(__func__);
}

extern "C" int connection_destroy(connection_h /*connection*/) {
    return Failed(__func__);
}
