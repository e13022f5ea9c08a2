// Loading both device lists from secure storage at start-up: the current JSON text and the
// three line formats of earlier versions.
#include <cstdio>
#include <cstring>
#include <string>

#include "CPXMCore.h"
#include "bounded_copy.h"
#include "legacy_records.h"
#include "pxm_credential.h"
#include "pxm_log.h"
#include "ss_manager.h"

namespace {

// What ss_read is allowed to hand back.
constexpr std::size_t kMaxStoredSize = 65535;

pxm_legacy::Format FormatOfVersion(int version) {
    if (version == 0) {
        return pxm_legacy::Format::kVersion0;
    }
    if (version == 1) {
        return pxm_legacy::Format::kVersion1;
    }
    // Unknown versions too: their text does not start with a record, so nothing matches.
    return pxm_legacy::Format::kUnversioned;
}

void LogRecord(pxm_legacy::Format format, int count, const pxm_core_device_s& dev) {
    unsigned long long time = dev.accessTime;
    switch (format) {
        case pxm_legacy::Format::kVersion0:
            CORE_LOG_FN("DB_OpenFile", DLOG_INFO,
                        "Read Data[%d] [%s] [%s] [%s] [%s] [%d] [%d] [%d] [%d] [%d] [%d] [%llu] "
                        "[%d]",
                        count, dev.devname, dev.bt_mac, dev.wifi_mac, dev.p2p_mac, dev.devtype,
                        dev.devicon, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                        dev.isUXAlways, time, dev.keyType);
            break;
        case pxm_legacy::Format::kVersion1:
            CORE_LOG_FN("DB_OpenFile", DLOG_INFO,
                        "Read Data[%d] [%s] [%s] [%s] [%s] [%d] [%d] [%d] [%d] [%d] [%d] [%llu] "
                        "[%d] [%s]",
                        count, dev.devname, dev.bt_mac, dev.wifi_mac, dev.p2p_mac, dev.devtype,
                        dev.devicon, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                        dev.isUXAlways, time, dev.keyType, dev.zel_id);
            break;
        case pxm_legacy::Format::kUnversioned:
            CORE_LOG_FN("DB_OpenFile", DLOG_INFO,
                        "Read Data[%d] [%s] [%s] [%s] [%s] [%d] [%d] [%d] [%d] [%d] [%d] [%llu]",
                        count, dev.devname, dev.bt_mac, dev.wifi_mac, dev.p2p_mac, dev.devtype,
                        dev.devicon, dev.devstatus, dev.tvInitMirroringSupport, dev.isNoUX,
                        dev.isUXAlways, time);
            break;
    }
}

}  // namespace

int CPXMCore::DB_OpenFile() {
    mFileLock.Lock();

    ss_credential_s cred;
    ss_init_credential(&cred, kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);
    char* buffer = nullptr;
    std::size_t size = kMaxStoredSize;
    int result = ss_read(&buffer, &size, -1, 0, PXM_STORAGE_ITEM, &cred, 1);
    CORE_LOGI("READSIZE[%zu]", size);

    if (result != 0 || buffer == nullptr) {
        CORE_LOGW("Read PXM file error");
        if (buffer != nullptr) {
            ss_free_buffer(buffer);
        }
        mFileLock.Unlock();
        return -1;
    }
    // Bounded by the size read, in case the buffer arrives without its terminating NUL.
    const std::string text(buffer, strnlen(buffer, size));
    if (text.empty()) {
        CORE_LOGI("Read PXM file is zero");
        ss_free_buffer(buffer);
        mFileLock.Unlock();
        return -1;
    }

    // Start-up only: no other thread touches the lists yet, so mPXMLock is not taken.
    mDeviceList.clear();
    mReverseDeviceList.clear();
    CORE_LOGI("File Data: %s", text.c_str());

    int version = -1;
    int checked = std::sscanf(text.c_str(), "%d", &version);
    CORE_LOGI("DB Check res[%d] version: [%d]", checked, version);

    int count = 0;
    if (version == 2) {
        // Exactly the digit and the line feed come before the document.
        const std::string data = text.size() > 2 ? text.substr(2) : std::string();
        CORE_LOGI("Data: %s", data.c_str());
        Util_GetDeviceListForJsonString(data);
    } else {
        const pxm_legacy::Format format = FormatOfVersion(version);
        // Versioned texts start their records after the version line.
        const std::size_t start = (version == 0 || version == 1) ? 2 : 0;
        std::size_t offset = 0;
        for (;;) {
            pxm_core_device_s dev{};
            pxm_legacy::Match match = {-1, 0};
            if (start + offset <= text.size()) {
                match = pxm_legacy::ScanRecord(format, text.c_str() + start + offset, &dev);
            }
            LogRecord(format, count, dev);
            if (format == pxm_legacy::Format::kUnversioned) {
                UTIL_CheckAndUpdateKeyType(&dev);
            }
            if (format != pxm_legacy::Format::kVersion1) {
                pxm_text::CopyField(dev.zel_id, "0");
            }
            // A record whose closing tag is missing took nothing: it ends the data too,
            // or the walk would never move on.
            if (match.conversions != pxm_legacy::ExpectedConversions(format) ||
                match.consumed <= 0) {
                CORE_LOGI("End Of File [%d]", match.conversions);
                break;
            }

            mDeviceList.push_back(dev);
            ++count;
            CORE_LOGI("Read Record #%d", count);
            CORE_LOGI("OFFSET [%d]", match.consumed);
            offset += static_cast<std::size_t>(match.consumed);
        }
    }

    UTIL_ClearUpdate();
    ss_free_buffer(buffer);
    mFileLock.Unlock();
    return count;
}
