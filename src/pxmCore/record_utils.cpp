// Validity rules for the device record's fields, address comparison, key-type completion,
// the corrected wall clock and the record's log dump.
#include <strings.h>

#include <cstring>
#include <ctime>

#include "CPXMCore.h"
#include "pxm_log.h"
#include "realtime_clock.h"

namespace {
const size_t kMacTextLen = PXM_MAC_LEN - 1;
// Before the network sets the clock it reads a date before September 2001.
const uint64_t kClockNotSetBelowMs = 1000000000000ULL;

// Placeholder texts that requesters send when they have no real value.
bool IsPlaceholder(const char* text) {
    return strcasecmp(text, "0") == 0 || strcasecmp(text, "NONE") == 0 ||
           strcasecmp(text, "UNKNOWN") == 0;
}
}  // namespace

bool CPXMCore::UTIL_CheckValidMAC(const char* mac) {
    if (mac == nullptr) {
        return false;
    }
    if (strlen(mac) != kMacTextLen) {
        return false;
    }
    // Characters are not checked: peers send addresses in many spellings.
    if (strcmp(mac, "00:00:00:00:00:00") == 0 || strcmp(mac, "00-00-00-00-00-00") == 0) {
        return false;
    }
    return true;
}

bool CPXMCore::UTIL_CheckValidName(const char* name) {
    if (name == nullptr || name[0] == '\0') {
        return false;
    }
    return !IsPlaceholder(name);
}

bool CPXMCore::UTIL_CheckValidId(const char* id) {
    // An empty identifier is valid on purpose: merging it clears the stored one.
    return !IsPlaceholder(id);
}

int CPXMCore::UTIL_CompareMAC(const pxm_core_device_s* dev, const char* mac, pxm_tech_ind_e ind) {
    if (!UTIL_CheckValidMAC(mac)) {
        return 0;
    }
    switch (ind) {
        case PXM_TECH_BT:
            return strcasecmp(dev->bt_mac, mac) == 0 ? 3 : 0;
        case PXM_TECH_WIFI:
            return strcasecmp(dev->wifi_mac, mac) == 0 ? 5 : 0;
        case PXM_TECH_P2P:
            return strcasecmp(dev->p2p_mac, mac) == 0 ? 9 : 0;
        default:
            CORE_LOGE("Incorrect IND");
            return 0;
    }
}

void CPXMCore::UTIL_CheckAndUpdateKeyType(pxm_core_device_s* dev) {
    if (dev == nullptr) {
        return;
    }
    if (dev->keyType != PXM_KEY_BT && dev->keyType != PXM_KEY_NONE) {
        return;
    }
    if (dev->keyType == PXM_KEY_BT && UTIL_CheckValidMAC(dev->bt_mac)) {
        return;
    }
    CORE_LOGW("devKeyType not set!!");
    if (UTIL_CheckValidMAC(dev->bt_mac)) {
        dev->keyType = PXM_KEY_BT;
    } else if (UTIL_CheckValidMAC(dev->wifi_mac)) {
        dev->keyType = PXM_KEY_WIFI;
    } else if (UTIL_CheckValidMAC(dev->p2p_mac)) {
        dev->keyType = PXM_KEY_P2P;
    } else {
        CORE_LOGE("Exception case");
        dev->keyType = PXM_KEY_NONE;
    }
    CORE_LOGW("devKeyType[%d]", dev->keyType);
}

uint64_t CPXMCore::UTIL_GetTime() {
    struct timespec ts = {0, 0};
    realtime_clock_get(&ts);
    CORE_LOGI("tv_sec is [%ld]", static_cast<long>(ts.tv_sec));

    uint64_t ms =
        static_cast<uint64_t>(ts.tv_sec) * 1000ULL + static_cast<uint64_t>(ts.tv_nsec) / 1000000ULL;
    CORE_LOGI("CurrentTime is [%llu]", static_cast<unsigned long long>(ms));

    // An unsynced clock is lifted by a fixed offset; lists stored on earlier boots already
    // carry access times corrected the same way, so the offset must not change.
    if (ms < kClockNotSetBelowMs) {
        ms += kClockNotSetBelowMs;
        CORE_LOGW("System time is not in sync[%llu]!!", static_cast<unsigned long long>(ms));
    }
    return ms;
}

void CPXMCore::UTIL_PrintDevice(const pxm_core_device_s* dev) {
    if (dev == nullptr) {
        return;
    }
    CORE_LOGI("DEVICENAME       : [%s]", dev->devname);
    CORE_LOGI("BTMAC            : [%17s]", dev->bt_mac);
    CORE_LOGI("WIFIMAC          : [%17s]", dev->wifi_mac);
    CORE_LOGI("P2PMAC           : [%17s]", dev->p2p_mac);
    CORE_LOGI("ZelId            : [%17s]", dev->zel_id);
    CORE_LOGI("MirroringId      : [%17s]", dev->mirroring_Id);
    CORE_LOGI(
        "TYPE,ICON,STATUS, TVINITMIRRSUPPORT, ISNOUX, ISUXALWAYS, UPDATED  : [%2d] [%2d] [%2d] "
        "[%d] [%d] [%d] [%2d]",
        dev->devtype, dev->devicon, dev->devstatus, dev->tvInitMirroringSupport, dev->isNoUX,
        dev->isUXAlways, dev->updated);
    CORE_LOGI("Access Time      : [%17llu]", static_cast<unsigned long long>(dev->accessTime));
}
