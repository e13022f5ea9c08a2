// Platform watchdog: registration is journaled, successful pings are counted.
#include "common/fake_state.h"
#include "smart_deadlock.h"

using fake::detail::CallScope;
using fake::detail::Num;

extern "C" {

int smart_deadlock_register_watchdog_service(int timeout_sec) {
    CallScope call("smart_deadlock_register_watchdog_service", {Num(timeout_sec)});
    return call.scripted() ? *call.scripted() : 0;
}

int smart_deadlock_watchdog_notify(void) {
    CallScope call("smart_deadlock_watchdog_notify", {});
    if (call.failed()) {
        return *call.scripted();
    }
    ++call.data().watchdog_pings;
    return 0;
}

int smart_deadlock_unregister_watchdog_service(void) {
    CallScope call("smart_deadlock_unregister_watchdog_service", {});
    return call.scripted() ? *call.scripted() : 0;
}

}  // extern "C"

namespace fake {

std::size_t WatchdogPings() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.watchdog_pings;
}

}  // namespace fake
