// Backup-and-restore service: not on the host yet; the client sees a service that is not
// connected.
#include "bnr.h"
#include "missing_service.h"

namespace {
void Warn(const char* function) {
    host::WarnMissingService("backup service", function);
}
}  // namespace

extern "C" int bnr_init(const char* client_id, const char* client_name) {
    (void)client_id;
    (void)client_name;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_deinit(const char* client_id) {
    (void)client_id;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_trigger_callback_register(const char* client_id, bnr_trigger_cb cb,
                                             void* user_data, int* handle) {
    (void)client_id;
    (void)cb;
    (void)user_data;
    (void)handle;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_trigger_callback_deregister(int handle) {
    (void)handle;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_callback_register(const char* client_id, bnr_response_cb cb, void* user_data,
                                     int* handle) {
    (void)client_id;
    (void)cb;
    (void)user_data;
    (void)handle;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_callback_deregister(int handle) {
    (void)handle;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_backup(const char* client_id, const char* data, void* reserved) {
    (void)client_id;
    (void)data;
    (void)reserved;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_restore(const char* client_id, void* reserved) {
    (void)client_id;
    (void)reserved;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_report_success(const char* client_id) {
    (void)client_id;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}

extern "C" int bnr_report_failure(const char* client_id) {
    (void)client_id;
    Warn(__func__);
    return BNR_ERROR_NOT_CONNECTED;
}
