// The registry's view of its surroundings: settings keys, Wi-Fi security and standby.
#include <glib.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "CPXMCore.h"
#include "net_connection.h"
#include "pxm_log.h"

namespace {
// The wizard modes during which the first-use setup runs.
bool IsSetupMode(const char* mode) {
    return strcmp(mode, "PNP_SETUP") == 0 || strcmp(mode, "NETWORK_SETUP") == 0 ||
           strcmp(mode, "SSO_ALONE_SETUP") == 0;
}

CPXMCore* Registry(void* user_data) {
    return user_data != nullptr ? static_cast<CPXMCore*>(user_data) : CPXMCore::GetInstance();
}
}  // namespace

void CPXMCore::UTIL_LoadVconf() {
    char* mode = vconf_get_str(VCONFKEY_WIZARD_MODE);

    // A failed read leaves the value as it was.
    int value = m_nAccessNoti.load();
    vconf_get_int(VCONFKEY_PXM_ACCESS_NOTI, &value);
    m_nAccessNoti = value;
    value = m_nReqOpt.load();
    vconf_get_int(VCONFKEY_PXM_REQ_OPT, &value);
    m_nReqOpt = value;

    // At boot only the plug-and-play wizard counts; the other setup modes are recognised
    // only when the key changes.
    m_bPnPStatus = false;
    if (mode == nullptr) {
        CORE_LOGE("vconf_get_str Failed for %s", VCONFKEY_WIZARD_MODE);
        return;
    }
    if (strcasecmp(mode, "PNP_SETUP") == 0) {
        m_bPnPStatus = true;
    }
    free(mode);
}

void CPXMCore::UTIL_LoadSecurity() {
    m_bSecurity = false;

    connection_h handle = nullptr;
    int ret = connection_create(&handle);
    if (ret != CONNECTION_ERROR_NONE) {
        CORE_LOGE("Connection creation failed.[%d]", ret);
        return;
    }
    if (handle == nullptr) {
        CORE_LOGE("Failed to get Connection Profile");
        return;
    }

    connection_type_e type = CONNECTION_TYPE_DISCONNECTED;
    connection_profile_h profile = nullptr;
    connection_wifi_security_type_e security = CONNECTION_WIFI_SECURITY_TYPE_NONE;
    connection_wifi_encryption_type_e encryption = CONNECTION_WIFI_ENCRYPTION_TYPE_NONE;

    ret = connection_get_type(handle, &type);
    if (ret != CONNECTION_ERROR_NONE) {
        CORE_LOGE("Failed to get Connection Type [%d]", ret);
    } else if (type != CONNECTION_TYPE_WIFI) {
        CORE_LOGW("WIFI is not connected[%d]", static_cast<int>(type));
    } else if ((ret = connection_get_current_profile(handle, &profile)) != CONNECTION_ERROR_NONE) {
        CORE_LOGE("Failed to get Connection Profile [%d]", ret);
    } else if ((ret = connection_profile_get_wifi_security_type(profile, &security)) !=
               CONNECTION_ERROR_NONE) {
        CORE_LOGE("Failed to get Wifi Security Type [%d]", ret);
    } else if ((ret = connection_profile_get_wifi_encryption_type(profile, &encryption)) !=
               CONNECTION_ERROR_NONE) {
        CORE_LOGE("Failed to get Wifi Encryption Type [%d]", ret);
    } else {
        bool pskSecurity = security == CONNECTION_WIFI_SECURITY_TYPE_WPA_PSK ||
                           security == CONNECTION_WIFI_SECURITY_TYPE_WPA2_PSK;
        bool aesEncryption = encryption == CONNECTION_WIFI_ENCRYPTION_TYPE_AES ||
                             encryption == CONNECTION_WIFI_ENCRYPTION_TYPE_TKIP_AES_MIXED;
        if (pskSecurity && aesEncryption) {
            CORE_LOGI("Wifi Security is OK [%d][%d]", static_cast<int>(security),
                      static_cast<int>(encryption));
            m_bSecurity = true;
        } else {
            CORE_LOGW("Wifi Security level is NOT OK TYPE[%d] ENCRYPTION[%d]",
                      static_cast<int>(security), static_cast<int>(encryption));
        }
    }
    // The profile belongs to the handle and goes with it.
    connection_destroy(handle);
}

void CPXMCore::INTERNAL_VconfCallBack(keynode_t* node, void* user_data) {
    CPXMCore* core = Registry(user_data);
    const char* key = node != nullptr ? vconf_keynode_get_name(node) : nullptr;
    if (key == nullptr) {
        CORE_LOGE("VconfKey is null");
        return;
    }

    if (strcmp(key, VCONFKEY_PXM_ACCESS_NOTI) == 0) {
        core->m_nAccessNoti = vconf_keynode_get_int(node);
        CORE_LOGI("Access Notification : [%d]", core->m_nAccessNoti.load());
    } else if (strcmp(key, VCONFKEY_PXM_REQ_OPT) == 0) {
        core->m_nReqOpt = vconf_keynode_get_int(node);
        CORE_LOGI("Request Option : [%d]", core->m_nReqOpt.load());
    } else if (strcmp(key, VCONFKEY_WIZARD_MODE) == 0) {
        const char* mode = vconf_keynode_get_str(node);
        CORE_LOGI("Wizard Mode : [%s]", mode != nullptr ? mode : "(null)");
        core->m_bPnPStatus = mode != nullptr && IsSetupMode(mode);
    } else {
        CORE_LOGE("Invalid vconfkey[%s]", key);
    }
}

void CPXMCore::INTERNAL_WifiStateCallback(wifi_connection_state_e state, wifi_ap_h ap,
                                          void* user_data) {
    CPXMCore* core = Registry(user_data);
    if (state == WIFI_CONNECTION_STATE_CONNECTED) {
        core->UTIL_LoadSecurity();
        char* name = nullptr;
        if (wifi_ap_get_essid(ap, &name) == WIFI_ERROR_NONE && name != nullptr) {
            CORE_LOGI("AP is [%s]", name);
            g_free(name);
        }
        CORE_LOGW("Wifi Connected : Security[%d]", static_cast<int>(core->m_bSecurity.load()));
        return;
    }
    // Whatever the new state, the secure connection is gone.
    core->m_bSecurity = false;
    CORE_LOGI("Wifi Diconnected [%d]", static_cast<int>(state));
}

int CPXMCore::INTERNAL_InstantOffCallback(int type, void* /*user_data*/) {
    CORE_LOGW("InstantOff Callback[0x%x]", static_cast<unsigned int>(type));
    // After standby no device passes a request on the strength of an earlier allow.
    CPXMCore::GetInstance()->UTIL_ClearUpdate();
    return 1;
}
