/* Always-on voice: whether voice wake-up is active. */
#ifndef QUILLON_PLATFORM_AOV_H
#define QUILLON_PLATFORM_AOV_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

bool AOVSystemDataIsAOVActivated(void);

#ifdef __cplusplus
}
#endif
#endif
