// The platform watchdog on a host: systemd's, when systemd started us.
#include <systemd/sd-daemon.h>

#include <atomic>

#include "smart_deadlock.h"

namespace {
// Kept for whoever asks what was registered; systemd's own WatchdogSec decides the timing.
std::atomic<int> g_timeout_sec{0};
}  // namespace

extern "C" int smart_deadlock_register_watchdog_service(int timeout_sec) {
    if (timeout_sec <= 0)
        return -1;
    g_timeout_sec = timeout_sec;
    return 0;
}

extern "C" int smart_deadlock_watchdog_notify(void) {
    // sd_notify is a no-op returning 0 without NOTIFY_SOCKET: a daemon started by hand
    // has nobody to ping.
    int rc = sd_notify(0, "WATCHDOG=1");
    return rc < 0 ? rc : 0;
}

extern "C" int smart_deadlock_unregister_watchdog_service(void) {
    g_timeout_sec = 0;
    return 0;
}
