// Client of the platform's backup-and-restore service.
#pragma once

#include <string>

#include "bnr.h"
#include "pxm_types.h"
#include "vconf.h"

class CPXMCore;

#define PXM_BNR_CLIENT_ID "Zq8Tn3Wd5R"
#define PXM_BNR_CLIENT_NAME "Orvendale"
#define VCONFKEY_BNR_BACKUPCID "memory/bnr/backupcid"
#define VCONFKEY_BNR_RESTORECID "memory/bnr/restorecid"

class PXMBackupRestore {
public:
    PXMBackupRestore();

    // Start-up hands over the registry once the list is loaded or wiped.
    void Initialize(CPXMCore* core);

    bool BnrInit();
    void BnrDeinit();
    void m_RegisterBnrVconfs();
    void m_UnRegisterBnrVconfs();

    static void m_BnrVconfChangeCB(keynode_t* node, void* user_data);
    void m_ProcessBnrVconfChange(const std::string& key, const std::string& value);
    static void m_BnrTriggerCallback(bnr_trigger_e trigger, void* user_data);
    static void m_BnrCallback(bnr_response_e response, bnr_resp_data_s* data, void* user_data);
    void m_ProcessRestore();

    // Backup payload.
    bool Backup(pxm_core_device_s* dev, OP_TYPE op);
    bool AssembleCompleteData(std::string& out);
    void AssembleBackupData(std::string& complete, std::string& changed, pxm_core_device_s* dev);
    void m_ProcessBackupAll();

    // Restore.
    bool ParseRestoreData(const char* text);

    CPXMCore* m_pPXMCore;
    int m_nBnrTriggerHandle;
    int m_nBnrHandler;
};
