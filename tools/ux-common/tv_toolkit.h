// GTK for a TV: the toolkit started without a session of its own, one dark style readable
// from a sofa on a 1280x720 screen, plain-text labels and the big action buttons.
#pragma once

#include <gtk/gtk.h>

#include <string>

namespace quillon_ux {

// Opens the display; false (with a line on stderr, prefixed with program) when there is
// none. Points GLib at the session's bus, or at none, so that no bus is started for us.
bool StartToolkit(const char* program);

// The shared style (class "quillon-window" on the window, "quillon-action" buttons,
// "quillon-addresses", "quillon-failure") and then the program's own rules.
void InstallStyle(const char* own_css);

// A label that shows text as it is, never as markup: device names are whatever the
// requester chose to send. Wrapped; centred or aligned to the start.
GtkWidget* PlainLabel(const std::string& text, const char* css_class, bool centred = true);

// A big button a remote's focus is seen on.
GtkWidget* ActionButton(const char* label);

// Which of the count buttons has the window's focus; -1 when none has.
int FocusedButton(GtkWidget* window, GtkWidget* const* buttons, int count);

}  // namespace quillon_ux
