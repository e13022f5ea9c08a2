// The wake-up tables: which platform calls each operation makes, in which order, and what
// is logged and reported when the tables cannot be used.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CPXMCore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

const char* const kBt = "A0:B1:C2:D3:E4:F5";
const char* const kWifi = "10:21:32:43:54:65";
using Names = std::vector<std::string>;

bool Contains(const Names& table, const std::string& mac) {
    return std::find(table.begin(), table.end(), mac) != table.end();
}

class ExternalDb : public ::testing::Test {
protected:
    void SetUp() override { fake::Reset(); }
    bool Control(const char* bt, const char* wifi, int op) {
        return core->INTERNAL_ControlExternalDB(bt, wifi, static_cast<pxm_ctrl_ext_e>(op));
    }
    Names TableCalls() {
        return fake::CallNames({"bt_headless_open_db", "bt_bluetooth_delete_headless_mobile_in_DB",
                                "bt_add_headless_device_with_permission_in_DB",
                                "bt_bluetooth_delete_all_headless_mobile_in_DB",
                                "bt_adapter_register_headless_device",
                                "bt_adapter_unregister_headless_device", "wowl_add_waker_device",
                                "wowl_del_waker_device", "wowl_clear_waker_table", "vconf_set_int",
                                "bt_mobileheadless_close_db"});
    }
    CPXMCore* core = CPXMCore::GetInstance();
};

TEST_F(ExternalDb, AllowDeletesThenAddsThenRegistersAndEntersTheWakerTable) {
    ASSERT_TRUE(Control(kBt, kWifi, 1));
    EXPECT_EQ(TableCalls(),
              (Names{"bt_headless_open_db", "bt_bluetooth_delete_headless_mobile_in_DB",
                     "bt_add_headless_device_with_permission_in_DB",
                     "bt_adapter_register_headless_device", "wowl_add_waker_device",
                     "vconf_set_int", "bt_mobileheadless_close_db"}));
    // The first delete finds nothing; the add still goes on.
    EXPECT_TRUE(fake::HasLog("HEADLESS DB Delete failed = 0xFFFFFFFE", DLOG_ERROR, "PXM_CORE"));
    Names addArgs = fake::Calls("bt_add_headless_device_with_permission_in_DB").at(0).args;
    EXPECT_EQ(Names(addArgs.end() - 3, addArgs.end()), (Names{kBt, "Phone", "1"}));
    EXPECT_EQ(fake::Calls("wowl_add_waker_device").at(0).args, (Names{kWifi, "0"}));
    EXPECT_EQ(fake::GetInt(VCONFKEY_BLEAPP_DB_UPDATED), 1);
    EXPECT_TRUE(Contains(fake::HeadlessTable(), kBt) && Contains(fake::WakerTable(), kWifi));

    // Entered afresh: the stored address is deleted and unregistered before the new add.
    fake::ClearJournal();
    ASSERT_TRUE(Control(kBt, kWifi, 1));
    Names names = TableCalls();
    ASSERT_GE(names.size(), 4u);
    EXPECT_EQ(names[2], "bt_adapter_unregister_headless_device");
    EXPECT_EQ(names[3], "bt_add_headless_device_with_permission_in_DB");
}

TEST_F(ExternalDb, AllowWithOneUsableAddressUsesOnlyThatTable) {
    ASSERT_TRUE(Control(kBt, "00-00-00-00-00-00", 1));
    EXPECT_TRUE(fake::HasLog("WIFI mac is not valid [00-00-00-00-00-00]", DLOG_WARN));
    EXPECT_EQ(fake::CallCount("wowl_add_waker_device"), 0u);
    EXPECT_EQ(fake::GetInt(VCONFKEY_BLEAPP_DB_UPDATED), 1);

    // Any 17 characters pass, and an unknown operation takes the allow path.
    fake::Reset();
    const std::string letters(17, 'x');
    ASSERT_TRUE(Control(nullptr, letters.c_str(), 7));
    EXPECT_TRUE(fake::HasLog("BT mac is not valid [(null)]", DLOG_WARN));
    EXPECT_EQ(TableCalls(), (Names{"bt_headless_open_db", "wowl_add_waker_device", "vconf_set_int",
                                   "bt_mobileheadless_close_db"}));
    EXPECT_TRUE(Contains(fake::WakerTable(), letters));
}

