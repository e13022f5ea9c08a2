// The server's method handlers reached as a bus client reaches them: the server singleton
// exports its object on one end of a private D-Bus connection (a socket pair) and the test
// calls methods and hears signals on the other end. Everything runs on the default main
// context, as in the daemon; waits are bounded and never fixed sleeps.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CPXMCore.h"
#include "PXMDBusServer.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace handler_bus {

const char* const kSet = PXM_DBUS_SET_INTERFACE;
const char* const kGet = PXM_DBUS_GET_INTERFACE;

// What the client end saw, in the order it saw it.
struct Event {
    std::string kind;  // "reply", "error" or "signal"
    std::string name;  // method or signal name
    std::string body;  // the reply or signal body as GVariant text, or the error's name
};

class Client {
public:
    // The server singleton, its name request answered (a lost name: no system bus in unit
    // tests), serving its object to this client.
    Client();
    ~Client();

    PXMDBusServer* server() const { return server_; }
    // Sends the call and returns at once; the answer arrives as an event.
    void Send(const char* interface, const char* method, GVariant* parameters);
    // Calls and waits for the answer; the reply body as text, or "error:NAME".
    std::string Call(const char* interface, const char* method, GVariant* parameters = nullptr);
    // Lets everything the server has sent so far reach the client: a round trip on the same
    // connection is answered only after all that the server sent before it.
    void Flush();

    std::vector<Event> events;
    // After a flush, each event (of that kind, if given) but the flushes' own answers as a line
    // "kind name body".
    std::string Heard(const std::string& kind = "");

private:
    PXMDBusServer* server_ = nullptr;
    GDBusConnection* client_end_ = nullptr;
    guint subscription_ = 0;
};

// A record for the request and feedback methods, "(ssssssiiiiii)".
struct Request {
    std::string name = "Phone", bt, wifi, p2p, zel_id, mirroring_id;
    int devtype = 1, devicon = 2, status = 0, tv_init = 0, no_ux = 0, ux_always = 0;

    GVariant* Variant() const;
};

// A fresh fake platform and a client of the server singleton; Start() adds the registry on
// the settings of a freshly installed TV: access notification 1 (a new device is asked about).
class HandlerTest : public ::testing::Test {
protected:
    void TearDown() override;
    void Start();

    bool fresh_platform_ = (fake::Reset(), true);  // before the client: it waits for a log line
    Client client;
    PXMDBusServer* server = client.server();
    CPXMCore* core = nullptr;
};

inline GVariant* MacInd(const char* mac, int ind) {
    return g_variant_new("(si)", mac, ind);
}
inline GVariant* MacIndValue(const char* mac, int ind, int value) {
    return g_variant_new("(sii)", mac, ind, value);
}

}  // namespace handler_bus
