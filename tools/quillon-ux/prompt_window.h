// The prompt's window (GTK 4): the device, the question, Allow / Deny / Not now and a
// countdown. Made for a TV remote: arrows and Tab move, Enter or Space choose, Escape is
// Not now.
#pragma once

#include <functional>

#include "prompt_request.h"

namespace quillon_ux {

// Shows the window until the person answers, the wait_ms countdown (counted from the
// moment the window opens) runs out, or *close is called (set while the window runs, for
// the caller's signal handlers). Returns the exit status: 0 answered, expired or closed;
// 1 the answer could not be delivered; 2 no display could be opened.
int RunPromptWindow(const PromptRequest& request, unsigned wait_ms, std::function<void()>* close);

}  // namespace quillon_ux
