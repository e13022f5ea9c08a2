// One device of the list replies: "(ssssiiiiiiss)".
#pragma once

#include <gio/gio.h>

#include "pxm_types.h"

namespace pxm_bus {

#define PXM_DEVICE_ELEMENT_TYPE "(ssssiiiiiiss)"
#define PXM_DEVICE_LIST_TYPE "a" PXM_DEVICE_ELEMENT_TYPE

// Adds the record as one element to a builder of PXM_DEVICE_LIST_TYPE.
void AddDeviceElement(GVariantBuilder* builder, const pxm_core_device_s& dev);

// The element that stands for a device that is not in the list.
void AddNotFoundElement(GVariantBuilder* builder);

}  // namespace pxm_bus
