// Arbitrary stored text through the start-up loader: the version line, the JSON document and
// the three old record formats. Beyond crashes and sanitizer findings: the result matches
// what was loaded, old records only ever reach the normal list, and every text field stays
// terminated inside its field.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CPXMCore.h"
#include "fake_platform.h"

namespace {

template <std::size_t N>
void CheckTerminated(const char (&field)[N]) {
    if (strnlen(field, N) >= N) {
        std::abort();
    }
}

void CheckRecords(const std::vector<pxm_core_device_s>& list) {
    for (const pxm_core_device_s& dev : list) {
        CheckTerminated(dev.devname);
        CheckTerminated(dev.bt_mac);
        CheckTerminated(dev.wifi_mac);
        CheckTerminated(dev.p2p_mac);
        CheckTerminated(dev.zel_id);
        CheckTerminated(dev.mirroring_Id);
        if (dev.updated != 0) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CPXMCore* core = CPXMCore::GetInstance();
    fake::Reset();  // keeps the captured log from growing across runs
    core->mDeviceList.clear();
    core->mReverseDeviceList.clear();
    fake::SetSecureItem("PXM_DEVICE_LIST", std::string(reinterpret_cast<const char*>(data), size));

    const int count = core->DB_OpenFile();

    CheckRecords(core->mDeviceList);
    CheckRecords(core->mReverseDeviceList);
    if (count < -1) {
        std::abort();
    }
    if (count > 0 && (static_cast<std::size_t>(count) != core->mDeviceList.size() ||
                      !core->mReverseDeviceList.empty())) {
        std::abort();
    }
    return 0;
}
