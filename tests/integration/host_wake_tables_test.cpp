// The host platform's Bluetooth headless table and Wake-on-WLAN waker table, and
// quillon-platform's wake-tables view of them, in a private platform root per test.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "bluetooth_product.h"
#include "host_test_support.h"
#include "wake_tables/wake_tables_db.h"
#include "wowl.h"

namespace {

struct Tables {
    std::vector<host::wake::HeadlessDevice> headless;
    std::vector<host::wake::Waker> wakers;
};

Tables ReadBoth() {
    Tables t;
    EXPECT_TRUE(host::wake::ReadTables(&t.headless, &t.wakers));
    return t;
}

class WakeTablesTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(BT_ERROR_NONE, bt_headless_open_db(&handle_));
        ASSERT_NE(nullptr, handle_);
    }
    void TearDown() override {
        if (handle_)
            bt_mobileheadless_close_db(&handle_);
    }

    host_test::TempRoot temp_;
    std::string root_ = temp_.path();
    bt_headless_db_h handle_ = nullptr;
};

TEST_F(WakeTablesTest, HeadlessTableAddsReplacesAndDeletesWithoutRegardToCase) {
    EXPECT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "aa:bb:cc:dd:ee:01", "Phone", 1));
    EXPECT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:02", "Phone", 1));
    // The same device in other letters replaces its row and becomes the newest entry.
    EXPECT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:01", "Tablet", 0));
    Tables t = ReadBoth();
    ASSERT_EQ(2u, t.headless.size());
    EXPECT_EQ("AA:BB:CC:DD:EE:02", t.headless[0].address);
    EXPECT_EQ("AA:BB:CC:DD:EE:01", t.headless[1].address);
    EXPECT_EQ("Tablet", t.headless[1].device_type);
    EXPECT_EQ(0, t.headless[1].permission);
    EXPECT_GT(t.headless[1].added_at, 1600000000);

    EXPECT_EQ(BT_ERROR_NONE,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "aa:bb:cc:dd:ee:02"));
    // Absent addresses fail: the daemon logs that failure when it re-enters a device.
    EXPECT_EQ(BT_ERROR_NOT_FOUND,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "AA:BB:CC:DD:EE:02"));
    EXPECT_EQ(BT_ERROR_NOT_FOUND,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "xxxxxxxxxxxxxxxxx"));
    t = ReadBoth();
    ASSERT_EQ(1u, t.headless.size());
    EXPECT_EQ("AA:BB:CC:DD:EE:01", t.headless[0].address);

    EXPECT_EQ(BT_ERROR_NONE, bt_bluetooth_delete_all_headless_mobile_in_DB(handle_));
    EXPECT_EQ(BT_ERROR_NONE, bt_bluetooth_delete_all_headless_mobile_in_DB(handle_));
    EXPECT_TRUE(ReadBoth().headless.empty());
}

TEST_F(WakeTablesTest, HandleRulesAndPersistenceAcrossHandles) {
    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:03", "Phone", 1));
    EXPECT_EQ(BT_ERROR_NONE, bt_mobileheadless_close_db(&handle_));
    EXPECT_EQ(nullptr, handle_);

    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER, bt_headless_open_db(nullptr));
    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER, bt_add_headless_device_with_permission_in_DB(
                                              nullptr, "AA:BB:CC:DD:EE:04", "Phone", 1));
    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER, bt_bluetooth_delete_all_headless_mobile_in_DB(nullptr));
    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER, bt_mobileheadless_close_db(&handle_));

    // A new connection sees what the closed one wrote.
    ASSERT_EQ(BT_ERROR_NONE, bt_headless_open_db(&handle_));
    EXPECT_EQ(BT_ERROR_NONE,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "AA:BB:CC:DD:EE:03"));
    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, nullptr));
    EXPECT_EQ(0, access((root_ + "/wake_tables.db").c_str(), F_OK));
}

TEST_F(WakeTablesTest, AdapterRegistrationIsRecordedOnTheRow) {
    EXPECT_EQ(BT_ERROR_NOT_FOUND, bt_adapter_register_headless_device("AA:BB:CC:DD:EE:05"));
    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:05", "Phone", 1));
    EXPECT_FALSE(ReadBoth().headless.at(0).registered);
    EXPECT_EQ(BT_ERROR_NONE, bt_adapter_register_headless_device("aa:bb:cc:dd:ee:05"));
    EXPECT_TRUE(ReadBoth().headless.at(0).registered);
    EXPECT_EQ(BT_ERROR_NONE, bt_adapter_unregister_headless_device("AA:BB:CC:DD:EE:05"));
    EXPECT_FALSE(ReadBoth().headless.at(0).registered);

    // The daemon unregisters right after deleting the row: nothing left to undo is fine.
    ASSERT_EQ(BT_ERROR_NONE,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "AA:BB:CC:DD:EE:05"));
    EXPECT_EQ(BT_ERROR_NONE, bt_adapter_unregister_headless_device("AA:BB:CC:DD:EE:05"));
    EXPECT_EQ(BT_ERROR_INVALID_PARAMETER, bt_adapter_register_headless_device(nullptr));
}

