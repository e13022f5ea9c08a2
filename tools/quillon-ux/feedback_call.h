// The prompt's answer to the daemon: pxm_feedback_ux on the system bus.
#pragma once

#include <string>

#include "prompt_request.h"

namespace quillon_ux {

// Sends the request's values with the verdict `status` and waits for the daemon's reply.
// False with *error when the bus or the call failed.
bool SendFeedback(const PromptRequest& request, int status, std::string* error);

}  // namespace quillon_ux
