#include "device_icon.h"

namespace quillon_ux {

namespace {

struct IconCode {
    int code;
    const char* icon;
};

// The requesters' codes: the icon number is the finer one (a laptop rather than a
// computer), the type the coarse kind of device.
const IconCode kIcons[] = {
    {1, "phone"},
    {2, "computer"},
    {3, "input-tablet"},
    {4, "audio-headphones"},
    {5, "audio-speakers"},
    {6, "camera-photo"},
    {7, "input-gaming"},
    {8, "input-keyboard"},
    {9, "input-mouse"},
    {10, "video-display"},
    {11, "multimedia-player"},
    {12, "printer"},
};

const IconCode kTypes[] = {
    {1, "phone"},        {2, "computer"},     {3, "input-tablet"},  {4, "audio-card"},
    {5, "camera-photo"}, {6, "input-gaming"}, {7, "video-display"},
};

const char* Find(const IconCode* table, int count, int code) {
    for (int i = 0; i < count; ++i)
        if (table[i].code == code)
            return table[i].icon;
    return nullptr;
}

}  // namespace

const char* DeviceIconName(int devtype, int devicon) {
    if (const char* icon = Find(kIcons, sizeof kIcons / sizeof kIcons[0], devicon))
        return icon;
    if (const char* icon = Find(kTypes, sizeof kTypes / sizeof kTypes[0], devtype))
        return icon;
    return "dialog-question";
}

}  // namespace quillon_ux
