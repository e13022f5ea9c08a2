#include "record_args.h"

#include "pxmCore/bounded_copy.h"

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
    pxm_text::CopyField(dev->devname, devname);
    pxm_text::CopyField(dev->bt_mac, bt_mac);
    pxm_text::CopyField(dev->wifi_mac, wifi_mac);
    pxm_text::CopyField(dev->p2p_mac, p2p_mac);
    pxm_text::CopyField(dev->zel_id, zel_id);
    pxm_text::CopyField(dev->mirroring_Id, mirroring_Id);
    dev->devtype = devtype;
    dev->devicon = devicon;
    dev->devstatus = devstatus;
    dev->tvInitMirroringSupport = tvInitMirroringSupport;
    dev->isNoUX = isNoUX;
    dev->isUXAlways = isUXAlways;
}

}  // namespace pxm_bus
