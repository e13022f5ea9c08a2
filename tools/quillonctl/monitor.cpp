#include "monitor.h"

#include <glib-unix.h>
#include <signal.h>

#include <cstdio>

#include "bus_call.h"
#include "exit_status.h"
#include "output.h"

namespace quillonctl {

namespace {

struct Watch {
    GMainLoop* loop = nullptr;
    bool json = false;
    int wanted = 0;  // 0: no limit
    int seen = 0;
    int status = kExitOk;
};

void Finish(Watch* watch, int status) {
    watch->status = status;
    g_main_loop_quit(watch->loop);
}

void PrintSignal(const Watch& watch, const gchar* name, GVariant* body) {
    bool status_signal = g_strcmp0(name, "pxm_signal_status_changed") == 0;
    if (!g_variant_is_of_type(body, G_VARIANT_TYPE("(sssi)"))) {
        gchar* text = g_variant_print(body, TRUE);
        if (watch.json) {
            Json::Value out(Json::objectValue);
            out["signal"] = name;
            out["body"] = text;
            PrintJsonLine(out);
        } else {
            PrintLine(std::string(name) + " " + text);
        }
        g_free(text);
        return;
    }
    const gchar *bt, *wifi, *p2p;
    gint32 value = 0;
    g_variant_get(body, "(&s&s&si)", &bt, &wifi, &p2p, &value);
    if (watch.json) {
        Json::Value out(Json::objectValue);
        out["signal"] = name;
        out["bt_mac"] = bt;
        out["wifi_mac"] = wifi;
        out["p2p_mac"] = p2p;
        if (status_signal) {
            out["status"] = value;
            out["meaning"] = SignalStatusMeaning(value);
        } else {
            out["tvInitMirroringSupport"] = value;
        }
        PrintJsonLine(out);
        return;
    }
    std::string line = std::string(name) + " bt=" + bt + " wifi=" + wifi + " p2p=" + p2p;
    if (status_signal) {
        line += " status=" + std::to_string(value) + " (" + SignalStatusMeaning(value) + ")";
    } else {
        line += " tv_init_mirroring=" + std::to_string(value);
    }
    PrintLine(line);
}

void OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* name,
              GVariant* body, gpointer data) {
    auto* watch = static_cast<Watch*>(data);
    PrintSignal(*watch, name, body);
    if (watch->wanted > 0 && ++watch->seen >= watch->wanted) {
        Finish(watch, kExitOk);
    }
}

gboolean OnTimeout(gpointer data) {
    auto* watch = static_cast<Watch*>(data);
    Finish(watch, watch->wanted > 0 ? kExitNegative : kExitOk);
    return G_SOURCE_REMOVE;
}

gboolean OnStop(gpointer data) {
    Finish(static_cast<Watch*>(data), kExitOk);
    return G_SOURCE_CONTINUE;
}

void OnClosed(GDBusConnection*, gboolean, GError*, gpointer data) {
    std::fprintf(stderr, "quillonctl: the system bus went away\n");
    Finish(static_cast<Watch*>(data), kExitUnreachable);
}

// Once the bus has answered a call sent after the match rule, the rule is in force:
// nothing the daemon signals from now on is missed.
bool WaitForMatchRule(GDBusConnection* bus, std::string* error) {
    GError* failure = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
        nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &failure);
    if (reply == nullptr) {
        *error = std::string("the system bus does not answer: ") +
                 (failure != nullptr ? failure->message : "unknown error");
        g_clear_error(&failure);
        return false;
    }
    g_variant_unref(reply);
    return true;
}

}  // namespace

int RunMonitor(const Options& options) {
    Watch watch;
    watch.json = options.json;
    std::string error;
    int seconds = 0;
    for (const auto& [name, value] : options.values) {
        if (name != "count" && name != "timeout") {
            std::fprintf(stderr, "quillonctl: monitor does not take --%s\n", name.c_str());
            return kExitUsage;
        }
    }
    if (!options.positionals.empty()) {
        std::fprintf(stderr, "quillonctl: monitor takes no arguments\n");
        return kExitUsage;
    }
    if (!PositiveOption(options, "count", "1", &watch.wanted, &error) ||
        !PositiveOption(options, "timeout", "1 second", &seconds, &error)) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUsage;
    }

    GDBusConnection* bus = ConnectSystemBus(&error);
    if (bus == nullptr) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        return kExitUnreachable;
    }
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    watch.loop = g_main_loop_new(nullptr, FALSE);
    guint subscription = g_dbus_connection_signal_subscribe(
        bus, QUILLON_BUS_NAME, QUILLON_UX_INTERFACE, nullptr, QUILLON_OBJECT_PATH, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, &watch, nullptr);
    if (!WaitForMatchRule(bus, &error)) {
        std::fprintf(stderr, "quillonctl: %s\n", error.c_str());
        g_dbus_connection_signal_unsubscribe(bus, subscription);
        g_main_loop_unref(watch.loop);
        g_object_unref(bus);
        return kExitUnreachable;
    }
    gulong closed = g_signal_connect(bus, "closed", G_CALLBACK(OnClosed), &watch);
    g_unix_signal_add(SIGINT, OnStop, &watch);
    g_unix_signal_add(SIGTERM, OnStop, &watch);
    if (seconds > 0) {
        g_timeout_add_seconds(static_cast<guint>(seconds), OnTimeout, &watch);
    }
    // Scripts wait for this line before they make the daemon signal.
    std::fprintf(stderr, "quillonctl: watching the signals of %s\n", QUILLON_BUS_NAME);
    std::fflush(stderr);

    g_main_loop_run(watch.loop);

    g_signal_handler_disconnect(bus, closed);
    g_dbus_connection_signal_unsubscribe(bus, subscription);
    g_main_loop_unref(watch.loop);
    g_object_unref(bus);
    return watch.status;
}

}  // namespace quillonctl
