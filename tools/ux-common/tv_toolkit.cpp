#include "tv_toolkit.h"

#include <cstdio>

namespace quillon_ux {

namespace {

constexpr const char* kSharedCss =
    "window.quillon-window { background: #14181f; color: #f2f4f8; }"
    ".quillon-addresses { font-size: 22px; color: #b8c0cc; font-family: monospace; }"
    ".quillon-failure { font-size: 26px; color: #ff8a80; }"
    "button.quillon-action { font-size: 30px; min-width: 220px; min-height: 72px;"
    "  padding: 8px 24px; }"
    "button.quillon-action:focus { outline: 4px solid #5aa9ff; outline-offset: 2px; }"
    "button.quillon-action:disabled { opacity: 0.4; }";

void AddCss(const char* css) {
    GtkCssProvider* provider = gtk_css_provider_new();
    gtk_css_provider_load_from_data(provider, css, -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                               GTK_STYLE_PROVIDER(provider),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(provider);
}

}  // namespace

bool StartToolkit(const char* program) {
    // A launcher rarely hands over a session bus. GLib would then start one through
    // dbus-launch and leave it running after we are gone; the window needs none, so point it
    // at the session's own bus when there is one, and nowhere otherwise.
    if (!g_getenv("DBUS_SESSION_BUS_ADDRESS")) {
        const std::string bus = std::string(g_get_user_runtime_dir()) + "/bus";
        if (g_file_test(bus.c_str(), G_FILE_TEST_EXISTS)) {
            g_setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + bus).c_str(), TRUE);
        } else {
            g_setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/no-session-bus", TRUE);
            g_setenv("GTK_A11Y", "none", FALSE);
        }
    }
    if (gtk_init_check())
        return true;
    std::fprintf(stderr, "%s: cannot open the display (DISPLAY '%s', WAYLAND_DISPLAY '%s')\n",
                 program, g_getenv("DISPLAY") ? g_getenv("DISPLAY") : "",
                 g_getenv("WAYLAND_DISPLAY") ? g_getenv("WAYLAND_DISPLAY") : "");
    return false;
}

void InstallStyle(const char* own_css) {
    AddCss(kSharedCss);
    AddCss(own_css);
}

GtkWidget* PlainLabel(const std::string& text, const char* css_class, bool centred) {
    GtkWidget* label = gtk_label_new(nullptr);
    gtk_label_set_use_markup(GTK_LABEL(label), FALSE);
    gtk_label_set_text(GTK_LABEL(label), text.c_str());
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    gtk_label_set_justify(GTK_LABEL(label), centred ? GTK_JUSTIFY_CENTER : GTK_JUSTIFY_LEFT);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 40);
    if (!centred)
        gtk_label_set_xalign(GTK_LABEL(label), 0.0f);
    gtk_widget_add_css_class(label, css_class);
    return label;
}

GtkWidget* ActionButton(const char* label) {
    GtkWidget* button = gtk_button_new_with_label(label);
    gtk_widget_add_css_class(button, "quillon-action");
    return button;
}

int FocusedButton(GtkWidget* window, GtkWidget* const* buttons, int count) {
    GtkWidget* focus = gtk_root_get_focus(GTK_ROOT(window));
    for (int i = 0; i < count; ++i)
        if (focus == buttons[i])
            return i;
    return -1;
}

}  // namespace quillon_ux
