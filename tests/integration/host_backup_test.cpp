// The host's backup service: connections and handles, payloads stored durably with their
// history, answers on the service's own thread, triggers from the operator's key, and the
// quillon-platform commands that show and feed it.
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "backup/backup_store.h"
#include "bnr.h"
#include "host_test_support.h"
#include "vconf.h"

using host_test::RunTool;
using host_test::Tool;

namespace {

constexpr const char* kClient = "Zq8Tn3Wd5R";

// What the service delivered, and on which thread.
struct Inbox {
    std::mutex lock;
    std::condition_variable arrived;
    std::vector<int> responses;
    std::vector<std::string> texts;
    std::vector<int> triggers;
    bool on_caller_thread = false;
    std::thread::id caller = std::this_thread::get_id();

    static void OnResponse(bnr_response_e response, bnr_resp_data_s* data, void* user) {
        auto* self = static_cast<Inbox*>(user);
        std::lock_guard<std::mutex> hold(self->lock);
        self->on_caller_thread |= std::this_thread::get_id() == self->caller;
        self->responses.push_back(response);
        self->texts.push_back(data != nullptr && data->data != nullptr ? data->data : "(null)");
        self->arrived.notify_all();
    }
    static void OnTrigger(bnr_trigger_e trigger, void* user) {
        auto* self = static_cast<Inbox*>(user);
        std::lock_guard<std::mutex> hold(self->lock);
        self->triggers.push_back(trigger);
        // The test waits on the main loop, which dispatched the key change.
        g_main_context_wakeup(nullptr);
    }
    bool WaitResponses(size_t count) {
        std::unique_lock<std::mutex> hold(lock);
        return arrived.wait_for(hold, std::chrono::seconds(10),
                                [&] { return responses.size() >= count; });
    }
};

class HostBackup : public ::testing::Test {
protected:
    host_test::TempRoot temp_;
    Inbox inbox_;
    int handle_ = -1;

    void Connect(const char* client = kClient) {
        ASSERT_EQ(BNR_ERROR_NONE, bnr_init(client, "test"));
        ASSERT_EQ(BNR_ERROR_NONE,
                  bnr_callback_register(client, Inbox::OnResponse, &inbox_, &handle_));
    }
};

TEST_F(HostBackup, ConnectionsGateEveryCallAndHandlesAreDistinct) {
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED, bnr_backup(kClient, "[]", nullptr));
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED, bnr_restore(kClient, nullptr));
    int handle = -1;
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED,
              bnr_callback_register(kClient, Inbox::OnResponse, &inbox_, &handle));
    for (const char* bad : {"", ".hidden", "a/b", "../x"})
        EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_init(bad, "test")) << bad;
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_init(nullptr, "test"));

    Connect();
    int trigger = -1;
    ASSERT_EQ(BNR_ERROR_NONE,
              bnr_trigger_callback_register(kClient, Inbox::OnTrigger, &inbox_, &trigger));
    EXPECT_GT(handle_, 0);
    EXPECT_GT(trigger, 0);
    EXPECT_NE(handle_, trigger);
    // A handle is only taken back by the call of its own kind.
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_callback_deregister(trigger));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_trigger_callback_deregister(trigger));
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_trigger_callback_deregister(trigger));

    // Closing drops the connection's callbacks; closing again is harmless.
    EXPECT_EQ(BNR_ERROR_NONE, bnr_deinit(kClient));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_deinit(kClient));
    EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_callback_deregister(handle_));
    EXPECT_EQ(BNR_ERROR_NOT_CONNECTED, bnr_backup(kClient, "[]", nullptr));
}

