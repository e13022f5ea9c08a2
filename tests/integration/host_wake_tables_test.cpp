// The host platform's Bluetooth headless table and Wake-on-WLAN waker table, and
// quillon-platform's wake-tables view of them, in a private platform root per test.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "bluetooth_product.h"
#include "host_test_support.h"
#include "wake_tables/wake_tables_db.h"
#include "wowl.h"

using host_test::RunTool;
using host_test::Tool;

namespace {

using Rows = std::vector<std::string>;

// Both tables as "address type permission registered" and "address flags" rows.
std::vector<std::string> Tables() {
    std::vector<host::wake::HeadlessDevice> headless;
    std::vector<host::wake::Waker> wakers;
    EXPECT_TRUE(host::wake::ReadTables(&headless, &wakers));
    std::vector<std::string> rows;
    for (const auto& d : headless) {
        EXPECT_GT(d.added_at, 1600000000) << d.address;
        rows.push_back(d.address + " " + d.device_type + " " + std::to_string(d.permission) +
                       (d.registered ? " registered" : ""));
    }
    for (const auto& w : wakers)
        rows.push_back(w.address + " " + std::to_string(w.flags));
    return rows;
}

class WakeTablesTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(BT_ERROR_NONE, bt_headless_open_db(&handle_)); }
    void TearDown() override { bt_mobileheadless_close_db(&handle_); }
    int Add(const char* address, const char* type = "Phone", int permission = 1) {
        return bt_add_headless_device_with_permission_in_DB(handle_, address, type, permission);
    }
    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    bt_headless_db_h handle_ = nullptr;
};

TEST_F(WakeTablesTest, RowsAreAddedReplacedRegisteredAndDeletedWithoutRegardToCase) {
    EXPECT_EQ(BT_ERROR_NONE, Add("aa:bb:cc:dd:ee:01"));
    EXPECT_EQ(BT_ERROR_NONE, Add("AA:BB:CC:DD:EE:02"));
    // The same device in other letters replaces its row and becomes the newest entry.
    EXPECT_EQ(BT_ERROR_NONE, Add("AA:BB:CC:DD:EE:01", "Tablet", 0));
    EXPECT_EQ(BT_ERROR_NONE, bt_adapter_register_headless_device("aa:bb:cc:dd:ee:02"));
    EXPECT_EQ(BT_ERROR_NOT_FOUND, bt_adapter_register_headless_device("AA:BB:CC:DD:EE:05"));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:77", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 3));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("ab:cd:ef:00:11:22", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_del_waker_device("AB:CD:EF:00:11:22", 0));
    EXPECT_EQ(Tables(), (Rows{"AA:BB:CC:DD:EE:02 Phone 1 registered", "AA:BB:CC:DD:EE:01 Tablet 0",
                              "11:22:33:44:55:77 0", "11:22:33:44:55:66 3"}));
    // A new handle sees what a closed one wrote.
    EXPECT_EQ(BT_ERROR_NONE, bt_mobileheadless_close_db(&handle_));
    ASSERT_EQ(BT_ERROR_NONE, bt_headless_open_db(&handle_));
    EXPECT_EQ(BT_ERROR_NONE,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "aa:bb:cc:dd:ee:02"));
    // Absent addresses fail: the daemon logs that failure when it re-enters a device. The
    // daemon unregisters right after deleting the row: nothing left to undo is fine.
    EXPECT_EQ(BT_ERROR_NOT_FOUND,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "AA:BB:CC:DD:EE:02"));
    EXPECT_EQ(BT_ERROR_NONE, bt_adapter_unregister_headless_device("AA:BB:CC:DD:EE:02"));
    EXPECT_EQ(WOWL_ERROR_NOT_FOUND, wowl_del_waker_device("AB:CD:EF:00:11:22", 0));
    EXPECT_EQ(Tables(),
              (Rows{"AA:BB:CC:DD:EE:01 Tablet 0", "11:22:33:44:55:77 0", "11:22:33:44:55:66 3"}));
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(BT_ERROR_NONE, bt_bluetooth_delete_all_headless_mobile_in_DB(handle_));
        EXPECT_EQ(WOWL_ERROR_NONE, wowl_clear_waker_table());
    }
    EXPECT_TRUE(Tables().empty());
}

// Another process writing at the same time waits for the database instead of failing. The
// child is held on a pipe until the parent writes too.
TEST_F(WakeTablesTest, WritersInTwoProcessesAllLand) {
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    char c;
    close(gate[child ? 0 : 1]);
    while (child == 0 && read(gate[0], &c, 1) > 0) {
    }
    int failures = 0;
    for (int i = 0; i < 500; ++i) {
        if (child && i == 1)
            close(gate[1]);
        char address[18];
        snprintf(address, sizeof(address), "00:00:00:%02X:%02X:%02X", child ? 1 : 2, i / 256,
                 i % 256);
        failures += wowl_add_waker_device(address, 0) != WOWL_ERROR_NONE;
    }
    if (child == 0)
        _exit(failures);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, failures + (WIFEXITED(status) ? WEXITSTATUS(status) : 1));
    EXPECT_EQ(1000u, Tables().size());
}

