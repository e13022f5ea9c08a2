#include "device_actions.h"

#include <cstdio>
#include <utility>

#include "daemon_bus.h"
#include "device_text.h"

namespace quillon_devices {

using quillon_ux::CallDaemon;
using quillon_ux::kSetInterface;

namespace {

std::string Quoted(const StoredDevice& device) {
    return "\u201c" + quillon_ux::DisplayName(device.name) + "\u201d";
}

// The daemon's codes for pxm_set_status: 1 changed, 2 already so, 3 invalid, 4 not found.
std::pair<bool, std::string> ReadSetStatus(int code, const std::string& who, const char* word) {
    switch (code) {
        case 1:
            return {true, who + " is " + word + " now."};
        case 2:
            return {true, who + " was " + word + " already."};
        case 4:
            return {false, "The Quillon service no longer has " + who + "."};
        default:
            return {false, "The Quillon service did not change " + who + " (it answered " +
                               std::to_string(code) + ")."};
    }
}

void Report(const ActionDone& done, const char* method, bool ok, const std::string& sentence) {
    std::fprintf(stderr, "quillon-devices: %s %s: %s\n", method, ok ? "done" : "failed",
                 sentence.c_str());
    done(ok, sentence);
}

}  // namespace

bool ActionApplies(Action action, const StoredDevice& device) {
    std::string mac;
    int ind = 0;
    return LookupAddress(device, &mac, &ind) && (action == Action::kForget || !device.reverse);
}

void RunAction(GDBusConnection* bus, GCancellable* cancellable, Action action,
               const StoredDevice& device, ActionDone done) {
    std::string mac;
    int ind = 0;
    const std::string who = Quoted(device);
    if (!ActionApplies(action, device)) {
        Report(done, "action", false, "The Quillon service cannot do that for " + who + ".");
        return;
    }
    LookupAddress(device, &mac, &ind);
    if (action == Action::kForget) {
        const char* method = device.reverse ? "pxm_remove_device_reverse" : "pxm_remove_device";
        CallDaemon(
            bus, kSetInterface, method, g_variant_new("(si)", mac.c_str(), ind),
            G_VARIANT_TYPE("(i)"), cancellable,
            [done, who, method](GVariant* reply, const std::string& error) {
                gint32 code = 0;
                if (!reply)
                    return Report(done, method, false, error);
                g_variant_get(reply, "(i)", &code);
                if (code == 1)
                    return Report(done, method, true, who + " is forgotten: it has to ask again.");
                Report(done, method, false, "The Quillon service did not forget " + who + ".");
            });
        return;
    }
    const bool allow = action == Action::kAllow;
    CallDaemon(bus, kSetInterface, "pxm_set_status",
               g_variant_new("(sii)", mac.c_str(), ind, allow ? 0 : 1), G_VARIANT_TYPE("(i)"),
               cancellable, [done, who, allow](GVariant* reply, const std::string& error) {
                   gint32 code = 0;
                   if (!reply)
                       return Report(done, "pxm_set_status", false, error);
                   g_variant_get(reply, "(i)", &code);
                   auto [ok, sentence] = ReadSetStatus(code, who, allow ? "allowed" : "blocked");
                   Report(done, "pxm_set_status", ok, sentence);
               });
}

void ForgetAll(GDBusConnection* bus, GCancellable* cancellable, ActionDone done) {
    CallDaemon(bus, kSetInterface, "pxm_remove_all", nullptr, G_VARIANT_TYPE("(i)"), cancellable,
               [bus, cancellable, done](GVariant* reply, const std::string& error) {
                   gint32 code = 0;
                   if (!reply)
                       return Report(done, "pxm_remove_all", false, error);
                   g_variant_get(reply, "(i)", &code);
                   if (code != 1)
                       return Report(done, "pxm_remove_all", false,
                                     "The Quillon service could not forget every device.");
                   CallDaemon(
                       bus, kSetInterface, "pxm_remove_all_reverse", nullptr, G_VARIANT_TYPE("(i)"),
                       cancellable,
                       [done](GVariant* reverse_reply, const std::string& reverse_error) {
                           if (!reverse_reply)
                               return Report(done, "pxm_remove_all_reverse", false, reverse_error);
                           Report(done, "pxm_remove_all", true, "Every device is forgotten.");
                       });
               });
}

}  // namespace quillon_devices
