#include "record_addresses.h"

#include <strings.h>

#include "bounded_copy.h"

namespace pxm_addr {

bool RequestAddresses::BtMatches(const pxm_core_device_s& rec) const {
    return bt && strncasecmp(dev->bt_mac, rec.bt_mac, PXM_MAC_LEN) == 0;
}

bool RequestAddresses::WifiMatches(const pxm_core_device_s& rec) const {
    return wifi && strncasecmp(dev->wifi_mac, rec.wifi_mac, PXM_MAC_LEN) == 0;
}

bool RequestAddresses::P2pMatches(const pxm_core_device_s& rec) const {
    return p2p && strncasecmp(dev->p2p_mac, rec.p2p_mac, PXM_MAC_LEN) == 0;
}

RequestAddresses ValidAddresses(CPXMCore& core, const pxm_core_device_s* dev) {
    return {dev, core.UTIL_CheckValidMAC(dev->bt_mac), core.UTIL_CheckValidMAC(dev->wifi_mac),
            core.UTIL_CheckValidMAC(dev->p2p_mac)};
}

void CopyValidAddresses(CPXMCore& core, const pxm_core_device_s& rec, pxm_core_device_s* out) {
    if (core.UTIL_CheckValidMAC(rec.bt_mac)) {
        pxm_text::CopyField(out->bt_mac, rec.bt_mac);
    }
    if (core.UTIL_CheckValidMAC(rec.wifi_mac)) {
        pxm_text::CopyField(out->wifi_mac, rec.wifi_mac);
    }
    if (core.UTIL_CheckValidMAC(rec.p2p_mac)) {
        pxm_text::CopyField(out->p2p_mac, rec.p2p_mac);
    }
}

}  // namespace pxm_addr
