// The bus load generator against a stand-in daemon on a private test bus. The stand-in
// serves the daemon's own introspection data, so arguments that do not fit the daemon's
// methods are refused here as the daemon would refuse them.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "PXMDBusServer.h"
#include "bus_batch.h"

namespace {

const int kTestCallTimeoutMs = 5000;

class StandInDaemon {
public:
    explicit StandInDaemon(const char* address) {
        connection_ = Connect(address);
        GError* error = nullptr;
        node_ = g_dbus_node_info_new_for_xml(PXMDBusServer::IntrospectionXml(), &error);
        EXPECT_NE(nullptr, node_) << (error ? error->message : "");
        static const GDBusInterfaceVTable vtable = {OnCall, nullptr, nullptr, {nullptr}};
        for (const char* name :
             {"org.nuvak.quillon.GetInterface", "org.nuvak.quillon.SetInterface"}) {
            GDBusInterfaceInfo* info = g_dbus_node_info_lookup_interface(node_, name);
            guint id = g_dbus_connection_register_object(connection_, "/org/nuvak/quillon", info,
                                                         &vtable, this, nullptr, &error);
            EXPECT_NE(0u, id) << (error ? error->message : "");
            registrations_.push_back(id);
        }
        GVariant* reply = g_dbus_connection_call_sync(
            connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", "org.nuvak.quillon", 4u), G_VARIANT_TYPE("(u)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        EXPECT_NE(nullptr, reply) << (error ? error->message : "");
        if (reply != nullptr) {
            g_variant_unref(reply);
        }
    }

    ~StandInDaemon() {
        for (guint id : registrations_) {
            g_dbus_connection_unregister_object(connection_, id);
        }
        for (GDBusMethodInvocation* invocation : held_) {
            g_dbus_method_invocation_return_value(invocation, g_variant_new("(i)", code));
        }
        g_dbus_node_info_unref(node_);
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_object_unref(connection_);
    }

    static GDBusConnection* Connect(const char* address) {
        GError* error = nullptr;
        GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        EXPECT_NE(nullptr, connection) << (error ? error->message : "");
        return connection;
    }

    // What the stand-in answers: a code, or a D-Bus error when refuse is set. Replies are
    // held until release_at calls are waiting, so a batch that keeps fewer in flight than
    // it should never gets an answer.
    int code = 0;
    bool refuse = false;
    std::size_t release_at = 1;

    std::size_t received = 0;
    std::vector<GVariant*> arguments;

private:
    static void OnCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                       GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data) {
        StandInDaemon* self = static_cast<StandInDaemon*>(data);
        self->received++;
        self->arguments.push_back(g_variant_ref(parameters));
        if (self->refuse) {
            g_dbus_method_invocation_return_dbus_error(invocation, "org.nuvak.Test.Refused",
                                                       "refused by the stand-in");
            return;
        }
        self->held_.push_back(invocation);
        if (self->held_.size() >= self->release_at) {
            for (GDBusMethodInvocation* held : self->held_) {
                g_dbus_method_invocation_return_value(held, g_variant_new("(i)", self->code));
            }
            self->held_.clear();
        }
    }

    GDBusConnection* connection_ = nullptr;
    GDBusNodeInfo* node_ = nullptr;
    std::vector<guint> registrations_;
    std::vector<GDBusMethodInvocation*> held_;
};

class BusBatchTest : public ::testing::Test {
protected:
    void SetUp() override {
        bus_ = g_test_dbus_new(G_TEST_DBUS_NONE);
        g_test_dbus_up(bus_);
        daemon_ = new StandInDaemon(g_test_dbus_get_bus_address(bus_));
        client_ = StandInDaemon::Connect(g_test_dbus_get_bus_address(bus_));
    }

    void TearDown() override {
        g_dbus_connection_close_sync(client_, nullptr, nullptr);
        g_object_unref(client_);
        for (GVariant* arguments : daemon_->arguments) {
            g_variant_unref(arguments);
        }
        delete daemon_;
        g_test_dbus_down(bus_);
        g_object_unref(bus_);
    }

    double Run(const bench::BusMethod& method, std::size_t calls, int concurrency,
               bench::BusBatch* batch, gint64 deadline_us = 0) {
        if (deadline_us == 0) {
            deadline_us = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
        }
        bench::BusBatchPlan plan{&method, calls, concurrency, deadline_us, kTestCallTimeoutMs};
        return bench::RunBusBatch(client_, plan, batch);
    }

