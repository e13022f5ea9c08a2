// The queries of the GetInterface: one device by address, or the whole list, of either list.
#include <cstdlib>
#include <cstring>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "device_variant.h"
#include "handler_log.h"

namespace {

// A call that is left unanswered: the caller times out. The invocation is still ours to
// release.
void LeaveUnanswered(GDBusMethodInvocation* invocation) {
    g_object_unref(invocation);
}

}  // namespace

void PXMDBusServer::m_GetDevice(GVariant* parameters, GDBusMethodInvocation* invocation,
                                dev_save_type save, const char* method) {
    HANDLER_LOGI(method, "[DBusServer] %s called. ", method);
    gchar* mac = nullptr;
    gint32 ind = 0;
    g_variant_get(parameters, "(si)", &mac, &ind);
    HANDLER_LOGI(method, "[DBusServer] %s called. MAC [%s](%d)", method, mac, ind);

    if (m_pPXMCore == nullptr) {
        g_free(mac);
        LeaveUnanswered(invocation);
        return;
    }

    pxm_core_device_s dev;
    memset(&dev, 0, sizeof(dev));
    bool found = m_pPXMCore->CMD_GetDevice(mac, static_cast<pxm_tech_ind_e>(ind), &dev, save);
    g_free(mac);

    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(PXM_DEVICE_LIST_TYPE));
    if (found) {
        HANDLER_LOGI(method,
                     "[DBusServer] Device Name [%s] status [%d] eTvInitMirroringSupport [%d] "
                     "iIsNoUX [%d] iIsUXAlways [%d] Zel Id [%s] Mirroring Id[%s]",
                     dev.devname, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                     dev.isUXAlways, dev.zel_id, dev.mirroring_Id);
        pxm_bus::AddDeviceElement(&builder, dev);
    } else {
        // Always one element: callers index it without checking the flag first.
        pxm_bus::AddNotFoundElement(&builder);
    }
    g_dbus_method_invocation_return_value(
        invocation, g_variant_new("(" PXM_DEVICE_LIST_TYPE "i)", &builder, found ? 1 : 0));
}

void PXMDBusServer::m_GetList(GDBusMethodInvocation* invocation, dev_save_type save,
                              const char* method) {
    HANDLER_LOGI(method, "[DBusServer] %s called. ", method);
    if (m_pPXMCore == nullptr) {
        LeaveUnanswered(invocation);
        return;
    }

    int count = 0;
    pxm_core_device_s* devices = nullptr;
    if (!m_pPXMCore->CMD_GetAllDevices(&count, &devices, save)) {
        // Out of memory: answered as an empty list.
        count = 0;
    }
    HANDLER_LOGI(method, "[DBusServer] Get Device List Size : [%d]", count);

    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(PXM_DEVICE_LIST_TYPE));
    for (int i = 0; i < count && devices != nullptr; i++) {
        const pxm_core_device_s& dev = devices[i];
        HANDLER_LOGI(method,
                     "[DBusServer] Device Name [%s] status [%d] TvInitMirroringSupport [%d] "
                     "iIsNoUX[%d] and iIsUXAlways[%d], sZelId[%s], sMirroringId[%s]",
                     dev.devname, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                     dev.isUXAlways, dev.zel_id, dev.mirroring_Id);
        pxm_bus::AddDeviceElement(&builder, dev);
    }
    free(devices);
    g_dbus_method_invocation_return_value(
        invocation, g_variant_new("(" PXM_DEVICE_LIST_TYPE "i)", &builder, count));
}

void PXMDBusServer::pxm_get_device(GVariant* parameters, GDBusMethodInvocation* invocation) {
    m_GetDevice(parameters, invocation, PXM_SAVE_NORMAL, __func__);
}

void PXMDBusServer::pxm_get_device_reverse(GVariant* parameters,
                                           GDBusMethodInvocation* invocation) {
    m_GetDevice(parameters, invocation, PXM_SAVE_REVERSE, __func__);
}

void PXMDBusServer::pxm_get_list(GVariant* /*parameters*/, GDBusMethodInvocation* invocation) {
    m_GetList(invocation, PXM_SAVE_NORMAL, __func__);
}

void PXMDBusServer::pxm_get_list_reverse(GVariant* /*parameters*/,
                                         GDBusMethodInvocation* invocation) {
    m_GetList(invocation, PXM_SAVE_REVERSE, __func__);
}
