// The one way tests wait for an event delivered on the default main context: dispatch it
// until the condition holds, bounded by a timeout, never a fixed sleep.
#pragma once

#include <glib.h>

#include <functional>

namespace test_common {

// Dispatches the default main context until done() holds; false after timeout_ms.
inline bool RunUntil(const std::function<bool()>& done, unsigned timeout_ms = 10000) {
    bool timed_out = false;
    guint timer = g_timeout_add(
        timeout_ms,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &timed_out);
    while (!done() && !timed_out) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!timed_out) {
        g_source_remove(timer);
    }
    return done();
}

}  // namespace test_common
