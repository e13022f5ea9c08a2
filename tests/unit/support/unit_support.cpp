#include "unit_support.h"

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <thread>

#include "fake_platform.h"

namespace unit {

pxm_core_device_s Device(const char* name, const char* bt, const char* wifi, const char* p2p,
                         int status) {
    pxm_core_device_s d{};
    snprintf(d.devname, sizeof(d.devname), "%s", name);
    snprintf(d.bt_mac, sizeof(d.bt_mac), "%s", bt);
    snprintf(d.wifi_mac, sizeof(d.wifi_mac), "%s", wifi);
    snprintf(d.p2p_mac, sizeof(d.p2p_mac), "%s", p2p);
    d.devstatus = status;
    return d;
}

std::string Names(const std::vector<pxm_core_device_s>& list) {
    std::vector<std::string> names;
    for (const pxm_core_device_s& dev : list) {
        names.push_back(dev.devname);
    }
    return Join(names);
}

std::string Join(const std::vector<std::string>& words, const char* separator) {
    std::string out;
    for (const std::string& word : words) {
        out += (out.empty() ? "" : separator) + word;
    }
    return out;
}

std::string Text(const pxm_core_device_s& d) {
    char out[512];
    snprintf(out, sizeof out, "%s|%s|%s|%s|%s|%s|%d|%d|%d|%d|%d|%d|%llu|%d|%d|%d", d.devname,
             d.bt_mac, d.wifi_mac, d.p2p_mac, d.zel_id, d.mirroring_Id, d.devtype, d.devicon,
             d.devstatus, d.tvInitMirroringSupport, d.isNoUX, d.isUXAlways,
             static_cast<unsigned long long>(d.accessTime), d.updated, d.keyType, d.dy_type);
    return out;
}

std::string Texts(const std::vector<pxm_core_device_s>& list) {
    std::vector<std::string> texts;
    for (const pxm_core_device_s& d : list) {
        texts.push_back(Text(d));
    }
    return Join(texts, "\n");
}

bool LockIsFree(PXMUtil::Mutex& lock) {
    // Detached: a lock left held would block the probe for good.
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> ready = done->get_future();
    std::thread([&lock, done] {
        lock.Lock();
        lock.Unlock();
        done->set_value();
    }).detach();
    return ready.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

::testing::AssertionResult LogsInOrder(const std::vector<std::string>& texts) {
    std::size_t from = 0;
    for (const auto& text : texts) {
        long at = fake::FindLog(text, from);
        if (at < 0) {
            return ::testing::AssertionFailure() << "missing or out of order: " << text;
        }
        from = static_cast<std::size_t>(at) + 1;
    }
    return ::testing::AssertionSuccess();
}

std::vector<std::string> FirstArgs(const std::string& fn) {
    std::vector<std::string> args;
    for (const fake::Call& call : fake::Calls(fn)) {
        args.push_back(call.args.empty() ? "" : call.args[0]);
    }
    return args;
}

Json::Value ParseJson(const std::string& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errors;
    bool parsed = reader->parse(text.data(), text.data() + text.size(), &root, &errors);
    EXPECT_TRUE(parsed) << errors << " in: " << text;
    return parsed ? root : Json::Value(Json::nullValue);
}

}  // namespace unit
