// Process entry of the daemon, callable from tests.
#pragma once

#include <glib.h>

// The process's main loop; null before start and after teardown.
extern GMainLoop* mainloop;

// The body of main: start-up, main loop, teardown; its lines are logged as main's. SIGTERM
// and SIGINT end the loop, so the teardown runs. Returns the process exit status (exits with
// -1 itself when initialisation fails).
int RunDaemon();

gboolean watchdog_notify_callback(gpointer data);
