// The wall clock: the system's own on a host.
#include "realtime_clock.h"

#include <errno.h>

extern "C" int realtime_clock_get(struct timespec* ts) {
    if (!ts)
        return -EINVAL;
    return clock_gettime(CLOCK_REALTIME, ts) == 0 ? 0 : -errno;
}
