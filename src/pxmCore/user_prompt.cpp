// The prompt application: its launch, the tracking of its pid, the clean-up of a stray
// instance and the notice that it died.
#include <cstdio>
#include <cstring>

#include "CPXMCore.h"
#include "bundle.h"
#include "pxm_log.h"

namespace {

// The prompt application reads numbers of at most 6 characters; longer ones are cut.
constexpr size_t kNumberLen = 7;

void FormatNumber(char (&buf)[kNumberLen], int value) {
    if (snprintf(buf, sizeof(buf), "%d", value) < 0) {
        buf[0] = '\0';
    }
}

}  // namespace

bool CPXMCore::INTERNAL_AskUser(const pxm_core_device_s* dev) {
    char devtype[kNumberLen], devicon[kNumberLen], mirroring[kNumberLen], noux[kNumberLen],
        uxalways[kNumberLen];
    FormatNumber(devtype, dev->devtype);
    FormatNumber(devicon, dev->devicon);
    FormatNumber(mirroring, dev->tvInitMirroringSupport);
    FormatNumber(noux, dev->isNoUX);
    FormatNumber(uxalways, dev->isUXAlways);

    bundle* b = bundle_create();
    if (b == nullptr) {
        CORE_LOGE("PXM UX BUNDLE CREATION ERROR");
        return false;
    }
    bundle_add(b, "DEVICENAME", dev->devname);
    bundle_add(b, "BTMAC", dev->bt_mac);
    bundle_add(b, "WIFIMAC", dev->wifi_mac);
    bundle_add(b, "P2PMAC", dev->p2p_mac);
    bundle_add(b, "DEVTYPE", devtype);
    bundle_add(b, "DEVICON", devicon);
    bundle_add(b, "MIRRORINGSUPPORT", mirroring);
    bundle_add(b, "NOUX", noux);
    bundle_add(b, "UXALWAYS", uxalways);
    bundle_add(b, "MIRRORINGID", dev->mirroring_Id);
    bundle_add(b, "ZELID", dev->zel_id);

    bool launched = false;
    m_nUxPid = aul_launch_app(PXM_UX_APP_ID, b);
    if (m_nUxPid >= 1) {
        CORE_LOGW("First attempt success. PXM UX Noti called PID[%d]", m_nUxPid.load());
        launched = true;
    } else {
        CORE_LOGE(
            "First attempt to launch failed. PXM UX Noti failed : Error[%d]. Trying Second time",
            m_nUxPid.load());
        // Exactly one retry, at once: the requester is waiting for the reply.
        m_nUxPid = aul_launch_app(PXM_UX_APP_ID, b);
        if (m_nUxPid >= 1) {
            CORE_LOGW("Second attempt success. PXM UX Noti called PID[%d]", m_nUxPid.load());
            launched = true;
        } else {
            CORE_LOGE("Second attempt to launch failed. PXM UX Noti failed PID[%d].",
                      m_nUxPid.load());
            m_nUxPid = 0;
        }
    }
    bundle_free(b);
    return launched;
}

bool CPXMCore::UTIL_CheckUXDisplay() {
    if (aul_app_is_running(PXM_UX_APP_ID) <= 0) {
        return false;
    }
    if (m_nUxPid > 0) {
        CORE_LOGE("UX already Displaying [ %d ]", m_nUxPid.load());
        return true;
    }
    // A prompt we did not start (it outlived a restart of the daemon): close it so that a
    // fresh one can be launched for this request.
    if (aul_app_get_running_app_info(INTERNAL_UxTerminate, this) == AUL_R_OK) {
        CORE_LOGE("Unexpected UX status. Close UX");
    } else {
        CORE_LOGE("Unexpected UX status. Close error");
    }
    m_nUxPid = 0;
    return false;
}

void CPXMCore::UTIL_RemoveUX() {
    if (aul_app_get_running_app_info(INTERNAL_UxTerminate, nullptr) != AUL_R_OK) {
        CORE_LOGE("Unexpected UX status. Close error");
    } else {
        CORE_LOGW("Unexpected UX status. Close UX");
    }
}

int CPXMCore::INTERNAL_UxTerminate(const aul_app_info* info, void* /*data*/) {
    if (info == nullptr) {
        return 0;
    }
    CORE_LOGI("PID[%d] PKG[%s]", info->pid, info->pkg_name ? info->pkg_name : "(null)");
    if (info->pkg_name == nullptr) {
        return 0;
    }
    // Compared over the name's own length: the id itself, any prefix of it and the empty
    // name all count as the prompt; a longer name does not.
    const size_t idLen = strlen(PXM_UX_APP_ID);
    size_t n = strlen(info->pkg_name);
    if (n > idLen + 1) {
        n = idLen + 1;
    }
    if (strncmp(info->pkg_name, PXM_UX_APP_ID, n) == 0) {
        CORE_LOGE("[%s] package found and terminated PID = [%d]", PXM_UX_APP_ID, info->pid);
        aul_terminate_pid(info->pid);
    }
    return 0;
}

int CPXMCore::INTERNAL_UxDeadCallBack(int pid, void* data) {
    char pkgname[256];
    memset(pkgname, 0, sizeof(pkgname));
    aul_app_get_pkgname_bypid(pid, pkgname, sizeof(pkgname));

    CPXMCore* core = static_cast<CPXMCore*>(data);
    if (core == nullptr || pid != core->m_nUxPid) {
        return 0;
    }
    CORE_LOGI("UX Terminated >>> %d [%s]", pid, pkgname);
    core->m_nUxPid = 0;
    return 1;
}
