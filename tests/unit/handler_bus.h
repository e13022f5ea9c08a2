// The server's method handlers reached as a bus client reaches them: the server singleton
// exports its object on one end of a private D-Bus connection (a socket pair) and the test
// calls methods and hears signals on the other end. Everything runs on the default main
// context, as in the daemon; waits are bounded and never fixed sleeps.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "dlog.h"
#include "fake_platform.h"

namespace handler_bus {

inline gboolean SetFlag(gpointer flag) {
    *static_cast<bool*>(flag) = true;
    return G_SOURCE_REMOVE;
}

// Dispatches the default main context until done() holds; false after timeout_ms.
inline bool RunUntil(const std::function<bool()>& done, guint timeout_ms = 5000) {
    bool timed_out = false;
    guint timer = g_timeout_add(timeout_ms, SetFlag, &timed_out);
    while (!done() && !timed_out) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!timed_out) {
        g_source_remove(timer);
    }
    return done();
}

// What the client end saw, in the order it saw it.
struct Event {
    std::string kind;  // "reply", "error" or "signal"
    std::string name;  // method or signal name
    std::string body;  // the reply or signal body as GVariant text, or the error's name
};

class Client {
public:
    Client() {
        server_ = PXMDBusServer::GetInstance();
        // The server thread parses the introspection data and asks for the name; without a
        // system bus in unit tests the request ends in a lost name.
        EXPECT_TRUE(RunUntil(
            [] { return fake::HasLog("[DBusServer] lost name ownership! leave sinking ship"); }));
        Connect();
        if (server_end_ != nullptr) {
            PXMDBusServer::m_OnBusAcquired(server_end_, PXM_DBUS_NAME, server_);
            subscription_ = g_dbus_connection_signal_subscribe(
                client_end_, nullptr, PXM_DBUS_UX_INTERFACE, nullptr, PXM_DBUS_PATH, nullptr,
                G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, this, nullptr);
        }
    }

    ~Client() {
        if (subscription_ != 0) {
            g_dbus_connection_signal_unsubscribe(client_end_, subscription_);
        }
        // Both ends stay open: the server keeps its connection for the rest of the process.
    }

    bool Ready() const { return server_end_ != nullptr && client_end_ != nullptr; }
    PXMDBusServer* server() const { return server_; }

    // Sends the call and returns at once; the answer arrives as an event.
    void Send(const char* interface, const char* method, GVariant* parameters,
              int timeout_ms = 20000) {
        auto* pending = new PendingCall{this, method};
        ++outstanding_;
        g_dbus_connection_call(client_end_, nullptr, PXM_DBUS_PATH, interface, method, parameters,
                               nullptr, G_DBUS_CALL_FLAGS_NONE, timeout_ms, nullptr, OnReply,
                               pending);
    }

    // Calls and waits for the answer; the reply body as text, or "error:NAME".
    std::string Call(const char* interface, const char* method, GVariant* parameters = nullptr) {
        size_t before = events_.size();
        Send(interface, method, parameters);
        std::string found;
        bool answered = RunUntil([&] {
            for (size_t i = before; i < events_.size(); ++i) {
                if (events_[i].kind != "signal" && events_[i].name == method) {
                    found =
                        events_[i].kind == "reply" ? events_[i].body : "error:" + events_[i].body;
                    return true;
                }
            }
            return false;
        });
        EXPECT_TRUE(answered) << method << " was not answered";
        return found;
    }

    // Waits until every call sent so far has been answered (or has failed).
    bool WaitAllAnswered() {
        return RunUntil([this] { return outstanding_ == 0; });
    }

    // Lets everything the server has sent so far reach the client: a round trip on the same
    // connection is answered only after all that the server sent before it.
    void Flush() {
        GDBusMessage* ping =
            g_dbus_message_new_method_call(nullptr, "/", "org.freedesktop.DBus.Peer", "Ping");
        bool done = false;
        g_dbus_connection_send_message_with_reply(
            client_end_, ping, G_DBUS_SEND_MESSAGE_FLAGS_NONE, 5000, nullptr, nullptr,
            [](GObject* source, GAsyncResult* result, gpointer flag) {
                GDBusMessage* reply = g_dbus_connection_send_message_with_reply_finish(
                    G_DBUS_CONNECTION(source), result, nullptr);
                if (reply != nullptr) {
                    g_object_unref(reply);
                }
                *static_cast<bool*>(flag) = true;
            },
            &done);
        g_object_unref(ping);
        EXPECT_TRUE(RunUntil([&done] { return done; }));
    }

