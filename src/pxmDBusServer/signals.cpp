// The two signals of the UxInterface. Listeners tell an absent address by the placeholder
// "0", never by an empty text.
#include <string>

#include "PXMDBusServer.h"
#include "bus_text.h"
#include "pxm_log.h"

namespace {

const char* OrPlaceholder(const char* mac) {
    return (mac == nullptr || mac[0] == '\0') ? "0" : mac;
}

}  // namespace

void PXMDBusServer::m_EmitSignal(const char* signal, const char* bt_mac, const char* wifi_mac,
                                 const char* p2p_mac, int value) {
    if (m_Connection == nullptr) {
        // Only a call that came over the bus leads here, so this means no bus at all.
        SRV_LOGE("[DBusServer] no connection for %s", signal);
        return;
    }
    std::string bt = pxm_bus::BusText(bt_mac != nullptr ? bt_mac : "");
    std::string wifi = pxm_bus::BusText(wifi_mac != nullptr ? wifi_mac : "");
    std::string p2p = pxm_bus::BusText(p2p_mac != nullptr ? p2p_mac : "");
    GError* error = nullptr;
    g_dbus_connection_emit_signal(
        m_Connection, nullptr, PXM_DBUS_PATH, PXM_DBUS_UX_INTERFACE, signal,
        g_variant_new("(sssi)", bt.c_str(), wifi.c_str(), p2p.c_str(), value), &error);
    // A bus that can no longer carry our signals leaves listeners with a stale list.
    g_assert_no_error(error);
}

void PXMDBusServer::m_EmitStatusChanged(const char* bt_mac, const char* wifi_mac,
                                        const char* p2p_mac, int status) {
    m_EmitSignal(PXM_SIGNAL_STATUS_CHANGED, OrPlaceholder(bt_mac), OrPlaceholder(wifi_mac),
                 OrPlaceholder(p2p_mac), status);
}

void PXMDBusServer::m_EmitTvInitMirroringChanged(const char* bt_mac, const char* wifi_mac,
                                                 const char* p2p_mac, int value) {
    m_EmitSignal(PXM_SIGNAL_TV_INIT_MIRRORING_CHANGED, OrPlaceholder(bt_mac),
                 OrPlaceholder(wifi_mac), OrPlaceholder(p2p_mac), value);
}
