#include "prompt_window.h"

#include <gtk/gtk.h>

#include <cstdio>
#include <functional>
#include <string>

#include "device_icon.h"
#include "device_text.h"
#include "feedback_call.h"
#include "prompt_text.h"
#include "remote_keys.h"
#include "tv_toolkit.h"

namespace quillon_ux {

namespace {

constexpr const char* kAppId = "org.nuvak.quillon-ux";
constexpr const char* kTitle = "Quillon: a device asks for access";
// How long a failed answer stays on screen before the window goes.
constexpr unsigned kFailureShownMs = 4000;

// The prompt's texts beside the shared style, sized to be read from a sofa.
constexpr const char* kCss =
    ".quillon-name { font-size: 40px; font-weight: bold; }"
    ".quillon-question { font-size: 30px; }"
    ".quillon-countdown { font-size: 22px; color: #b8c0cc; }";

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

gboolean OnKey(GtkEventControllerKey*, guint keyval, guint, GdkModifierType, gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    int focused = FocusedButton(prompt->window, prompt->buttons, kActionCount);
    int move = 0;
    switch (ReadRemoteKey(keyval)) {
        case RemoteKey::kBack:
            Answer(prompt, 2);
            return TRUE;
        case RemoteKey::kChoose:
            Answer(prompt, kActions[focused < 0 ? kFirstFocus : focused].status);
            return TRUE;
        case RemoteKey::kPrevious:
            move = -1;
            break;
        case RemoteKey::kNext:
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

void OnActivate(GtkApplication* app, gpointer data) {
    auto* prompt = static_cast<Prompt*>(data);
    InstallStyle(kCss);

    prompt->window = gtk_application_window_new(app);
    GtkWindow* window = GTK_WINDOW(prompt->window);
    gtk_window_set_title(window, kTitle);
    gtk_window_set_default_size(window, 960, 600);
    gtk_widget_add_css_class(prompt->window, "quillon-window");

    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 18);
    gtk_widget_set_margin_top(column, 36);
    gtk_widget_set_margin_bottom(column, 36);
    gtk_widget_set_margin_start(column, 48);
    gtk_widget_set_margin_end(column, 48);
    gtk_widget_set_valign(column, GTK_ALIGN_CENTER);

    const char* icon_name = DeviceIconName(prompt->request.devtype, prompt->request.devicon);
    GtkWidget* icon = gtk_image_new_from_icon_name(icon_name);
    gtk_image_set_pixel_size(GTK_IMAGE(icon), 128);
    const PromptRequest& request = prompt->request;
    GtkWidget* name = PlainLabel(DisplayName(request.device_name), "quillon-name");
    GtkWidget* addresses = PlainLabel(
        AddressLines(request.bt_mac, request.wifi_mac, request.p2p_mac), "quillon-addresses");
    prompt->question = PlainLabel("wants to connect to this TV. Allow it?", "quillon-question");
    prompt->countdown = PlainLabel(CountdownText(SecondsLeft(prompt)), "quillon-countdown");

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    gtk_widget_set_halign(row, GTK_ALIGN_CENTER);
    gtk_widget_set_margin_top(row, 18);
    for (int i = 0; i < kActionCount; ++i) {
        prompt->buttons[i] = ActionButton(kActions[i].label);
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
    if (!StartToolkit("quillon-ux"))
        return 2;
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
