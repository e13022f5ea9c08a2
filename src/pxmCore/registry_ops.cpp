// Lookups, copies and removals on the two device lists, and the clearing of the per-record
// allowed counter.
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "CPXMCore.h"
#include "bounded_copy.h"
#include "device_lists.h"
#include "pxm_log.h"
#include "record_addresses.h"

namespace {

const char* AddressFor(const pxm_core_device_s& rec, pxm_tech_ind_e ind) {
    switch (ind) {
        case PXM_TECH_BT:
            return rec.bt_mac;
        case PXM_TECH_WIFI:
            return rec.wifi_mac;
        case PXM_TECH_P2P:
            return rec.p2p_mac;
        default:
            return nullptr;
    }
}

}  // namespace

bool CPXMCore::CMD_GetDevice(const char* mac, pxm_tech_ind_e ind, pxm_core_device_s* out,
                             dev_save_type save) {
    std::vector<pxm_core_device_s>& list = pxm_registry::ListFor(*this, save);
    if (pxm_registry::SizeOf(*this, list) == 0) {
        CORE_LOGE("Input Count is null");
        return false;
    }

    memset(out, 0, sizeof(*out));
    mPXMLock.Lock();
    if (const pxm_core_device_s* found = pxm_addr::FirstWithAddress(*this, list, mac, ind)) {
        *out = *found;
        CORE_LOGI("########### GET DEVICE ##########");
        CORE_LOGI("Device Name : [%s]", out->devname);
        CORE_LOGI("BTMac       : [%s]", out->bt_mac);
        CORE_LOGI("WifiMac     : [%s]", out->wifi_mac);
        CORE_LOGI("P2pMac      : [%s]", out->p2p_mac);
        CORE_LOGI("DevType     : [%d]", out->devtype);
        CORE_LOGI("DevIcon     : [%d]", out->devicon);
        CORE_LOGI("Status      : [%d]", out->devstatus);
        CORE_LOGI("eTvInitMirroringSupport      : [%d]", out->tvInitMirroringSupport);
        CORE_LOGI("iIsNoUX                      : [%d]", out->isNoUX);
        CORE_LOGI("iIsUXAlways                      : [%d]", out->isUXAlways);
        CORE_LOGI("Access Time : [%llu]", static_cast<unsigned long long>(out->accessTime));
        CORE_LOGI("Zel Id : [%s]", out->zel_id);
        CORE_LOGI("Mirroring Id : [%s]", out->mirroring_Id);
        CORE_LOGI("#################################");
        mPXMLock.Unlock();
        return true;
    }
    mPXMLock.Unlock();
    return false;
}

bool CPXMCore::CMD_GetAllDevices(int* count, pxm_core_device_s** list, dev_save_type save) {
    std::vector<pxm_core_device_s>& source = pxm_registry::ListFor(*this, save);
    size_t n = pxm_registry::SizeOf(*this, source);
    CORE_LOGI("DB type [%d]", save);
    if (n == 0) {
        CORE_LOGW("List is empty");
        *count = 0;
        return true;
    }

    pxm_core_device_s* copies = static_cast<pxm_core_device_s*>(calloc(n, sizeof(*copies)));
    if (copies == nullptr) {
        CORE_LOGE("Not enough memory");
        // Not taken at this point; the lock refuses an unlock by a non-owner.
        mPXMLock.Unlock();
        return false;
    }

    mPXMLock.Lock();
    // The size was read before locking; deliberately bounded by what the list holds now,
    // so that a list that shrank meanwhile is never read past its end.
    size_t copied = n < source.size() ? n : source.size();
    for (size_t i = 0; i < copied; i++) {
        const pxm_core_device_s& rec = source[i];
        pxm_core_device_s& copy = copies[i];
        pxm_text::CopyField(copy.devname, rec.devname);
        pxm_text::CopyField(copy.bt_mac, rec.bt_mac);
        pxm_text::CopyField(copy.wifi_mac, rec.wifi_mac);
        pxm_text::CopyField(copy.p2p_mac, rec.p2p_mac);
        copy.devtype = rec.devtype;
        copy.devicon = rec.devicon;
        copy.devstatus = rec.devstatus;
        copy.tvInitMirroringSupport = rec.tvInitMirroringSupport;
        copy.isNoUX = rec.isNoUX;
        copy.isUXAlways = rec.isUXAlways;
        copy.accessTime = rec.accessTime;
        copy.updated = rec.updated;
        copy.keyType = rec.keyType;
        pxm_text::CopyField(copy.zel_id, rec.zel_id);
        pxm_text::CopyField(copy.mirroring_Id, rec.mirroring_Id);
        // dy_type is not handed out: it stays 0 in the copy.
        CORE_LOGI("#%2d ################################## [devKeyType][%d]", static_cast<int>(i),
                  copy.keyType);
        UTIL_PrintDevice(&copy);
    }
    mPXMLock.Unlock();

    *count = static_cast<int>(copied);
    *list = copies;
    return true;
}

bool CPXMCore::INTERNAL_RemoveDevice(const char* mac, pxm_tech_ind_e ind, pxm_core_device_s* out,
                                     dev_save_type save) {
    std::vector<pxm_core_device_s>& list = pxm_registry::ListFor(*this, save);
    if (pxm_registry::SizeOf(*this, list) == 0) {
        CORE_LOGW("Currrently no data to remove");
        return false;
    }

    mPXMLock.Lock();
    size_t found = list.size();
    for (size_t i = 0; i < list.size() && mac != nullptr; i++) {
        const char* address = AddressFor(list[i], ind);
        if (address != nullptr && strcasecmp(address, mac) == 0) {
            found = i;
            break;
        }
    }
    if (found == list.size()) {
        mPXMLock.Unlock();
        CORE_LOGE("Failed to remove : Not found [%s]", mac);
        return false;
    }

    const pxm_core_device_s& rec = list[found];
    // The caller gets only what identifies the removed device, for its signal and backup.
    pxm_addr::CopyValidAddresses(*this, rec, out);
    out->keyType = rec.keyType;

    // Only the normal list is mirrored in the wake-up tables.
    if (save == PXM_SAVE_NORMAL) {
        INTERNAL_ControlExternalDB(rec.bt_mac, rec.wifi_mac, PXM_CTRL_EXT_REMOVE);
    }
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(found));
    DB_Save();
    mPXMLock.Unlock();
    return true;
}

bool CPXMCore::CMD_RemoveAllDevices(dev_save_type save) {
    if (save != PXM_SAVE_NORMAL) {
        // The reverse list has no wake-up tables; callers see false and this line.
        CORE_LOGI("EXTERNAL DB clear error");
        mPXMLock.Lock();
        mReverseDeviceList.clear();
        DB_Save();
        mPXMLock.Unlock();
        return false;
    }

    bool cleared = INTERNAL_ControlExternalDB(nullptr, nullptr, PXM_CTRL_EXT_CLEAR);
    if (cleared) {
        CORE_LOGI("EXTERNAL DB cleared successfully");
    } else {
        CORE_LOGI("EXTERNAL DB clear error");
    }
    mPXMLock.Lock();
    mDeviceList.clear();
    DB_Save();
    mPXMLock.Unlock();
    return cleared;
}

void CPXMCore::UTIL_ClearUpdate() {
    mPXMLock.Lock();
    // Only the normal list's counters let a request pass without a prompt.
    for (pxm_core_device_s& rec : mDeviceList) {
        rec.updated = 0;
    }
    mPXMLock.Unlock();
    CORE_LOGI("Update cleared");
}
