// The arguments of the request and feedback methods: a full device record, "(ssssssiiiiii)".
#pragma once

#include <gio/gio.h>

#include "pxm_types.h"

namespace pxm_bus {

// The twelve values as they came over the bus; the strings are released with the object.
class RecordArgs {
public:
    explicit RecordArgs(GVariant* parameters);
    ~RecordArgs();
    RecordArgs(const RecordArgs&) = delete;
    RecordArgs& operator=(const RecordArgs&) = delete;

    // A zeroed record filled with the values, strings cut to the record's capacities.
    void Fill(pxm_core_device_s* dev) const;

    gchar* devname = nullptr;
    gchar* bt_mac = nullptr;
    gchar* wifi_mac = nullptr;
    gchar* p2p_mac = nullptr;
    gchar* zel_id = nullptr;
    gchar* mirroring_Id = nullptr;
    gint32 devtype = 0;
    gint32 devicon = 0;
    gint32 devstatus = 0;
    gint32 tvInitMirroringSupport = 0;
    gint32 isNoUX = 0;
    gint32 isUXAlways = 0;
};

}  // namespace pxm_bus
