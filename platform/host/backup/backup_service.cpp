// Backup-and-restore service: not on the host yet; the client sees a service that is not
// connected.
#include "bnr.h"
#include "common/missing_service.h"

namespace {
// Says once per function that the service is missing; the client sees it not connected.
int NotConnected(const char* function) {
    host::WarnMissingService("backup service", function);
    return BNR_ERROR_NOT_CONNECTED;
}
}  // namespace

extern "C" int bnr_init(const char* /*client_id*/, const char* /*client_name*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_deinit(const char* /*client_id*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_trigger_callback_register(const char* /*client_id*/, bnr_trigger_cb /*cb*/,
                                             void* /*user_data*/, int* /*handle*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_trigger_callback_deregister(int /*handle*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_callback_register(const char* /*client_id*/, bnr_response_cb /*cb*/,
                                     void* /*user_data*/, int* /*handle*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_callback_deregister(int /*handle*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_backup(const char* /*client_id*/, const char* /*data*/, void* /*reserved*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_restore(const char* /*client_id*/, void* /*reserved*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_report_success(const char* /*client_id*/) {
    return NotConnected(__func__);
}

extern "C" int bnr_report_failure(const char* /*client_id*/) {
    return NotConnected(__func__);
}
