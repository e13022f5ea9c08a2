// The fake platform's promises that every other unit test leans on: scripted results in
// the right order, callbacks reaching exactly their listeners, journal texts, and
// thread-safe capture of calls and log lines.
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "aul.h"
#include "bluetooth_product.h"
#include "bnr.h"
#include "bundle.h"
#include "device_power.h"
#include "dlog.h"
#include "fake_platform.h"
#include "realtime_clock.h"
#include "ss_manager.h"
#include "vconf.h"
#include "wifi.h"
#include "wowl.h"

namespace {

class FakePlatformTest : public ::testing::Test {
protected:
    void SetUp() override { fake::Reset(); }
};

TEST_F(FakePlatformTest, QueuedResultsComeFirstInOrderThenStandingThenDefault) {
    fake::SetResult("vconf_set_int", -5);
    fake::QueueResult("vconf_set_int", -1);
    fake::QueueResult("vconf_set_int", -2);

    EXPECT_EQ(vconf_set_int("k", 1), -1);
    EXPECT_EQ(vconf_set_int("k", 2), -2);
    EXPECT_EQ(vconf_set_int("k", 3), -5);
    // A scripted failure has no effect on the store.
    EXPECT_FALSE(fake::GetInt("k").has_value());

    fake::ClearResult("vconf_set_int");
    EXPECT_EQ(vconf_set_int("k", 4), 0);
    EXPECT_EQ(fake::GetInt("k"), 4);
    EXPECT_EQ(fake::CallCount("vconf_set_int"), 4u);

    // Pointer and bool results: any non-zero script is a failure.
    fake::SetStr("s", "text");
    fake::QueueResult("vconf_get_str", -1);
    EXPECT_EQ(vconf_get_str("s"), nullptr);
    char* value = vconf_get_str("s");
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "text");
    free(value);
    fake::QueueResult("bundle_create", 1);
    EXPECT_EQ(bundle_create(), nullptr);

    // A launch scripted with a pid runs under it; one below 1 launches nothing.
    fake::QueueResult("aul_launch_app", 777);
    fake::QueueResult("aul_launch_app", -4);
    EXPECT_EQ(aul_launch_app("a", nullptr), 777);
    EXPECT_EQ(aul_launch_app("b", nullptr), -4);
    EXPECT_EQ(aul_launch_app("c", nullptr), 4001);
    using App = std::pair<int, std::string>;
    EXPECT_EQ(fake::RunningApps(), (std::vector<App>{{777, "a"}, {4001, "c"}}));
}

struct Received {
    std::vector<std::string> seen;
};

void RecordInt(keynode_t* node, void* data) {
    auto* received = static_cast<Received*>(data);
    // The value must already be stored when the listener runs.
    int stored = -1;
    vconf_get_int(vconf_keynode_get_name(node), &stored);
    received->seen.push_back(std::string("int:") + vconf_keynode_get_name(node) + "=" +
                             std::to_string(vconf_keynode_get_int(node)) + "/" +
                             std::to_string(stored));
}

void RecordStr(keynode_t* node, void* data) {
    auto* received = static_cast<Received*>(data);
    const char* text = vconf_keynode_get_str(node);
    received->seen.push_back(std::string("str:") + vconf_keynode_get_name(node) + "=" +
                             (text ? text : "(none)") + "/" +
                             std::to_string(vconf_keynode_get_type(node)));
}