// Only strict JSON is queued: what is refused is refused on the caller's thread, and every
// accepted payload is stored.
TEST_F(HostBackup, PayloadsAreCheckedToBeStrictJsonBeforeTheyAreQueued) {
    Connect();
    const std::string deep = std::string(600, '[') + std::string(600, ']');
    for (const std::string& bad :
         {std::string(), std::string("[1,"), std::string("{'a': 1}"), std::string("[1] x"),
          std::string("[1,]"), std::string("01"), std::string("1."), std::string("-"),
          std::string("{\"a\" 1}"), std::string("{1: 2}"), std::string("\"a\x01\""),
          std::string("\"\\x\""), std::string("\"\\ud800\""), std::string("nul"),
          std::string("[1] // note"), std::string("[2e440]"), deep})
        EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_backup(kClient, bad.c_str(), nullptr)) << bad;
    for (const char* good : {"\xEF\xBB\xBF [true, false]", "\"\\ud83d\\ude00 \\/\"",
                             "{\"a\": -0.5e+3, \"a\": {}}", "[123456789012345678901234]", " 0 "})
        EXPECT_EQ(BNR_ERROR_NONE, bnr_backup(kClient, good, nullptr)) << good;
    ASSERT_TRUE(inbox_.WaitResponses(5));
    EXPECT_EQ(std::vector<int>(5, BNR_RESPONSE_BACKUP_COMPLETED), inbox_.responses);
    std::optional<host::backup::Version> newest = host::backup::NewestVersion(kClient);
    ASSERT_TRUE(newest);
    EXPECT_EQ(" 0 ", newest->payload);
}

TEST_F(HostBackup, BackupsAreCheckedStoredAnsweredOffTheCallerAndTheLastTwentyKept) {
    Connect();
    for (const char* bad : {"", "[1,", "[1] x"})
        EXPECT_EQ(BNR_ERROR_INVALID_PARAMETER, bnr_backup(kClient, bad, nullptr)) << bad;
    EXPECT_FALSE(host::backup::NewestVersion(kClient));

    EXPECT_EQ(BNR_ERROR_NONE, bnr_backup(kClient, "null", nullptr));
    for (int i = 1; i <= 24; ++i)
        ASSERT_EQ(BNR_ERROR_NONE,
                  bnr_backup(kClient, ("[" + std::to_string(i) + "]").c_str(), nullptr));
    ASSERT_TRUE(inbox_.WaitResponses(25));
    EXPECT_EQ(std::vector<int>(25, BNR_RESPONSE_BACKUP_COMPLETED), inbox_.responses);
    EXPECT_FALSE(inbox_.on_caller_thread);

    std::vector<host::backup::Version> versions;
    std::vector<host::backup::Report> reports;
    ASSERT_TRUE(host::backup::History(kClient, &versions, &reports));
    ASSERT_EQ(20u, versions.size());
    EXPECT_EQ(25, versions.front().number);
    EXPECT_EQ(6, versions.back().number);
    EXPECT_EQ(4, versions.front().size);
    EXPECT_EQ("[24]", host::backup::NewestVersion(kClient)->payload);
    EXPECT_EQ("[24]", Tool({"backup-show"}));
}

TEST_F(HostBackup, RestoreHandsBackTheNewestPayloadUnderListAndOutcomesAreRecorded) {
    Connect();
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_backup(kClient, "[{\"key\": \"AABB\"}]", nullptr));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    ASSERT_TRUE(inbox_.WaitResponses(3));
    EXPECT_EQ((std::vector<int>{BNR_RESPONSE_RESTORE_DATA, BNR_RESPONSE_BACKUP_COMPLETED,
                                BNR_RESPONSE_RESTORE_DATA}),
              inbox_.responses);
    EXPECT_EQ("{\"list\": []}", inbox_.texts[0]);
    EXPECT_EQ("{\"list\": [{\"key\": \"AABB\"}]}", inbox_.texts[2]);

    EXPECT_EQ(BNR_ERROR_NONE, bnr_report_failure(kClient));
    EXPECT_EQ(BNR_ERROR_NONE, bnr_report_success(kClient));
    const std::string json = Tool({"backup-history", kClient, "--json"});
    EXPECT_NE(std::string::npos, json.find("\"versions\":[{\"size\":17,\"time\":\"")) << json;
    EXPECT_NE(std::string::npos, json.find("\"version\":1}]")) << json;
    const size_t success = json.find("\"outcome\":\"success\"");
    const size_t failure = json.find("\"outcome\":\"failure\"");
    ASSERT_NE(std::string::npos, failure) << json;
    EXPECT_LT(success, failure) << "newest first: " << json;

    // An operator moving a list stores any text; other clients' data stays apart.
    host_test::WriteFile(temp_.path() + "/list.json", "[1, 2]");
    Tool({"backup-put", "OtherTV", temp_.path() + "/list.json"});
    EXPECT_EQ("[1, 2]", Tool({"backup-show", "OtherTV"}));
    EXPECT_EQ("[{\"key\": \"AABB\"}]", Tool({"backup-show"}));
    EXPECT_EQ(1, RunTool({"backup-show", "Nobody"}).status);
    EXPECT_EQ(2, RunTool({"backup-show", "../x"}).status);
    EXPECT_EQ(2, RunTool({"backup-history", "a", "b"}).status);
}

