// Adding a device to a list: duplicate detection and merging, the new-device path, the
// wake-up tables, and the capacity check of the Bluetooth power-on table.
#include <cstring>
#include <string>

#include "CPXMCore.h"
#include "bounded_copy.h"
#include "device_lists.h"
#include "pxm_log.h"
#include "record_addresses.h"

namespace {

const char* const kAddFn = "INTERNAL_AddDevice";
const char* const kBtFullFn = "UTIL_CheckBTFull";
// More Bluetooth entries than this (by the counting rule below) evict the oldest one.
const int kHeadlessLimit = 5;

const char* MatchText(bool matched) {
    return matched ? "Matched" : "Unmatched";
}

// Merges the request into the first stored record that shares one of its valid addresses
// and folds every further such record into it; false when no record matched.
bool MergeIntoDuplicate(CPXMCore& core, pxm_core_device_s* dev,
                        std::vector<pxm_core_device_s>& list) {
    const pxm_addr::RequestAddresses req = pxm_addr::ValidAddresses(core, dev);

    core.mPXMLock.Lock();
    size_t target = list.size();
    size_t i = 0;
    while (i < list.size()) {
        pxm_core_device_s& rec = list[i];
        // Later records are matched against the request, not against the merged target.
        bool btMatch = req.BtMatches(rec);
        bool wifiMatch = req.WifiMatches(rec);
        bool p2pMatch = req.P2pMatches(rec);
        if (!btMatch && !wifiMatch && !p2pMatch) {
            i++;
            continue;
        }

        if (target == list.size()) {
            target = i;
            // Matching on every valid address means the caller already knows this device:
            // no status-changed signal, whatever else the merge changes.
            bool allMatched = btMatch == req.bt && wifiMatch == req.wifi && p2pMatch == req.p2p;
            CORE_LOG_FN(kAddFn, DLOG_INFO, "\t *** [%d:%s][%d:%s][%d:%s] = << %s >> ***", req.bt,
                        MatchText(btMatch), req.wifi, MatchText(wifiMatch), req.p2p,
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
                pxm_text::CopyField(rec.devname, dev->devname);
            }
            // The request's valid addresses replace the stored ones.
            pxm_addr::CopyValidAddresses(core, *dev, &rec);
            // An empty identifier is accepted, so it clears the stored one.
            if (core.UTIL_CheckValidId(dev->zel_id)) {
                pxm_text::CopyField(rec.zel_id, dev->zel_id);
            }
            if (core.UTIL_CheckValidId(dev->mirroring_Id)) {
                pxm_text::CopyField(rec.mirroring_Id, dev->mirroring_Id);
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
            pxm_text::CopyField(into.devname, rec.devname);
        }
        pxm_addr::CopyValidAddresses(core, rec, &into);
        if (core.UTIL_CheckValidId(rec.zel_id)) {
            pxm_text::CopyField(into.zel_id, rec.zel_id);
        }
        if (core.UTIL_CheckValidId(rec.mirroring_Id)) {
            pxm_text::CopyField(into.mirroring_Id, rec.mirroring_Id);
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

    // The addresses for the wake-up tables, read while the record cannot move.
    pxm_core_device_s merged = list[target];
    core.DB_Save();
    core.mPXMLock.Unlock();

    // Unlike a new device, a merge updates the tables for the reverse list too. Only allowed
    // and denied requests get this far.
    core.INTERNAL_ControlExternalDB(
        merged.bt_mac, merged.wifi_mac,
        dev->devstatus == PXM_DEV_ALLOWED ? PXM_CTRL_EXT_ALLOW : PXM_CTRL_EXT_REMOVE);

    // The caller gets the record as it is now that the merge has let the list go: the save
    // may already have rewritten its empty fields. Deliberately, the read takes the lock
    // again for a moment, since another thread may have moved the list meanwhile; if the
    // record is no longer where it was, the caller gets it as the merge left it.
    core.mPXMLock.Lock();
    if (target < list.size() && req.Matches(list[target])) {
        merged = list[target];
    }
    core.mPXMLock.Unlock();

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
    if (pxm_registry::SizeOf(core, core.mDeviceList) <= static_cast<size_t>(kHeadlessLimit)) {
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
    std::vector<pxm_core_device_s>& list = pxm_registry::ListFor(*this, save);
    int n = static_cast<int>(pxm_registry::SizeOf(*this, list));
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

    CheckBTFull(*this, dev);
    INTERNAL_ControlExternalDB(dev->bt_mac, dev->wifi_mac, PXM_CTRL_EXT_ALLOW);
    return true;
}
