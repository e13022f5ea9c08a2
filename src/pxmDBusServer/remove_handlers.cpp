// Removal of one device or of all devices, from either list. Only the normal list is
// announced and backed up.
#include <cstring>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "handler_log.h"

int PXMDBusServer::m_RemoveDevice(GVariant* parameters, GDBusMethodInvocation* invocation,
                                  dev_save_type save, pxm_core_device_s* removed,
                                  const char* method) {
    gchar* mac = nullptr;
    gint32 ind = 0;
    g_variant_get(parameters, "(si)", &mac, &ind);
    HANDLER_LOGI(method, "[DBusServer] %s called. MAC [%s](%d)", method, mac, ind);

    memset(removed, 0, sizeof(*removed));
    int result = 0;
    if (m_pPXMCore != nullptr) {
        result =
            m_pPXMCore->INTERNAL_RemoveDevice(mac, static_cast<pxm_tech_ind_e>(ind), removed, save)
                ? 1
                : 0;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));
    g_free(mac);
    return result;
}

void PXMDBusServer::pxm_remove_device(GVariant* parameters, GDBusMethodInvocation* invocation) {
    pxm_core_device_s removed;
    if (m_RemoveDevice(parameters, invocation, PXM_SAVE_NORMAL, &removed, __func__) != 1) {
        return;
    }
    SRV_LOGW("[DBusServer] [NOTI] DEVICE REMOVED");
    // The removal copied only the valid addresses; the others go out as "0".
    m_EmitStatusChanged(removed.bt_mac, removed.wifi_mac, removed.p2p_mac, PXM_SIGNAL_REMOVED);
    m_BnrClient.Backup(&removed, OP_REMOVE);
}

void PXMDBusServer::pxm_remove_device_reverse(GVariant* parameters,
                                              GDBusMethodInvocation* invocation) {
    pxm_core_device_s removed;
    m_RemoveDevice(parameters, invocation, PXM_SAVE_REVERSE, &removed, __func__);
}

void PXMDBusServer::pxm_remove_all(GVariant* /*parameters*/, GDBusMethodInvocation* invocation) {
    SRV_LOGI("[DBusServer] %s called.", __func__);
    int result = 0;
    if (m_pPXMCore != nullptr) {
        result = m_pPXMCore->CMD_RemoveAllDevices(PXM_SAVE_NORMAL) ? 1 : 0;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));
    if (result != 1) {
        return;
    }
    SRV_LOGW("[DBusServer] [NOTI] DEVICE REMOVED ALL");
    m_EmitStatusChanged(nullptr, nullptr, nullptr, PXM_SIGNAL_REMOVED_ALL);
    // Nothing to assemble for a single device: the service gets the empty list.
    m_BnrClient.Backup(nullptr, OP_REMOVE);
}

// The registry reports 0 for the reverse list even when it was emptied; callers see that.
void PXMDBusServer::pxm_remove_all_reverse(GVariant* /*parameters*/,
                                           GDBusMethodInvocation* invocation) {
    SRV_LOGI("[DBusServer] %s called.", __func__);
    int result = 0;
    if (m_pPXMCore != nullptr) {
        result = m_pPXMCore->CMD_RemoveAllDevices(PXM_SAVE_REVERSE) ? 1 : 0;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));
}