TEST_F(HostBackup, RequestAndTriggerKeysReachConnectedClients) {
    Tool({"backup-request"});
    Tool({"restore-request", "OtherTV"});
    char* backup = vconf_get_str("memory/bnr/backupcid");
    char* restore = vconf_get_str("memory/bnr/restorecid");
    EXPECT_STREQ(kClient, backup);
    EXPECT_STREQ("OtherTV", restore);
    free(backup);
    free(restore);

    Connect();
    int trigger = -1;
    ASSERT_EQ(BNR_ERROR_NONE,
              bnr_trigger_callback_register(kClient, Inbox::OnTrigger, &inbox_, &trigger));
    Tool({"backup-trigger", "2"});
    ASSERT_TRUE(host_test::RunLoopUntil([&] {
        std::lock_guard<std::mutex> hold(inbox_.lock);
        return !inbox_.triggers.empty();
    }));
    EXPECT_EQ(std::vector<int>{BNR_TRIGGER_RESTORE}, inbox_.triggers);
    EXPECT_EQ(2, RunTool({"backup-trigger", "x"}).status);
}

// A deregistration returns only once a callback in flight has finished.
TEST_F(HostBackup, DeregisteringWaitsForTheCallbackInFlight) {
    static std::atomic<int> stage{0};
    ASSERT_EQ(BNR_ERROR_NONE, bnr_init(kClient, "test"));
    int handle = -1;
    auto slow = [](bnr_response_e, bnr_resp_data_s*, void*) {
        stage = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stage = 2;
    };
    ASSERT_EQ(BNR_ERROR_NONE, bnr_callback_register(kClient, slow, nullptr, &handle));
    ASSERT_EQ(BNR_ERROR_NONE, bnr_restore(kClient, nullptr));
    while (stage == 0)
        std::this_thread::yield();
    EXPECT_EQ(BNR_ERROR_NONE, bnr_callback_deregister(handle));
    EXPECT_EQ(2, stage.load());
}

// Writers killed at random moments never leave a version half written or the store unreadable.
TEST_F(HostBackup, AKilledWriterLeavesTheStoreReadable) {
    for (int cycle = 0; cycle < 8; ++cycle) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 0;; ++i) {
                std::string payload(2000 + i % 97, 'x');
                host::backup::AppendVersions(kClient, {"[\"" + payload + "\"]"});
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + (cycle * 13) % 40));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);

        std::vector<host::backup::Version> versions;
        std::vector<host::backup::Report> reports;
        ASSERT_TRUE(host::backup::History(kClient, &versions, &reports)) << "cycle " << cycle;
        ASSERT_LE(versions.size(), 20u);
        if (versions.empty())
            continue;
        std::optional<host::backup::Version> newest = host::backup::NewestVersion(kClient);
        ASSERT_TRUE(newest);
        EXPECT_EQ(versions.front().number, newest->number);
        EXPECT_EQ(newest->size, static_cast<int64_t>(newest->payload.size()));
        EXPECT_EQ("[\"x", newest->payload.substr(0, 3));
        EXPECT_EQ("x\"]", newest->payload.substr(newest->payload.size() - 3));
    }
}

}  // namespace
