// What the registry's fuzz targets share: an empty registry to start each input from, and
// what every loaded record must satisfy whatever the input: each text field terminated
// inside its field. A violation aborts, which the fuzzer reports.
#pragma once

#include <cstdlib>
#include <cstring>
#include <vector>

#include "CPXMCore.h"
#include "fake_platform.h"
#include "pxm_types.h"

namespace fuzz {

// The registry with both lists empty, on a fresh fake platform (whose captured log would
// otherwise grow across runs), once the saves of the previous input, which read both, ended.
inline CPXMCore* EmptyCore() {
    static CPXMCore* core = CPXMCore::GetInstance();
    core->DB_WaitForSaves();
    fake::Reset();
    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    return core;
}

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
