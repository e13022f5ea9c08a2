#include "prompt_window.h"

#include <gtk/gtk.h>

#include <cstdio>
#include <functional>
#include <string>

#include "device_icon.h"
#include "feedback_call.h"
#include "prompt_text.h"

namespace quillon_ux {

namespace {

constexpr const char* kAppId = "org.nuvak.quillon-ux";
constexpr const char* kTitle = "Quillon: a device asks for access";
// How long a failed answer stays on screen before the window goes.
constexpr unsigned kFailureShownMs = 4000;

// Sized to be read from a sofa on a 1280x720 screen and up.
constexpr const char* kCss =
    "window.quillon-prompt { background: #14181f; color: #f2f4f8; }"
    ".quillon-name { font-size: 40px; font-weight: bold; }"
    ".quillon-question { font-size: 30px; }"
    ".quillon-addresses { font-size: 22px; color: #b8c0cc; font-family: monospace; }"
    ".quillon-countdown { font-size: 22px; color: #b8c0cc; }"
    ".quillon-failure { font-size: 26px; color: #ff8a80; }"
    "button.quillon-action { font-size: 30px; min-width: 220px; min-height: 72px;"
    "  padding: 8px 24px; }"
    "button.quillon-action:focus { outline: 4px solid #5aa9ff; outline-offset: 2px; }";

struct Action {
    const char* label;
    int status;
};

// Left to right; the focus starts on Deny.
const Action kActions[] = {{"Allow", 0}, {"Deny", 1}, {"Not now", 2}};
constexpr int kActionCount = 3;
constexpr int kFirstFocus = 1;

struct Prompt {
    PromptRequest request;
    GtkApplication* app = nullptr;
    GtkWidget* window = nullptr;
    GtkWidget* buttons[kActionCount] = {};
    GtkWidget* countdown = nullptr;
    GtkWidget* question = nullptr;
    unsigned wait_ms = 0;
    gint64 opened_at = 0;
    guint tick = 0;
    bool answered = false;
    int exit_status = 0;
};

void Close(Prompt* prompt, int exit_status) {
    prompt->exit_status = exit_status;
    if (prompt->tick) {
        g_source_remove(prompt->tick);
        prompt->tick = 0;
    }
    g_application_quit(G_APPLICATION(prompt->app));
}

gboolean OnFailureShown(gpointer data) {
    Close(static_cast<Prompt*>(data), 1);
    return G_SOURCE_REMOVE;
}

void Answer(Prompt* prompt, int status) {
    if (prompt->answered)
        return;
    prompt->answered = true;
    for (GtkWidget* button : prompt->buttons)
        gtk_widget_set_sensitive(button, FALSE);
    std::string error;
    if (SendFeedback(prompt->request, status, &error)) {
        std::fprintf(stderr, "quillon-ux: answered status %d for '%s'\n", status,
                     prompt->request.device_name.c_str());
        Close(prompt, 0);
        return;
    }
    std::fprintf(stderr, "quillon-ux: %s\n", error.c_str());
    if (prompt->tick) {
        g_source_remove(prompt->tick);
        prompt->tick = 0;
    }
    gtk_label_set_text(GTK_LABEL(prompt->question), "The answer could not be delivered.");
    gtk_widget_add_css_class(prompt->question, "quillon-failure");
    gtk_label_set_text(GTK_LABEL(prompt->countdown), error.c_str());
    g_timeout_add(kFailureShownMs, OnFailureShown, prompt);
}

void OnClicked(GtkButton* button, gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    for (int i = 0; i < kActionCount; ++i)
        if (prompt->buttons[i] == GTK_WIDGET(button))
            Answer(prompt, kActions[i].status);
}

int FocusedAction(Prompt* prompt) {
    GtkWidget* focus = gtk_root_get_focus(GTK_ROOT(prompt->window));
    for (int i = 0; i < kActionCount; ++i)
        if (focus == prompt->buttons[i])
            return i;
    return -1;
}

gboolean OnKey(GtkEventControllerKey*, guint keyval, guint, GdkModifierType, gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    int focused = FocusedAction(prompt);
    int move = 0;
    switch (keyval) {
        case GDK_KEY_Escape:
            Answer(prompt, 2);
            return TRUE;
        case GDK_KEY_Return:
        case GDK_KEY_KP_Enter:
        case GDK_KEY_ISO_Enter:
        case GDK_KEY_space:
        case GDK_KEY_KP_Space:
            Answer(prompt, kActions[focused < 0 ? kFirstFocus : focused].status);
            return TRUE;
        case GDK_KEY_Left:
        case GDK_KEY_KP_Left:
        case GDK_KEY_ISO_Left_Tab:
            move = -1;
            break;
        case GDK_KEY_Right:
        case GDK_KEY_KP_Right:
        case GDK_KEY_Tab:
            move = 1;
            break;
        default:
            return FALSE;
    }
    int next = focused < 0 ? kFirstFocus : (focused + move + kActionCount) % kActionCount;
    gtk_widget_grab_focus(prompt->buttons[next]);
    return TRUE;
}

int SecondsLeft(const Prompt* prompt) {
    gint64 elapsed_ms = (g_get_monotonic_time() - prompt->opened_at) / 1000;
    gint64 left_ms = static_cast<gint64>(prompt->wait_ms) - elapsed_ms;
    return left_ms <= 0 ? 0 : static_cast<int>((left_ms + 999) / 1000);
}

gboolean OnTick(gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    int left = SecondsLeft(prompt);
    if (left > 0) {
        gtk_label_set_text(GTK_LABEL(prompt->countdown), CountdownText(left).c_str());
        return G_SOURCE_CONTINUE;
    }
    // The daemon reports the expiry itself; an answer now would come after it gave up.
    std::fprintf(stderr, "quillon-ux: no answer within %u ms; closing without answering\n",
                 prompt->wait_ms);
    prompt->tick = 0;
    Close(prompt, 0);
    return G_SOURCE_REMOVE;
}

GtkWidget* Label(const std::string& text, const char* css_class) {
    GtkWidget* label = gtk_label_new(nullptr);
    // Plain text only: a device's name is whatever the requester chose to send.
    gtk_label_set_use_markup(GTK_LABEL(label), FALSE);
    gtk_label_set_text(GTK_LABEL(label), text.c_str());
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    gtk_label_set_justify(GTK_LABEL(label), GTK_JUSTIFY_CENTER);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 40);
    gtk_widget_add_css_class(label, css_class);
    return label;
}

void OnActivate(GtkApplication* app, gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    GtkCssProvider* css = gtk_css_provider_new();
    gtk_css_provider_load_from_data(css, kCss, -1);
    gtk_style_context_add_provider_for_display(gdk_display_get_default(), GTK_STYLE_PROVIDER(css),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
    g_object_unref(css);

    prompt->window = gtk_application_window_new(app);
    GtkWindow* window = GTK_WINDOW(prompt->window);
    gtk_window_set_title(window, kTitle);
    gtk_window_set_default_size(window, 960, 600);
    gtk_widget_add_css_class(prompt->window, "quillon-prompt");

    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 18);
    gtk_widget_set_margin_top(column, 36);
    gtk_widget_set_margin_bottom(column, 36);
    gtk_widget_set_margin_start(column, 48);
    gtk_widget_set_margin_end(column, 48);
    gtk_widget_set_valign(column, GTK_ALIGN_CENTER);

    const char* icon_name = DeviceIconName(prompt->request.devtype, prompt->request.devicon);
    GtkWidget* icon = gtk_image_new_from_icon_name(icon_name);
    gtk_image_set_pixel_size(GTK_IMAGE(icon), 128);
    GtkWidget* name = Label(DisplayName(prompt->request.device_name), "quillon-name");
    GtkWidget* addresses = Label(AddressLines(prompt->request), "quillon-addresses");
    prompt->question = Label("wants to connect to this TV. Allow it?", "quillon-question");
    prompt->countdown = Label(CountdownText(SecondsLeft(prompt)), "quillon-countdown");

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    gtk_widget_set_halign(row, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_top(row, 18);
    for (int i = 0; i < kActionCount; ++i) {
        prompt->buttons[i] = gtk_button_new_with_label(kActions[i].label);
        gtk_widget_add_css_class(prompt->buttons[i], "quillon-action");
        g_signal_connect(prompt->buttons[i], "clicked", G_CALLBACK(OnClicked), prompt);
        gtk_box_append(GTK_BOX(row), prompt->buttons[i]);
    }
    for (GtkWidget* child : {icon, name, addresses, prompt->question, row, prompt->countdown})
        gtk_box_append(GTK_BOX(column), child);
    gtk_window_set_child(window, column);

    GtkEventController* keys = gtk_event_controller_key_new();
    gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
    g_signal_connect(keys, "key-pressed", G_CALLBACK(OnKey), prompt);
    gtk_widget_add_controller(prompt->window, keys);

    gtk_window_present(window);
    gtk_widget_grab_focus(prompt->buttons[kFirstFocus]);
    // What the person sees, read back from the widgets: tests and logs rely on it.
    std::fprintf(stderr, "quillon-ux: window shows name [%s] icon [%s] addresses [%s]\n",
                 gtk_label_get_text(GTK_LABEL(name)), icon_name,
                 gtk_label_get_text(GTK_LABEL(addresses)));
    prompt->tick = g_timeout_add(250, OnTick, prompt);
}

}  // namespace

int RunPromptWindow(const PromptRequest& request, unsigned wait_ms, std::function<void()>* close) {
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
    if (!gtk_init_check()) {
        std::fprintf(stderr,
                     "quillon-ux: cannot open the display (DISPLAY '%s', "
                     "WAYLAND_DISPLAY '%s')\n",
                     g_getenv("DISPLAY") ? g_getenv("DISPLAY") : "",
                     g_getenv("WAYLAND_DISPLAY") ? g_getenv("WAYLAND_DISPLAY") : "");
        return 2;
    }
    Prompt prompt;
    prompt.request = request;
    prompt.wait_ms = wait_ms;
    prompt.opened_at = g_get_monotonic_time();
    prompt.app = gtk_application_new(kAppId, G_APPLICATION_NON_UNIQUE);
    g_signal_connect(prompt.app, "activate", G_CALLBACK(OnActivate), &prompt);
    *close = [&prompt] { Close(&prompt, 0); };
    g_application_run(G_APPLICATION(prompt.app), 0, nullptr);
    *close = nullptr;
    g_object_unref(prompt.app);
    return prompt.exit_status;
}

}  // namespace quillon_ux
