#include "record_args.h"

namespace pxm_bus {

RecordArgs::RecordArgs(GVariant* parameters) {
    g_variant_get(parameters, "(ssssssiiiiii)", &devname, &bt_mac, &wifi_mac, &p2p_mac, &zel_id,
                  &mirroring_Id, &devtype, &devicon, &devstatus, &tvInitMirroringSupport, &isNoUX,
                  &isUXAlways);
}

RecordArgs::~RecordArgs() {
    g_free(devname);
    g_free(bt_mac);
    g_free(wifi_mac);
    g_free(p2p_mac);
    g_free(zel_id);
    g_free(mirroring_Id);
}

void RecordArgs::Fill(pxm_core_device_s* dev) const {
    std::memset(dev, 0, sizeof(*dev));
    CopyBounded(dev->devname, devname);
    CopyBounded(dev->bt_mac, bt_mac);
    CopyBounded(dev->wifi_mac, wifi_mac);
    CopyBounded(dev->p2p_mac, p2p_mac);
    CopyBounded(dev->zel_id, zel_id);
    CopyBounded(dev->mirroring_Id, mirroring_Id);
    dev->devtype = devtype;
    dev->devicon = devicon;
    dev->devstatus = devstatus;
    dev->tvInitMirroringSupport = tvInitMirroringSupport;
    dev->isNoUX = isNoUX;
    dev->isUXAlways = isUXAlways;
}

}  // namespace pxm_bus
