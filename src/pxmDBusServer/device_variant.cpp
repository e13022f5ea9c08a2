#include "device_variant.h"

#include <string>

#include "bus_text.h"

namespace pxm_bus {

void AddDeviceElement(GVariantBuilder* builder, const pxm_core_device_s& dev) {
    std::string name = FieldText(dev.devname);
    std::string bt = FieldText(dev.bt_mac);
    std::string wifi = FieldText(dev.wifi_mac);
    std::string p2p = FieldText(dev.p2p_mac);
    std::string zel = FieldText(dev.zel_id);
    std::string mirroring = FieldText(dev.mirroring_Id);
    g_variant_builder_add(builder, PXM_DEVICE_ELEMENT_TYPE, name.c_str(), bt.c_str(), wifi.c_str(),
                          p2p.c_str(), dev.devtype, dev.devicon, dev.devstatus,
                          dev.tvInitMirroringSupport, dev.isNoUX, dev.isUXAlways, zel.c_str(),
                          mirroring.c_str());
}

void AddNotFoundElement(GVariantBuilder* builder) {
    g_variant_builder_add(builder, PXM_DEVICE_ELEMENT_TYPE, "0", "0", "0", "0", 0, 0, -1, 0, 0, 0,
                          "0", "0");
}

}  // namespace pxm_bus
