// The host's backup service: connections and handles, payloads stored durably with their
// history, answers on the service's own thread, triggers from the operator's key, and the
// quillon-platform commands that show and feed it.
#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "backup/backup_store.h"
#include "bnr.h"
#include "host_test_support.h"

using host_test::RunTool;
using host_test::Tool;

namespace {

constexpr const char* kClient = "Zq8Tn3Wd5R";

// What the service delivered: responses with their text, triggers, and whether any came on
// the caller's thread.
struct Inbox {
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<std::string> responses;  // "code text"
    std::vector<int> triggers;
    bool on_caller_thread = false;
    std::thread::id caller = std::this_thread::get_id();
    static void OnResponse(bnr_response_e response, bnr_resp_data_s* data, void* user) {
        auto* self = static_cast<Inbox*>(user);
        std::lock_guard<std::mutex> hold(self->lock);
        self->on_caller_thread |= std::this_thread::get_id() == self->caller;
        self->responses.push_back(std::to_string(response) + " " +
                                  (data != nullptr && data->data != nullptr ? data->data : "-"));
        self->arrived.notify_all();
    }
    static void OnTrigger(bnr_trigger_e trigger, void* user) {
        auto* self = static_cast<Inbox*>(user);
        std::lock_guard<std::mutex> hold(self->lock);
        self->triggers.push_back(trigger);
        g_main_context_wakeup(nullptr);  // the test waits on the loop that saw the key change
    }
    std::vector<std::string> Wait(size_t count) {
        std::unique_lock<std::mutex> hold(lock);
        arrived.wait_for(hold, std::chrono::seconds(10), [&] { return responses.size() >= count; });
        return responses;
    }
};

class HostBackup : public ::testing::Test {
protected:
    void Connect() {
        ASSERT_EQ(BNR_ERROR_NONE, bnr_init(kClient, "test"));
        ASSERT_EQ(BNR_ERROR_NONE,
                  bnr_callback_register(kClient, Inbox::OnResponse, &inbox_, &handle_));
    }
    host_test::TempRoot temp_;
    Inbox inbox_;
    int handle_ = -1;
};

// Only strict JSON is queued: what is refused is refused on the caller's thread. Every
// accepted payload is stored and answered off the caller's thread; the last twenty are kept.
TEST_F(HostBackup, StrictJsonBackupsAreStoredAnsweredOffTheCallerAndTheLastTwentyKept) {
    Connect();
    const std::string deep = std::string(600, '[') + std::string(600, ']');
    for (const char* bad :
         {"", "[1,", "{'a': 1}", "[1] x", "[1,]", "01", "1.", "-", "{\"a\" 1}", "{1: 2}",
          "\"a\x01\"", "\"\\x\"", "\"\\ud800\"", "nul", "[1] // note", "[2e440]", deep.c_str()})
        EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_backup(kClient, bad, nullptr)) << bad;
    EXPECT_FALSE(host::backup::NewestVersion(kClient));
    for (const char* good : {"\xEF\xBB\xBF [true, false]", "\"\\ud83d\\ude00 \\/\"",
                             "{\"a\": -0.5e+3, \"a\": {}}", "[123456789012345678901234]", "null"})
        EXPECT_EQ(BNR_ERROR_NONE, bnr_backup(kClient, good, nullptr)) << good;
    for (int i = 1; i <= 20; ++i)
        ASSERT_EQ(BNR_ERROR_NONE,
                  bnr_backup(kClient, (" [" + std::to_string(i) + "] ").c_str(), nullptr));
    EXPECT_EQ(std::vector<std::string>(25, std::to_string(BNR_RESPONSE_BACKUP_COMPLETED) + " -"),
              inbox_.Wait(25));
    EXPECT_FALSE(inbox_.on_caller_thread);
    std::vector<host::backup::Version> versions;
    std::vector<host::backup::Report> reports;
    ASSERT_TRUE(host::backup::History(kClient, &versions, &reports) && versions.size() == 20u);
    EXPECT_EQ("25 6 6", std::to_string(versions.front().number) + " " +
                            std::to_string(versions.back().number) + " " +
                            std::to_string(versions.front().size));
    EXPECT_EQ(" [20] ", host::backup::NewestVersion(kClient)->payload);
    EXPECT_EQ(" [20] ", Tool({"backup-show"}));
}