TEST_F(FakePlatformTest, ChangeReachesOnlyTheListenersOfThatKey) {
    Received a;
    Received b;
    ASSERT_EQ(vconf_notify_key_changed("key/one", RecordInt, &a), 0);
    ASSERT_EQ(vconf_notify_key_changed("key/one", RecordStr, &b), 0);
    ASSERT_EQ(vconf_notify_key_changed("key/two", RecordInt, &b), 0);
    EXPECT_EQ(fake::VconfListenerCount("key/one"), 2u);

    fake::ChangeInt("key/one", 7);
    EXPECT_EQ(a.seen, (std::vector<std::string>{"int:key/one=7/7"}));
    EXPECT_EQ(b.seen, (std::vector<std::string>{"str:key/one=(none)/41"}));

    // The daemon's own writes never come back to it as changes.
    EXPECT_EQ(vconf_set_int("key/two", 3), 0);
    EXPECT_EQ(b.seen.size(), 1u);

    // Ignoring removes that callback for that key only.
    EXPECT_EQ(vconf_ignore_key_changed("key/one", RecordStr), 0);
    EXPECT_EQ(vconf_ignore_key_changed("key/one", RecordStr), VCONF_ERROR);
    fake::ChangeStr("key/one", "x");
    fake::ChangeInt("key/two", 9);
    EXPECT_EQ(a.seen, (std::vector<std::string>{"int:key/one=7/7", "int:key/one=0/-1"}));
    EXPECT_EQ(b.seen, (std::vector<std::string>{"str:key/one=(none)/41", "int:key/two=9/9"}));

    fake::Reset();
    EXPECT_EQ(fake::VconfListenerCount("key/two"), 0u);
    fake::ChangeInt("key/two", 10);
    EXPECT_EQ(b.seen.size(), 2u);
}

int TerminateEach(const aul_app_info* info, void* data) {
    static_cast<std::vector<std::string>*>(data)->push_back(std::to_string(info->pid) + ":" +
                                                            info->pkg_name + ":" + info->appid);
    aul_terminate_pid(info->pid);
    return 0;
}

TEST_F(FakePlatformTest, JournalKeepsArgumentsAsTextAndStateFollowsCalls) {
    bundle* b = bundle_create();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(bundle_add(b, "K1", "v1"), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_add(b, "K2", ""), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_add(b, "K1", "again"), BUNDLE_ERROR_KEY_EXISTS);
    EXPECT_EQ(aul_launch_app("org.app", b), 4001);
    bundle_free(b);
    auto launches = fake::Calls("aul_launch_app");
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].args, (std::vector<std::string>{"org.app", "K1=v1", "K2="}));
    EXPECT_EQ(aul_app_is_running("org.app"), 1);

    char name[4];
    EXPECT_EQ(aul_app_get_pkgname_bypid(4001, name, sizeof(name)), AUL_R_OK);
    EXPECT_STREQ(name, "org");
    EXPECT_NE(aul_app_get_pkgname_bypid(4002, name, sizeof(name)), AUL_R_OK);

    // The iterator may call back into the fake (terminate) without deadlock.
    std::vector<std::string> seen;
    EXPECT_EQ(aul_app_get_running_app_info(TerminateEach, &seen), AUL_R_OK);
    EXPECT_EQ(seen, (std::vector<std::string>{"4001:org.app:org.app"}));
    EXPECT_EQ(aul_app_is_running("org.app"), 0);
    EXPECT_EQ(fake::CallNames({"aul_app_get_running_app_info", "aul_terminate_pid"}),
              (std::vector<std::string>{"aul_app_get_running_app_info", "aul_terminate_pid"}));

    EXPECT_EQ(ss_write("abc", 3, -1, 0, "ITEM", nullptr, 1), SS_ERROR_NONE);
    EXPECT_EQ(fake::Calls("ss_write")[0].args,
              (std::vector<std::string>{"abc", "3", "-1", "0", "ITEM", "(null)", "1"}));
    char* buffer = nullptr;
    size_t size = 0;
    ASSERT_EQ(ss_read(&buffer, &size, 0, 0, "ITEM", nullptr, 1), SS_ERROR_NONE);
    EXPECT_EQ(std::string(buffer, size), "abc");
    EXPECT_EQ(buffer[size], '\0');
    ss_free_buffer(buffer);
    EXPECT_EQ(ss_read(&buffer, &size, 0, 0, "OTHER", nullptr, 1), SS_ERROR_NO_SUCH_ITEM);
    EXPECT_EQ(ss_clear_storage(nullptr, nullptr, 0), SS_ERROR_NONE);
    EXPECT_FALSE(fake::SecureItem("ITEM").has_value());

    bt_headless_db_h db = nullptr;
    ASSERT_EQ(bt_headless_open_db(&db), BT_ERROR_NONE);
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(bt_add_headless_device_with_permission_in_DB(db, "AA", "phone", 1), 0);
    EXPECT_EQ(bt_add_headless_device_with_permission_in_DB(db, "AA", "phone", 1), 0);
    EXPECT_EQ(fake::HeadlessTable(), (std::vector<std::string>{"AA"}));
    EXPECT_EQ(bt_bluetooth_delete_headless_mobile_in_DB(db, "BB"), BT_ERROR_NOT_FOUND);
    EXPECT_EQ(fake::Calls("bt_add_headless_device_with_permission_in_DB")[0].args,
              (std::vector<std::string>{"(ptr)", "AA", "phone", "1"}));
    EXPECT_EQ(wowl_del_waker_device("AA", 0), WOWL_ERROR_NOT_FOUND);
}

