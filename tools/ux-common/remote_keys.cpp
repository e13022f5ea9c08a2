#include "remote_keys.h"

namespace quillon_ux {

RemoteKey ReadRemoteKey(guint keyval) {
    switch (keyval) {
        case GDK_KEY_Up:
        case GDK_KEY_KP_Up:
            return RemoteKey::kUp;
        case GDK_KEY_Down:
        case GDK_KEY_KP_Down:
            return RemoteKey::kDown;
        case GDK_KEY_Left:
        case GDK_KEY_KP_Left:
        case GDK_KEY_ISO_Left_Tab:
            return RemoteKey::kPrevious;
        case GDK_KEY_Right:
        case GDK_KEY_KP_Right:
        case GDK_KEY_Tab:
            return RemoteKey::kNext;
        case GDK_KEY_Return:
        case GDK_KEY_KP_Enter:
        case GDK_KEY_ISO_Enter:
        case GDK_KEY_space:
        case GDK_KEY_KP_Space:
            return RemoteKey::kChoose;
        case GDK_KEY_Escape:
        case GDK_KEY_Back:
            return RemoteKey::kBack;
        default:
            return RemoteKey::kOther;
    }
}

}  // namespace quillon_ux
