#include "devices_window.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "device_actions.h"
#include "device_row.h"
#include "list_source.h"
#include "remote_keys.h"
#include "tv_toolkit.h"

namespace quillon_devices {

namespace {

using quillon_ux::RemoteKey;

constexpr const char* kAppId = "org.nuvak.quillon-devices";
constexpr const char* kTitle = "Quillon: devices on this TV";
constexpr const char* kEmpty =
    "No devices are stored. A phone, tablet or laptop appears here once it has asked to use "
    "this TV.";

constexpr const char* kCss =
    ".quillon-title { font-size: 36px; font-weight: bold; }"
    ".quillon-note { font-size: 28px; }"
    ".quillon-message { font-size: 24px; color: #b8c0cc; }"
    ".quillon-section { font-size: 24px; font-weight: bold; color: #b8c0cc; }"
    "list.quillon-devices { background: transparent; color: inherit; }"
    "row.quillon-device { padding: 12px 18px; border-radius: 8px; }"
    "row.quillon-device:selected { background: #24456e; color: #ffffff; }"
    ".quillon-device-name { font-size: 30px; font-weight: bold; }"
    ".quillon-verdict { font-size: 28px; font-weight: bold; }"
    ".quillon-allowed { color: #7bd88f; }"
    ".quillon-blocked { color: #ff8a80; }"
    ".quillon-undecided { color: #ffd36b; }"
    ".quillon-mirroring { font-size: 20px; color: #b8c0cc; }"
    ".quillon-question { font-size: 34px; font-weight: bold; }";

// Left to right; the focus starts on Allow.
const char* const kActionLabels[] = {"Allow", "Block", "Forget", "Forget all devices"};
constexpr int kActionCount = 4;
constexpr int kForgetAllAction = 3;
const Action kRowActions[] = {Action::kAllow, Action::kBlock, Action::kForget};

struct Window {
    GtkApplication* app = nullptr;
    GtkWidget* window = nullptr;
    GtkWidget* pages = nullptr;       // "main" and "confirm"
    GtkWidget* list_pages = nullptr;  // "list" and "note"
    GtkWidget* scroller = nullptr;
    GtkWidget* list = nullptr;
    GtkWidget* note = nullptr;
    GtkWidget* message = nullptr;
    GtkWidget* actions[kActionCount] = {};
    GtkWidget* cancel = nullptr;
    GtkWidget* confirm = nullptr;
    std::vector<DeviceRow> rows;
    int selected = -1;
    std::unique_ptr<ListSource> source;
    guint scroll_tick = 0;
    int scroll_frames = 0;
    bool busy = false;
    // After Forget all: the next reading must be empty, whatever the daemon answered.
    bool expect_empty = false;
};

void ShowMessage(Window* w, const std::string& sentence, bool failure) {
    gtk_label_set_text(GTK_LABEL(w->message), sentence.c_str());
    if (failure)
        gtk_widget_add_css_class(w->message, "quillon-failure");
    else
        gtk_widget_remove_css_class(w->message, "quillon-failure");
    std::fprintf(stderr, "quillon-devices: says [%s]\n", sentence.c_str());
}

int FocusedAction(Window* w) {
    return quillon_ux::FocusedButton(w->window, w->actions, kActionCount);
}

// The next action that can be chosen, step by step from `from`; -1 when none can.
int NextUsableAction(Window* w, int from, int step) {
    for (int i = 1; i <= kActionCount; ++i) {
        int at = ((from + step * i) % kActionCount + kActionCount) % kActionCount;
        if (gtk_widget_get_sensitive(w->actions[at]))
            return at;
    }
    return -1;
}

void UpdateActions(Window* w) {
    const DeviceRow* row = w->selected >= 0 ? &w->rows[w->selected] : nullptr;
    for (int i = 0; i < kActionCount; ++i) {
        bool usable = i == kForgetAllAction ? !w->rows.empty()
                                            : row && ActionApplies(kRowActions[i], row->device);
        gtk_widget_set_sensitive(w->actions[i], usable);
    }
    if (g_strcmp0(gtk_stack_get_visible_child_name(GTK_STACK(w->pages)), "main") != 0)
        return;
    int focused = FocusedAction(w);
    if (focused < 0 || !gtk_widget_get_sensitive(w->actions[focused])) {
        int usable = NextUsableAction(w, focused < 0 ? kActionCount - 1 : focused, 1);
        if (usable >= 0)
            gtk_widget_grab_focus(w->actions[usable]);
    }
}

void ScrollTo(Window* w, GtkWidget* row) {
    graphene_rect_t bounds;
    if (!gtk_widget_compute_bounds(row, w->list, &bounds))
        return;
    GtkAdjustment* adjustment =
        gtk_scrolled_window_get_vadjustment(GTK_SCROLLED_WINDOW(w->scroller));
    double top = bounds.origin.y, bottom = top + bounds.size.height;
    double value = gtk_adjustment_get_value(adjustment);
    double page = gtk_adjustment_get_page_size(adjustment);
    if (top < value)
        gtk_adjustment_set_value(adjustment, top);
    else if (bottom > value + page)
        gtk_adjustment_set_value(adjustment, bottom - page);
}

// Rows made a moment ago have no place yet: the scroll waits for a frame that laid them out.
gboolean OnScrollTick(GtkWidget*, GdkFrameClock*, gpointer data) {
    auto* w = static_cast<Window*>(data);
    if (w->selected >= 0) {
        GtkWidget* row = w->rows[w->selected].row;
        if (gtk_widget_get_height(row) == 0 && ++w->scroll_frames < 10)
            return G_SOURCE_CONTINUE;
        ScrollTo(w, row);
    }
    w->scroll_tick = 0;
    return G_SOURCE_REMOVE;
}

void Select(Window* w, int index) {
    if (w->rows.empty())
        return;
    index = std::clamp(index, 0, static_cast<int>(w->rows.size()) - 1);
    gtk_list_box_select_row(GTK_LIST_BOX(w->list), GTK_LIST_BOX_ROW(w->rows[index].row));
    if (!w->scroll_tick) {
        w->scroll_frames = 0;
        w->scroll_tick = gtk_widget_add_tick_callback(w->list, OnScrollTick, w, nullptr);
    }
}

void OnRowSelected(GtkListBox*, GtkListBoxRow* row, gpointer data) {
    auto* w = static_cast<Window*>(data);
    w->selected = -1;
    for (size_t i = 0; i < w->rows.size(); ++i)
        if (GTK_WIDGET(row) == w->rows[i].row)
            w->selected = static_cast<int>(i);
    UpdateActions(w);
}

void ClearRows(Window* w) {
    w->rows.clear();
    w->selected = -1;
    while (GtkWidget* child = gtk_widget_get_first_child(w->list))
        gtk_list_box_remove(GTK_LIST_BOX(w->list), child);
}

void ShowNote(Window* w, const std::string& text) {
    ClearRows(w);
    gtk_label_set_text(GTK_LABEL(w->note), text.c_str());
    gtk_stack_set_visible_child_name(GTK_STACK(w->list_pages), "note");
    UpdateActions(w);
    std::fprintf(stderr, "quillon-devices: the window shows [%s]\n", text.c_str());
}

// The daemon is away or cannot be read: the last action's outcome no longer stands either.
void ShowUnavailable(Window* w, const std::string& sentence) {
    gtk_label_set_text(GTK_LABEL(w->message), "");
    ShowNote(w, sentence);
}

void ShowDevices(Window* w, const std::vector<StoredDevice>& devices) {
    if (w->expect_empty && !devices.empty())
        ShowMessage(w,
                    "The Quillon service still lists " + std::to_string(devices.size()) +
                        (devices.size() == 1 ? " device" : " devices") + " after Forget all.",
                    true);
    w->expect_empty = false;
    if (devices.empty()) {
        ShowNote(w, kEmpty);
        return;
    }
    std::string kept = w->selected >= 0 ? Identity(w->rows[w->selected].device) : "";
    int kept_index = w->selected;
    g_signal_handlers_block_by_func(w->list, reinterpret_cast<gpointer>(OnRowSelected), w);
    ClearRows(w);
    int select = -1;
    for (const StoredDevice& device : devices) {
        if (device.reverse && (w->rows.empty() || !w->rows.back().device.reverse)) {
            // The reverse list has a section of its own.
            GtkWidget* header = gtk_list_box_row_new();
            gtk_list_box_row_set_child(
                GTK_LIST_BOX_ROW(header),
                quillon_ux::PlainLabel("Reverse list", "quillon-section", false));
            gtk_list_box_row_set_selectable(GTK_LIST_BOX_ROW(header), FALSE);
            gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(header), FALSE);
            gtk_widget_set_focusable(header, FALSE);
            gtk_widget_set_margin_top(header, 18);
            gtk_list_box_append(GTK_LIST_BOX(w->list), header);
        }
        w->rows.push_back(MakeDeviceRow(device));
        gtk_list_box_append(GTK_LIST_BOX(w->list), w->rows.back().row);
        if (!kept.empty() && Identity(device) == kept)
            select = static_cast<int>(w->rows.size()) - 1;
        std::fprintf(stderr, "quillon-devices: row %zu shows %s\n", w->rows.size(),
                     DescribeRow(w->rows.back()).c_str());
    }
    g_signal_handlers_unblock_by_func(w->list, reinterpret_cast<gpointer>(OnRowSelected), w);
    gtk_stack_set_visible_child_name(GTK_STACK(w->list_pages), "list");
    std::fprintf(stderr, "quillon-devices: the window lists %zu devices\n", w->rows.size());
    Select(w, select >= 0 ? select : kept_index);
}

void Finished(Window* w, bool ok, const std::string& sentence) {
    w->busy = false;
    ShowMessage(w, sentence, !ok);
    // Whatever the answer, the list shown is the one the daemon has now.
    w->source->Refresh();
}

void ShowMain(Window* w) {
    gtk_stack_set_visible_child_name(GTK_STACK(w->pages), "main");
    UpdateActions(w);
    gtk_widget_grab_focus(w->actions[kForgetAllAction]);
}

void AskToForgetAll(Window* w) {
    gtk_stack_set_visible_child_name(GTK_STACK(w->pages), "confirm");
    // Cancel is where the focus starts: one Enter too many forgets nothing.
    gtk_widget_grab_focus(w->cancel);
    std::fprintf(stderr, "quillon-devices: asks whether to forget all devices\n");
}

void Cancel(Window* w) {
    std::fprintf(stderr, "quillon-devices: Forget all cancelled\n");
    ShowMain(w);
}

void ForgetEverything(Window* w) {
    ShowMain(w);
    w->busy = true;
    ForgetAll(w->source->bus(), w->source->cancellable(),
              [w](bool ok, const std::string& sentence) {
                  w->expect_empty = ok;
                  Finished(w, ok, sentence);
              });
}

void Choose(Window* w, int action) {
    if (w->busy || action < 0 || !gtk_widget_get_sensitive(w->actions[action]))
        return;
    if (action == kForgetAllAction) {
        AskToForgetAll(w);
        return;
    }
    w->busy = true;
    RunAction(w->source->bus(), w->source->cancellable(), kRowActions[action],
              w->rows[w->selected].device,
              [w](bool ok, const std::string& sentence) { Finished(w, ok, sentence); });
}

void OnActionClicked(GtkButton* button, gpointer data) {
    auto* w = static_cast<Window*>(data);
    for (int i = 0; i < kActionCount; ++i)
        if (w->actions[i] == GTK_WIDGET(button))
            Choose(w, i);
}

gboolean OnConfirmKey(Window* w, RemoteKey key) {
    GtkWidget* focus = gtk_root_get_focus(GTK_ROOT(w->window));
    switch (key) {
        case RemoteKey::kPrevious:
        case RemoteKey::kNext:
            gtk_widget_grab_focus(focus == w->cancel ? w->confirm : w->cancel);
            return TRUE;
        case RemoteKey::kChoose:
            if (focus == w->confirm)
                ForgetEverything(w);
            else
                Cancel(w);
            return TRUE;
        case RemoteKey::kBack:
            Cancel(w);
            return TRUE;
        case RemoteKey::kUp:
        case RemoteKey::kDown:
            return TRUE;
        default:
            return FALSE;
    }
}

gboolean OnKey(GtkEventControllerKey*, guint keyval, guint, GdkModifierType, gpointer data) {
    auto* w = static_cast<Window*>(data);
    RemoteKey key = quillon_ux::ReadRemoteKey(keyval);
    if (g_strcmp0(gtk_stack_get_visible_child_name(GTK_STACK(w->pages)), "confirm") == 0)
        return OnConfirmKey(w, key);
    int focused = FocusedAction(w);
    switch (key) {
        case RemoteKey::kUp:
            Select(w, w->selected - 1);
            return TRUE;
        case RemoteKey::kDown:
            Select(w, w->selected + 1);
            return TRUE;
        case RemoteKey::kPrevious:
        case RemoteKey::kNext: {
            int next =
                NextUsableAction(w, focused < 0 ? 0 : focused, key == RemoteKey::kNext ? 1 : -1);
            if (next >= 0)
                gtk_widget_grab_focus(w->actions[next]);
            return TRUE;
        }
        case RemoteKey::kChoose:
            Choose(w, focused);
            return TRUE;
        case RemoteKey::kBack:
            gtk_window_close(GTK_WINDOW(w->window));
            return TRUE;
        default:
            return FALSE;
    }
}

void OnActive(GObject* window, GParamSpec*, gpointer data) {
    // Back in front of the owner: what changed meanwhile shows without waiting for a signal.
    if (gtk_window_is_active(GTK_WINDOW(window)))
        static_cast<Window*>(data)->source->Refresh();
}

GtkWidget* MainPage(Window* w) {
    using quillon_ux::PlainLabel;
    w->list = gtk_list_box_new();
    gtk_list_box_set_selection_mode(GTK_LIST_BOX(w->list), GTK_SELECTION_SINGLE);
    gtk_widget_add_css_class(w->list, "quillon-devices");
    gtk_widget_set_focusable(w->list, FALSE);
    g_signal_connect(w->list, "row-selected", G_CALLBACK(OnRowSelected), w);
    w->scroller = gtk_scrolled_window_new();
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(w->scroller), w->list);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(w->scroller), GTK_POLICY_NEVER,
                                   GTK_POLICY_AUTOMATIC);
    gtk_widget_set_focusable(w->scroller, FALSE);
    w->note = PlainLabel("Reading the device list\u2026", "quillon-note");
    gtk_widget_set_valign(w->note, GTK_ALIGN_CENTER);
    w->list_pages = gtk_stack_new();
    gtk_widget_set_vexpand(w->list_pages, TRUE);
    gtk_stack_add_named(GTK_STACK(w->list_pages), w->scroller, "list");
    gtk_stack_add_named(GTK_STACK(w->list_pages), w->note, "note");
    gtk_stack_set_visible_child_name(GTK_STACK(w->list_pages), "note");

    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    gtk_widget_set_halign(row, GTK_ALIGN_CENTER);
    for (int i = 0; i < kActionCount; ++i) {
        w->actions[i] = quillon_ux::ActionButton(kActionLabels[i]);
        g_signal_connect(w->actions[i], "clicked", G_CALLBACK(OnActionClicked), w);
        gtk_box_append(GTK_BOX(row), w->actions[i]);
    }
    w->message = PlainLabel("", "quillon-message");
    gtk_label_set_max_width_chars(GTK_LABEL(w->message), 80);

    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 16);
    for (GtkWidget* child :
         {PlainLabel("Devices on this TV", "quillon-title"), w->list_pages, row, w->message})
        gtk_box_append(GTK_BOX(column), child);
    return column;
}

