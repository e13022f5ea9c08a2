// The access request on either list: the decision, then for the normal list the signal,
// the backup, or the wait for the prompt's answer.
#include <cstring>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "handler_log.h"
#include "record_args.h"

void PXMDBusServer::m_RequestAccess(GVariant* parameters, GDBusMethodInvocation* invocation,
                                    dev_save_type save, const char* method) {
    pxm_bus::RecordArgs args(parameters);
    pxm_core_device_s record;
    args.Fill(&record);
    HANDLER_LOGI(method,
                 "[DBusServer] NAME[%s] BT[%s] WIFI[%s] P2P[%s] ZEL_ID[%s] MIRRORING_ID[%s] "
                 "DEVTYPE[%d] DEVICON[%d] STATUS[%d] TVINITMIRRSUPPORT[%d] ISNOUX[%d] "
                 "ISUXALWAYS[%d]",
                 args.devname, args.bt_mac, args.wifi_mac, args.p2p_mac, args.zel_id,
                 args.mirroring_Id, args.devtype, args.devicon, args.devstatus,
                 args.tvInitMirroringSupport, args.isNoUX, args.isUXAlways);

    if (m_pPXMCore == nullptr) {
        HANDLER_LOGE(method, "[DBusServer] PXMCore is not running");
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", -1));
        return;
    }
    // One prompt at a time: the one on screen keeps its pending record and its timer.
    if (m_pPXMCore->UTIL_CheckUXDisplay()) {
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", -1));
        return;
    }

    int result = m_pPXMCore->CMD_RequestAccess(&record, save);
    // The reply goes first: the caller learns its verdict before listeners hear of it.
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));

    memset(&m_UxPendingDevice, 0, sizeof(m_UxPendingDevice));
    HANDLER_LOGI(method, "Device status : [%d]", result);
    if (save != PXM_SAVE_NORMAL) {
        return;
    }

    switch (result) {
        case PXM_DEV_ALLOWED:
        case PXM_DEV_DENIED:
            if (m_pPXMCore->m_bNoDataChanged) {
                HANDLER_LOGW(method, "[DBusServer] No data changed, no CALLBACK");
                m_pPXMCore->m_bNoDataChanged = false;
            } else {
                HANDLER_LOGW(method, "[DBusServer] [NOTI] DEVICE Registered with status[%d]",
                             result);
                m_EmitStatusChanged(record.bt_mac, record.wifi_mac, record.p2p_mac, result);
            }
            m_BnrClient.Backup(&record, OP_ADD_OR_CHANGE);
            break;
        case PXM_DEV_UNDECIDED:
            HANDLER_LOGI(method, "[DBusServer] Undecided");
            // Kept so that a prompt that never answers can still be reported when the
            // timer runs out.
            m_UxPendingDevice = record;
            m_UxPendingDevice.devstatus = PXM_DEV_UNDECIDED;
            m_AddUxTimer();
            break;
        default:
            HANDLER_LOGE(method, "[DBusServer] Unexpected Status[%d]", result);
            break;
    }
}

void PXMDBusServer::pxm_request_access(GVariant* parameters, GDBusMethodInvocation* invocation) {
    m_RequestAccess(parameters, invocation, PXM_SAVE_NORMAL, __func__);
}

// Answers like the normal request but keeps no pending prompt and announces nothing: the
// reverse list is neither signalled nor backed up.
void PXMDBusServer::pxm_request_access_reverse(GVariant* parameters,
                                               GDBusMethodInvocation* invocation) {
    m_RequestAccess(parameters, invocation, PXM_SAVE_REVERSE, __func__);
}
