// The bus service: the introspection data, the server thread that owns the bus name,
// registration of the three interfaces and dispatch of method calls to the handlers.
#include <cstring>
#include <exception>
#include <functional>
#include <string>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "pxm_log.h"

namespace {

// The object is registered at most once, however often the bus is acquired.
bool bAcquired = false;

// The twelve arguments of a full device record: the request methods and the prompt's answer.
#define PXM_RECORD_ARGS                                              \
    "<arg type='s' name='sDevName' direction='in' />"                \
    "<arg type='s' name='sBtMac' direction='in' />"                  \
    "<arg type='s' name='sWifiMAC' direction='in' />"                \
    "<arg type='s' name='sP2pMAC' direction='in' />"                 \
    "<arg type='s' name='sZelId' direction='in' />"                  \
    "<arg type='s' name='sMirroringId' direction='in' />"            \
    "<arg type='i' name='eDevType' direction='in' />"                \
    "<arg type='i' name='eDevIcon' direction='in' />"                \
    "<arg type='i' name='eStatus' direction='in' />"                 \
    "<arg type='i' name='eTvInitMirroringSupport' direction='in' />" \
    "<arg type='i' name='iIsNoUX' direction='in' />"                 \
    "<arg type='i' name='iIsUXAlways' direction='in' />"

const char kIntrospectionXml[] =
    "<node>"
    "<interface name='org.nuvak.quillon.SetInterface'>"
    "<method name='pxm_request_access'>" PXM_RECORD_ARGS
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_set_status'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='i' name='status' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_remove_device'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_remove_all'><arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_set_tv_init_mirroring_status'>"
    "<arg type='s' name='MAC' direction='in' /><arg type='i' name='IND' direction='in' />"
    "<arg type='i' name='status' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_set_device_extended_param_string'>"
    "<arg type='s' name='MAC' direction='in' /><arg type='i' name='IND' direction='in' />"
    "<arg type='s' name='param' direction='in' />"
    "<arg type='i' name='param_type' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_request_access_reverse'>" PXM_RECORD_ARGS
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_remove_device_reverse'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_remove_all_reverse'>"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "</interface>"
    "<interface name='org.nuvak.quillon.GetInterface'>"
    "<method name = 'pxm_get_status'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_get_device'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='a(ssssiiiiiiss)' name='devicelist' direction='out' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_get_list'>"
    "<arg type='a(ssssiiiiiiss)' name='devicelist' direction='out' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_get_device_reverse'><arg type='s' name='MAC' direction='in' />"
    "<arg type='i' name='IND' direction='in' />"
    "<arg type='a(ssssiiiiiiss)' name='devicelist' direction='out' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "<method name='pxm_get_list_reverse'>"
    "<arg type='a(ssssiiiiiiss)' name='devicelist' direction='out' />"
    "<arg type='i' name='b_ret' direction='out' /></method>"
    "</interface>"
    "<interface name='org.nuvak.quillon.UxInterface'>"
    "<method name='pxm_feedback_ux'>" PXM_RECORD_ARGS
    "</method>"
    "<signal name='pxm_signal_status_changed'><arg type='s' name='BTMAC' />"
    "<arg type='s' name='WIFIMAC' /><arg type='s' name='P2PMAC' />"
    "<arg type='i' name='eStatus' /></signal>"
    "<signal name='pxm_signal_tv_init_mirroring_changed'><arg type='s' name='BTMAC' />"
    "<arg type='s' name='WIFIMAC' /><arg type='s' name='P2PMAC' />"
    "<arg type='i' name='tvInitMirroringStatus' /></signal>"
    "</interface>"
    "</node>";

// The three interfaces in the order of the introspection data: where each registration id
// is kept, the step's short name in failure lines, and the success line.
struct InterfaceStep {
    guint PXMDBusServer::*id;
    const char* name;
    const char* done_text;
};

const InterfaceStep kInterfaceSteps[] = {
    {&PXMDBusServer::m_nSetRegId, "SET", "[DBusServer] SetInterface succeed (1/3)"},
    {&PXMDBusServer::m_nGetRegId, "GET", "[DBusServer] GetInterface succeed (2/3)"},
    {&PXMDBusServer::m_nUxRegId, "UX", "[DBusServer]  UxInterface succeed (3/3)"},
};

}  // namespace

