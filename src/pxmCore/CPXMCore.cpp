// The registry singleton's life: construction with its two locks, start-up of the platform
// services it watches, and teardown.
#include "CPXMCore.h"

#include "bluetooth_product.h"
#include "device_power.h"
#include "pxm_log.h"

CPXMCore* CPXMCore::GetInstance() {
    static CPXMCore instance;
    return &instance;
}

CPXMCore::CPXMCore()
    : mSaveThread(0),
      mThreadAttr(),
      m_nAccessNoti(0),
      m_bPnPStatus(false),
      m_bSecurity(false),
      m_nReqOpt(0),
      m_bNoDataChanged(false),
      m_nUxPid(0),
      m_nSavesInFlight(0),
      m_bThreadAttrReady(false) {
    CORE_LOGI("[LOCK] Create mPXMLock & mFileLock");
    mPXMLock.Create();
    mFileLock.Create();
}

CPXMCore::~CPXMCore() {
    // Deliberately waits for saves in flight: a save thread still running would take locks
    // that are about to be destroyed.
    DB_WaitForSaves();
    CORE_LOGI("[LOCK] Destroy mPXMLock & mFileLock");
    mPXMLock.m_Semaphore.Destroy();
    mFileLock.m_Semaphore.Destroy();
    mDeviceList.clear();
    mReverseDeviceList.clear();
}

void CPXMCore::Init() {
    // Save threads are started detached from these attributes; without them there is no
    // point in bringing up the rest.
    if (pthread_attr_init(&mThreadAttr) != 0) {
        CORE_LOGE("Fail to init pthread.");
        return;
    }
    if (pthread_attr_setdetachstate(&mThreadAttr, PTHREAD_CREATE_DETACHED) != 0) {
        CORE_LOGE("Fail to setdetachstate.");
        return;
    }
    m_bThreadAttrReady = true;

    int ret = bt_product_init();
    if (ret < 0) {
        CORE_LOGE("bt init failed %d", ret);
    } else {
        CORE_LOGI("[1/5] BT init >> Success");
    }

    ret = wifi_initialize();
    if (ret != WIFI_ERROR_NONE) {
        CORE_LOGE("Failed to Initialize WiFi[%d]", ret);
    } else {
        CORE_LOGI("[2/5] WiFi init >> Success");
    }

    ret = wifi_set_connection_state_changed_cb(INTERNAL_WifiStateCallback, this);
    if (ret != WIFI_ERROR_NONE) {
        // Leave no half-registered callback behind.
        wifi_unset_connection_state_changed_cb();
        CORE_LOGE("Failed to register wifi_set_connection_state_changed_cb callback [%d]", ret);
    } else {
        CORE_LOGI("[3/5] WifiConnectionState callback >> Success");
    }

    ret = device_power_subscribe_standby(INTERNAL_InstantOffCallback, nullptr);
    if (ret != DEVICE_ERROR_NONE) {
        device_power_unsubscribe_standby(INTERNAL_InstantOffCallback);
        CORE_LOGE("Failed to register device_power_subscribe_poweroff callback [%d]", ret);
    } else {
        CORE_LOGI("[4/5] Standby callback >> Success");
    }

    vconf_notify_key_changed(VCONFKEY_PXM_ACCESS_NOTI, INTERNAL_VconfCallBack, this);
    vconf_notify_key_changed(VCONFKEY_PXM_REQ_OPT, INTERNAL_VconfCallBack, this);
    vconf_notify_key_changed(VCONFKEY_WIZARD_MODE, INTERNAL_VconfCallBack, this);
    CORE_LOGI("[5/5] vconf callback >> Success");

    UTIL_LoadVconf();
    CORE_LOGI("Access Notification[%d] PnPstatus[%d] loaded", m_nAccessNoti.load(),
              static_cast<int>(m_bPnPStatus.load()));

    UTIL_LoadSecurity();

    m_bNoDataChanged = false;
    m_nUxPid = 0;

    aul_listen_app_dead_signal(INTERNAL_UxDeadCallBack, this);
}
