// What every loaded record must satisfy whatever the input: each text field terminated
// inside its field. A violation aborts, which the fuzzer reports.
#pragma once

#include <cstdlib>
#include <cstring>
#include <vector>

#include "pxm_types.h"

namespace fuzz {

template <std::size_t N>
void CheckTerminated(const char (&field)[N]) {
    if (strnlen(field, N) >= N) {
        std::abort();
    }
}

inline void CheckRecords(const std::vector<pxm_core_device_s>& list) {
    for (const pxm_core_device_s& dev : list) {
        CheckTerminated(dev.devname);
        CheckTerminated(dev.bt_mac);
        CheckTerminated(dev.wifi_mac);
        CheckTerminated(dev.p2p_mac);
        CheckTerminated(dev.zel_id);
        CheckTerminated(dev.mirroring_Id);
    }
}

}  // namespace fuzz
