// The bus service: owns "org.nuvak.quillon" on the system bus, exports the three
// interfaces, dispatches the fifteen methods, holds the pending prompt and its timer.
#pragma once

#include <gio/gio.h>
#include <pthread.h>

#include <map>
#include <string>

#include "PXMBackupRestore.h"
#include "pxm_types.h"

class CPXMCore;

#define PXM_DBUS_NAME "org.nuvak.quillon"
#define PXM_DBUS_PATH "/org/nuvak/quillon"
#define PXM_DBUS_SET_INTERFACE "org.nuvak.quillon.SetInterface"
#define PXM_DBUS_GET_INTERFACE "org.nuvak.quillon.GetInterface"
#define PXM_DBUS_UX_INTERFACE "org.nuvak.quillon.UxInterface"
#define PXM_UX_TIMEOUT_MS 35000
#define PXM_SIGNAL_STATUS_CHANGED "pxm_signal_status_changed"
#define PXM_SIGNAL_TV_INIT_MIRRORING_CHANGED "pxm_signal_tv_init_mirroring_changed"

class PXMDBusServer {
public:
    using Handler = void (PXMDBusServer::*)(GVariant* parameters,
                                            GDBusMethodInvocation* invocation);

    static PXMDBusServer* GetInstance();
    ~PXMDBusServer();

    PXMDBusServer(const PXMDBusServer&) = delete;
    PXMDBusServer& operator=(const PXMDBusServer&) = delete;

    // Start-up after construction: registry, factory-reset check or load, backup client.
    // 1 on success, 0 when the factory-reset flag could not be read or reset.
    int Initialize();

    // ---- bus service ----
    static void* m_Listener(void* instance);
    static void m_OnBusAcquired(GDBusConnection* connection, const gchar* name, gpointer instance);
    static void m_OnNameAcquired(GDBusConnection* connection, const gchar* name, gpointer instance);
    static void m_OnNameLost(GDBusConnection* connection, const gchar* name, gpointer instance);
    static void m_HandleMethodCall(GDBusConnection* connection, const gchar* sender,
                                   const gchar* object_path, const gchar* interface_name,
                                   const gchar* method_name, GVariant* parameters,
                                   GDBusMethodInvocation* invocation, gpointer instance);
    static const char* IntrospectionXml();
    static std::map<std::string, Handler> fnMapTable;

    // ---- method handlers ----
    void pxm_get_status(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_set_status(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_get_device(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_get_list(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_request_access(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_remove_device(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_remove_all(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_feedback_ux(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_set_tv_init_mirroring_status(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_set_device_extended_param_string(GVariant* parameters,
                                              GDBusMethodInvocation* invocation);
    void pxm_request_access_reverse(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_get_device_reverse(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_get_list_reverse(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_remove_device_reverse(GVariant* parameters, GDBusMethodInvocation* invocation);
    void pxm_remove_all_reverse(GVariant* parameters, GDBusMethodInvocation* invocation);

    // ---- prompt timer ----
    void m_AddUxTimer();
    void m_CancelUxTimer();
    static gboolean m_ExpiredUxTimer(gpointer server);

    // ---- state ----
    CPXMCore* m_pPXMCore;
    pthread_t m_Thread;
    pthread_attr_t m_ThreadAttr;
    GMainLoop* m_pLoop;
    GDBusNodeInfo* m_pIntrospection;
    guint m_nSetRegId;
    guint m_nGetRegId;
    guint m_nUxRegId;
    GDBusInterfaceVTable m_InterfaceVtable;
    GDBusConnection* m_Connection;
    guint m_nUxTimerId;
    pxm_core_device_s m_UxPendingDevice;
    PXMBackupRestore m_BnrClient;

private:
    PXMDBusServer();

    // ---- shared bodies of the normal and reverse methods (method: the bus name) ----
    void m_RequestAccess(GVariant* parameters, GDBusMethodInvocation* invocation,
                         dev_save_type save, const char* method);
    void m_GetDevice(GVariant* parameters, GDBusMethodInvocation* invocation, dev_save_type save,
                     const char* method);
    void m_GetList(GDBusMethodInvocation* invocation, dev_save_type save, const char* method);
    int m_RemoveDevice(GVariant* parameters, GDBusMethodInvocation* invocation, dev_save_type save,
                       pxm_core_device_s* removed, const char* method);

    // ---- registry operations that exist only behind the bus methods (normal list) ----
    int CMD_GetStatus(const char* mac, int ind);
    // changed receives the record's valid addresses and settings when the status changed.
    int CMD_SetStatus(const char* mac, int ind, int status, pxm_core_device_s* changed);
    int CMD_SetTVInitMirroringStatus(const char* mac, int ind, int value,
                                     pxm_core_device_s* changed);
    int CMD_SetDeviceExtendedParamString(const char* mac, int ind, const char* param, int type);

    // ---- signals on the UxInterface ----
    // Empty addresses go out as the placeholder "0".
    void m_EmitStatusChanged(const char* bt_mac, const char* wifi_mac, const char* p2p_mac,
                             int status);
    void m_EmitTvInitMirroringChanged(const char* bt_mac, const char* wifi_mac, const char* p2p_mac,
                                      int value);
    // The addresses exactly as given (the prompt timer's expiry).
    void m_EmitSignal(const char* signal, const char* bt_mac, const char* wifi_mac,
                      const char* p2p_mac, int value);
};
