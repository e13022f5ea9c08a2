// Arbitrary text as the backup service's restore answer. Beyond crashes and sanitizer
// findings: nobody is ever asked (no prompt launch), only the normal list changes, every
// stored record carries the forced flags and a storable verdict, and every text field stays
// terminated inside its field.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CPXMCore.h"
#include "PXMBackupRestore.h"
#include "fake_platform.h"
#include "record_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CPXMCore* core = fuzz::EmptyCore();
    static PXMBackupRestore* client = [core] {
        auto* c = new PXMBackupRestore();
        c->Initialize(core);
        return c;
    }();
    core->m_nAccessNoti = 1;  // a new device would be asked about, were the flags not forced
    core->m_nUxPid = 0;

    // The service hands over NUL-terminated text: an embedded NUL ends it.
    const std::string text(reinterpret_cast<const char*>(data), size);
    client->ParseRestoreData(text.c_str());
    core->DB_WaitForSaves();

    if (fake::CallCount("aul_launch_app") != 0 || !core->mReverseDeviceList.empty()) {
        std::abort();
    }
    fuzz::CheckRecords(core->mDeviceList);
    for (const pxm_core_device_s& dev : core->mDeviceList) {
        if (dev.isNoUX != 1 || dev.isUXAlways != 0 || (dev.devstatus != 0 && dev.devstatus != 1)) {
            std::abort();
        }
    }
    return 0;
}