GtkWidget* ConfirmPage(Window* w) {
    using quillon_ux::PlainLabel;
    w->cancel = quillon_ux::ActionButton("Cancel");
    w->confirm = quillon_ux::ActionButton("Forget all");
    g_signal_connect_swapped(w->cancel, "clicked", G_CALLBACK(+[](Window* w) { Cancel(w); }), w);
    g_signal_connect_swapped(w->confirm, "clicked",
                             G_CALLBACK(+[](Window* w) { ForgetEverything(w); }), w);
    GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 24);
    gtk_widget_set_halign(row, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(row), w->cancel);
    gtk_box_append(GTK_BOX(row), w->confirm);
    GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 24);
    gtk_widget_set_valign(column, GTK_ALIGN_CENTER);
    for (GtkWidget* child :
         {PlainLabel("Forget all devices?", "quillon-question"),
          PlainLabel("Every phone, tablet and laptop will have to ask again before it may use "
                     "this TV.",
                     "quillon-note"),
          row})
        gtk_box_append(GTK_BOX(column), child);
    return column;
}

void OnActivate(GtkApplication* app, gpointer data) {
    auto* w = static_cast<Window*>(data);
    if (w->window) {
        // Opened again (a second launch): the same window comes to the front.
        gtk_window_present(GTK_WINDOW(w->window));
        return;
    }
    quillon_ux::InstallStyle(kCss);
    w->window = gtk_application_window_new(app);
    gtk_window_set_title(GTK_WINDOW(w->window), kTitle);
    gtk_window_set_default_size(GTK_WINDOW(w->window), 1280, 720);
    gtk_widget_add_css_class(w->window, "quillon-window");

    w->pages = gtk_stack_new();
    gtk_widget_set_margin_top(w->pages, 28);
    gtk_widget_set_margin_bottom(w->pages, 28);
    gtk_widget_set_margin_start(w->pages, 48);
    gtk_widget_set_margin_end(w->pages, 48);
    gtk_stack_add_named(GTK_STACK(w->pages), MainPage(w), "main");
    gtk_stack_add_named(GTK_STACK(w->pages), ConfirmPage(w), "confirm");
    gtk_window_set_child(GTK_WINDOW(w->window), w->pages);

    GtkEventController* keys = gtk_event_controller_key_new();
    gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
    g_signal_connect(keys, "key-pressed", G_CALLBACK(OnKey), w);
    gtk_widget_add_controller(w->window, keys);
    g_signal_connect(w->window, "notify::is-active", G_CALLBACK(OnActive), w);

    w->source = std::make_unique<ListSource>(
        [w](const std::vector<StoredDevice>& devices) { ShowDevices(w, devices); },
        [w](const std::string& sentence) { ShowUnavailable(w, sentence); });
    gtk_window_present(GTK_WINDOW(w->window));
    UpdateActions(w);
    gtk_widget_grab_focus(w->actions[0]);
    std::string error;
    if (!w->source->Start(&error)) {
        std::fprintf(stderr, "quillon-devices: %s\n", error.c_str());
        ShowUnavailable(w, error);
    }
}

}  // namespace

int RunDevicesWindow(std::function<void()>* close) {
    if (!quillon_ux::StartToolkit("quillon-devices"))
        return 2;
    Window w;
    w.app = gtk_application_new(kAppId, G_APPLICATION_DEFAULT_FLAGS);
    g_signal_connect(w.app, "activate", G_CALLBACK(OnActivate), &w);
    *close = [&w] { g_application_quit(G_APPLICATION(w.app)); };
    g_application_run(G_APPLICATION(w.app), 0, nullptr);
    *close = nullptr;
    // Calls still on their way are cancelled; their completions run now, while the
    // source they report to is still there, and find nothing to do.
    if (w.source) {
        g_cancellable_cancel(w.source->cancellable());
        for (int i = 0; i < 100 && g_main_context_iteration(nullptr, FALSE); ++i) {
        }
    }
    w.source.reset();
    g_object_unref(w.app);
    return 0;
}

}  // namespace quillon_devices
