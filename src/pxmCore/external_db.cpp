// Keeps the Bluetooth power-on (headless) table and the Wake-on-WLAN waker table in step
// with the verdicts of the normal list.
#include "CPXMCore.h"
#include "bluetooth_product.h"
#include "pxm_log.h"
#include "vconf.h"
#include "wowl.h"

namespace {

// Takes the device out of both tables; an invalid address is skipped silently.
void RemoveFromTables(bt_headless_db_h handle, const char* bt_mac, bool btValid,
                      const char* wifi_mac, bool wifiValid) {
    if (btValid) {
        int ret = bt_bluetooth_delete_headless_mobile_in_DB(handle, bt_mac);
        if (ret != 0) {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR,
                        "SET HEADLESS DB Delete failed = %d", ret);
        } else {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> BTPOWERON Deleted!!!! [%s]",
                        bt_mac);
            bt_adapter_unregister_headless_device(bt_mac);
        }
    }
    if (wifiValid) {
        int ret = wowl_del_waker_device(wifi_mac, 0);
        if (ret != 0) {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR, "REMOVE WOWLAN failed = %d", ret);
        } else {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> WOWLAN Removed!!!! [%s]",
                        wifi_mac);
        }
    }
}

void ClearTables(bt_headless_db_h handle) {
    int ret = bt_bluetooth_delete_all_headless_mobile_in_DB(handle);
    if (ret != 0) {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR,
                    "SET HEADLESS DB DeleteAll failed = 0x%X", static_cast<unsigned>(ret));
    } else {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> BTPOWERON Cleared!!!!");
    }
    // The waker table is cleared even when the Bluetooth table could not be.
    ret = wowl_clear_waker_table();
    if (ret != 0) {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR, "CLEAR WOWLAN failed = %d", ret);
    } else {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> WOWLAN Cleared!!!!");
    }
}

void AllowInTables(bt_headless_db_h handle, const char* bt_mac, bool btValid, const char* wifi_mac,
                   bool wifiValid) {
    if (btValid) {
        // Delete first so that the device is entered afresh; failing here is the normal
        // case for a device that was not in the table yet.
        int ret = bt_bluetooth_delete_headless_mobile_in_DB(handle, bt_mac);
        if (ret != 0) {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR,
                        "HEADLESS DB Delete failed = 0x%X", static_cast<unsigned>(ret));
        } else {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> BTPOWERON Deleted!!!! [%s]",
                        bt_mac);
            bt_adapter_unregister_headless_device(bt_mac);
        }
        ret = bt_add_headless_device_with_permission_in_DB(handle, bt_mac, "Phone", 1);
        if (ret != 0) {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR, "HEADLESS DB ALLOW failed = 0x%X",
                        static_cast<unsigned>(ret));
        } else {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO,
                        ">>>> BTPOWERON Set to ALLOW!!!! [%s]", bt_mac);
            bt_adapter_register_headless_device(bt_mac);
        }
        if (!wifiValid) {
            CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_WARN, "WIFI mac is not valid [%s]",
                        wifi_mac);
            return;
        }
    } else {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_WARN, "BT mac is not valid [%s]", bt_mac);
    }
    int ret = wowl_add_waker_device(wifi_mac, 0);
    if (ret != 0) {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_ERROR, "SET WOWLAN failed = %d", ret);
    } else {
        CORE_LOG_FN("INTERNAL_ControlExternalDB", DLOG_INFO, ">>>> WOWLAN Set to ALLOW!!!! [%s]",
                    wifi_mac);
    }
}

}  // namespace

bool CPXMCore::INTERNAL_ControlExternalDB(const char* bt_mac, const char* wifi_mac,
                                          pxm_ctrl_ext_e op) {
    bool btValid = UTIL_CheckValidMAC(bt_mac);
    bool wifiValid = UTIL_CheckValidMAC(wifi_mac);

    if (op != PXM_CTRL_EXT_CLEAR && !btValid && !wifiValid) {
        CORE_LOGE("Invalid mac address btMac[%s], wifiMac[%s]", bt_mac, wifi_mac);
        return false;
    }
    CORE_LOGI("mac address btMac[%s], wifiMac[%s]", bt_mac, wifi_mac);

    bt_headless_db_h handle = nullptr;
    int ret = bt_headless_open_db(&handle);
    if (ret != 0) {
        // Without the Bluetooth table the waker table is left alone as well.
        CORE_LOGE("SET HEADLESS DB Open failed = %d", ret);
        return false;
    }

    switch (op) {
        case PXM_CTRL_EXT_REMOVE:
            RemoveFromTables(handle, bt_mac, btValid, wifi_mac, wifiValid);
            break;
        case PXM_CTRL_EXT_CLEAR:
            ClearTables(handle);
            break;
        default:
            // Any value other than remove and clear enters the device.
            AllowInTables(handle, bt_mac, btValid, wifi_mac, wifiValid);
            break;
    }

    if (handle != nullptr) {
        // Tells the Bluetooth side that the table changed, even if an operation failed.
        vconf_set_int(VCONFKEY_BLEAPP_DB_UPDATED, 1);
        bt_mobileheadless_close_db(&handle);
    }
    return true;
}
