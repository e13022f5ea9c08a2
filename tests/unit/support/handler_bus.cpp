#include "handler_bus.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>

#include "fake_platform.h"
#include "main_loop_wait.h"

namespace handler_bus {

namespace {

struct PendingCall {
    std::vector<Event>* events;
    std::string method;
};

void OnConnectionReady(GObject*, GAsyncResult* result, gpointer out) {
    *static_cast<GDBusConnection**>(out) = g_dbus_connection_new_finish(result, nullptr);
}

void OnReply(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<PendingCall> pending(static_cast<PendingCall*>(data));
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
    Event event{reply != nullptr ? "reply" : "error", pending->method, ""};
    if (reply != nullptr) {
        gchar* text = g_variant_print(reply, FALSE);
        event.body = text;
        g_free(text);
        g_variant_unref(reply);
    } else {
        gchar* remote = g_dbus_error_get_remote_error(error);
        event.body = remote != nullptr ? remote : error->message;
        g_free(remote);
        g_error_free(error);
    }
    pending->events->push_back(event);
}

// Two ends of a fresh private connection; returns the server end. Both stay open for good:
// the server keeps its connection for the rest of the process.
GDBusConnection* ConnectedPair(GDBusConnection** client_end) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        return nullptr;
    }
    GDBusConnection* ends[2] = {nullptr, nullptr};
    gchar* guid = g_dbus_generate_guid();
    for (int i = 0; i < 2; ++i) {
        GSocket* socket = g_socket_new_from_fd(fds[i], nullptr);
        GSocketConnection* stream = g_socket_connection_factory_create_connection(socket);
        auto flags = i == 0 ? static_cast<GDBusConnectionFlags>(
                                  G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                  G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_ALLOW_ANONYMOUS)
                            : G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT;
        g_dbus_connection_new(G_IO_STREAM(stream), i == 0 ? guid : nullptr, flags, nullptr, nullptr,
                              OnConnectionReady, &ends[i]);
        g_object_unref(stream);
        g_object_unref(socket);
    }
    g_free(guid);
    EXPECT_TRUE(
        test_common::RunUntil([&ends] { return ends[0] != nullptr && ends[1] != nullptr; }, 5000));
    if (client_end != nullptr) {
        *client_end = ends[1];
    }
    return ends[0];
}

}  // namespace

Client::Client() : server_(PXMDBusServer::GetInstance()) {
    EXPECT_TRUE(test_common::RunUntil(
        [] { return fake::HasLog("[DBusServer] lost name ownership! leave sinking ship"); }, 5000));
    GDBusConnection* server_end = ConnectedPair(&client_end_);
    if (server_end == nullptr || client_end_ == nullptr) {
        ADD_FAILURE() << "no private connection";
        return;
    }
    PXMDBusServer::m_OnBusAcquired(server_end, PXM_DBUS_NAME, server_);
    subscription_ = g_dbus_connection_signal_subscribe(
        client_end_, nullptr, PXM_DBUS_UX_INTERFACE, nullptr, PXM_DBUS_PATH, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* signal,
           GVariant* parameters, gpointer data) {
            gchar* text = g_variant_print(parameters, FALSE);
            static_cast<std::vector<Event>*>(data)->push_back(Event{"signal", signal, text});
            g_free(text);
        },
        &events, nullptr);
}

Client::~Client() {
    if (subscription_ != 0) {
        g_dbus_connection_signal_unsubscribe(client_end_, subscription_);
    }
}

void Client::Send(const char* interface, const char* method, GVariant* parameters) {
    g_dbus_connection_call(client_end_, nullptr, PXM_DBUS_PATH, interface, method, parameters,
                           nullptr, G_DBUS_CALL_FLAGS_NONE, 20000, nullptr, OnReply,
                           new PendingCall{&events, method});
}

std::string Client::Call(const char* interface, const char* method, GVariant* parameters) {
    size_t before = events.size();
    Send(interface, method, parameters);
    std::string found;
    bool answered = test_common::RunUntil(
        [&] {
            for (size_t i = before; i < events.size(); ++i) {
                if (events[i].kind != "signal" && events[i].name == method) {
                    found = events[i].kind == "reply" ? events[i].body : "error:" + events[i].body;
                    return true;
                }
            }
            return false;
        },
        5000);
    EXPECT_TRUE(answered) << method << " was not answered";
    return found;
}

void Client::Flush() {
    EXPECT_EQ("()", Call("org.freedesktop.DBus.Peer", "Ping"));
}

std::string Client::Heard(const std::string& kind) {
    Flush();
    std::string out;
    for (const Event& e : events) {
        if (e.name != "Ping" && (kind.empty() || e.kind == kind)) {
            out += e.kind + " " + e.name + " " + e.body + "\n";
        }
    }
    return out;
}

GVariant* Request::Variant() const {
    return g_variant_new("(ssssssiiiiii)", name.c_str(), bt.c_str(), wifi.c_str(), p2p.c_str(),
                         zel_id.c_str(), mirroring_id.c_str(), devtype, devicon, status, tv_init,
                         no_ux, ux_always);
}

void HandlerTest::Start() {
    fake::SeedDefaultSettings();
    EXPECT_EQ(1, server->Initialize());
    core = server->m_pPXMCore;
}

void HandlerTest::TearDown() {
    if (core != nullptr) {
        core->DB_WaitForSaves();
    }
}

}  // namespace handler_bus