std::map<std::string, PXMDBusServer::Handler> PXMDBusServer::fnMapTable = {
    {"pxm_get_status", &PXMDBusServer::pxm_get_status},
    {"pxm_set_status", &PXMDBusServer::pxm_set_status},
    {"pxm_get_device", &PXMDBusServer::pxm_get_device},
    {"pxm_get_list", &PXMDBusServer::pxm_get_list},
    {"pxm_request_access", &PXMDBusServer::pxm_request_access},
    {"pxm_remove_device", &PXMDBusServer::pxm_remove_device},
    {"pxm_remove_all", &PXMDBusServer::pxm_remove_all},
    {"pxm_feedback_ux", &PXMDBusServer::pxm_feedback_ux},
    {"pxm_set_tv_init_mirroring_status", &PXMDBusServer::pxm_set_tv_init_mirroring_status},
    {"pxm_set_device_extended_param_string", &PXMDBusServer::pxm_set_device_extended_param_string},
    {"pxm_request_access_reverse", &PXMDBusServer::pxm_request_access_reverse},
    {"pxm_get_device_reverse", &PXMDBusServer::pxm_get_device_reverse},
    {"pxm_get_list_reverse", &PXMDBusServer::pxm_get_list_reverse},
    {"pxm_remove_device_reverse", &PXMDBusServer::pxm_remove_device_reverse},
    {"pxm_remove_all_reverse", &PXMDBusServer::pxm_remove_all_reverse},
};

const char* PXMDBusServer::IntrospectionXml() {
    return kIntrospectionXml;
}

void* PXMDBusServer::m_Listener(void* instance) {
    PXMDBusServer* pInstance = static_cast<PXMDBusServer*>(instance);
    if (pInstance == nullptr) {
        SRV_LOGI("[DBusServer] the pInstance is NULL.");
        return nullptr;
    }

    GError* error = nullptr;
    // Published atomically: the bus callbacks read it on the main thread.
    g_atomic_pointer_set(&pInstance->m_pIntrospection,
                         g_dbus_node_info_new_for_xml(kIntrospectionXml, &error));
    if (error != nullptr) {
        SRV_LOGI("[DBusServer] g_dbus_node_info_new_for_xml return error.");
        return nullptr;
    }
    if (g_atomic_pointer_get(&pInstance->m_pIntrospection) == nullptr) {
        SRV_LOGI("[DBusServer] the m_pIntrospection created error.");
        g_clear_error(&error);
        return nullptr;
    }

    // The name is requested before this thread has a context of its own, so every bus
    // callback is dispatched by the main loop on the default context, one at a time.
    guint owner_id =
        g_bus_own_name(G_BUS_TYPE_SYSTEM, PXM_DBUS_NAME, G_BUS_NAME_OWNER_FLAGS_NONE,
                       m_OnBusAcquired, m_OnNameAcquired, m_OnNameLost, pInstance, nullptr);
    if (owner_id == 0) {
        SRV_LOGI("[DBusServer] own bus name error.");
        return nullptr;
    }

    GMainContext* context = g_main_context_new();
    if (context == nullptr) {
        return nullptr;
    }
    pInstance->m_pLoop = g_main_loop_new(context, FALSE);
    if (pInstance->m_pLoop == nullptr) {
        SRV_LOGE("pInstance->m_pLoop is null in PXMDBusServer");
        return nullptr;
    }

    // Nothing is attached to this context: the loop only keeps the thread parked.
    g_main_loop_run(pInstance->m_pLoop);

    SRV_LOGW("m_Listener exit");
    g_bus_unown_name(owner_id);
    g_dbus_node_info_unref(pInstance->m_pIntrospection);
    for (const InterfaceStep& step : kInterfaceSteps) {
        if (pInstance->m_Connection != nullptr) {
            g_dbus_connection_unregister_object(pInstance->m_Connection, pInstance->*step.id);
        }
        pInstance->*step.id = 0;
    }
    g_main_loop_unref(pInstance->m_pLoop);
    g_main_context_unref(context);
    return nullptr;
}

