// Saving both device lists to secure storage, one short-lived detached thread per change,
// so that no bus call waits for storage.
#include <pthread.h>

#include <cstring>
#include <mutex>
#include <string>

#include "CPXMCore.h"
#include "bounded_copy.h"
#include "pxm_credential.h"
#include "pxm_log.h"
#include "ss_manager.h"

namespace {

// A line break would have split a record of the old line formats; the name ends at the first.
template <std::size_t N>
void CutAtLineBreak(char (&field)[N]) {
    std::size_t len = pxm_text::FieldLength(field);
    for (std::size_t i = 0; i < len; ++i) {
        if (field[i] == '\r' || field[i] == '\n') {
            field[i] = '\0';
        }
    }
}

// Empty text fields are stored as the placeholder "0", which no lookup ever matches. An
// address gets only the character: the byte after it is left as it is (records are
// zero-filled, so it reads "0"); an identifier gets its terminating NUL too.
enum class Placeholder { kCharOnly, kTerminated };

template <std::size_t N>
void FillEmptyOrCut(char (&field)[N], Placeholder placeholder) {
    if (field[0] == '\0') {
        field[0] = '0';
        if (placeholder == Placeholder::kTerminated) {
            field[1] = '\0';
        }
    } else {
        CutAtLineBreak(field);
    }
}

// The records in the list are changed in place: after a save, memory holds what was written.
void CleanRecord(pxm_core_device_s& dev) {
    CutAtLineBreak(dev.devname);
    FillEmptyOrCut(dev.bt_mac, Placeholder::kCharOnly);
    FillEmptyOrCut(dev.wifi_mac, Placeholder::kCharOnly);
    FillEmptyOrCut(dev.p2p_mac, Placeholder::kCharOnly);
    if (dev.zel_id[0] == '\0') {
        CORE_LOG_FN("DB_SecureSave", DLOG_INFO, "Setting zel to 0");
    }
    FillEmptyOrCut(dev.zel_id, Placeholder::kTerminated);
    if (dev.mirroring_Id[0] == '\0') {
        CORE_LOG_FN("DB_SecureSave", DLOG_INFO, "Setting mirroring id to 0");
    }
    FillEmptyOrCut(dev.mirroring_Id, Placeholder::kTerminated);
}

}  // namespace

void CPXMCore::DB_Save() {
    // Counted before the thread exists, so that a wait right after this call includes it.
    {
        std::lock_guard<std::mutex> lock(m_SaveCountMutex);
        ++m_nSavesInFlight;
    }

    pthread_attr_t ownAttr;
    pthread_attr_t* attr = &mThreadAttr;
    bool ownAttrMade = false;
    if (!m_bThreadAttrReady) {
        // Start-up could not prepare the shared attributes: a thread nobody joins must
        // still be detached.
        attr = nullptr;
        if (pthread_attr_init(&ownAttr) == 0) {
            ownAttrMade = true;
            if (pthread_attr_setdetachstate(&ownAttr, PTHREAD_CREATE_DETACHED) == 0) {
                attr = &ownAttr;
            }
        }
    }

    pthread_t thread;
    int result = pthread_create(&thread, attr, DB_SecureSave, this);
    if (result == 0 && attr == nullptr) {
        pthread_detach(thread);
    }
    if (ownAttrMade) {
        pthread_attr_destroy(&ownAttr);
    }
    CORE_LOGI("Thread Creation [%d]", result);

    std::lock_guard<std::mutex> lock(m_SaveCountMutex);
    if (result == 0) {
        mSaveThread = thread;
    } else {
        --m_nSavesInFlight;
        m_SaveCountCond.notify_all();
    }
}

void* CPXMCore::DB_SecureSave(void* arg) {
    CPXMCore* core = static_cast<CPXMCore*>(arg);

    ss_credential_s cred;
    ss_init_credential(&cred, kPxmAppCredential, PXM_SS_CREDENTIAL_TYPE, PXM_SS_CREDENTIAL_FLAGS);

    core->mFileLock.Lock();
    core->mPXMLock.Lock();

    CORE_LOGI("Save file : List size [%d] [%d]", static_cast<int>(core->mDeviceList.size()),
              static_cast<int>(core->mReverseDeviceList.size()));

    if (core->mDeviceList.empty() && core->mReverseDeviceList.empty()) {
        // Never store "2" followed by "null": an empty registry is an empty storage.
        int result = ss_clear_storage(nullptr, &cred, 0);
        if (result != 0) {
            CORE_LOGE("DB clear failed [%d]", result);
        } else {
            CORE_LOGI("No data - DB cleared");
        }
    } else {
        CORE_LOGI("Writing in secure storage.");
        for (pxm_core_device_s& dev : core->mDeviceList) {
            CleanRecord(dev);
        }
        for (pxm_core_device_s& dev : core->mReverseDeviceList) {
            CleanRecord(dev);
        }

        std::string json;
        core->Util_GetJsonStringForDeviceList(json);
        std::string text = "2\n" + json;
        CORE_LOGI("\n*** Saved Records Below ***\n%s", text.c_str());

        int result = ss_write(text.c_str(), text.length(), -1, 0, PXM_STORAGE_ITEM, &cred, 1);
        if (result != 0) {
            CORE_LOGE("Write file failed [%d]", result);
        }
    }

    core->mPXMLock.Unlock();
    core->mFileLock.Unlock();

    // Last touch of the registry: once the count drops, its destructor may go ahead.
    std::lock_guard<std::mutex> lock(core->m_SaveCountMutex);
    if (core->m_nSavesInFlight > 0) {
        --core->m_nSavesInFlight;
    }
    core->m_SaveCountCond.notify_all();
    return nullptr;
}

void CPXMCore::DB_WaitForSaves() {
    std::unique_lock<std::mutex> lock(m_SaveCountMutex);
    m_SaveCountCond.wait(lock, [this] { return m_nSavesInFlight == 0; });
}

void CPXMCore::DB_WaitForSaveRoom() {
    std::unique_lock<std::mutex> lock(m_SaveCountMutex);
    m_SaveCountCond.wait(lock, [this] { return m_nSavesInFlight < kMaxQueuedSaves; });
}
