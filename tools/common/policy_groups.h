// Who the bus policy (data/org.nuvak.quillon.conf) lets call a method beside root, for the
// tools' words when the bus refuses a call.
#pragma once

#include <cstring>

namespace quillon_tools {

// "quillon-prompt" for the prompt's answer; "quillon-manage" for setting a verdict and
// forgetting devices; null for what only root may do (or what everyone may).
inline const char* GroupAllowedToCall(const char* method) {
    if (std::strcmp(method, "pxm_feedback_ux") == 0)
        return "quillon-prompt";
    for (const char* managed : {"pxm_set_status", "pxm_remove_device", "pxm_remove_device_reverse",
                                "pxm_remove_all", "pxm_remove_all_reverse"})
        if (std::strcmp(method, managed) == 0)
            return "quillon-manage";
    return nullptr;
}

}  // namespace quillon_tools
