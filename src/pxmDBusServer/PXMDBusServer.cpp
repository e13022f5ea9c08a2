// The bus server's life: construction (backup client, server thread), the start-up that
// brings the registry up and checks the factory-reset flag, and destruction at exit.
#include "PXMDBusServer.h"

#include <cstring>

#include "CPXMCore.h"
#include "pxm_log.h"
#include "vconf.h"

PXMDBusServer* PXMDBusServer::GetInstance() {
    // Constructed once on first use; its destructor runs at process exit and closes the
    // backup client.
    static PXMDBusServer instance;
    return &instance;
}

// Every member, the backup client included, is built before the body runs, so the backup
// keys are watched before the server logs its construction or starts its thread.
PXMDBusServer::PXMDBusServer()
    : m_pPXMCore(nullptr),
      m_Thread(0),
      m_ThreadAttr(),
      m_pLoop(nullptr),
      m_pIntrospection(nullptr),
      m_nSetRegId(0),
      m_nGetRegId(0),
      m_nUxRegId(0),
      m_InterfaceVtable(),
      m_Connection(nullptr),
      m_nUxTimerId(0),
      m_UxPendingDevice(),
      m_BnrClient() {
    SRV_LOGI("[DBusServer] Constructor");
    memset(&m_InterfaceVtable, 0, sizeof(m_InterfaceVtable));
    m_InterfaceVtable.method_call = m_HandleMethodCall;
    m_InterfaceVtable.get_property = nullptr;
    m_InterfaceVtable.set_property = nullptr;
    memset(&m_UxPendingDevice, 0, sizeof(m_UxPendingDevice));

    // A server without its thread still lets the daemon run its loop and the watchdog.
    if (pthread_attr_init(&m_ThreadAttr) != 0) {
        SRV_LOGE("[DBusServer] Fail to init pthread.");
        return;
    }
    if (pthread_attr_setdetachstate(&m_ThreadAttr, PTHREAD_CREATE_DETACHED) != 0) {
        SRV_LOGE("[DBusServer] Fail to setdetachstate.");
        return;
    }
    if (pthread_create(&m_Thread, &m_ThreadAttr, m_Listener, this) != 0) {
        SRV_LOGE("[DBusServer] Fail to create Service.");
    }
}

PXMDBusServer::~PXMDBusServer() {
    SRV_LOGI("[DBusServer] Destructor");
    if (pthread_attr_destroy(&m_ThreadAttr) != 0) {
        SRV_LOGE("[DBusServer] Fail to destory pthread.");
    }
    m_BnrClient.BnrDeinit();
    m_BnrClient.m_UnRegisterBnrVconfs();
}

int PXMDBusServer::Initialize() {
    m_pPXMCore = nullptr;
    m_pPXMCore = CPXMCore::GetInstance();
    m_pPXMCore->Init();

    int value = 0;
    int result = 1;
    if (vconf_get_int(VCONFKEY_FACTORY_RESET_STATUS, &value) != VCONF_OK) {
        SRV_LOGE("vconf_get_int failed for %s", VCONFKEY_FACTORY_RESET_STATUS);
        result = 0;
    }
    SRV_LOGI("######## VCONFKEY_FACTORY_RESET_STATUS [%d]", value);

    if (value != 0) {
        // A factory reset wipes both lists; the stored list is stale and is not read.
        m_pPXMCore->CMD_RemoveAllDevices(PXM_SAVE_NORMAL);
        m_pPXMCore->CMD_RemoveAllDevices(PXM_SAVE_REVERSE);
        SRV_LOGW("DB Cleared for %d", value);
        if (vconf_set_int(VCONFKEY_FACTORY_RESET_STATUS, 0) != VCONF_OK) {
            SRV_LOGE("failed to set VCONFKEY_FACTORY_RESET_STATUS (%d)", 0);
            result = 0;
        }
    } else {
        m_pPXMCore->DB_OpenFile();
    }

    m_BnrClient.Initialize(m_pPXMCore);
    // Logged at ERROR on purpose so that it survives the production log filter.
    SRV_LOGE("Initialized[%d]", result);
    return result;
}
