// quillon-bench-echo: the baseline of the bus benchmarks. A GDBus service on the bus named by
// DBUS_SYSTEM_BUS_ADDRESS that owns org.nuvak.QuillonBenchEcho and answers 0 from its
// method handler on the default main loop, as the daemon's handlers answer, with the
// daemon's argument shapes: status (si) like pxm_get_status, request (ssssssiiiiii) like
// pxm_request_access. Peer.Ping, which GDBus answers on its worker thread without the main
// loop, would leave out the dispatch every daemon call pays. Runs until SIGTERM or SIGINT.
#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdio>

#include "bus_batch.h"

namespace {

const char kIntrospection[] =
    "<node><interface name='org.nuvak.QuillonBenchEcho'>"
    "<method name='status'><arg type='s' direction='in'/><arg type='i' direction='in'/>"
    "<arg type='i' direction='out'/></method>"
    "<method name='request'>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
    "<arg type='i' direction='in'/><arg type='i' direction='in'/><arg type='i' direction='in'/>"
    "<arg type='i' direction='in'/><arg type='i' direction='in'/><arg type='i' direction='in'/>"
    "<arg type='i' direction='out'/></method>"
    "</interface></node>";

void OnCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
            GDBusMethodInvocation* invocation, gpointer) {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", 0));
}

gboolean Quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
    GError* error = nullptr;
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection == nullptr) {
        std::fprintf(stderr, "quillon-bench-echo: no system bus: %s\n", error->message);
        return 1;
    }
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    static const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {nullptr}};
    guint object = g_dbus_connection_register_object(
        connection, bench::kEchoPath, node->interfaces[0], &vtable, nullptr, nullptr, &error);
    if (object == 0) {
        std::fprintf(stderr, "quillon-bench-echo: %s\n", error->message);
        return 1;
    }
    // Owned only once the object is there: a caller that sees the name can call it.
    guint owner =
        g_bus_own_name_on_connection(connection, bench::kEchoBusName, G_BUS_NAME_OWNER_FLAGS_NONE,
                                     nullptr, nullptr, nullptr, nullptr);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, Quit, loop);
    g_unix_signal_add(SIGINT, Quit, loop);
    g_main_loop_run(loop);

    g_bus_unown_name(owner);
    g_dbus_connection_unregister_object(connection, object);
    g_dbus_node_info_unref(node);
    g_main_loop_unref(loop);
    g_object_unref(connection);
    return 0;
}
