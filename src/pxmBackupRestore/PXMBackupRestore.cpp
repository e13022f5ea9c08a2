// Client side of the platform's backup-and-restore service: the connection and its two
// callbacks, the settings keys through which the service asks for work, and restores.
#include "PXMBackupRestore.h"

#include "pxm_log.h"

PXMBackupRestore::PXMBackupRestore()
    : m_pPXMCore(nullptr), m_nBnrTriggerHandle(-1), m_nBnrHandler(-1) {
    m_RegisterBnrVconfs();
}

void PXMBackupRestore::Initialize(CPXMCore* core) {
    BNR_LOGI("START");
    // The service is contacted on first use, not here.
    m_pPXMCore = core;
}

bool PXMBackupRestore::BnrInit() {
    BNR_LOGI("START");
    int ret = bnr_init(PXM_BNR_CLIENT_ID, PXM_BNR_CLIENT_NAME);
    if (ret != BNR_ERROR_NONE) {
        BNR_LOGE("bnr init failed %d", ret);
        return false;
    }
    BNR_LOGI("bnr init success %d", ret);

    // A connection left open by a restore keeps its registrations: never register twice.
    if (m_nBnrTriggerHandle == -1) {
        ret = bnr_trigger_callback_register(PXM_BNR_CLIENT_ID, m_BnrTriggerCallback, this,
                                            &m_nBnrTriggerHandle);
        if (ret != BNR_ERROR_NONE) {
            BNR_LOGE("Register bnr trigger callback failed(%d).", ret);
        }
    }
    if (m_nBnrHandler == -1) {
        ret = bnr_callback_register(PXM_BNR_CLIENT_ID, m_BnrCallback, this, &m_nBnrHandler);
        if (ret != BNR_ERROR_NONE) {
            BNR_LOGE("Failed to set bnr callback(%d)", ret);
        }
    }
    BNR_LOGI("m_nBnrTriggerHandle[%d] m_nBnrHandler[%d]", m_nBnrTriggerHandle, m_nBnrHandler);
    BNR_LOGI("END");
    return true;
}

void PXMBackupRestore::BnrDeinit() {
    BNR_LOGI("START");
    BNR_LOGI("m_nBnrTriggerHandle[%d] m_nBnrHandler[%d]", m_nBnrTriggerHandle, m_nBnrHandler);
    if (m_nBnrTriggerHandle != -1) {
        int ret = bnr_trigger_callback_deregister(m_nBnrTriggerHandle);
        if (ret != BNR_ERROR_NONE) {
            BNR_LOGE("Deregister bnr trigger callback failed(%d).", ret);
        }
        m_nBnrTriggerHandle = -1;
    }
    if (m_nBnrHandler != -1) {
        int ret = bnr_callback_deregister(m_nBnrHandler);
        if (ret != BNR_ERROR_NONE) {
            BNR_LOGE("Deregister bnr callback failed(%d).", ret);
        }
        m_nBnrHandler = -1;
    }
    int ret = bnr_deinit(PXM_BNR_CLIENT_ID);
    if (ret != BNR_ERROR_NONE) {
        // Operators grep for the init text; the deinit failure reuses it.
        BNR_LOGE("bnr init failed %d", ret);
    }
    BNR_LOGI("END");
}

void PXMBackupRestore::m_RegisterBnrVconfs() {
    BNR_LOGI("START");
    // Both failures carry the same text on purpose: log searches already rely on it.
    if (vconf_notify_key_changed(VCONFKEY_BNR_RESTORECID, m_BnrVconfChangeCB, this) != VCONF_OK) {
        BNR_LOGE("Failed to register VCONFKEY_BNR_BACKUPTIME notification callback");
    }
    if (vconf_notify_key_changed(VCONFKEY_BNR_BACKUPCID, m_BnrVconfChangeCB, this) != VCONF_OK) {
        BNR_LOGE("Failed to register VCONFKEY_BNR_BACKUPTIME notification callback");
    }
    BNR_LOGI("END");
}

void PXMBackupRestore::m_UnRegisterBnrVconfs() {
    BNR_LOGI("START");
    if (vconf_ignore_key_changed(VCONFKEY_BNR_RESTORECID, m_BnrVconfChangeCB) != VCONF_OK) {
        BNR_LOGE("Failed to un register VCONFKEY_BNR_RESTORECID, notification ignore");
    }
    if (vconf_ignore_key_changed(VCONFKEY_BNR_BACKUPCID, m_BnrVconfChangeCB) != VCONF_OK) {
        BNR_LOGE("Failed to un register VCONFKEY_BNR_BACKUPCID, notification ignore");
    }
    BNR_LOGI("END");
}

