// Reading and changing a stored device's status, its TV-initiated mirroring flag and its
// name or desktop-mode id. These registry operations exist only behind the bus methods;
// they work on the normal list and log as the registry does.
#include <cstring>
#include <string>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "handler_log.h"
#include "pxmCore/bounded_copy.h"
#include "pxmCore/record_addresses.h"

namespace {

// The first record in list order that matches; only that one is read or changed.
pxm_core_device_s* FindFirst(CPXMCore* core, const char* mac, int ind) {
    return pxm_addr::FirstWithAddress(*core, core->mDeviceList, mac,
                                      static_cast<pxm_tech_ind_e>(ind));
}

// The setters log their result under the method's name, then reply with it.
void ReplyResult(const char* method, GDBusMethodInvocation* invocation, int result) {
    HANDLER_LOGI(method, "[DBusServer] %s called.Return value [%d] ", method, result);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", result));
}

}  // namespace

int PXMDBusServer::CMD_GetStatus(const char* mac, int ind) {
    m_pPXMCore->mPXMLock.Lock();
    pxm_core_device_s* rec = FindFirst(m_pPXMCore, mac, ind);
    if (rec != nullptr) {
        // Only in memory: a lookup is not worth a save.
        rec->accessTime = m_pPXMCore->UTIL_GetTime();
        int status = rec->devstatus;
        m_pPXMCore->mPXMLock.Unlock();
        return status;
    }
    m_pPXMCore->mPXMLock.Unlock();
    SRV_CORE_LOG(DLOG_WARN, "Failed to get status : Not found [%s]", mac);
    return PXM_DEV_NOT_FOUND;
}

int PXMDBusServer::CMD_SetStatus(const char* mac, int ind, int status, pxm_core_device_s* changed) {
    if (static_cast<unsigned>(status) > PXM_DEV_DENIED) {
        SRV_CORE_LOG(DLOG_ERROR, "Invalid status tried to set [%d]", status);
        return 3;
    }
    m_pPXMCore->mPXMLock.Lock();
    pxm_core_device_s* rec = FindFirst(m_pPXMCore, mac, ind);
    if (rec == nullptr) {
        m_pPXMCore->mPXMLock.Unlock();
        SRV_CORE_LOG(DLOG_ERROR, "Failed to set status : Not found [%s]", mac);
        return 4;
    }

    rec->accessTime = m_pPXMCore->UTIL_GetTime();
    // Exactly these fields: the copy handed on keeps devstatus 0 and no name or ids.
    memset(changed, 0, sizeof(*changed));
    // What the signal carries: only the addresses that are usable, the rest stay empty.
    pxm_addr::CopyValidAddresses(*m_pPXMCore, *rec, changed);
    changed->devtype = rec->devtype;
    changed->devicon = rec->devicon;
    changed->tvInitMirroringSupport = rec->tvInitMirroringSupport;
    changed->isNoUX = rec->isNoUX;
    changed->isUXAlways = rec->isUXAlways;
    changed->accessTime = rec->accessTime;
    changed->keyType = rec->keyType;

    if (rec->devstatus == status) {
        // Saved although only the access time moved.
        m_pPXMCore->DB_Save();
        m_pPXMCore->mPXMLock.Unlock();
        return 2;
    }
    rec->devstatus = status;
    m_pPXMCore->DB_Save();
    std::string bt = pxm_text::FieldString(rec->bt_mac);
    std::string wifi = pxm_text::FieldString(rec->wifi_mac);
    m_pPXMCore->mPXMLock.Unlock();

    // The wake-up tables follow the verdict; they are not touched under the list lock.
    m_pPXMCore->INTERNAL_ControlExternalDB(
        bt.c_str(), wifi.c_str(),
        status != PXM_DEV_ALLOWED ? PXM_CTRL_EXT_REMOVE : PXM_CTRL_EXT_ALLOW);
    return 1;
}

int PXMDBusServer::CMD_SetTVInitMirroringStatus(const char* mac, int ind, int value,
                                                pxm_core_device_s* changed) {
    m_pPXMCore->mPXMLock.Lock();
    pxm_core_device_s* rec = FindFirst(m_pPXMCore, mac, ind);
    if (rec == nullptr) {
        m_pPXMCore->mPXMLock.Unlock();
        // The same text as set status: operators grep for one line.
        SRV_CORE_LOG(DLOG_ERROR, "Failed to set status : Not found [%s]", mac);
        return 0;
    }
    rec->accessTime = m_pPXMCore->UTIL_GetTime();
    memset(changed, 0, sizeof(*changed));
    pxm_addr::CopyValidAddresses(*m_pPXMCore, *rec, changed);
    int result = 0;
    if (rec->tvInitMirroringSupport != value) {
        rec->tvInitMirroringSupport = value;
        result = 1;
    }
    m_pPXMCore->DB_Save();
    m_pPXMCore->mPXMLock.Unlock();
    return result;
}