struct Delivered {
    std::vector<std::string> seen;
};

void OnWifi(wifi_connection_state_e state, wifi_ap_h ap, void* data) {
    char* essid = nullptr;
    wifi_ap_get_essid(ap, &essid);
    static_cast<Delivered*>(data)->seen.push_back("wifi " + std::to_string(state) + " " + essid);
    g_free(essid);
}

int OnStandby(int type, void* data) {
    static_cast<Delivered*>(data)->seen.push_back("standby " + std::to_string(type) + " power " +
                                                  std::to_string(device_power_get_state()));
    return 1;
}

void OnBnrResponse(bnr_response_e response, bnr_resp_data_s* data, void* user) {
    static_cast<Delivered*>(user)->seen.push_back("bnr " + std::to_string(response) + " " +
                                                  (data ? std::string(data->data) : "(none)"));
}

void OnBnrTrigger(bnr_trigger_e trigger, void* user) {
    static_cast<Delivered*>(user)->seen.push_back("trigger " + std::to_string(trigger));
}

int OnAppDead(int pid, void* data) {
    static_cast<Delivered*>(data)->seen.push_back("dead " + std::to_string(pid) + " running " +
                                                  std::to_string(aul_app_is_running("org.ux")));
    return 1;
}

TEST_F(FakePlatformTest, CallbacksMayReenterTheFakeAndResetForgetsThem) {
    Delivered got;
    ASSERT_EQ(wifi_set_connection_state_changed_cb(OnWifi, &got), 0);
    ASSERT_EQ(device_power_subscribe_standby(OnStandby, &got), 0);
    ASSERT_EQ(aul_listen_app_dead_signal(OnAppDead, &got), 0);
    int trigger_handle = 0;
    int response_handle = 0;
    ASSERT_EQ(bnr_trigger_callback_register("cid", OnBnrTrigger, &got, &trigger_handle), 0);
    ASSERT_EQ(bnr_callback_register("cid", OnBnrResponse, &got, &response_handle), 0);
    EXPECT_EQ(trigger_handle, 1);
    EXPECT_EQ(response_handle, 2);

    fake::SetEssid("Home");
    fake::SetPowerState(2);
    fake::DeliverWifiState(3);
    EXPECT_EQ(fake::DeliverStandby(0x10), 1);
    fake::DeliverBnrTrigger(2);
    fake::DeliverBnrResponse(102, "{\"list\":[]}");
    fake::DeliverBnrResponse(101, nullptr);
    EXPECT_EQ(aul_launch_app("org.ux", nullptr), 4001);
    EXPECT_EQ(fake::DeliverAppDead(4001), 1);
    EXPECT_EQ(got.seen, (std::vector<std::string>{"wifi 3 Home", "standby 16 power 2", "trigger 2",
                                                  "bnr 102 {\"list\":[]}", "bnr 101 (none)",
                                                  "dead 4001 running 0"}));
    EXPECT_EQ(bnr_callback_deregister(response_handle), 0);
    EXPECT_FALSE(fake::HasBnrResponseCallback());
    EXPECT_TRUE(fake::HasBnrTriggerCallback());

    fake::SetRealtime(5, 7);
    timespec ts{};
    ASSERT_EQ(realtime_clock_get(&ts), 0);
    EXPECT_EQ(ts.tv_sec, 5);
    EXPECT_EQ(ts.tv_nsec, 7);
    fake::SetResult("wowl_clear_waker_table", -1);
    fake::SetInt("k", 1);

    fake::Reset();
    EXPECT_FALSE(fake::HasWifiCallback());
    EXPECT_FALSE(fake::HasStandbyCallback());
    EXPECT_FALSE(fake::HasAppDeadListener());
    EXPECT_FALSE(fake::HasBnrTriggerCallback());
    EXPECT_TRUE(fake::Calls().empty());
    EXPECT_TRUE(fake::Logs().empty());
    EXPECT_FALSE(fake::GetInt("k").has_value());
    EXPECT_EQ(wowl_clear_waker_table(), 0);
    EXPECT_EQ(aul_launch_app("org.ux", nullptr), 4001);
    ASSERT_EQ(bnr_callback_register("cid", OnBnrResponse, &got, &response_handle), 0);
    EXPECT_EQ(response_handle, 1);
    ASSERT_EQ(realtime_clock_get(&ts), 0);
    EXPECT_GT(ts.tv_sec, 1600000000);
    fake::DeliverWifiState(3);
    EXPECT_EQ(got.seen.size(), 6u);
}

