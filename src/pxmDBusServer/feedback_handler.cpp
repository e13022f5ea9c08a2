// The prompt application's answer: the verdict is stored, announced and backed up, and
// the prompt timer follows it.
#include <cstring>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "pxm_log.h"
#include "record_args.h"

void PXMDBusServer::pxm_feedback_ux(GVariant* parameters, GDBusMethodInvocation* invocation) {
    // The prompt is done with as soon as it answers, whatever the answer is worth.
    if (m_pPXMCore != nullptr) {
        m_pPXMCore->m_nUxPid = 0;
    }

    pxm_bus::RecordArgs args(parameters);
    SRV_LOGI(
        "[DBusServer] %s called. DeviceName[%s] BT[%s] WIFI[%s] P2P[%s] ZelID[%s] "
        "MirroringId[%s] Type[%d] Icon[%d] Status[%d] tvInitMirroringSupport[%d] isNoUX[%d] "
        "isUXAlways[%d]",
        __func__, args.devname, args.bt_mac, args.wifi_mac, args.p2p_mac, args.zel_id,
        args.mirroring_Id, args.devtype, args.devicon, args.devstatus, args.tvInitMirroringSupport,
        args.isNoUX, args.isUXAlways);

    if (static_cast<unsigned>(args.devstatus) > PXM_DEV_UNDECIDED) {
        // No reply: the prompt does not wait for one.
        SRV_LOGE("INVALID status [%d]", args.devstatus);
        g_object_unref(invocation);
        return;
    }

    memset(&m_UxPendingDevice, 0, sizeof(m_UxPendingDevice));
    // A denial re-arms the timer (with nothing pending, its expiry only closes the
    // prompt); an answer of allow or undecided stops it.
    if (args.devstatus == PXM_DEV_DENIED) {
        m_AddUxTimer();
    } else {
        m_CancelUxTimer();
    }

    pxm_core_device_s record;
    args.Fill(&record);
    bool decided = args.devstatus == PXM_DEV_ALLOWED || args.devstatus == PXM_DEV_DENIED;
    if (decided && m_pPXMCore != nullptr) {
        m_pPXMCore->INTERNAL_AddDevice(&record, PXM_SAVE_NORMAL);
        SRV_LOGW("[DBusServer] [NOTI] DEVICE ADDED BY USER SELECTED");
    }
    // Also for "undecided": listeners learn that the prompt ended without a verdict.
    m_EmitStatusChanged(args.bt_mac, args.wifi_mac, args.p2p_mac, args.devstatus);
    g_dbus_method_invocation_return_value(invocation, nullptr);
    // Also without a registry: the backup client then sends the empty text it assembled.
    if (decided) {
        m_BnrClient.Backup(&record, OP_ADD_OR_CHANGE);
    }
}
