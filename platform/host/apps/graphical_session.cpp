#include "apps/graphical_session.h"

#include <gio/gio.h>

namespace host {
namespace apps {

namespace {

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kManagerPath = "/org/freedesktop/login1";
// A launch waits for this at most; logind answers in milliseconds when it is there.
constexpr int kCallTimeoutMs = 2000;

GVariant* Call(GDBusConnection* bus, const char* path, const char* interface, const char* method,
               GVariant* args, const char* reply_type, std::string* why) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, kLogind, path, interface, method, args, G_VARIANT_TYPE(reply_type),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallTimeoutMs, nullptr, &error);
    if (!reply) {
        *why = std::string("logind: ") + method + ": " + (error ? error->message : "failed");
        g_clear_error(&error);
    }
    return reply;
}

std::string Text(GVariant* properties, const char* name) {
    const char* value = nullptr;
    return g_variant_lookup(properties, name, "&s", &value) ? value : "";
}

}  // namespace

bool FindGraphicalSession(GraphicalSession* session, std::string* why) {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!bus) {
        *why = std::string("no system bus: ") + (error ? error->message : "unknown error");
        g_clear_error(&error);
        return false;
    }
    GVariant* sessions = Call(bus, kManagerPath, "org.freedesktop.login1.Manager", "ListSessions",
                              nullptr, "(a(susso))", why);
    bool found = false;
    if (sessions) {
        *why = "logind reports no active graphical session";
        GVariantIter* iter = nullptr;
        g_variant_get(sessions, "(a(susso))", &iter);
        const char *id, *user, *seat, *path;
        guint32 uid;
        while (!found && g_variant_iter_loop(iter, "(&su&s&s&o)", &id, &uid, &user, &seat, &path)) {
            std::string ignored;
            GVariant* reply =
                Call(bus, path, "org.freedesktop.DBus.Properties", "GetAll",
                     g_variant_new("(s)", "org.freedesktop.login1.Session"), "(a{sv})", &ignored);
            if (!reply)
                continue;
            GVariant* properties = g_variant_get_child_value(reply, 0);
            gboolean active = FALSE;
            g_variant_lookup(properties, "Active", "b", &active);
            const std::string type = Text(properties, "Type");
            const std::string kind = Text(properties, "Class");
            const std::string display = Text(properties, "Display");
            if (active && (type == "x11" || type == "wayland") &&
                (kind.empty() || kind == "user")) {
                found = true;
                session->id = id;
                session->uid = uid;
                session->user = user;
                session->env = {"XDG_RUNTIME_DIR=/run/user/" + std::to_string(uid)};
                if (!display.empty())
                    session->env.push_back("DISPLAY=" + display);
                // logind knows no Wayland socket; compositors make the first one.
                if (type == "wayland")
                    session->env.push_back("WAYLAND_DISPLAY=wayland-0");
            }
            g_variant_unref(properties);
            g_variant_unref(reply);
        }
        g_variant_iter_free(iter);
        g_variant_unref(sessions);
    }
    g_object_unref(bus);
    return found;
}

}  // namespace apps
}  // namespace host