TEST_F(HostBackup, RestoreHandsBackTheNewestPayloadUnderListAndOutcomesAreRecorded) {
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED, bnr_backup(kClient, "[]", nullptr));
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_init("../x", "test"));
    Connect();
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_backup(kClient, "[{\"key\": \"AABB\"}]", nullptr));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    const std::string restored = std::to_string(BNR_RESPONSE_RESTORE_DATA) + " {\"list\": ";
    EXPECT_EQ((std::vector<std::string>{restored + "[]}",
                                        std::to_string(BNR_RESPONSE_BACKUP_COMPLETED) + " -",
                                        restored + "[{\"key\": \"AABB\"}]}"}),
              inbox_.Wait(3));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_report_failure(kClient));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_report_success(kClient));
    // Closing drops the connection's callbacks; closing again is harmless.
    EXPECT_EQ(BNR_ERROR_NONE, bnr_deinit(kClient));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_deinit(kClient));
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_callback_deregister(handle_));
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED, bnr_restore(kClient, nullptr));
    // Newest first, each with its UTC time.
    const std::string json = Tool({"backup-history", kClient, "--json"});
    const std::string time = "\"time\":\"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\"";
    EXPECT_TRUE(std::regex_match(json, std::regex("\\{\"restores\":\\[\\{\"outcome\":\"success\"," +
                                                  time + "\\},\\{\"outcome\":\"failure\"," + time +
                                                  "\\}\\],\"versions\":\\[\\{\"size\":17," + time +
                                                  ",\"version\":1\\}\\]\\}\n")))
        << json;
    // An operator moving a list stores any text; other clients' data stays apart.
    host_test::WriteFile(temp_.path() + "/list.json", "[1, 2]");
    Tool({"backup-put", "OtherTV", temp_.path() + "/list.json"});
    EXPECT_EQ("[1, 2]", Tool({"backup-show", "OtherTV"}));
    EXPECT_EQ("[{\"key\": \"AABB\"}]", Tool({"backup-show"}));
    EXPECT_EQ(1, RunTool({"backup-show", "Nobody"}).status);
    EXPECT_EQ(2, RunTool({"backup-show", "../x"}).status);
}

TEST_F(HostBackup, RequestAndTriggerKeysReachConnectedClients) {
    Tool({"backup-request"});
    Tool({"restore-request", "OtherTV"});
    EXPECT_EQ(std::string(kClient) + "\n", Tool({"get", "memory/bnr/backupcid"}));
    EXPECT_EQ("OtherTV\n", Tool({"get", "memory/bnr/restorecid"}));
    Connect();
    int trigger = -1;
    ASSERT_EQ(BNR_ERROR_NONE,
              bnr_trigger_callback_register(kClient, Inbox::OnTrigger, &inbox_, &trigger));
    Tool({"backup-trigger", "2"});
    ASSERT_TRUE(test_common::RunUntil([&] {
        std::lock_guard<std::mutex> hold(inbox_.lock);
        return !inbox_.triggers.empty();
    }));
    EXPECT_EQ(std::vector<int>{BNR_TRIGGER_RESTORE}, inbox_.triggers);
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_callback_deregister(trigger));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_trigger_callback_deregister(trigger));
    EXPECT_EQ(2, RunTool({"backup-trigger", "x"}).status);
    // A deregistration returns only once a callback in flight has finished.
    static std::atomic<int> stage{0};
    int slow = -1;
    ASSERT_EQ(BNR_ERROR_NONE, bnr_callback_register(
                                  kClient,
                                  [](bnr_response_e, bnr_resp_data_s*, void*) {
                                      stage = 1;
                                      std::this_thread::sleep_for(std::chrono::milliseconds(300));
                                      stage = 2;
                                  },
                                  nullptr, &slow));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    while (stage == 0)
        std::this_thread::yield();
    EXPECT_EQ(BNR_ERROR_NONE, bnr_callback_deregister(slow));
    EXPECT_EQ(2, stage.load());
}

}  // namespace
