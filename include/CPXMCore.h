// The device registry: both device lists, their locks, the settings the decision reads,
// and every operation on them (record utilities, registry operations, access decision,
// prompt launch, monitors, wake-up tables, list JSON, saving and loading).
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "PXMUtil.h"
#include "aul.h"
#include "pxm_types.h"
#include "vconf.h"
#include "wifi.h"

// Settings keys the registry reads and watches.
#define VCONFKEY_PXM_ACCESS_NOTI "db/menu/network/devicemanager/accessnoti"
#define VCONFKEY_PXM_REQ_OPT "memory/quillon/reqopt"
#define VCONFKEY_WIZARD_MODE "memory/wizard/wizard_mode"
#define VCONFKEY_FACTORY_RESET_STATUS "db/registertv/factoryreset"
#define VCONFKEY_BLEAPP_DB_UPDATED "db/bleapp/db_updated"
#define PXM_TESSEL_FEATURE_KEY "com.corvane/featureconf/tessel_support"

#define PXM_UX_APP_ID "org.nuvak.quillon-ux"
#define PXM_STORAGE_ITEM "PXM_DEVICE_LIST"

class CPXMCore {
public:
    static CPXMCore* GetInstance();
    ~CPXMCore();

    CPXMCore(const CPXMCore&) = delete;
    CPXMCore& operator=(const CPXMCore&) = delete;

    // Start-up: platform services, callbacks, settings, Wi-Fi security, app-death listener.
    void Init();

    // ---- record utilities ----
    bool UTIL_CheckValidMAC(const char* mac);
    bool UTIL_CheckValidName(const char* name);
    bool UTIL_CheckValidId(const char* id);
    int UTIL_CompareMAC(const pxm_core_device_s* dev, const char* mac, pxm_tech_ind_e ind);
    void UTIL_CheckAndUpdateKeyType(pxm_core_device_s* dev);
    uint64_t UTIL_GetTime();
    void UTIL_PrintDevice(const pxm_core_device_s* dev);

    // ---- registry operations ----
    bool INTERNAL_AddDevice(pxm_core_device_s* dev, dev_save_type save);
    bool CMD_GetDevice(const char* mac, pxm_tech_ind_e ind, pxm_core_device_s* out,
                       dev_save_type save);
    bool CMD_GetAllDevices(int* count, pxm_core_device_s** list, dev_save_type save);
    bool INTERNAL_RemoveDevice(const char* mac, pxm_tech_ind_e ind, pxm_core_device_s* out,
                               dev_save_type save);
    bool CMD_RemoveAllDevices(dev_save_type save);
    void UTIL_ClearUpdate();

    // ---- access decision ----
    int CMD_RequestAccess(pxm_core_device_s* dev, dev_save_type save);

    // ---- user prompt ----
    bool INTERNAL_AskUser(const pxm_core_device_s* dev);
    bool UTIL_CheckUXDisplay();
    void UTIL_RemoveUX();
    static int INTERNAL_UxTerminate(const aul_app_info* info, void* data);
    static int INTERNAL_UxDeadCallBack(int pid, void* data);

    // ---- environment monitors ----
    void UTIL_LoadVconf();
    void UTIL_LoadSecurity();
    static void INTERNAL_VconfCallBack(keynode_t* node, void* user_data);
    static void INTERNAL_WifiStateCallback(wifi_connection_state_e state, wifi_ap_h ap,
                                           void* user_data);
    static int INTERNAL_InstantOffCallback(int type, void* user_data);

    // ---- external wake-up tables ----
    bool INTERNAL_ControlExternalDB(const char* bt_mac, const char* wifi_mac, pxm_ctrl_ext_e op);

    // ---- persistence ----
    bool Util_GetJsonStringForDeviceList(std::string& out);
    void Util_GetDeviceListForJsonString(const std::string& text);
    void DB_Save();
    static void* DB_SecureSave(void* arg);
    int DB_OpenFile();
    // Blocks until every save started so far has finished (tests, and the destructor,
    // which must not destroy the locks under a running save).
    void DB_WaitForSaves();
    // Blocks while kMaxQueuedSaves saves are in flight. Callers about to change a list call
    // it first, never while holding a lock of the registry: a burst of changes then waits as
    // calls on the bus, not as save threads.
    static constexpr int kMaxQueuedSaves = 4;
    void DB_WaitForSaveRoom();

    // ---- state ----
    std::vector<pxm_core_device_s> mDeviceList;
    std::vector<pxm_core_device_s> mReverseDeviceList;
    PXMUtil::Mutex mPXMLock;   // guards both lists and every record in them
    PXMUtil::Mutex mFileLock;  // serialises saving and loading; taken before mPXMLock
    pthread_t mSaveThread;
    pthread_attr_t mThreadAttr;
    // Written by platform callbacks and read by the decision as plain snapshots; atomic so
    // that a callback delivered on another thread is not a data race.
    std::atomic<int> m_nAccessNoti;
    std::atomic<bool> m_bPnPStatus;
    std::atomic<bool> m_bSecurity;
    std::atomic<int> m_nReqOpt;
    std::atomic<bool> m_bNoDataChanged;
    std::atomic<int> m_nUxPid;

private:
    CPXMCore();

    // Saves in flight, so that DB_WaitForSaves can wait for them.
    std::mutex m_SaveCountMutex;
    std::condition_variable m_SaveCountCond;
    int m_nSavesInFlight;
    bool m_bThreadAttrReady;
};
