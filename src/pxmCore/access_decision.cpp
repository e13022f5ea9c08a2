// The access-request decision: store the proposed verdict at once, let a stored denial
// stand, or ask the user through the prompt application.
#include "CPXMCore.h"
#include "aov.h"
#include "device_lists.h"
#include "device_power.h"
#include "pxm_log.h"
#include "record_addresses.h"
#include "system_info.h"

namespace {

using pxm_addr::RequestAddresses;
using pxm_addr::ValidAddresses;
using pxm_registry::ListFor;

// Copies the first record of `list` that shares an address with the request into `found`.
// The lock is held for the scan only, never across platform calls.
bool FindShared(CPXMCore& core, const std::vector<pxm_core_device_s>& list,
                const RequestAddresses& req, pxm_core_device_s* found) {
    bool hit = false;
    core.mPXMLock.Lock();
    for (const pxm_core_device_s& rec : list) {
        if (req.Matches(rec)) {
            *found = rec;
            hit = true;
            break;
        }
    }
    core.mPXMLock.Unlock();
    return hit;
}

// The stored verdict of the requesting device, -1 when it is not in the chosen list.
int CheckStatus(CPXMCore& core, const pxm_core_device_s* dev, dev_save_type save) {
    RequestAddresses req = ValidAddresses(core, dev);
    CORE_LOG_FN("UTIL_CheckStatus", DLOG_INFO, "Save type = [%d]", save);
    pxm_core_device_s rec{};
    if (!FindShared(core, ListFor(core, save), req, &rec)) {
        return PXM_DEV_NOT_FOUND;
    }
    CORE_LOG_FN("UTIL_CheckStatus", DLOG_INFO, "devKeyType[%d]", rec.keyType);
    return rec.devstatus;
}

// A failed query counts as a false flag.
bool IsTesselMode() {
    bool flag = false;
    if (system_info_get_custom_bool(PXM_TESSEL_FEATURE_KEY, &flag) != SYSTEM_INFO_ERROR_NONE) {
        CORE_LOG_FN("is_tessel_mode", DLOG_ERROR, "system_info_get_value_bool() fail");
    }
    CORE_LOG_FN("is_tessel_mode", DLOG_INFO, "is_tessel status:[%d]", flag);
    return flag;
}

}  // namespace

int CPXMCore::CMD_RequestAccess(pxm_core_device_s* dev, dev_save_type save) {
    const int stored = CheckStatus(*this, dev, save);

    // A stored denial stands unless the request is itself a denial or insists on a prompt.
    if (stored == PXM_DEV_DENIED && dev->devstatus != PXM_DEV_DENIED && dev->isUXAlways == 0) {
        CORE_LOGW("Failed to set device : Already Denied");
        CORE_LOGW("No data changed(REJECT), no CALLBACK");
        m_bNoDataChanged = true;
        return PXM_DEV_DENIED;
    }

    // Silent adds return here and leave the request option for the next request.
    const bool pnp = m_bPnPStatus.load();
    if (pnp) {
        CORE_LOGW("PnP Wizard is running... no PXM UX");
    }
    if (pnp || dev->devstatus == PXM_DEV_DENIED || dev->isNoUX) {
        if (dev->devstatus == PXM_DEV_DENIED) {
            CORE_LOGW("DENIED data... no PXM UX and just add");
        }
        if (dev->isNoUX) {
            CORE_LOGW("App forced.... no PXM UX and just add");
        }
        if (!dev->isUXAlways) {
            INTERNAL_AddDevice(dev, save);
            return dev->devstatus;
        }
    }

    const int accessNoti = m_nAccessNoti.load();
    CORE_LOGI("REQUESTACCESS - AccessNoti[%d] REQOPT[%d]", accessNoti, m_nReqOpt.load());

    enum class Step { Ask, Add, Fail };
    Step step = Step::Ask;
    if (dev->isUXAlways) {
        step = Step::Ask;
    } else if (accessNoti == 0) {
        if (!m_bSecurity) {
            UTIL_LoadSecurity();
        }
        CORE_LOGI("m_bSecurity [%d]", m_bSecurity.load());
        if (m_bSecurity && UTIL_CheckValidMAC(dev->wifi_mac) && m_nReqOpt == 0) {
            CORE_LOGI("Security condition accepted. No noti");
            step = Step::Add;
        } else {
            step = stored == PXM_DEV_NOT_FOUND ? Step::Ask : Step::Add;
        }
    } else if (accessNoti == 1) {
        step = stored == PXM_DEV_NOT_FOUND ? Step::Ask : Step::Add;
    } else if (accessNoti == 2) {
        if (IsTesselMode()) {
            step = Step::Ask;
        } else {
            // Being allowed since boot is a fact of the normal list, whichever list is asked.
            RequestAddresses req = ValidAddresses(*this, dev);
            pxm_core_device_s rec{};
            if (FindShared(*this, mDeviceList, req, &rec) && rec.updated != 0) {
                CORE_LOGI("This device is already allowed [%d]times after booting. No UX",
                          rec.updated);
                step = Step::Add;
            } else {
                const int power = device_power_get_state();
                const bool voice = AOVSystemDataIsAOVActivated();
                CORE_LOGI("Device status [%d] TV state [%d] Is AOV activated [%d]", stored, power,
                          voice);
                const bool fullyOn = power == DEVICE_POWER_STATE_NORMAL && !voice;
                step = (stored == PXM_DEV_NOT_FOUND || fullyOn) ? Step::Ask : Step::Add;
            }
        }
    } else {
        CORE_LOGE("Unavailable AccessNoti value [%d]", accessNoti);
        step = Step::Fail;
    }

    int result = -1;
    if (step == Step::Ask) {
        // The verdict arrives later through the prompt's feedback; nothing is stored now.
        result = PXM_DEV_UNDECIDED;
        if (dev->isUXAlways) {
            CORE_LOGE("NOTI HERE");
        } else {
            CORE_LOGI("NOTI HERE");
        }
        if (!INTERNAL_AskUser(dev)) {
            result = -1;
        }
    } else if (step == Step::Add) {
        // An undecided request is refused by the add and so passes through as 2.
        INTERNAL_AddDevice(dev, save);
        result = dev->devstatus;
    }

    // The request option applies to one request only.
    if (m_nReqOpt != 0) {
        CORE_LOGW("This is not a WIFI session the AP REQOPT[%d]", m_nReqOpt.load());
        m_nReqOpt = 0;
    }
    return result;
}
