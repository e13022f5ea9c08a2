// The backup service client: connecting and disconnecting, the settings keys and the
// trigger through which the service asks for work, and the service's answers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PXMBackupRestore.h"
#include "dlog.h"
#include "fake_platform.h"
#include "unit_support.h"

namespace {

const char kClientId[] = "Zq8Tn3Wd5R";
using Names = std::vector<std::string>;

Names ServiceCalls() {
    Names names;
    for (const auto& call : fake::Calls()) {
        if (call.fn.rfind("bnr_", 0) == 0) {
            names.push_back(call.fn);
        }
    }
    return names;
}

// A connection registers each callback once however often it is made, a disconnect releases
// them even when the service refuses, and only this client's key or the restore trigger
// asks for a restore.
TEST(BackupClient, ConnectionsRegisterOnceAndOnlyRequestsForThisClientAreServed) {
    fake::Reset();
    PXMBackupRestore client;
    EXPECT_TRUE(ServiceCalls().empty()) << "the service is contacted on first use only";
    fake::QueueResult("bnr_init", -107);
    EXPECT_FALSE(client.BnrInit());
    ASSERT_TRUE(client.BnrInit());
    ASSERT_TRUE(client.BnrInit());
    EXPECT_EQ((Names{"bnr_init", "bnr_init", "bnr_trigger_callback_register",
                     "bnr_callback_register", "bnr_init"}),
              ServiceCalls());
    EXPECT_EQ((Names{kClientId, "Orvendale"}), fake::Calls("bnr_init").at(0).args);
    EXPECT_NE(client.m_nBnrTriggerHandle, client.m_nBnrHandler);

    fake::ClearJournal();
    fake::SetResult("bnr_callback_deregister", -6);
    client.BnrDeinit();
    EXPECT_EQ((Names{"bnr_trigger_callback_deregister", "bnr_callback_deregister", "bnr_deinit"}),
              ServiceCalls());
    EXPECT_TRUE(fake::HasLog("Deregister bnr callback failed(-6).", DLOG_ERROR));
    EXPECT_EQ(-1, client.m_nBnrTriggerHandle);
    EXPECT_EQ(-1, client.m_nBnrHandler);

    fake::ClearJournal();
    fake::ChangeStr("memory/bnr/restorecid", "SomeoneElse");
    fake::ChangeInt("memory/bnr/restorecid", 7);  // not a string: reads as empty text
    fake::ChangeStr("memory/bnr/backupcid", "SomeoneElse");
    EXPECT_TRUE(ServiceCalls().empty());
    fake::ChangeStr("memory/bnr/restorecid", kClientId);
    // The restore's answer comes later: the connection stays open for it.
    EXPECT_EQ((Names{"bnr_init", "bnr_trigger_callback_register", "bnr_callback_register",
                     "bnr_restore"}),
              ServiceCalls());
    EXPECT_EQ((Names{kClientId, "(null)"}), fake::Calls("bnr_restore").at(0).args);
    EXPECT_TRUE(fake::HasBnrResponseCallback());
    for (int trigger : {1, 9, 2}) {
        fake::DeliverBnrTrigger(trigger);
    }
    EXPECT_EQ(2u, fake::CallCount("bnr_restore"));
    EXPECT_TRUE(fake::HasLog("Unexpected BNR TRIGGER [9]", DLOG_ERROR));
    client.m_UnRegisterBnrVconfs();
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/restorecid"));
    EXPECT_EQ(0u, fake::VconfListenerCount("memory/bnr/backupcid"));
    client.BnrDeinit();
}

// Every answer is logged at its level; only restore data is reported back, and data that
// cannot be used is reported as a failure.
TEST(BackupClient, AnswersAreLoggedAndOnlyRestoreDataIsReported) {
    fake::Reset();
    PXMBackupRestore client;
    ASSERT_TRUE(client.BnrInit());
    const std::pair<int, const char*> answers[] = {
        {0, "Unhandled response"},      {103, "ListDevices is completed"},
        {500, "Error happened"},        {501, "INVALID value[501]"},
        {502, "Backup Schema error"},   {503, "Server is not responding. Try again later."},
        {504, "Duplicated data error"}, {101, "Backup is completed (nil)"},
    };
    for (const auto& [answer, text] : answers) {
        fake::ClearLogs();
        fake::DeliverBnrResponse(answer, nullptr);
        long at = fake::FindLog(text);
        ASSERT_GE(at, 0) << text;
        EXPECT_EQ(DLOG_ERROR, fake::Logs()[at].level) << text;
        EXPECT_GT(fake::FindLog("response came. Finish app"), at) << text;
    }
    EXPECT_EQ(0u, fake::CallCount("bnr_report_success") + fake::CallCount("bnr_report_failure"));
    EXPECT_EQ(1u, fake::CallCount("bnr_init")) << "no answer reconnects";

    fake::DeliverBnrResponse(102, "this is not json");
    PXMBackupRestore::m_BnrCallback(BNR_RESPONSE_ERROR, nullptr, nullptr);
    EXPECT_EQ((Names{kClientId, kClientId}), unit::FirstArgs("bnr_report_failure"));
    EXPECT_EQ(0u, fake::CallCount("bnr_report_success"));
    client.m_UnRegisterBnrVconfs();
    client.BnrDeinit();
}

}  // namespace
