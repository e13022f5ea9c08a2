// Choosing between the registry's two device lists.
#pragma once

#include <vector>

#include "CPXMCore.h"

namespace pxm_registry {

// The list that dev_save_type names: the normal list for 0, the reverse list otherwise.
inline std::vector<pxm_core_device_s>& ListFor(CPXMCore& core, dev_save_type save) {
    return save == PXM_SAVE_NORMAL ? core.mDeviceList : core.mReverseDeviceList;
}

}  // namespace pxm_registry