// The tables drift from the stored list when a write failed (a full disk): the tool's --check
// shows the difference, --repair rewrites them from the allowed devices, and it shows them.
TEST_F(WakeTablesTest, ToolShowsTheTablesAndChecksAndRepairsThemFromTheStoredList) {
    EXPECT_EQ("{\"bt_headless\": [], \"wowl_wakers\": []}\n", Tool({"wake-tables", "--json"}));
    const std::string list =
        "2\n["
        R"({"item_data": {"devname": "allowed", "bt_mac": "AA:BB:CC:DD:EE:01", )"
        R"("wifi_mac": "AA:BB:CC:DD:EE:02", "devstatus": 0, "dy_type": 0, "accessTime": 5}},)"
        R"({"item_data": {"devname": "wifi only", "bt_mac": "0", )"
        R"("wifi_mac": "AA:BB:CC:DD:EE:03", "devstatus": 0, "dy_type": 0}},)"
        R"({"item_data": {"devname": "denied", "bt_mac": "AA:BB:CC:DD:EE:04", )"
        R"("wifi_mac": "AA:BB:CC:DD:EE:05", "devstatus": 1, "dy_type": 0}},)"
        R"({"item_data": {"devname": "reverse", "bt_mac": "AA:BB:CC:DD:EE:06", )"
        R"("wifi_mac": "0", "devstatus": 0, "dy_type": 1}}])";
    host_test::WriteFile(root_ + "/list.txt", list);
    Tool({"secure-write", "PXM_DEVICE_LIST", root_ + "/list.txt"});
    ASSERT_EQ(BT_ERROR_NONE, Add("aa:bb:cc:dd:ee:01"));
    ASSERT_EQ(BT_ERROR_NONE, bt_adapter_register_headless_device("aa:bb:cc:dd:ee:01"));
    ASSERT_EQ(BT_ERROR_NONE, Add("AA:BB:CC:DD:EE:04"));
    ASSERT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("AA:BB:CC:DD:EE:02", 2));
    host_test::ToolResult check = RunTool({"wake-tables", "--check"});
    EXPECT_EQ(1, check.status);
    EXPECT_EQ(
        "bt_headless extra   AA:BB:CC:DD:EE:04 (not an allowed device)\n"
        "wowl_wakers missing AA:BB:CC:DD:EE:03 (an allowed device)\n",
        check.out);
    EXPECT_EQ(0, RunTool({"wake-tables", "--repair"}).status);
    EXPECT_EQ(0, RunTool({"wake-tables", "--check"}).status);
    EXPECT_EQ("1\n", Tool({"get", "db/bleapp/db_updated"}));
    // A row already there keeps its registration.
    EXPECT_EQ(
        "{\"bt_headless\": [{\"address\": \"AA:BB:CC:DD:EE:01\", \"device_type\": \"Phone\", "
        "\"permission\": 1, \"registered\": true, \"added_at\": T}], \"wowl_wakers\": "
        "[{\"address\": \"AA:BB:CC:DD:EE:02\", \"flags\": 0}, {\"address\": \"AA:BB:CC:DD:EE:03\", "
        "\"flags\": 0}]}\n",
        std::regex_replace(Tool({"wake-tables", "--json"}), std::regex("\"added_at\": 1[0-9]{9}"),
                           "\"added_at\": T"));
}

// A database file that is not one, or holds tables of another shape, is kept aside and made
// anew at first use instead of failing every later call.
TEST(WakeTablesHeal, AnUnusableDatabaseIsKeptAsideAndMadeAnew) {
    for (const std::string& bad :
         {std::string("this is not a database, just text"), std::string("SQLITE"), std::string()}) {
        host_test::TempRoot temp;
        const std::string path = temp.path() + "/wake_tables.db";
        // Empty: a real database whose table has another shape.
        host_test::WriteFile(path, bad);
        ASSERT_TRUE(
            !bad.empty() ||
            system(("sqlite3 " + path + " 'CREATE TABLE wowl_wakers (mac TEXT);'").c_str()) == 0);
        EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 0)) << bad;
        EXPECT_EQ(Tables(), Rows{"11:22:33:44:55:66 0"});
        EXPECT_EQ(0600, host_test::Mode(path)) << "the tables are the service's alone";
        if (bad.empty())
            continue;
        std::string kept;  // the database kept aside under its timestamp, its journals apart
        for (const std::string& name : host_test::Entries(temp.path())) {
            if (name.rfind("wake_tables.db.corrupt-", 0) == 0 && name.back() == 'Z')
                kept += host_test::ReadFile(temp.path() + "/" + name);
        }
        EXPECT_EQ(bad, kept);
    }
}

}  // namespace
