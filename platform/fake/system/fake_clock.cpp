// Wall clock: the system's, unless the test pins a date.
#include "common/fake_state.h"
#include "realtime_clock.h"

using fake::detail::CallScope;
using fake::detail::Ptr;

extern "C" int realtime_clock_get(struct timespec* ts) {
    CallScope call("realtime_clock_get", {Ptr(ts)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (ts == nullptr) {
        return -1;
    }
    if (call.data().realtime) {
        *ts = *call.data().realtime;
        return 0;
    }
    return clock_gettime(CLOCK_REALTIME, ts);
}

namespace fake {

void SetRealtime(long sec, long nsec) {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    timespec ts{};
    ts.tv_sec = sec;
    ts.tv_nsec = nsec;
    s.data.realtime = ts;
}

void UseSystemClock() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.realtime.reset();
}

}  // namespace fake
