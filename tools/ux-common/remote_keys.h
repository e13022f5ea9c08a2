// The keys of a TV remote, as the windows read them: a remote sends arrows, OK (Enter) and
// Back; a keyboard's Tab, Space and Escape stand in for them.
#pragma once

#include <gtk/gtk.h>

namespace quillon_ux {

enum class RemoteKey {
    kUp,
    kDown,
    kPrevious,  // Left, Shift+Tab
    kNext,      // Right, Tab
    kChoose,    // Enter, Space
    kBack,      // Escape, Back
    kOther,
};

RemoteKey ReadRemoteKey(guint keyval);

}  // namespace quillon_ux