TEST_F(ExternalDb, RemoveAndClearTakeOutWhatIsThere) {
    ASSERT_TRUE(Control(kBt, kWifi, 1));
    fake::ClearJournal();
    ASSERT_TRUE(Control("", kWifi, 2));
    EXPECT_EQ(TableCalls(), (Names{"bt_headless_open_db", "wowl_del_waker_device", "vconf_set_int",
                                   "bt_mobileheadless_close_db"}));
    EXPECT_TRUE(fake::WakerTable().empty());
    ASSERT_TRUE(Control(kBt, kWifi, 2));
    EXPECT_TRUE(fake::HeadlessTable().empty());
    EXPECT_EQ(fake::CallCount("bt_adapter_unregister_headless_device"), 1u);
    EXPECT_TRUE(fake::HasLog("REMOVE WOWLAN failed = -2", DLOG_ERROR));

    ASSERT_TRUE(Control(kBt, kWifi, 1));
    fake::ClearJournal();
    ASSERT_TRUE(Control(nullptr, nullptr, 3));
    EXPECT_TRUE(fake::HeadlessTable().empty() && fake::WakerTable().empty());
    EXPECT_EQ(TableCalls(),
              (Names{"bt_headless_open_db", "bt_bluetooth_delete_all_headless_mobile_in_DB",
                     "wowl_clear_waker_table", "vconf_set_int", "bt_mobileheadless_close_db"}));
}

TEST_F(ExternalDb, FailedTableOperationsAreLoggedButTheResultStaysTrue) {
    fake::SetResult("bt_bluetooth_delete_headless_mobile_in_DB", -1);
    fake::SetResult("bt_add_headless_device_with_permission_in_DB", -1);
    fake::SetResult("wowl_add_waker_device", -1);
    fake::SetResult("wowl_del_waker_device", -1);
    fake::SetResult("bt_bluetooth_delete_all_headless_mobile_in_DB", -1);
    fake::SetResult("wowl_clear_waker_table", -1);
    EXPECT_TRUE(Control(kBt, kWifi, 1));
    EXPECT_TRUE(Control(kBt, kWifi, 2));
    EXPECT_TRUE(Control(nullptr, nullptr, 3));
    for (const char* line :
         {"HEADLESS DB ALLOW failed = 0xFFFFFFFF", "SET WOWLAN failed = -1",
          "SET HEADLESS DB Delete failed = -1", "REMOVE WOWLAN failed = -1",
          "SET HEADLESS DB DeleteAll failed = 0xFFFFFFFF", "CLEAR WOWLAN failed = -1"}) {
        EXPECT_TRUE(fake::HasLog(line, DLOG_ERROR)) << line;
    }
    EXPECT_EQ(fake::CallCount("bt_adapter_register_headless_device"), 0u);
    EXPECT_EQ(fake::CallCount("vconf_set_int"), 3u);
}

TEST_F(ExternalDb, UnusableAddressesAndAFailedOpenTouchNothing) {
    EXPECT_FALSE(Control("00:00:00:00:00:00", "00:00:00:00:00:00", 1));
    EXPECT_FALSE(Control("00:00:00:00:00:00", "00:00:00:00:00:00", 2));
    EXPECT_EQ(
        fake::CountLogs("Invalid mac address btMac[00:00:00:00:00:00], wifiMac[00:00:00:00:00:00]"),
        2u);
    EXPECT_TRUE(TableCalls().empty());

    fake::SetResult("bt_headless_open_db", -1);
    EXPECT_FALSE(Control(kBt, kWifi, 1));
    EXPECT_TRUE(fake::HasLog("SET HEADLESS DB Open failed = -1", DLOG_ERROR));
    EXPECT_EQ(TableCalls(), Names{"bt_headless_open_db"});
}

}  // namespace
