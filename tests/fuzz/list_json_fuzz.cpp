// Arbitrary text through the reader of the stored device list. Beyond crashes and sanitizer
// findings: every loaded text field stays terminated inside its field, and what the writer
// makes of the loaded lists reads back into lists of the same sizes.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CPXMCore.h"
#include "fake_platform.h"
#include "record_checks.h"

namespace {

// The writer stores the time signed and the reader reads it unsigned, so a time beyond the
// signed range does not survive a round trip by design; leave such lists out.
bool TimesFitSigned(const std::vector<pxm_core_device_s>& list) {
    for (const pxm_core_device_s& dev : list) {
        if (dev.accessTime > static_cast<uint64_t>(INT64_MAX)) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CPXMCore* core = fuzz::EmptyCore();
    core->Util_GetDeviceListForJsonString(std::string(reinterpret_cast<const char*>(data), size));
    fuzz::CheckRecords(core->mDeviceList);
    fuzz::CheckRecords(core->mReverseDeviceList);

    if (TimesFitSigned(core->mDeviceList) && TimesFitSigned(core->mReverseDeviceList)) {
        const std::size_t normal = core->mDeviceList.size();
        const std::size_t reverse = core->mReverseDeviceList.size();
        std::string text;
        core->Util_GetJsonStringForDeviceList(text);
        core->mDeviceList.clear();
        core->mReverseDeviceList.clear();
        fake::Reset();
        core->Util_GetDeviceListForJsonString(text);
        if (core->mDeviceList.size() != normal || core->mReverseDeviceList.size() != reverse) {
            std::abort();
        }
    }
    return 0;
}
