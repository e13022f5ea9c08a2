// Reading and changing stored devices over the bus: status, TV-initiated mirroring flag,
// name and desktop-mode id, removals; the reply codes, the saves, the wake-up tables and the
// signals, step by step.
#include <gtest/gtest.h>

#include "dlog.h"
#include "fake_platform.h"
#include "handler_bus.h"

namespace {

using handler_bus::kGet;
using handler_bus::kSet;
using handler_bus::MacInd;
using handler_bus::MacIndValue;

const char kBt[] = "AA:BB:CC:DD:EE:01";
const char kWifi[] = "AA:BB:CC:DD:EE:02";
const char kGamma[] = "AA:BB:CC:DD:EE:32";
const char kUnknown[] = "AA:BB:CC:DD:EE:99";
const uint64_t kNowMs = 1700000000000ull;

std::string Short(const std::string& text) {
    return text.size() > 12 ? std::to_string(text.size()) + text[0] : text;
}

// Each record as name, status, "*" when this step touched its access time, the mirroring
// flag when set and the id when changed.
std::string State(const std::vector<pxm_core_device_s>& list) {
    std::string out;
    for (const pxm_core_device_s& d : list) {
        out += (out.empty() ? "" : " ") + Short(d.devname) + std::to_string(d.devstatus) +
               (d.accessTime == kNowMs ? "*" : "") +
               (d.tvInitMirroringSupport ? ":m" + std::to_string(d.tvInitMirroringSupport) : "");
        std::string zel = d.zel_id;
        if (zel != "" && zel != "0" && zel != "z1") {
            out += ":" + Short(zel);
        }
    }
    return out;
}

GVariant* Param(const char* mac, int ind, const std::string& value, int type) {
    return g_variant_new("(sisi)", mac, ind, value.c_str(), type);
}

using StatusHandlers = handler_bus::HandlerTest;

// A(lpha) and B(eta) share a Bluetooth address: only A, first in the list, is ever touched.
// A changed setting is announced before the answer goes out; a lookup is never saved.
TEST_F(StatusHandlers, EachCallAnswersChangesSavesAndAnnouncesAsItShould) {
    Start();
    core->DB_WaitForSaves();
    pxm_core_device_s alpha = unit::Device("A", kBt, kWifi);
    snprintf(alpha.zel_id, sizeof(alpha.zel_id), "%s", "z1");
    alpha.keyType = 1;
    core->mDeviceList = {alpha, unit::Device("B", kBt, "AA:BB:CC:DD:EE:22"),
                         unit::Device("G", "00:00:00:00:00:00", kGamma, "", 1),
                         unit::Device("D", "", "", "AA:BB:CC:DD:EE:43", 1)};
    core->mReverseDeviceList = {unit::Device("Back", "AA:BB:CC:DD:EE:71")};
    fake::SetRealtime(kNowMs / 1000, 0);
    const std::string kName(150, 'N'), kId(40, 'Z');
    const char* const kGetS = "pxm_get_status";
    const char* const kSetS = "pxm_set_status";
    const char* const kMirror = "pxm_set_tv_init_mirroring_status";
    const char* const kParam = "pxm_set_device_extended_param_string";
    const char* const kAlphaSignal = "('AA:BB:CC:DD:EE:01', 'AA:BB:CC:DD:EE:02', '0', ";
    const struct {
        const char* method;
        GVariant* args;
        const char* reply;
        std::string signal;  // the one signal's body, or ""
        bool saved;
        std::string state;
        const char* waker;  // the wake-up table afterwards
        const char* failing = "";
    } steps[] = {
        {kGetS, MacInd("aa:bb:cc:dd:ee:01", 1), "(0,)", "", false, "A0* B0 G1 D1", ""},
        {kGetS, MacInd(kGamma, 2), "(1,)", "", false, "A0 B0 G1* D1", ""},
        {kGetS, MacInd(kUnknown, 1), "(-1,)", "", false, "A0 B0 G1 D1", ""},
        {kGetS, MacInd(kBt, 2), "(-1,)", "", false, "A0 B0 G1 D1", ""},
        {kGetS, MacInd(kBt, 4), "(-1,)", "", false, "A0 B0 G1 D1", ""},
        {kSetS, MacIndValue(kBt, 1, -1), "(3,)", "", false, "A0 B0 G1 D1", ""},
        {kSetS, MacIndValue(kBt, 1, 2), "(3,)", "", false, "A0 B0 G1 D1", ""},
        {kSetS, MacIndValue(kUnknown, 1, 1), "(4,)", "", false, "A0 B0 G1 D1", ""},
        // The same status again: only the access time moves, and that is saved.
        {kSetS, MacIndValue(kBt, 1, 0), "(2,)", "", true, "A0* B0 G1 D1", ""},
        // Allowed: entered in the wake-up tables; its Bluetooth address goes out as "0".
        {kSetS, MacIndValue(kGamma, 2, 0), "(1,)", "('0', 'AA:BB:CC:DD:EE:32', '0', 0)", true,
         "A0 B0 G0* D1", kGamma},
        {kSetS, MacIndValue("aa:bb:cc:dd:ee:01", 1, 1), "(1,)", kAlphaSignal + std::string("1)"),
         true, "A1* B0 G0 D1", kGamma},
        // Denied: out of the tables.
        {kSetS, MacIndValue(kGamma, 2, 1), "(1,)", "('0', 'AA:BB:CC:DD:EE:32', '0', 1)", true,
         "A1 B0 G1* D1", ""},
        {kMirror, MacIndValue(kWifi, 2, 5), "(1,)", kAlphaSignal + std::string("5)"), true,
         "A1*:m5 B0 G1 D1", ""},
        {kMirror, MacIndValue(kWifi, 2, 5), "(0,)", "", true, "A1*:m5 B0 G1 D1", ""},
        {kMirror, MacIndValue(kUnknown, 2, 1), "(0,)", "", false, "A1:m5 B0 G1 D1", ""},
        // The name or the id, cut to capacity; another type changes nothing but is saved.
        {kParam, Param(kBt, 1, kName, 1), "(1,)", "", true, "127N1*:m5 B0 G1 D1", ""},
        {kParam, Param(kWifi, 2, kId, 2), "(1,)", "", true, "127N1*:m5:31Z B0 G1 D1", ""},
        {kParam, Param(kBt, 1, "Other", 3), "(1,)", "", true, "127N1*:m5:31Z B0 G1 D1", ""},
        {kParam, Param(kUnknown, 1, "X", 1), "(0,)", "", false, "127N1:m5:31Z B0 G1 D1", ""},
        {"pxm_remove_device", MacInd("aa:bb:cc:dd:ee:43", 3), "(1,)",
         "('0', '0', 'AA:BB:CC:DD:EE:43', 3)", true, "127N1:m5:31Z B0 G1", ""},
        {"pxm_remove_all", nullptr, "(1,)", "('0', '0', '0', 4)", true, "", ""},
        {"pxm_remove_all", nullptr, "(1,)", "('0', '0', '0', 4)", true, "", ""},
        // The tables cannot be cleared: the list is emptied, but the answer is 0, unheard.
        {"pxm_remove_all", nullptr, "(0,)", "", true, "", "", "bt_headless_open_db"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(std::string(step.method) + " " + step.reply + " " + step.state);
        core->DB_WaitForSaves();
        for (pxm_core_device_s& rec : core->mDeviceList) {
            rec.accessTime = 0;
        }
        fake::ClearJournal();
        client.events.clear();
        if (*step.failing != '\0') {
            fake::SetResult(step.failing, 1);
        }
        const std::string method = step.method, reply = "reply " + method + " " + step.reply + "\n";
        EXPECT_EQ(step.reply, client.Call(method == kGetS ? kGet : kSet, step.method, step.args));
        EXPECT_TRUE(unit::LockIsFree(core->mPXMLock));
        const std::string signal =
            "signal " +
            std::string(method == kMirror ? PXM_SIGNAL_TV_INIT_MIRRORING_CHANGED
                                          : PXM_SIGNAL_STATUS_CHANGED) +
            " " + step.signal + "\n";
        // A change is announced before the answer; a removal after it, so that the client reads
        // the list it is told of.
        EXPECT_EQ(step.signal.empty()                  ? reply
                  : method.rfind("pxm_remove", 0) == 0 ? reply + signal
                                                       : signal + reply,
                  client.Heard());
        core->DB_WaitForSaves();
        EXPECT_EQ(step.saved,
                  fake::CallCount("ss_write") + fake::CallCount("ss_clear_storage") > 0);
        EXPECT_EQ(step.state, State(core->mDeviceList));
        const std::vector<std::string> waker = fake::WakerTable();
        EXPECT_EQ(step.waker, waker.empty() ? "" : waker[0]);
        EXPECT_TRUE(fake::HeadlessTable().empty());
    }
    EXPECT_EQ(1u, core->mReverseDeviceList.size());
}

}  // namespace