int PXMDBusServer::CMD_SetDeviceExtendedParamString(const char* mac, int ind, const char* param,
                                                    int type) {
    m_pPXMCore->mPXMLock.Lock();
    pxm_core_device_s* rec = FindFirst(m_pPXMCore, mac, ind);
    if (rec == nullptr) {
        m_pPXMCore->mPXMLock.Unlock();
        SRV_CORE_LOG(DLOG_ERROR, "Failed to set status : Not found [%s]", mac);
        return 0;
    }
    rec->accessTime = m_pPXMCore->UTIL_GetTime();
    if (type == 1) {
        pxm_text::CopyField(rec->devname, param);
    } else if (type == 2) {
        pxm_text::CopyField(rec->zel_id, param);
    }
    m_pPXMCore->DB_Save();
    m_pPXMCore->mPXMLock.Unlock();
    return 1;
}

void PXMDBusServer::pxm_get_status(GVariant* parameters, GDBusMethodInvocation* invocation) {
    gchar* mac = nullptr;
    gint32 ind = 0;
    g_variant_get(parameters, "(si)", &mac, &ind);
    SRV_LOGI("[DBusServer] %s called. Mac: [%s](%d) ", __func__, mac, ind);
    int status = m_pPXMCore != nullptr ? CMD_GetStatus(mac, ind) : PXM_DEV_NOT_FOUND;
    g_free(mac);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", status));
}

void PXMDBusServer::pxm_set_status(GVariant* parameters, GDBusMethodInvocation* invocation) {
    gchar* mac = nullptr;
    gint32 ind = 0;
    gint32 status = 0;
    g_variant_get(parameters, "(sii)", &mac, &ind, &status);
    SRV_LOGI("[DBusServer] %s called. MAC [%s](%d) and Status: [%d] ", __func__, mac, ind, status);

    int result = 0;
    pxm_core_device_s changed;
    memset(&changed, 0, sizeof(changed));
    if (m_pPXMCore != nullptr) {
        result = CMD_SetStatus(mac, ind, status, &changed);
    }
    g_free(mac);
    if (result == 1) {
        SRV_LOGW("[DBusServer] [NOTI] DEVICE STATUS CHANGED");
        m_EmitStatusChanged(changed.bt_mac, changed.wifi_mac, changed.p2p_mac, status);
        // The copy as it is (devstatus 0, no name): what the backup client has always had.
        m_BnrClient.Backup(&changed, OP_ADD_OR_CHANGE);
    }
    ReplyResult(__func__, invocation, result);
}

void PXMDBusServer::pxm_set_tv_init_mirroring_status(GVariant* parameters,
                                                     GDBusMethodInvocation* invocation) {
    gchar* mac = nullptr;
    gint32 ind = 0;
    gint32 value = 0;
    g_variant_get(parameters, "(sii)", &mac, &ind, &value);
    SRV_LOGI("[DBusServer] %s called. MAC [%s](%d) and Status: [%d] ", __func__, mac, ind, value);

    int result = 0;
    pxm_core_device_s changed;
    memset(&changed, 0, sizeof(changed));
    if (m_pPXMCore != nullptr) {
        result = CMD_SetTVInitMirroringStatus(mac, ind, value, &changed);
    }
    g_free(mac);
    if (result == 1) {
        SRV_LOGI("[DBusServer] [NOTI] DEVICE TV INIT MIRRORING SUPPORT CHANGED");
        m_EmitTvInitMirroringChanged(changed.bt_mac, changed.wifi_mac, changed.p2p_mac, value);
    }
    ReplyResult(__func__, invocation, result);
}

void PXMDBusServer::pxm_set_device_extended_param_string(GVariant* parameters,
                                                         GDBusMethodInvocation* invocation) {
    gchar* mac = nullptr;
    gint32 ind = 0;
    gchar* param = nullptr;
    gint32 type = 0;
    g_variant_get(parameters, "(sisi)", &mac, &ind, &param, &type);
    SRV_LOGI("[DBusServer] %s called. MAC [%s](%d) and param: [%s](%d)", __func__, mac, ind, param,
             type);
    int result = 0;
    if (m_pPXMCore != nullptr) {
        result = CMD_SetDeviceExtendedParamString(mac, ind, param, type);
    }
    g_free(mac);
    g_free(param);
    ReplyResult(__func__, invocation, result);
}
