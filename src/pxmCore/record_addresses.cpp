#include "record_addresses.h"

#include <strings.h>

#include <cstdint>
#include <cstring>

#include "bounded_copy.h"

namespace pxm_addr {

bool SameAddress(const char* mac, const char (&field)[PXM_MAC_LEN]) {
    // Ignoring case only ever tells apart letters that differ in bit 5 (0x20). Two texts
    // whose first 16 bytes still differ with that bit set everywhere differ without regard
    // to case, so one comparison of two words rules out almost every record of a long list.
    // Both sides hold at least 17 bytes: a valid address and a field of PXM_MAC_LEN.
    constexpr uint64_t kFold = 0x2020202020202020ULL;
    uint64_t a[2], b[2];
    std::memcpy(a, mac, sizeof(a));
    std::memcpy(b, field, sizeof(b));
    if (((a[0] | kFold) != (b[0] | kFold)) || ((a[1] | kFold) != (b[1] | kFold))) {
        return false;
    }
    return strncasecmp(mac, field, PXM_MAC_LEN) == 0;
}

pxm_core_device_s* FirstWithAddress(CPXMCore& core, std::vector<pxm_core_device_s>& list,
                                    const char* mac, pxm_tech_ind_e ind) {
    char(pxm_core_device_s::*field)[PXM_MAC_LEN] = nullptr;
    switch (ind) {
        case PXM_TECH_BT:
            field = &pxm_core_device_s::bt_mac;
            break;
        case PXM_TECH_WIFI:
            field = &pxm_core_device_s::wifi_mac;
            break;
        case PXM_TECH_P2P:
            field = &pxm_core_device_s::p2p_mac;
            break;
    }
    if (field != nullptr && core.UTIL_CheckValidMAC(mac)) {
        for (pxm_core_device_s& rec : list) {
            if (SameAddress(mac, rec.*field)) {
                return &rec;
            }
        }
        return nullptr;
    }
    // An invalid address matches nothing; an unknown indicator is reported for each record.
    for (pxm_core_device_s& rec : list) {
        if (core.UTIL_CompareMAC(&rec, mac, ind) != 0) {
            return &rec;
        }
    }
    return nullptr;
}

bool RequestAddresses::BtMatches(const pxm_core_device_s& rec) const {
    return bt && SameAddress(dev->bt_mac, rec.bt_mac);
}

bool RequestAddresses::WifiMatches(const pxm_core_device_s& rec) const {
    return wifi && SameAddress(dev->wifi_mac, rec.wifi_mac);
}

bool RequestAddresses::P2pMatches(const pxm_core_device_s& rec) const {
    return p2p && SameAddress(dev->p2p_mac, rec.p2p_mac);
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