    GTestDBus* bus_ = nullptr;
    StandInDaemon* daemon_ = nullptr;
    GDBusConnection* client_ = nullptr;
};

TEST_F(BusBatchTest, MakesExactlyItsCallsWithTheGivenNumberInFlight) {
    bench::BusBatch batch;
    daemon_->release_at = 4;
    double wall_s = Run(bench::kGetStatus, 24, 4, &batch);
    EXPECT_EQ(0, batch.failures) << batch.first_failure;
    EXPECT_EQ(24u, batch.started);
    EXPECT_EQ(24u, batch.finished);
    EXPECT_EQ(24u, batch.latencies_us.size());
    EXPECT_EQ(4u, batch.max_in_flight);
    EXPECT_FALSE(batch.stopped);
    EXPECT_GT(wall_s, 0);
    EXPECT_EQ(24u, daemon_->received);

    // Status lookups by Wi-Fi address (IND 2) of each of the stored devices in turn.
    std::set<std::string> macs;
    for (GVariant* arguments : daemon_->arguments) {
        const gchar* mac = nullptr;
        gint32 ind = 0;
        g_variant_get(arguments, "(&si)", &mac, &ind);
        EXPECT_EQ(2, ind);
        macs.insert(mac);
    }
    EXPECT_EQ(static_cast<std::size_t>(bench::kBusDevices), macs.size());

    daemon_->release_at = 1;
    Run(bench::kGetStatus, 5, 1, &batch);
    EXPECT_EQ(0, batch.failures) << batch.first_failure;
    EXPECT_EQ(5u, batch.finished);
    EXPECT_EQ(1u, batch.max_in_flight);
}

TEST_F(BusBatchTest, RequestsFitTheDaemonsSignatureAndNeverAskForAPrompt) {
    bench::BusBatch batch;
    Run(bench::kRequestAccess, 8, 2, &batch);
    EXPECT_EQ(0, batch.failures) << batch.first_failure;
    ASSERT_EQ(8u, daemon_->arguments.size());
    for (GVariant* arguments : daemon_->arguments) {
        const gchar *name, *bt, *wifi, *p2p, *zel, *mirroring;
        gint32 devtype, devicon, status, tvInit, noUx, uxAlways;
        g_variant_get(arguments, "(&s&s&s&s&s&siiiiii)", &name, &bt, &wifi, &p2p, &zel, &mirroring,
                      &devtype, &devicon, &status, &tvInit, &noUx, &uxAlways);
        EXPECT_EQ(0, status);
        EXPECT_EQ(1, noUx);
        EXPECT_EQ(0, uxAlways);
        EXPECT_EQ(17u, std::string(bt).size());
        EXPECT_EQ(17u, std::string(wifi).size());
    }
}

TEST_F(BusBatchTest, UnexpectedCodesAndErrorsAreFailures) {
    bench::BusBatch batch;
    daemon_->code = -1;
    Run(bench::kGetStatus, 3, 1, &batch);
    EXPECT_EQ(3, batch.failures);
    EXPECT_NE(std::string::npos, batch.first_failure.find("answered -1"));

    daemon_->refuse = true;
    Run(bench::kRequestAccess, 3, 1, &batch);
    EXPECT_EQ(3, batch.failures);
    EXPECT_TRUE(batch.latencies_us.empty());
    EXPECT_NE(std::string::npos, batch.first_failure.find("refused by the stand-in"));
}

TEST_F(BusBatchTest, PingIsAnsweredByTheBusLibraryNotByTheDaemonsHandlers) {
    bench::BusBatch batch;
    Run(bench::kPing, 10, 2, &batch);
    EXPECT_EQ(0, batch.failures) << batch.first_failure;
    EXPECT_EQ(10u, batch.latencies_us.size());
    EXPECT_EQ(0u, daemon_->received);
}

TEST_F(BusBatchTest, TheDeadlineStopsTheBatchWithEveryStartedCallAnswered) {
    bench::BusBatch batch;
    Run(bench::kGetStatus, 1000000, 2, &batch, g_get_monotonic_time() + G_USEC_PER_SEC / 5);
    EXPECT_TRUE(batch.stopped);
    EXPECT_LT(batch.started, 1000000u);
    EXPECT_EQ(batch.started, batch.finished);
    EXPECT_EQ(0, batch.failures) << batch.first_failure;

    const std::size_t before = daemon_->received;
    Run(bench::kGetStatus, 10, 2, &batch, g_get_monotonic_time() - 1);
    EXPECT_TRUE(batch.stopped);
    EXPECT_EQ(0u, batch.started);
    EXPECT_EQ(before, daemon_->received);
}

}  // namespace
