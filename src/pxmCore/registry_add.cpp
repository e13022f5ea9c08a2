// Adding a device to a list: duplicate detection and merging, the new-device path, the
// wake-up tables, and the capacity check of the Bluetooth power-on table.
#include <strings.h>

#include <cstring>
#include <string>

#include "CPXMCore.h"
#include "pxm_log.h"

namespace {

const char* const kAddFn = "INTERNAL_AddDevice";
const char* const kBtFullFn = "UTIL_CheckBTFull";
// More Bluetooth entries than this (by the counting rule below) evict the oldest one.
const int kHeadlessLimit = 5;

// Bounded copy with a forced terminating NUL: over-long input is cut, never rejected.
template <size_t N>
void CopyText(char (&dst)[N], const char* src) {
    size_t len = strnlen(src, N - 1);
    memcpy(dst, src, len);
    memset(dst + len, 0, N - len);
}

bool SameAddress(bool requestValid, const char* request, const char* stored) {
    return requestValid && strncasecmp(request, stored, PXM_MAC_LEN) == 0;
}

const char* MatchText(bool matched) {
    return matched ? "Matched" : "Unmatched";
}

// Merges the request into the first stored record that shares one of its valid addresses
// and folds every further such record into it; false when no record matched.
bool MergeIntoDuplicate(CPXMCore& core, pxm_core_device_s* dev,
                        std::vector<pxm_core_device_s>& list) {
    bool btValid = core.UTIL_CheckValidMAC(dev->bt_mac);
    bool wifiValid = core.UTIL_CheckValidMAC(dev->wifi_mac);
    bool p2pValid = core.UTIL_CheckValidMAC(dev->p2p_mac);

    core.mPXMLock.Lock();
    size_t target = list.size();
    size_t i = 0;
    while (i < list.size()) {
        pxm_core_device_s& rec = list[i];
        // Later records are matched against the request, not against the merged target.
        bool btMatch = SameAddress(btValid, dev->bt_mac, rec.bt_mac);
        bool wifiMatch = SameAddress(wifiValid, dev->wifi_mac, rec.wifi_mac);
        bool p2pMatch = SameAddress(p2pValid, dev->p2p_mac, rec.p2p_mac);
        if (!btMatch && !wifiMatch && !p2pMatch) {
            i++;
            continue;
        }

        if (target == list.size()) {
            target = i;
            // Matching on every valid address means the caller already knows this device:
            // no status-changed signal, whatever else the merge changes.
            bool allMatched = btMatch == btValid && wifiMatch == wifiValid && p2pMatch == p2pValid;
            CORE_LOG_FN(kAddFn, DLOG_INFO, "\t *** [%d:%s][%d:%s][%d:%s] = << %s >> ***", btValid,
                        MatchText(btMatch), wifiValid, MatchText(wifiMatch), p2pValid,
                        MatchText(p2pMatch), allMatched ? "NO CB" : "CB");
            core.m_bNoDataChanged = allMatched;
            CORE_LOG_FN(kAddFn, DLOG_WARN,
                        "Duplicated Device found - MERGE HERE "
                        "[%s][%s][%s][%s][%s][%s][%d][%d][%d][%d][%d][%d]",
                        rec.devname, rec.bt_mac, rec.wifi_mac, rec.p2p_mac, rec.zel_id,
                        rec.mirroring_Id, rec.devtype, rec.devicon, rec.devstatus,
                        rec.tvInitMirroringSupport, rec.isNoUX, rec.isUXAlways);

            if (core.UTIL_CheckValidName(dev->devname) &&
                strncmp(rec.devname, dev->devname, PXM_DEVNAME_LEN - 1) != 0) {
                CORE_LOG_FN(kAddFn, DLOG_INFO, "Device Name is overwritten [%s] >> [%s]",
                            rec.devname, dev->devname);
                CopyText(rec.devname, dev->devname);
            }
            if (btValid) {
                CopyText(rec.bt_mac, dev->bt_mac);
            }
            if (wifiValid) {
                CopyText(rec.wifi_mac, dev->wifi_mac);
            }
            if (p2pValid) {
                CopyText(rec.p2p_mac, dev->p2p_mac);
            }
            // An empty identifier is accepted, so it clears the stored one.
            if (core.UTIL_CheckValidId(dev->zel_id)) {
                CopyText(rec.zel_id, dev->zel_id);
            }
            if (core.UTIL_CheckValidId(dev->mirroring_Id)) {
                CopyText(rec.mirroring_Id, dev->mirroring_Id);
            }
            if (dev->devtype != 0) {
                rec.devtype = dev->devtype;
            }
            if (dev->devicon != 0) {
                rec.devicon = dev->devicon;
            }
            // tvInitMirroringSupport belongs to its own bus method; keyType and dy_type
            // stay with the stored record.
            rec.devstatus = dev->devstatus;
            rec.isNoUX = dev->isNoUX;
            rec.isUXAlways = dev->isUXAlways;
            rec.accessTime = dev->accessTime;
            if (dev->devstatus == PXM_DEV_ALLOWED) {
                rec.updated++;
            }
            CORE_LOG_FN(kAddFn, DLOG_ERROR, "*********CHECK*********[%d]==[%d]", dev->keyType,
                        rec.keyType);
            dev->keyType = rec.keyType;
            i++;
            continue;
        }

        // A further record of the same device: fold it into the target and drop it.
        pxm_core_device_s& into = list[target];
        CORE_LOG_FN(kAddFn, DLOG_WARN,
                    "Duplicated Device found again - REMOVE This "
                    "[%s][%s][%s][%s][%s][%s][%d][%d][%d][%d]",
                    rec.devname, rec.bt_mac, rec.wifi_mac, rec.p2p_mac, rec.zel_id,
                    rec.mirroring_Id, rec.devtype, rec.devicon, rec.devstatus,
                    rec.tvInitMirroringSupport);
        if (!core.UTIL_CheckValidName(into.devname)) {
            CopyText(into.devname, rec.devname);
        }
        if (core.UTIL_CheckValidMAC(rec.bt_mac)) {
            CopyText(into.bt_mac, rec.bt_mac);
        }
        if (core.UTIL_CheckValidMAC(rec.wifi_mac)) {
            CopyText(into.wifi_mac, rec.wifi_mac);
        }
        if (core.UTIL_CheckValidMAC(rec.p2p_mac)) {
            CopyText(into.p2p_mac, rec.p2p_mac);
        }
        if (core.UTIL_CheckValidId(rec.zel_id)) {
            CopyText(into.zel_id, rec.zel_id);
        }
        if (core.UTIL_CheckValidId(rec.mirroring_Id)) {
            CopyText(into.mirroring_Id, rec.mirroring_Id);
        }
        if (rec.devtype != 0) {
            into.devtype = rec.devtype;
        }
        if (rec.devicon != 0) {
            into.devicon = rec.devicon;
        }
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    }

    if (target == list.size()) {
        core.mPXMLock.Unlock();
        return false;
    }

    // Snapshot under the lock: once it is released the list may change under us.
    pxm_core_device_s merged = list[target];
    core.DB_Save();
    core.mPXMLock.Unlock();

    // Unlike a new device, a merge updates the tables for the reverse list too.
    if (dev->devstatus == PXM_DEV_ALLOWED) {
        core.INTERNAL_ControlExternalDB(merged.bt_mac, merged.wifi_mac, PXM_CTRL_EXT_ALLOW);
    } else if (dev->devstatus == PXM_DEV_DENIED) {
        core.INTERNAL_ControlExternalDB(merged.bt_mac, merged.wifi_mac, PXM_CTRL_EXT_REMOVE);
    } else {
        CORE_LOG_FN(kAddFn, DLOG_ERROR, "INVALID Status [%d]", dev->devstatus);
    }

    int32_t requestDyType = dev->dy_type;
    *dev = merged;
    dev->dy_type = requestDyType;
    return true;
}

// Evicts the oldest Bluetooth device from the normal list when the power-on table is full.
void CheckBTFull(CPXMCore& core, const pxm_core_device_s* dev) {
    if (!core.UTIL_CheckValidMAC(dev->bt_mac)) {
        return;
    }
    if (core.mDeviceList.size() <= static_cast<size_t>(kHeadlessLimit)) {
        CORE_LOG_FN(kBtFullFn, DLOG_INFO, "HEADLESSBT can be added");
        return;
    }

    uint64_t oldestTime = 0;
    std::string oldestMac;
    int found = 0;
    core.mPXMLock.Lock();
    for (const pxm_core_device_s& rec : core.mDeviceList) {
        if (!core.UTIL_CheckValidMAC(rec.bt_mac)) {
            continue;
        }
        // Counts how often a new oldest entry turns up in list order, not how many
        // records have a Bluetooth address.
        if (oldestTime == 0 || rec.accessTime < oldestTime) {
            oldestTime = rec.accessTime;
            oldestMac = rec.bt_mac;
            found++;
            CORE_LOG_FN(kBtFullFn, DLOG_INFO, "Headless Data Found [%d][%s:%llu]", found,
                        oldestMac.c_str(), static_cast<unsigned long long>(oldestTime));
        }
    }
    core.mPXMLock.Unlock();

    if (found > kHeadlessLimit) {
        CORE_LOG_FN(kBtFullFn, DLOG_WARN, "HEADLESSBT is full, oldest data is [%s:%llu]",
                    oldestMac.c_str(), static_cast<unsigned long long>(oldestTime));
        // The removal takes the device out of the tables and saves the list itself.
        pxm_core_device_s scratch = {};
        core.INTERNAL_RemoveDevice(oldestMac.c_str(), PXM_TECH_BT, &scratch, PXM_SAVE_NORMAL);
    } else {
        CORE_LOG_FN(kBtFullFn, DLOG_INFO, "HEADLESSBT can be added");
    }
}

}  // namespace

