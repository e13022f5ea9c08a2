// The picture of a device, in the prompt and in the device list: a standard icon name chosen
// from the requester's icon and type numbers.
#pragma once

namespace quillon_ux {

// The icon number wins when it names a picture, then the type; anything else gets the
// fallback "dialog-question". Always one of the freedesktop icon names.
const char* DeviceIconName(int devtype, int devicon);

}  // namespace quillon_ux
