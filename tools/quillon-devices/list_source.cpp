#include "list_source.h"

#include <cstdio>
#include <utility>

#include "daemon_bus.h"

namespace quillon_devices {

using quillon_ux::CallDaemon;
using quillon_ux::kGetInterface;

namespace {
constexpr const char* kNotRunning =
    "The Quillon service is not running. The list comes back as soon as it starts.";
const GVariantType* ListReply() {
    return G_VARIANT_TYPE("(a(ssssiiiiiiss)i)");
}
}  // namespace

ListSource::ListSource(OnList on_list, OnUnavailable on_unavailable)
    : on_list_(std::move(on_list)),
      on_unavailable_(std::move(on_unavailable)),
      cancellable_(g_cancellable_new()) {}

ListSource::~ListSource() {
    g_cancellable_cancel(cancellable_);
    if (watch_)
        g_bus_unwatch_name(watch_);
    if (subscription_)
        g_dbus_connection_signal_unsubscribe(bus_, subscription_);
    if (bus_)
        g_object_unref(bus_);
    g_object_unref(cancellable_);
}

bool ListSource::Start(std::string* error) {
    bus_ = quillon_ux::ConnectSystemBus(error);
    if (!bus_)
        return false;
    // Subscribed before the name is watched: no change between the first reading and the
    // first signal goes unseen.
    subscription_ = g_dbus_connection_signal_subscribe(
        bus_, quillon_ux::kBusName, quillon_ux::kUxInterface, nullptr, quillon_ux::kObjectPath,
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, this, nullptr);
    // Where the daemon is started by the bus, opening the list starts it.
    watch_ = g_bus_watch_name_on_connection(bus_, quillon_ux::kBusName,
                                            G_BUS_NAME_WATCHER_FLAGS_AUTO_START, OnAppeared,
                                            OnVanished, this, nullptr);
    return true;
}

void ListSource::OnAppeared(GDBusConnection*, const gchar*, const gchar* owner, gpointer data) {
    auto* self = static_cast<ListSource*>(data);
    std::fprintf(stderr, "quillon-devices: the service is on the bus (%s)\n", owner);
    self->present_ = true;
    self->Refresh();
}

void ListSource::OnVanished(GDBusConnection*, const gchar*, gpointer data) {
    auto* self = static_cast<ListSource*>(data);
    std::fprintf(stderr, "quillon-devices: the service is not on the bus\n");
    self->present_ = false;
    self->on_unavailable_(kNotRunning);
}

void ListSource::OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                          const gchar* signal, GVariant*, gpointer data) {
    std::fprintf(stderr, "quillon-devices: %s; reading the list again\n", signal);
    static_cast<ListSource*>(data)->Refresh();
}

void ListSource::Refresh() {
    if (!present_)
        return;
    if (reading_) {
        read_again_ = true;
        return;
    }
    reading_ = true;
    read_again_ = false;
    CallDaemon(bus_, kGetInterface, "pxm_get_list", nullptr, ListReply(), cancellable_,
               [this](GVariant* reply, const std::string& error) {
                   if (!reply) {
                       std::fprintf(stderr, "quillon-devices: %s\n", error.c_str());
                       on_unavailable_(error);
                       Finish();
                       return;
                   }
                   ReadReverse(ReadDeviceList(reply, false));
               });
}

void ListSource::ReadReverse(std::vector<StoredDevice> devices) {
    CallDaemon(
        bus_, kGetInterface, "pxm_get_list_reverse", nullptr, ListReply(), cancellable_,
        [this, devices = std::move(devices)](GVariant* reply, const std::string& error) mutable {
            if (!reply) {
                std::fprintf(stderr, "quillon-devices: %s\n", error.c_str());
                on_unavailable_(error);
            } else if (!read_again_ && present_) {
                for (StoredDevice& device : ReadDeviceList(reply, true))
                    devices.push_back(std::move(device));
                on_list_(devices);
            }
            Finish();
        });
}

void ListSource::Finish() {
    reading_ = false;
    if (read_again_)
        Refresh();
}

}  // namespace quillon_devices