bool CPXMCore::INTERNAL_AddDevice(pxm_core_device_s* dev, dev_save_type save) {
    CORE_LOGI("Save type = [%d]", save);
    std::vector<pxm_core_device_s>& list =
        save == PXM_SAVE_NORMAL ? mDeviceList : mReverseDeviceList;
    int n = static_cast<int>(list.size());
    m_bNoDataChanged = false;

    switch (dev->devstatus) {
        case PXM_DEV_ALLOWED:
            CORE_LOGI("[ALLOW]");
            break;
        case PXM_DEV_DENIED:
            CORE_LOGI("[DENY]");
            break;
        case PXM_DEV_UNDECIDED:
            // An undecided device is never stored: the prompt's answer will be.
            CORE_LOGW("This cannot be saved this time. Waiting user's selection... status[%d]",
                      dev->devstatus);
            return false;
        default:
            CORE_LOGE("Unexpected value - status[%d]", dev->devstatus);
            return false;
    }

    CORE_LOGW("INTERNAL_AddDevice current size is [%d]", n);
    dev->accessTime = UTIL_GetTime();
    CORE_LOGI("******** ADD DEVICE BELOW ********");
    UTIL_PrintDevice(dev);

    if (n != 0 && MergeIntoDuplicate(*this, dev, list)) {
        return true;
    }

    // New device.
    if (dev->devstatus == PXM_DEV_ALLOWED) {
        dev->updated++;
    }
    mPXMLock.Lock();
    UTIL_CheckAndUpdateKeyType(dev);
    list.push_back(*dev);
    DB_Save();
    mPXMLock.Unlock();

    // The reverse list is not mirrored in the wake-up tables for a new device.
    if (save != PXM_SAVE_NORMAL) {
        return true;
    }
    if (dev->devstatus == PXM_DEV_DENIED) {
        INTERNAL_ControlExternalDB(dev->bt_mac, dev->wifi_mac, PXM_CTRL_EXT_REMOVE);
        return true;
    }
    if (dev->devstatus != PXM_DEV_ALLOWED) {
        CORE_LOGE("INVALID Status [%d]", dev->devstatus);
        return true;
    }

    CheckBTFull(*this, dev);
    INTERNAL_ControlExternalDB(dev->bt_mac, dev->wifi_mac, PXM_CTRL_EXT_ALLOW);
    return true;
}
