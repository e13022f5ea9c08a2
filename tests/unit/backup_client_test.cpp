// The backup service client: connecting and disconnecting, the settings keys through which
// the service asks for work, and the service's two callbacks.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "PXMBackupRestore.h"
#include "dlog.h"
#include "fake_platform.h"

namespace {

const char kClientId[] = "Zq8Tn3Wd5R";

class BackupClient : public ::testing::Test {
protected:
    void SetUp() override {
        fake::Reset();
        client = std::make_unique<PXMBackupRestore>();
    }
    void TearDown() override {
        // The class has no destructor of its own; the server's releases the keys.
        client->m_UnRegisterBnrVconfs();
        client->BnrDeinit();
    }

    // Names of the backup-service calls journaled so far, in order.
    static std::vector<std::string> ServiceCalls() {
        std::vector<std::string> names;
        for (const auto& call : fake::Calls()) {
            if (call.fn.rfind("bnr_", 0) == 0) {
                names.push_back(call.fn);
            }
        }
        return names;
    }

    std::unique_ptr<PXMBackupRestore> client;
};

TEST_F(BackupClient, ConstructionWatchesBothKeysWithTheClientAsUserData) {
    EXPECT_EQ(nullptr, client->m_pPXMCore);
    EXPECT_EQ(-1, client->m_nBnrTriggerHandle);
    EXPECT_EQ(-1, client->m_nBnrHandler);
    auto watches = fake::Calls("vconf_notify_key_changed");
    ASSERT_EQ(2u, watches.size());
    EXPECT_EQ("memory/bnr/restorecid", watches[0].args.at(0));
    EXPECT_EQ("memory/bnr/backupcid", watches[1].args.at(0));
    EXPECT_TRUE(ServiceCalls().empty()) << "the service is contacted on first use only";

    client->m_UnRegisterBnrVconfs();
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/restorecid"));
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/backupcid"));
    fake::SetResult("vconf_ignore_key_changed", -1);
    client->m_UnRegisterBnrVconfs();
    EXPECT_TRUE(fake::HasLog("Failed to un register VCONFKEY_BNR_RESTORECID, notification ignore",
                             DLOG_ERROR, "PXM_LOG"));
    EXPECT_TRUE(fake::HasLog("Failed to un register VCONFKEY_BNR_BACKUPCID, notification ignore",
                             DLOG_ERROR, "PXM_LOG"));
    fake::ClearResult("vconf_ignore_key_changed");
}

TEST(BackupClientKeys, WatchFailuresAreLoggedAndConstructionGoesOn) {
    fake::Reset();
    fake::QueueResult("vconf_notify_key_changed", -1);
    fake::QueueResult("vconf_notify_key_changed", -1);
    PXMBackupRestore client;
    EXPECT_EQ(2u, fake::CallCount("vconf_notify_key_changed"));
    EXPECT_EQ(2u,
              fake::CountLogs("Failed to register VCONFKEY_BNR_BACKUPTIME notification callback"));
    // Both keys were tried and the registration still ended normally.
    long second = fake::FindLog("Failed to register VCONFKEY_BNR_BACKUPTIME",
                                fake::FindLog("Failed to register VCONFKEY_BNR_BACKUPTIME") + 1);
    ASSERT_GT(second, 0);
    long end = fake::FindLog("m_RegisterBnrVconfs(", second + 1);
    ASSERT_GT(end, second);
    EXPECT_NE(std::string::npos, fake::Logs()[end].text.find("> END"));
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/backupcid"));
}

TEST_F(BackupClient, SecondInitConnectsAgainButRegistersEachCallbackOnce) {
    EXPECT_TRUE(client->BnrInit());
    EXPECT_TRUE(client->BnrInit());
    EXPECT_EQ((std::vector<std::string>{"bnr_init", "bnr_trigger_callback_register",
                                        "bnr_callback_register", "bnr_init"}),
              ServiceCalls());
    auto init = fake::Calls("bnr_init");
    EXPECT_EQ((std::vector<std::string>{kClientId, "Orvendale"}), init.at(0).args);
    EXPECT_NE(-1, client->m_nBnrTriggerHandle);
    EXPECT_NE(-1, client->m_nBnrHandler);
    EXPECT_NE(client->m_nBnrTriggerHandle, client->m_nBnrHandler);
    EXPECT_TRUE(fake::HasBnrTriggerCallback());
    EXPECT_TRUE(fake::HasBnrResponseCallback());
    EXPECT_EQ(2u, fake::CountLogs("bnr init success 0"));
    std::string handles = "m_nBnrTriggerHandle[" + std::to_string(client->m_nBnrTriggerHandle) +
                          "] m_nBnrHandler[" + std::to_string(client->m_nBnrHandler) + "]";
    EXPECT_TRUE(fake::HasLog(handles, DLOG_INFO, "PXM_LOG"));
}

TEST_F(BackupClient, FailedConnectOrRegistrationLeavesHandlesAbsentForTheNextInit) {
    fake::ClearLogs();
    fake::QueueResult("bnr_init", -107);
    EXPECT_FALSE(client->BnrInit());
    EXPECT_TRUE(fake::HasLog("bnr init failed -107", DLOG_ERROR, "PXM_LOG"));
    EXPECT_EQ(std::vector<std::string>{"bnr_init"}, ServiceCalls());
    EXPECT_TRUE(fake::HasLog("pxmBackupRestore: BnrInit("));
    EXPECT_FALSE(fake::HasLog("> END")) << "a failed connect returns before END";

    fake::QueueResult("bnr_trigger_callback_register", -1);
    fake::QueueResult("bnr_callback_register", -2);
    EXPECT_TRUE(client->BnrInit());
    EXPECT_TRUE(fake::HasLog("Register bnr trigger callback failed(-1).", DLOG_ERROR));
    EXPECT_TRUE(fake::HasLog("Failed to set bnr callback(-2)", DLOG_ERROR));
    EXPECT_EQ(-1, client->m_nBnrTriggerHandle);
    EXPECT_EQ(-1, client->m_nBnrHandler);

    EXPECT_TRUE(client->BnrInit());
    EXPECT_EQ(2u, fake::CallCount("bnr_trigger_callback_register"));
    EXPECT_EQ(2u, fake::CallCount("bnr_callback_register"));
    EXPECT_NE(-1, client->m_nBnrTriggerHandle);
    EXPECT_NE(-1, client->m_nBnrHandler);
}

TEST_F(BackupClient, DeinitReleasesWhatIsRegisteredAndAlwaysDisconnects) {
    client->BnrDeinit();
    EXPECT_EQ(std::vector<std::string>{"bnr_deinit"}, ServiceCalls());
    EXPECT_EQ(std::vector<std::string>{kClientId}, fake::Calls("bnr_deinit").at(0).args);
    EXPECT_TRUE(fake::HasLog("m_nBnrTriggerHandle[-1] m_nBnrHandler[-1]"));

    ASSERT_TRUE(client->BnrInit());
    std::string trigger = std::to_string(client->m_nBnrTriggerHandle);
    std::string response = std::to_string(client->m_nBnrHandler);
    fake::ClearJournal();
    fake::SetResult("bnr_trigger_callback_deregister", -5);
    fake::SetResult("bnr_callback_deregister", -6);
    fake::SetResult("bnr_deinit", -7);
    client->BnrDeinit();
    EXPECT_EQ((std::vector<std::string>{"bnr_trigger_callback_deregister",
                                        "bnr_callback_deregister", "bnr_deinit"}),
              ServiceCalls());
    EXPECT_EQ(std::vector<std::string>{trigger},
              fake::Calls("bnr_trigger_callback_deregister").at(0).args);
    EXPECT_EQ(std::vector<std::string>{response},
              fake::Calls("bnr_callback_deregister").at(0).args);
    EXPECT_TRUE(fake::HasLog("Deregister bnr trigger callback failed(-5).", DLOG_ERROR));
    EXPECT_TRUE(fake::HasLog("Deregister bnr callback failed(-6).", DLOG_ERROR));
    EXPECT_TRUE(fake::HasLog("bnr init failed -7", DLOG_ERROR));
    // Reset even on failure, so the next init registers afresh.
    EXPECT_EQ(-1, client->m_nBnrTriggerHandle);
    EXPECT_EQ(-1, client->m_nBnrHandler);
    fake::ClearResult("bnr_deinit");
}

TEST_F(BackupClient, KeyChangesAskForWorkOnlyWhenTheyNameThisClient) {
    fake::ChangeStr("memory/bnr/backupcid", "SomeoneElse");
    fake::ChangeStr("memory/bnr/restorecid", "SomeoneElse");
    EXPECT_TRUE(fake::HasLog("key[memory/bnr/backupcid] value[SomeoneElse]", DLOG_INFO));
    EXPECT_TRUE(fake::HasLog("key[memory/bnr/restorecid] value[SomeoneElse]", DLOG_INFO));
    EXPECT_TRUE(ServiceCalls().empty());

    // A key that is not a string reads as empty text: nothing to do.
    fake::ChangeInt("memory/bnr/restorecid", 7);
    EXPECT_TRUE(fake::HasLog("key[memory/bnr/restorecid] value[]"));
    EXPECT_TRUE(ServiceCalls().empty());

    fake::ChangeStr("memory/bnr/restorecid", kClientId);
    EXPECT_EQ((std::vector<std::string>{"bnr_init", "bnr_trigger_callback_register",
                                        "bnr_callback_register", "bnr_restore"}),
              ServiceCalls());
    EXPECT_TRUE(fake::HasLog("Restore requested successfully.", DLOG_INFO));
    // The restore's answer comes later: the connection stays open for it.
    EXPECT_TRUE(fake::HasBnrResponseCallback());

    fake::ChangeStr("memory/bnr/restorecid", kClientId);
    EXPECT_EQ(2u, fake::CallCount("bnr_init"));
    EXPECT_EQ(1u, fake::CallCount("bnr_callback_register"));
    EXPECT_EQ(2u, fake::CallCount("bnr_restore"));
}

TEST_F(BackupClient, SettingsCallbackRejectsMissingArguments) {
    PXMBackupRestore::m_BnrVconfChangeCB(nullptr, client.get());
    EXPECT_TRUE(fake::HasLog("Invalid args!!", DLOG_ERROR, "PXM_LOG"));
    EXPECT_FALSE(fake::HasLog("key["));

    fake::SetResult("bnr_restore", -107);
    client->m_ProcessRestore();
    EXPECT_TRUE(fake::HasLog("bnr_restore error [-107]", DLOG_ERROR));
    EXPECT_FALSE(fake::HasLog("Restore requested successfully."));
    EXPECT_EQ((std::vector<std::string>{kClientId, "(null)"}),
              fake::Calls("bnr_restore").at(0).args);
}

TEST_F(BackupClient, TriggersRestoreOnlyOnTheRestoreTrigger) {
    ASSERT_TRUE(client->BnrInit());
    fake::ClearJournal();
    fake::DeliverBnrTrigger(1);
    EXPECT_TRUE(fake::HasLog("BNR TRIGGER called [1]", DLOG_INFO));
    EXPECT_TRUE(ServiceCalls().empty());

    fake::DeliverBnrTrigger(2);
    EXPECT_EQ(std::vector<std::string>{"bnr_restore"}, ServiceCalls());

    fake::DeliverBnrTrigger(9);
    EXPECT_TRUE(fake::HasLog("Unexpected BNR TRIGGER [9]", DLOG_ERROR));
    EXPECT_EQ(1u, fake::CallCount("bnr_restore"));

    PXMBackupRestore::m_BnrTriggerCallback(BNR_TRIGGER_RESTORE, nullptr);
    EXPECT_TRUE(fake::HasLog("pThis is NULL", DLOG_ERROR));
    EXPECT_EQ(1u, fake::CallCount("bnr_restore"));
}

TEST_F(BackupClient, ResponsesAreLoggedAndOnlyRestoreDataIsReported) {
    ASSERT_TRUE(client->BnrInit());
    const std::vector<std::pair<int, std::string>> responses = {
        {0, "Unhandled response"},
        {103, "ListDevices is completed"},
        {500, "Error happened"},
        {501, "INVALID value[501]"},
        {502, "Backup Schema error"},
        {503, "Server is not responding. Try again later."},
        {504, "Duplicated data error"},
        {777, "INVALID value[777]"},
        {101, "Backup is completed (nil)"},
    };
    for (const auto& [response, text] : responses) {
        fake::ClearLogs();
        fake::DeliverBnrResponse(response, nullptr);
        EXPECT_TRUE(
            fake::HasLog("BNR Callback called [" + std::to_string(response) + "]", DLOG_INFO));
        long at = fake::FindLog(text);
        EXPECT_GE(at, 0) << text;
        if (at >= 0) {
            EXPECT_EQ(DLOG_ERROR, fake::Logs()[at].level) << text;
        }
        EXPECT_GT(fake::FindLog("response came. Finish app"), at) << text;
    }
    EXPECT_EQ(0u, fake::CallCount("bnr_report_success"));
    EXPECT_EQ(0u, fake::CallCount("bnr_report_failure"));
    EXPECT_EQ(1u, fake::CallCount("bnr_init")) << "no response reconnects";
}

TEST_F(BackupClient, UnparsableRestoreDataAndAMissingClientAreReportedAsFailure) {
    ASSERT_TRUE(client->BnrInit());
    fake::DeliverBnrResponse(102, "this is not json");
    EXPECT_TRUE(fake::HasLog("m_Restore fail", DLOG_ERROR, "PXM_LOG"));
    ASSERT_EQ(1u, fake::CallCount("bnr_report_failure"));
    EXPECT_EQ(std::vector<std::string>{kClientId}, fake::Calls("bnr_report_failure")[0].args);
    EXPECT_EQ(0u, fake::CallCount("bnr_report_success"));

    fake::ClearLogs();
    PXMBackupRestore::m_BnrCallback(BNR_RESPONSE_ERROR, nullptr, nullptr);
    EXPECT_EQ(2u, fake::CallCount("bnr_report_failure"));
    long null_client = fake::FindLog("pThis==NULL");
    EXPECT_GE(null_client, 0);
    EXPECT_FALSE(fake::HasLog("Error happened"));
    EXPECT_GT(fake::FindLog("response came. Finish app"), null_client);
}

}  // namespace
