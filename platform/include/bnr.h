/* Backup-and-restore service client interface. All int results are 0 on success. */
#ifndef QUILLON_PLATFORM_BNR_H
#define QUILLON_PLATFORM_BNR_H

#ifdef __cplusplus
extern "C" {
#endif

#define BNR_ERROR_NONE 0
#define BNR_ERROR_OPERATION_FAILED -1
#define BNR_ERROR_INVALID_PARAMETER -22
#define BNR_ERROR_NOT_CONNECTED -107

typedef enum {
    BNR_TRIGGER_BACKUP = 1,
    BNR_TRIGGER_RESTORE = 2,
} bnr_trigger_e;

typedef enum {
    BNR_RESPONSE_UNHANDLED = 0,
    BNR_RESPONSE_BACKUP_COMPLETED = 101,
    BNR_RESPONSE_RESTORE_DATA = 102,
    BNR_RESPONSE_LIST_COMPLETED = 103,
    BNR_RESPONSE_ERROR = 500,
    BNR_RESPONSE_INVALID = 501,
    BNR_RESPONSE_SCHEMA_ERROR = 502,
    BNR_RESPONSE_NOT_RESPONDING = 503,
    BNR_RESPONSE_DUPLICATED = 504,
} bnr_response_e;

typedef struct {
    char* data; /* NUL-terminated text: the restore payload for BNR_RESPONSE_RESTORE_DATA */
    int size;
} bnr_resp_data_s;

typedef void (*bnr_trigger_cb)(bnr_trigger_e trigger, void* user_data);
typedef void (*bnr_response_cb)(bnr_response_e response, bnr_resp_data_s* data, void* user_data);

int bnr_init(const char* client_id, const char* client_name);
int bnr_deinit(const char* client_id);
int bnr_trigger_callback_register(const char* client_id, bnr_trigger_cb cb, void* user_data,
                                  int* handle);
int bnr_trigger_callback_deregister(int handle);
int bnr_callback_register(const char* client_id, bnr_response_cb cb, void* user_data, int* handle);
int bnr_callback_deregister(int handle);
int bnr_backup(const char* client_id, const char* data, void* reserved);
int bnr_restore(const char* client_id, void* reserved);
int bnr_report_success(const char* client_id);
int bnr_report_failure(const char* client_id);

#ifdef __cplusplus
}
#endif
#endif