TEST_F(WakeTablesTest, WakerTableAddsReplacesDeletesAndClears) {
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:77", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 3));
    Tables t = ReadBoth();
    ASSERT_EQ(2u, t.wakers.size());
    EXPECT_EQ("11:22:33:44:55:77", t.wakers[0].address);
    EXPECT_EQ(3, t.wakers[1].flags);
    EXPECT_TRUE(t.headless.empty()) << "the tables are separate";

    EXPECT_EQ(WOWL_ERROR_NONE, wowl_del_waker_device("11:22:33:44:55:77", 0));
    EXPECT_EQ(WOWL_ERROR_NOT_FOUND, wowl_del_waker_device("11:22:33:44:55:77", 0));
    EXPECT_EQ(WOWL_ERROR_INVALID_PARAMETER, wowl_add_waker_device(nullptr, 0));
    EXPECT_EQ(WOWL_ERROR_INVALID_PARAMETER, wowl_del_waker_device("", 0));

    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("ab:cd:ef:00:11:22", 0));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_del_waker_device("AB:CD:EF:00:11:22", 0));
    EXPECT_EQ(1u, ReadBoth().wakers.size());
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_clear_waker_table());
    EXPECT_TRUE(ReadBoth().wakers.empty());
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_clear_waker_table());
}

TEST_F(WakeTablesTest, ConcurrentWritersThroughSharedAndSeparateConnectionsAllLand) {
    auto address = [](int thread, int i) {
        char text[18];
        snprintf(text, sizeof(text), "00:00:00:00:%02X:%02X", thread, i);
        return std::string(text);
    };
    // Another process writing at the same time waits for the database instead of failing.
    // Forked before any thread exists, and held on a pipe until the threads run.
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        close(gate[1]);
        char c;
        while (read(gate[0], &c, 1) > 0) {
        }
        int failures = 0;
        for (int i = 0; i < 25; ++i)
            failures += wowl_add_waker_device(address(9, i).c_str(), 0) != 0;
        _exit(failures);
    }
    close(gate[0]);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                EXPECT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                             handle_, address(t, i).c_str(), "Phone", 1));
                EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device(address(t, i).c_str(), 0));
            }
        });
    }
    close(gate[1]);
    for (std::thread& t : threads)
        t.join();
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    Tables t = ReadBoth();
    EXPECT_EQ(75u, t.headless.size());
    EXPECT_EQ(100u, t.wakers.size());
}

TEST_F(WakeTablesTest, TheWriteAheadLogIsCheckpointedAndStaysBounded) {
    // 7500 changes: each commit adds a few pages to the log, so without checkpoints it would
    // hold far more than the 10000 pages after which a writer must catch up itself.
    for (int i = 0; i < 4500; ++i) {
        char text[18];
        snprintf(text, sizeof(text), "00:00:00:00:%02X:%02X", (i >> 8) & 0xFF, i & 0xFF);
        ASSERT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device(text, i % 7));
        if (i % 3 != 0) {
            ASSERT_EQ(WOWL_ERROR_NONE, wowl_del_waker_device(text, 0));
        }
    }
    Tables t = ReadBoth();
    ASSERT_EQ(1500u, t.wakers.size());
    EXPECT_EQ("00:00:00:00:11:91", t.wakers.back().address);
    struct stat log_file;
    ASSERT_EQ(0, stat((root_ + "/wake_tables.db-wal").c_str(), &log_file));
    EXPECT_LT(log_file.st_size, 11000 * (4096 + 24));
    // Only a checkpoint puts pages into the database file itself.
    struct stat database;
    ASSERT_EQ(0, stat((root_ + "/wake_tables.db").c_str(), &database));
    EXPECT_GT(database.st_size, 8 * 4096);
}

