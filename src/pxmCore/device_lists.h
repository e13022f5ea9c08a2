// Choosing between the registry's two device lists.
#pragma once

#include <cstddef>
#include <vector>

#include "CPXMCore.h"

namespace pxm_registry {

// The list that dev_save_type names: the normal list for 0, the reverse list otherwise.
inline std::vector<pxm_core_device_s>& ListFor(CPXMCore& core, dev_save_type save) {
    return save == PXM_SAVE_NORMAL ? core.mDeviceList : core.mReverseDeviceList;
}

// A list's size taken as a snapshot before an operation's locked part. The lock is taken for
// the read alone: a restore changes the list from the backup service's thread, and a size
// read beside its append is a data race, while a stale value is harmless (each locked part
// rechecks the list it walks).
inline std::size_t SizeOf(CPXMCore& core, const std::vector<pxm_core_device_s>& list) {
    core.mPXMLock.Lock();
    std::size_t size = list.size();
    core.mPXMLock.Unlock();
    return size;
}

}  // namespace pxm_registry
