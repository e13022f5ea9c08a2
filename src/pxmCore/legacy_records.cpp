// Matching one record of the old line formats. The templates are the ones the old service
// wrote. Deliberately, every text lands in the record within the record's bounds: the
// address conversions and the zel id fill buffers that hold all they can read, and are cut
// to the field.
#include "legacy_records.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "bounded_copy.h"

namespace pxm_legacy {

namespace {

// The lines every format shares, up to the access time.
#define PXM_LEGACY_RECORD_HEAD                                                             \
    "<PXM>\n<devname>%127[^\n]\n<bt_mac>%18[^\n]\n<wifi_mac>%18[^\n]\n<p2p_mac>%18[^\n]\n" \
    "<devtype>%d\n<icon>%d\n<status>%d\n<mirroring_support>%d\n<no_ux>%d\n"                \
    "<ux_always>%d\n<time>"

// Room for the 18 characters the templates allow, and the NUL.
using AddressText = char[19];

void StoreAddresses(pxm_core_device_s* dev, const AddressText& bt, const AddressText& wifi,
                    const AddressText& p2p) {
    pxm_text::CopyField(dev->bt_mac, bt);
    pxm_text::CopyField(dev->wifi_mac, wifi);
    pxm_text::CopyField(dev->p2p_mac, p2p);
}

}  // namespace

int ExpectedConversions(Format format) {
    switch (format) {
        case Format::kVersion0:
            return 12;
        case Format::kVersion1:
            return 13;
        case Format::kUnversioned:
            break;
    }
    return 11;
}

Match ScanRecord(Format format, const char* text, pxm_core_device_s* dev) {
    AddressText bt = {};
    AddressText wifi = {};
    AddressText p2p = {};
    Match match = {0, 0};

    switch (format) {
        case Format::kVersion0: {
            unsigned long long time = 0;
            match.conversions =
                std::sscanf(text, PXM_LEGACY_RECORD_HEAD "%llu\n<key_type>%d\n</PXM>\n%n",
                            dev->devname, bt, wifi, p2p, &dev->devtype, &dev->devicon,
                            &dev->devstatus, &dev->tvInitMirroringSupport, &dev->isNoUX,
                            &dev->isUXAlways, &time, &dev->keyType, &match.consumed);
            dev->accessTime = time;
            break;
        }
        case Format::kVersion1: {
            unsigned long long time = 0;
            // The template gives the zel id no width: the whole word is read, so that its
            // record still ends where it should, and only the field's worth is kept.
            std::string zel(std::strlen(text) + 1, '\0');
            match.conversions = std::sscanf(
                text, PXM_LEGACY_RECORD_HEAD "%llu\n<key_type>%d\n<zel_id>%s\n</PXM>\n%n",
                dev->devname, bt, wifi, p2p, &dev->devtype, &dev->devicon, &dev->devstatus,
                &dev->tvInitMirroringSupport, &dev->isNoUX, &dev->isUXAlways, &time, &dev->keyType,
                &zel[0], &match.consumed);
            dev->accessTime = time;
            pxm_text::CopyField(dev->zel_id, zel.c_str());
            break;
        }
        case Format::kUnversioned: {
            // These records were written with a 32-bit unsigned long, whose conversion read
            // anything larger as its largest value: a time that does not fit never comes
            // back as itself.
            unsigned long long time = 0;
            match.conversions = std::sscanf(
                text, PXM_LEGACY_RECORD_HEAD "%llu\n</PXM>\n%n", dev->devname, bt, wifi, p2p,
                &dev->devtype, &dev->devicon, &dev->devstatus, &dev->tvInitMirroringSupport,
                &dev->isNoUX, &dev->isUXAlways, &time, &match.consumed);
            dev->accessTime = time > UINT32_MAX ? UINT32_MAX : time;
            break;
        }
    }

    StoreAddresses(dev, bt, wifi, p2p);
    return match;
}

}  // namespace pxm_legacy