TEST_F(WakeTablesTest, ToolShowsBothTablesAsJsonAndText) {
    EXPECT_EQ("{\"bt_headless\": [], \"wowl_wakers\": []}\n",
              host_test::Tool({"wake-tables", "--json"}));

    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:0A", "Phone", 1));
    ASSERT_EQ(BT_ERROR_NONE, bt_adapter_register_headless_device("AA:BB:CC:DD:EE:0A"));
    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:0B", "Phone", 1));
    ASSERT_EQ(BT_ERROR_NONE,
              bt_bluetooth_delete_headless_mobile_in_DB(handle_, "aa:bb:cc:dd:ee:0b"));
    ASSERT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:0A", 2));
    Tables t = ReadBoth();
    ASSERT_EQ(1u, t.headless.size());

    EXPECT_EQ(
        "{\"bt_headless\": [{\"address\": \"AA:BB:CC:DD:EE:0A\", \"device_type\": \"Phone\", "
        "\"permission\": 1, \"registered\": true, \"added_at\": " +
            std::to_string(t.headless[0].added_at) +
            "}], \"wowl_wakers\": [{\"address\": \"11:22:33:44:55:0A\", \"flags\": 2}]}\n",
        host_test::Tool({"wake-tables", "--json"}));

    std::string out = host_test::Tool({"wake-tables"});
    EXPECT_NE(std::string::npos, out.find("headless) table: 1 device\n  AA:BB:CC:DD:EE:0A")) << out;
    EXPECT_NE(std::string::npos, out.find("waker table: 1 device\n  11:22:33:44:55:0A  flags 2"))
        << out;
    EXPECT_EQ(std::string::npos, out.find("EE:0B"));

    host_test::ToolResult bad = host_test::RunTool({"wake-tables", "--yaml"});
    EXPECT_EQ(2, bad.status);
    EXPECT_NE(std::string::npos, bad.err.find("usage: quillon-platform wake-tables")) << bad.err;
    EXPECT_EQ(2, host_test::RunTool({"wake-tables", "--json", "--json"}).status);
}

// A database file that is not one, or holds tables of another shape, is kept aside and made
// anew at first use instead of failing every later call.
TEST(WakeTablesHeal, AnUnusableDatabaseIsKeptAsideAndMadeAnew) {
    for (const std::string& bad :
         {std::string("this is not a database, just text"), std::string("SQLITE")}) {
        host_test::TempRoot temp;
        const std::string path = temp.path() + "/wake_tables.db";
        host_test::WriteFile(path, bad);
        EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 0)) << bad;
        Tables t = ReadBoth();
        EXPECT_EQ(1u, t.wakers.size());
        int kept = 0;
        for (const std::string& name : host_test::Entries(temp.path())) {
            if (name.rfind("wake_tables.db.corrupt-", 0) == 0 &&
                name.find("-wal") == std::string::npos && name.find("-shm") == std::string::npos) {
                EXPECT_EQ(bad, host_test::ReadFile(temp.path() + "/" + name));
                ++kept;
            }
        }
        EXPECT_EQ(1, kept) << bad;
        struct stat st;
        ASSERT_EQ(0, stat(path.c_str(), &st));
        EXPECT_EQ(0600u, st.st_mode & 0777) << "the tables are the service's alone";
    }
    // A real database whose table has another shape.
    host_test::TempRoot temp;
    const std::string path = temp.path() + "/wake_tables.db";
    ASSERT_EQ(0, system(("sqlite3 " + path + " 'CREATE TABLE wowl_wakers (mac TEXT);'").c_str()));
    EXPECT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("11:22:33:44:55:66", 0));
    EXPECT_EQ(1u, ReadBoth().wakers.size());
}

// The tables drift from the stored list when a write failed (a full disk): --check shows the
// difference and --repair rewrites them from the list's allowed devices.
TEST_F(WakeTablesTest, CheckShowsDriftFromTheStoredListAndRepairMendsIt) {
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
    host_test::Tool({"secure-write", "PXM_DEVICE_LIST", root_ + "/list.txt"});

    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "aa:bb:cc:dd:ee:01", "Phone", 1));
    ASSERT_EQ(BT_ERROR_NONE, bt_adapter_register_headless_device("aa:bb:cc:dd:ee:01"));
    ASSERT_EQ(BT_ERROR_NONE, bt_add_headless_device_with_permission_in_DB(
                                 handle_, "AA:BB:CC:DD:EE:04", "Phone", 1));
    ASSERT_EQ(WOWL_ERROR_NONE, wowl_add_waker_device("AA:BB:CC:DD:EE:02", 0));

    host_test::ToolResult check = host_test::RunTool({"wake-tables", "--check"});
    EXPECT_EQ(1, check.status);
    EXPECT_EQ(
        "bt_headless extra   AA:BB:CC:DD:EE:04 (not an allowed device)\n"
        "wowl_wakers missing AA:BB:CC:DD:EE:03 (an allowed device)\n",
        check.out);

    host_test::ToolResult repair = host_test::RunTool({"wake-tables", "--repair"});
    EXPECT_EQ(0, repair.status) << repair.err;
    EXPECT_EQ(0, host_test::RunTool({"wake-tables", "--check"}).status);
    Tables t = ReadBoth();
    ASSERT_EQ(1u, t.headless.size());
    EXPECT_TRUE(t.headless[0].registered) << "a row already there keeps its registration";
    ASSERT_EQ(2u, t.wakers.size());
    EXPECT_EQ("1\n", host_test::Tool({"get", "db/bleapp/db_updated"}));
    EXPECT_EQ(2, host_test::RunTool({"wake-tables", "--check", "--repair"}).status);
}

}  // namespace
