/* The wall clock, behind the seam so that tests can set the date. */
#ifndef QUILLON_PLATFORM_REALTIME_CLOCK_H
#define QUILLON_PLATFORM_REALTIME_CLOCK_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* As clock_gettime(CLOCK_REALTIME, ts): 0 on success. */
int realtime_clock_get(struct timespec* ts);

#ifdef __cplusplus
}
#endif
#endif