TEST_F(FakePlatformTest, ConcurrentLogsAndWritesAreAllCapturedWhole) {
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    // Longer than any fixed formatting buffer would hold.
    const std::string long_text(1500, 'x');
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &long_text] {
            for (int i = 0; i < kLines; ++i) {
                __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "PXM_CORE", "t%d line %d %s", t, i,
                             long_text.c_str());
                std::string item = "item" + std::to_string(t);
                ss_write("data", 4, -1, 0, item.c_str(), nullptr, 1);
            }
        });
    }
    // A waiter on another thread sees the last write land.
    EXPECT_TRUE(fake::WaitForCalls("ss_write", kThreads * kLines));
    for (auto& thread : threads) {
        thread.join();
    }
    // Nothing lost, nothing torn: the captured texts are exactly the ones printed.
    std::vector<std::string> expected;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kLines; ++i) {
            expected.push_back("t" + std::to_string(t) + " line " + std::to_string(i) + " " +
                               long_text);
        }
    }
    std::vector<std::string> captured;
    for (const auto& line : fake::Logs()) {
        EXPECT_EQ(line.level, DLOG_WARN);
        EXPECT_EQ(line.tag, "PXM_CORE");
        captured.push_back(line.text);
    }
    std::sort(expected.begin(), expected.end());
    std::sort(captured.begin(), captured.end());
    EXPECT_EQ(captured, expected);
    // Each stderr line whole too, with the level letter and tag in front.
    std::istringstream err(testing::internal::GetCapturedStderr());
    std::vector<std::string> err_lines;
    for (std::string line; std::getline(err, line);) {
        err_lines.push_back(line);
    }
    for (auto& text : expected) {
        text = "W/PXM_CORE: " + text;
    }
    std::sort(err_lines.begin(), err_lines.end());
    EXPECT_EQ(err_lines, expected);
    EXPECT_EQ(fake::CountLogs("t3 line 99 x"), 1u);
    EXPECT_TRUE(fake::HasLog("t0 line 0 ", DLOG_WARN, "PXM_CORE"));
    EXPECT_FALSE(fake::HasLog("t0 line 0 ", DLOG_ERROR));
    EXPECT_EQ(fake::SecureItem("item2"), std::string("data"));

    testing::internal::CaptureStderr();
    __dlog_print(LOG_ID_SYSTEM, DLOG_ERROR, "PXM_LOG", "%s: %s(%d) > boom", "main", "fn", 12);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "E/PXM_LOG: main: fn(12) > boom\n");
    EXPECT_FALSE(fake::WaitForCalls("ss_write", kThreads * kLines + 1, 0));
}

}  // namespace
