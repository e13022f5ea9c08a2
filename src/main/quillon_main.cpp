// Process entry: builds the two singletons in order, runs the main loop with the watchdog
// ping, and tears the platform services down when the loop ends.
#include "quillon_main.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "bluetooth_product.h"
#include "device_power.h"
#include "pxm_log.h"
#include "smart_deadlock.h"
#include "vconf.h"
#include "wifi.h"

GMainLoop* mainloop = nullptr;

namespace {

constexpr int kWatchdogTimeoutSec = 60;
constexpr guint kWatchdogPingMs = 15000;

// Deliberately handled: systemd stops the service with SIGTERM, and quitting the loop lets
// the teardown run. Every acknowledged change was handed to a save already, and the
// registry's destructor waits for saves in flight, so a graceful stop loses none.
gboolean QuitOnSignal(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

// Releases the platform services the registry registered with during start-up, in the
// reverse order of their registration.
void Teardown() {
    ENTRY_LOGI("[DAEMON] Quillon service is inactive");
    smart_deadlock_unregister_watchdog_service();

    vconf_ignore_key_changed(VCONFKEY_WIZARD_MODE, CPXMCore::INTERNAL_VconfCallBack);
    vconf_ignore_key_changed(VCONFKEY_PXM_REQ_OPT, CPXMCore::INTERNAL_VconfCallBack);
    vconf_ignore_key_changed(VCONFKEY_PXM_ACCESS_NOTI, CPXMCore::INTERNAL_VconfCallBack);

    int ret = device_power_unsubscribe_standby(CPXMCore::INTERNAL_InstantOffCallback);
    if (ret != DEVICE_ERROR_NONE) {
        ENTRY_LOGE("Failed to deregister device_power_unsubscribe_standby callback [%d]", ret);
    } else {
        ENTRY_LOGI("standby callback unsubscribed successfully");
    }

    ret = wifi_unset_connection_state_changed_cb();
    if (ret != WIFI_ERROR_NONE) {
        ENTRY_LOGE("Failed to deregister wifi_unset_connection_state_changed_cb callback [%d]",
                   ret);
    } else {
        ENTRY_LOGI("WifiConnectionState callback unsubscribed successfully");
    }

    ret = wifi_deinitialize();
    if (ret != WIFI_ERROR_NONE) {
        ENTRY_LOGE("Failed to Deinitialize WiFi[%d]", ret);
    } else {
        ENTRY_LOGI("WiFi deinitialized successfully");
    }

    ret = bt_product_deinit();
    if (ret < 0) {
        // Operators grep for the init text; the deinit failure reuses it.
        ENTRY_LOGE("bt init failed %d", ret);
    } else {
        ENTRY_LOGI("bt deinit successfully");
    }

    ENTRY_LOGI("[DBusServer][%s][%d]", "Finalize", __LINE__);
}

}  // namespace

gboolean watchdog_notify_callback(gpointer /*data*/) {
    int ret = smart_deadlock_watchdog_notify();
    if (ret < 0) {
        MAIN_LOGE("[DAEMON] smart_deadlock_watchdog_notify failed return = %d", ret);
    }
    // A failed ping must not stop the next ones: the watchdog would then kill a live daemon.
    return TRUE;
}

int RunDaemon() {
    PXMDBusServer* server = PXMDBusServer::GetInstance();
    if (server->Initialize() == 0) {
        ENTRY_LOGE("[DAEMON] Failed to Initialize PXMDBusServer.");
        exit(-1);
    }
    ENTRY_LOGI("[DAEMON] Initialize PXMDBusServer.");

    mainloop = g_main_loop_new(nullptr, FALSE);
    if (mainloop == nullptr) {
        ENTRY_LOGE("[DAEMON] Fail to start Quillon!");
        return 0;
    }

    ENTRY_LOGI("[DAEMON] Start Quillon");
    smart_deadlock_register_watchdog_service(kWatchdogTimeoutSec);
    guint watchdog_id = g_timeout_add(kWatchdogPingMs, watchdog_notify_callback, mainloop);
    guint sigterm_id = g_unix_signal_add(SIGTERM, QuitOnSignal, mainloop);
    guint sigint_id = g_unix_signal_add(SIGINT, QuitOnSignal, mainloop);
    ENTRY_LOGI("[DAEMON] Quillon service is running");
    g_main_loop_run(mainloop);

    // The sources hold the loop as user data; they must not outlive it.
    g_source_remove(watchdog_id);
    g_source_remove(sigterm_id);
    g_source_remove(sigint_id);
    Teardown();

    g_main_loop_unref(mainloop);
    mainloop = nullptr;
    return 0;
}
