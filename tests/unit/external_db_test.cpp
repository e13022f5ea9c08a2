// The wake-up tables: which platform calls each operation makes, in which order, and what
// each reports when the tables cannot be used.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "CPXMCore.h"
#include "fake_platform.h"

namespace {

const char* const kBt = "A0:B1:C2:D3:E4:F5";
const char* const kWifi = "10:21:32:43:54:65";

// The table calls by short name.
const std::map<std::string, std::string> kShort = {
    {"bt_headless_open_db", "open"},
    {"bt_bluetooth_delete_headless_mobile_in_DB", "del"},
    {"bt_add_headless_device_with_permission_in_DB", "add"},
    {"bt_bluetooth_delete_all_headless_mobile_in_DB", "delall"},
    {"bt_adapter_register_headless_device", "reg"},
    {"bt_adapter_unregister_headless_device", "unreg"},
    {"wowl_add_waker_device", "wadd"},
    {"wowl_del_waker_device", "wdel"},
    {"wowl_clear_waker_table", "wclear"},
    {"vconf_set_int", "updated"},
    {"bt_mobileheadless_close_db", "close"}};

// The table calls journaled so far, by short name, separated by blanks.
std::string TableCalls() {
    std::string out;
    for (const fake::Call& call : fake::Calls()) {
        auto it = kShort.find(call.fn);
        if (it != kShort.end()) {
            out += (out.empty() ? "" : " ") + it->second;
        }
    }
    return out;
}

TEST(ExternalDb, EachOperationMakesItsCallsInOrderAndReportsWhetherTheTablesWereUsable) {
    const struct {
        const char* what;
        bool allowedBefore;
        const char *bt, *wifi;
        int op;
        const char* failing;  // table calls that fail, or ""
        bool result;
        const char* calls;
        const char* headless;  // the tables afterwards
        const char* waker;
    } rows[] = {
        {"allow", false, kBt, kWifi, 1, "", true, "open del add reg wadd updated close", kBt,
         kWifi},
        {"allow again", true, kBt, kWifi, 1, "", true, "open del unreg add reg wadd updated close",
         kBt, kWifi},
        {"allow Bluetooth only", false, kBt, "00-00-00-00-00-00", 1, "", true,
         "open del add reg updated close", kBt, ""},
        // Any 17 characters pass, and an unknown operation takes the allow path.
        {"unknown op", false, nullptr, "xxxxxxxxxxxxxxxxx", 7, "", true, "open wadd updated close",
         "", "xxxxxxxxxxxxxxxxx"},
        {"remove Wi-Fi", true, "", kWifi, 2, "", true, "open wdel updated close", kBt, ""},
        {"remove", true, kBt, kWifi, 2, "", true, "open del unreg wdel updated close", "", ""},
        {"clear", true, nullptr, nullptr, 3, "", true, "open delall wclear updated close", "", ""},
        {"no usable address", false, "00:00:00:00:00:00", "00:00:00:00:00:00", 1, "", false, "", "",
         ""},
        {"tables unopenable", false, kBt, kWifi, 1, "open", false, "open", "", ""},
        // Failed table operations are logged, but the tables were usable.
        {"allow fails", false, kBt, kWifi, 1, "add wadd", true, "open del add wadd updated close",
         "", ""},
        {"remove fails", true, kBt, kWifi, 2, "del wdel", true, "open del wdel updated close", kBt,
         kWifi},
        {"clear fails", true, kBt, kWifi, 3, "delall wclear", true,
         "open delall wclear updated close", kBt, kWifi},
    };
    CPXMCore* core = CPXMCore::GetInstance();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        fake::Reset();
        if (row.allowedBefore) {
            ASSERT_TRUE(core->INTERNAL_ControlExternalDB(kBt, kWifi, PXM_CTRL_EXT_ALLOW));
            fake::ClearJournal();
        }
        for (const auto& [fn, name] : kShort) {
            if ((" " + std::string(row.failing) + " ").find(" " + name + " ") !=
                std::string::npos) {
                fake::SetResult(fn, -1);
            }
        }

        EXPECT_EQ(row.result, core->INTERNAL_ControlExternalDB(
                                  row.bt, row.wifi, static_cast<pxm_ctrl_ext_e>(row.op)));

        EXPECT_EQ(row.calls, TableCalls());
        auto only = [](const std::vector<std::string>& table) {
            return table.empty() ? std::string() : table.size() == 1 ? table[0] : "(several)";
        };
        EXPECT_EQ(row.headless, only(fake::HeadlessTable()));
        EXPECT_EQ(row.waker, only(fake::WakerTable()));
        if (std::string(row.calls).find("updated") != std::string::npos) {
            EXPECT_EQ(1, fake::GetInt(VCONFKEY_BLEAPP_DB_UPDATED));
        }
    }
}

}  // namespace