void PXMBackupRestore::m_BnrVconfChangeCB(keynode_t* node, void* user_data) {
    BNR_LOGI("START");
    if (node == nullptr || user_data == nullptr) {
        BNR_LOGE("Invalid args!!");
        return;
    }
    const char* name = vconf_keynode_get_name(node);
    const char* value = vconf_keynode_get_str(node);
    // A key without a string value reads as empty text, which is never our client id.
    std::string key_text = name != nullptr ? name : "";
    std::string value_text = value != nullptr ? value : "";
    static_cast<PXMBackupRestore*>(user_data)->m_ProcessBnrVconfChange(key_text, value_text);
    BNR_LOGI("END");
}

void PXMBackupRestore::m_ProcessBnrVconfChange(const std::string& key, const std::string& value) {
    BNR_LOGI("START");
    BNR_LOGI("key[%s] value[%s]", key.c_str(), value.c_str());
    if (value == PXM_BNR_CLIENT_ID) {
        if (key == VCONFKEY_BNR_BACKUPCID) {
            m_ProcessBackupAll();
        } else {
            // The restore's answer arrives later through m_BnrCallback, so the connection
            // stays open here.
            BnrInit();
            m_ProcessRestore();
        }
    }
    BNR_LOGI("END");
}

void PXMBackupRestore::m_ProcessRestore() {
    BNR_LOGI("START");
    int ret = bnr_restore(PXM_BNR_CLIENT_ID, nullptr);
    if (ret != BNR_ERROR_NONE) {
        BNR_LOGE("bnr_restore error [%d]", ret);
    } else {
        BNR_LOGI("Restore requested successfully.");
    }
    BNR_LOGI("END");
}

void PXMBackupRestore::m_BnrTriggerCallback(bnr_trigger_e trigger, void* user_data) {
    BNR_LOGI("BNR TRIGGER called [%d]", static_cast<int>(trigger));
    PXMBackupRestore* pThis = static_cast<PXMBackupRestore*>(user_data);
    if (pThis == nullptr) {
        BNR_LOGE("pThis is NULL");
        return;
    }
    switch (static_cast<int>(trigger)) {
        case BNR_TRIGGER_BACKUP:
            // Backups are pushed after every change of the list; nothing to start here.
            break;
        case BNR_TRIGGER_RESTORE:
            // A registered trigger callback means the connection is already open.
            pThis->m_ProcessRestore();
            break;
        default:
            BNR_LOGE("Unexpected BNR TRIGGER [%d]", static_cast<int>(trigger));
            break;
    }
}

void PXMBackupRestore::m_BnrCallback(bnr_response_e response, bnr_resp_data_s* data,
                                     void* user_data) {
    BNR_LOGI("BNR Callback called [%d]", static_cast<int>(response));
    PXMBackupRestore* pThis = static_cast<PXMBackupRestore*>(user_data);
    if (pThis == nullptr) {
        bnr_report_failure(PXM_BNR_CLIENT_ID);
        BNR_LOGE("pThis==NULL");
    } else {
        switch (static_cast<int>(response)) {
            case BNR_RESPONSE_UNHANDLED:
                BNR_LOGE("Unhandled response");
                break;
            case BNR_RESPONSE_BACKUP_COMPLETED:
                BNR_LOGE("Backup is completed %p", static_cast<void*>(data));
                break;
            case BNR_RESPONSE_RESTORE_DATA:
                if (pThis->ParseRestoreData(data != nullptr ? data->data : nullptr)) {
                    bnr_report_success(PXM_BNR_CLIENT_ID);
                } else {
                    BNR_LOGE("m_Restore fail");
                    bnr_report_failure(PXM_BNR_CLIENT_ID);
                }
                break;
            case BNR_RESPONSE_LIST_COMPLETED:
                BNR_LOGE("ListDevices is completed");
                break;
            case BNR_RESPONSE_ERROR:
                BNR_LOGE("Error happened");
                break;
            case BNR_RESPONSE_SCHEMA_ERROR:
                BNR_LOGE("Backup Schema error");
                break;
            case BNR_RESPONSE_NOT_RESPONDING:
                BNR_LOGE("Server is not responding. Try again later.");
                break;
            case BNR_RESPONSE_DUPLICATED:
                BNR_LOGE("Duplicated data error");
                break;
            default:
                BNR_LOGE("INVALID value[%d]", static_cast<int>(response));
                break;
        }
    }
    // Every response ends the service's request; nothing is retried.
    BNR_LOGE("response came. Finish app");
}
