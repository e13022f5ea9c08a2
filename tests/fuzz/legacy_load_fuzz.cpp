// Arbitrary stored text through the start-up loader: the version line, the JSON document and
// the three old record formats. Beyond crashes and sanitizer findings: the result matches
// what was loaded, old records only ever reach the normal list, and every text field stays
// terminated inside its field.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CPXMCore.h"
#include "fake_platform.h"
#include "record_checks.h"

namespace {

// The loader starts every record afresh: no update count survives a load.
void CheckNotUpdated(const std::vector<pxm_core_device_s>& list) {
    fuzz::CheckRecords(list);
    for (const pxm_core_device_s& dev : list) {
        if (dev.updated != 0) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CPXMCore* core = fuzz::EmptyCore();
    fake::SetSecureItem("PXM_DEVICE_LIST", std::string(reinterpret_cast<const char*>(data), size));

    const int count = core->DB_OpenFile();

    CheckNotUpdated(core->mDeviceList);
    CheckNotUpdated(core->mReverseDeviceList);
    if (count < -1) {
        std::abort();
    }
    if (count > 0 && (static_cast<std::size_t>(count) != core->mDeviceList.size() ||
                      !core->mReverseDeviceList.empty())) {
        std::abort();
    }
    return 0;
}
