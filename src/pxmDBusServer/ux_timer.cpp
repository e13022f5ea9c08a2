// The 35 s guard on a prompt that is on screen: a prompt that never answers is closed and
// its device reported as still undecided.
#include <cstring>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "pxmCore/bounded_copy.h"
#include "pxm_log.h"

void PXMDBusServer::m_AddUxTimer() {
    m_CancelUxTimer();
    // On the default context, like the bus calls: the pending record needs no lock.
    m_nUxTimerId = g_timeout_add(PXM_UX_TIMEOUT_MS, m_ExpiredUxTimer, this);
    SRV_LOGI("\t\t\t [UXTIMER #%d] New TimerCallback Registered", m_nUxTimerId);
}

void PXMDBusServer::m_CancelUxTimer() {
    if (m_nUxTimerId == 0) {
        return;
    }
    SRV_LOGI("\t\t\t [UXTIMER #%d] TimerCallback Removed", m_nUxTimerId);
    g_source_remove(m_nUxTimerId);
    m_nUxTimerId = 0;
}

gboolean PXMDBusServer::m_ExpiredUxTimer(gpointer server) {
    PXMDBusServer* self = static_cast<PXMDBusServer*>(server);
    const int seconds = PXM_UX_TIMEOUT_MS / 1000;
    SRV_LOGW("\t\t\t [UXTIMER #%d] Timer %ds Expired", self->m_nUxTimerId, seconds);
    SRV_LOGI("%ds TimerExpired", seconds);
    // Removes the source that is running now; whatever we return, it does not come back.
    self->m_CancelUxTimer();

    if (self->m_pPXMCore != nullptr) {
        self->m_pPXMCore->m_nUxPid = 0;
        self->m_pPXMCore->UTIL_RemoveUX();
    }

    pxm_core_device_s& pending = self->m_UxPendingDevice;
    if (pending.devstatus != PXM_DEV_UNDECIDED) {
        SRV_LOGW("Don't need to send feedback with backupdata : status[%d]", pending.devstatus);
        memset(&pending, 0, sizeof(pending));
        return TRUE;
    }
    const size_t macLen = PXM_MAC_LEN - 1;
    if (pxm_text::FieldLength(pending.bt_mac) != macLen &&
        pxm_text::FieldLength(pending.wifi_mac) != macLen &&
        pxm_text::FieldLength(pending.p2p_mac) != macLen) {
        // Left as it is: nothing could be reported for it anyway.
        SRV_LOGE("Invalid backupdata [%s][%s][%s] Feedback is not sent", pending.bt_mac,
                 pending.wifi_mac, pending.p2p_mac);
        return FALSE;
    }

    SRV_LOGE(
        "[DBusServer] Defensive programming :: Unexpected UX termination. Send feedback with "
        "backupdata");
    SRV_LOGE("\t\t[%s][%s][%s][%s] >> [%d]", pending.devname, pending.bt_mac, pending.wifi_mac,
             pending.p2p_mac, pending.devstatus);
    // The pending addresses exactly as they were requested, empty ones included.
    self->m_EmitSignal(PXM_SIGNAL_STATUS_CHANGED, pending.bt_mac, pending.wifi_mac, pending.p2p_mac,
                       PXM_SIGNAL_UNDECIDED);
    memset(&pending, 0, sizeof(pending));
    return TRUE;
}