namespace {

// Registers interface `index` of the node info on the object path. On failure it logs the
// step's line (as the bus-acquired callback) and returns 0; earlier registrations stay.
guint RegisterInterface(PXMDBusServer* server, GDBusConnection* connection, int index) {
    GError* error = nullptr;
    GDBusNodeInfo* node =
        static_cast<GDBusNodeInfo*>(g_atomic_pointer_get(&server->m_pIntrospection));
    guint id =
        g_dbus_connection_register_object(connection, PXM_DBUS_PATH, node->interfaces[index],
                                          &server->m_InterfaceVtable, server, nullptr, &error);
    const int step = index + 1;
    const char* name = kInterfaceSteps[index].name;
    if (error != nullptr) {
        PXM_LOG_AT("PXM_LOG", "pxmDBusServer", "m_OnBusAcquired", DLOG_ERROR,
                   "[DBusServer] STEP %d -> %s:register object error, the path %s", step, name,
                   PXM_DBUS_PATH);
        if (id != 0) {
            g_dbus_connection_unregister_object(connection, id);
        }
        g_error_free(error);
        return 0;
    }
    if (id == 0) {
        PXM_LOG_AT("PXM_LOG", "pxmDBusServer", "m_OnBusAcquired", DLOG_ERROR,
                   "[DBusServer] STEP %d -> %s:register object return id error, the path %s", step,
                   name, PXM_DBUS_PATH);
    }
    return id;
}

}  // namespace

void PXMDBusServer::m_OnBusAcquired(GDBusConnection* connection, const gchar* /*name*/,
                                    gpointer instance) {
    if (bAcquired) {
        SRV_LOGE("Already Acquired so this is ignored.");
        return;
    }
    PXMDBusServer* pInstance = static_cast<PXMDBusServer*>(instance);
    if (pInstance == nullptr) {
        SRV_LOGI("[DBusServer]the pInstance is NULL.");
        return;
    }

    pInstance->m_Connection = connection;
    SRV_LOGI("[DBusServer] m_Connection succeed %d", connection != nullptr);

    for (int index = 0; index < 3; ++index) {
        const InterfaceStep& step = kInterfaceSteps[index];
        pInstance->*step.id = RegisterInterface(pInstance, connection, index);
        if (pInstance->*step.id == 0) {
            return;
        }
        SRV_LOGI("%s", step.done_text);
    }

    bAcquired = true;
    SRV_LOGI("[DBusServer] register_object completed [%d][%d][%d]", pInstance->m_nSetRegId,
             pInstance->m_nGetRegId, pInstance->m_nUxRegId);
}

void PXMDBusServer::m_OnNameAcquired(GDBusConnection* /*connection*/, const gchar* name,
                                     gpointer /*instance*/) {
    SRV_LOGI("[DBusServer] on_name_acquired name %s", name);
}

void PXMDBusServer::m_OnNameLost(GDBusConnection* /*connection*/, const gchar* /*name*/,
                                 gpointer /*instance*/) {
    // Without the name the daemon keeps its list and watchdog; callers simply cannot reach it.
    SRV_LOGI("[DBusServer] lost name ownership! leave sinking ship");
}

void PXMDBusServer::m_HandleMethodCall(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                                       const gchar* /*object_path*/, const gchar* interface_name,
                                       const gchar* method_name, GVariant* parameters,
                                       GDBusMethodInvocation* invocation, gpointer instance) {
    PXMDBusServer* pInstance = static_cast<PXMDBusServer*>(instance);
    if (pInstance == nullptr) {
        SRV_LOGE("[DBusServer] pInstance is NULL.");
        return;
    }
    // Every method of these two interfaces may change a list, and each change starts a save.
    if (pInstance->m_pPXMCore != nullptr && interface_name != nullptr &&
        (std::strcmp(interface_name, PXM_DBUS_SET_INTERFACE) == 0 ||
         std::strcmp(interface_name, PXM_DBUS_UX_INTERFACE) == 0)) {
        pInstance->m_pPXMCore->DB_WaitForSaveRoom();
    }
    // The bus library delivers only the methods of the introspection data, all of which
    // are in the map; the handler alone replies.
    try {
        std::string name(method_name);
        Handler handler = fnMapTable[name];
        if (handler == nullptr) {
            // An entry the lookup just inserted: report it like any other failed dispatch.
            throw std::bad_function_call();
        }
        (pInstance->*handler)(parameters, invocation);
    } catch (const std::exception&) {
        SRV_LOGE("[DBusServer] Unknown method name[%s]", method_name);
    }
}