    const std::vector<Event>& events() const { return events_; }
    void ClearEvents() { events_.clear(); }

    std::vector<Event> Signals(const std::string& name = "") const {
        std::vector<Event> out;
        for (const Event& e : events_) {
            if (e.kind == "signal" && (name.empty() || e.name == name)) {
                out.push_back(e);
            }
        }
        return out;
    }

    // Index of the first event of that kind and name, or -1.
    long IndexOf(const std::string& kind, const std::string& name) const {
        for (size_t i = 0; i < events_.size(); ++i) {
            if (events_[i].kind == kind && events_[i].name == name) {
                return static_cast<long>(i);
            }
        }
        return -1;
    }

private:
    struct PendingCall {
        Client* client;
        std::string method;
    };

    static void OnReply(GObject* source, GAsyncResult* result, gpointer data) {
        std::unique_ptr<PendingCall> pending(static_cast<PendingCall*>(data));
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
        Event event;
        event.name = pending->method;
        if (reply != nullptr) {
            event.kind = "reply";
            gchar* text = g_variant_print(reply, FALSE);
            event.body = text;
            g_free(text);
            g_variant_unref(reply);
        } else {
            event.kind = "error";
            gchar* remote = g_dbus_error_get_remote_error(error);
            event.body = remote != nullptr ? remote
                         : g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT)
                             ? "timeout"
                             : error->message;
            g_free(remote);
            g_error_free(error);
        }
        pending->client->events_.push_back(event);
        --pending->client->outstanding_;
    }

    static void OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                         const gchar* signal, GVariant* parameters, gpointer data) {
        gchar* text = g_variant_print(parameters, FALSE);
        static_cast<Client*>(data)->events_.push_back(Event{"signal", signal, text});
        g_free(text);
    }

    static void OnConnectionReady(GObject*, GAsyncResult* result, gpointer out) {
        *static_cast<GDBusConnection**>(out) = g_dbus_connection_new_finish(result, nullptr);
    }

    void Connect() {
        int fds[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
            return;
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
            g_dbus_connection_new(G_IO_STREAM(stream), i == 0 ? guid : nullptr, flags, nullptr,
                                  nullptr, OnConnectionReady, &ends[i]);
            g_object_unref(stream);
            g_object_unref(socket);
        }
        g_free(guid);
        EXPECT_TRUE(RunUntil([&ends] { return ends[0] != nullptr && ends[1] != nullptr; }));
        server_end_ = ends[0];
        client_end_ = ends[1];
    }

    PXMDBusServer* server_ = nullptr;
    GDBusConnection* server_end_ = nullptr;
    GDBusConnection* client_end_ = nullptr;
    guint subscription_ = 0;
    int outstanding_ = 0;
    std::vector<Event> events_;
};

// A record for the request and feedback methods, "(ssssssiiiiii)".
struct Request {
    std::string name = "Phone";
    std::string bt;
    std::string wifi;
    std::string p2p;
    std::string zel_id;
    std::string mirroring_id;
    int devtype = 1;
    int devicon = 2;
    int status = 0;
    int tv_init = 0;
    int no_ux = 0;
    int ux_always = 0;

    GVariant* Variant() const {
        return g_variant_new("(ssssssiiiiii)", name.c_str(), bt.c_str(), wifi.c_str(), p2p.c_str(),
                             zel_id.c_str(), mirroring_id.c_str(), devtype, devicon, status,
                             tv_init, no_ux, ux_always);
    }
};

// The fake platform of a freshly installed TV, and the registry started on it with the
// server: access notification 1 (a new device is asked about).
inline CPXMCore* StartRegistry(PXMDBusServer* server) {
    fake::SeedDefaultSettings();
    EXPECT_EQ(1, server->Initialize());
    return server->m_pPXMCore;
}

// A record as the registry would hold it.
inline pxm_core_device_s Stored(const char* name, const char* bt, const char* wifi, const char* p2p,
                                int status) {
    pxm_core_device_s dev = {};
    snprintf(dev.devname, sizeof(dev.devname), "%s", name);
    snprintf(dev.bt_mac, sizeof(dev.bt_mac), "%s", bt);
    snprintf(dev.wifi_mac, sizeof(dev.wifi_mac), "%s", wifi);
    snprintf(dev.p2p_mac, sizeof(dev.p2p_mac), "%s", p2p);
    dev.devstatus = status;
    dev.keyType = 0;
    return dev;
}

}  // namespace handler_bus
