#include "device_fixture.h"

#include <strings.h>

#include <cctype>
#include <cstdio>
#include <memory>

#include "CPXMCore.h"
#include "fake_platform.h"

namespace bench {

void ForEachListSize(benchmark::internal::Benchmark* b) {
    b->ArgName("N");
    for (long n : kListSizes) {
        b->Arg(n);
    }
}

namespace {

template <std::size_t N>
void Put(char (&field)[N], const char* format, unsigned value) {
    std::snprintf(field, N, format, value);
}

// The device number sits in the middle bytes so that no address is ever all zeros.
void Address(char (&field)[PXM_MAC_LEN], unsigned k, unsigned kind) {
    std::snprintf(field, sizeof(field), "A0:B1:%02X:%02X:C2:%02X", (k >> 8) & 0xFFu, k & 0xFFu,
                  kind & 0xFFu);
}

std::string Text(const char* field, std::size_t capacity) {
    return std::string(field, strnlen(field, capacity));
}

}  // namespace

std::vector<pxm_core_device_s> MakeDevices(std::size_t n) {
    std::vector<pxm_core_device_s> devices(n);
    for (std::size_t i = 0; i < n; ++i) {
        pxm_core_device_s& dev = devices[i];
        unsigned k = static_cast<unsigned>(i) + 1;
        Put(dev.devname, "Living room phone %u", k);
        Address(dev.bt_mac, k, 0x01);
        Address(dev.wifi_mac, k, 0x02);
        Address(dev.p2p_mac, k, 0x03);
        Put(dev.zel_id, "zel-%06u", k);
        Put(dev.mirroring_Id, "mirror-%06u", k);
        dev.devtype = 1;
        dev.devicon = 3;
        dev.devstatus = PXM_DEV_ALLOWED;
        dev.tvInitMirroringSupport = 1;
        dev.isNoUX = 1;
        dev.isUXAlways = 0;
        dev.accessTime = 1700000000000ULL + k;
        dev.updated = 0;
        dev.keyType = PXM_KEY_BT;
        dev.dy_type = 0;
    }
    return devices;
}

CPXMCore& StartedRegistry() {
    static CPXMCore* core = [] {
        fake::Reset();
        fake::SeedDefaultSettings();
        CPXMCore* started = CPXMCore::GetInstance();
        started->Init();
        return started;
    }();
    return *core;
}

void ResetRegistry(CPXMCore& core, const std::vector<pxm_core_device_s>& devices) {
    core.DB_WaitForSaves();
    core.mPXMLock.Lock();
    core.mDeviceList = devices;
    core.mReverseDeviceList.clear();
    core.mPXMLock.Unlock();
    fake::ClearJournal();
}

pxm_core_device_s MergeRequest(const std::vector<pxm_core_device_s>& devices) {
    pxm_core_device_s request = devices[devices.size() / 2];
    for (char* field : {request.bt_mac, request.wifi_mac, request.p2p_mac}) {
        for (char* c = field; *c != '\0'; ++c) {
            *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        }
    }
    return request;
}

int CaseInsensitiveScan(const std::vector<pxm_core_device_s>& devices,
                        const pxm_core_device_s& request) {
    int matches = 0;
    for (const pxm_core_device_s& rec : devices) {
        // All three compared, as the merge compares all three before deciding.
        bool bt = strncasecmp(request.bt_mac, rec.bt_mac, PXM_MAC_LEN) == 0;
        bool wifi = strncasecmp(request.wifi_mac, rec.wifi_mac, PXM_MAC_LEN) == 0;
        bool p2p = strncasecmp(request.p2p_mac, rec.p2p_mac, PXM_MAC_LEN) == 0;
        matches += (bt || wifi || p2p) ? 1 : 0;
    }
    return matches;
}

Json::Value DirectListJson(const std::vector<pxm_core_device_s>& devices) {
    Json::Value root(Json::arrayValue);
    for (const pxm_core_device_s& dev : devices) {
        Json::Value item(Json::objectValue);
        item["devname"] = Text(dev.devname, sizeof(dev.devname));
        item["bt_mac"] = Text(dev.bt_mac, sizeof(dev.bt_mac));
        item["wifi_mac"] = Text(dev.wifi_mac, sizeof(dev.wifi_mac));
        item["p2p_mac"] = Text(dev.p2p_mac, sizeof(dev.p2p_mac));
        item["zel_id"] = Text(dev.zel_id, sizeof(dev.zel_id));
        item["mirroring_Id"] = Text(dev.mirroring_Id, sizeof(dev.mirroring_Id));
        item["devtype"] = dev.devtype;
        item["devicon"] = dev.devicon;
        item["devstatus"] = dev.devstatus;
        item["tvInitMirroringSupport"] = dev.tvInitMirroringSupport;
        item["isNoUX"] = dev.isNoUX;
        item["isUXAlways"] = dev.isUXAlways;
        item["accessTime"] = static_cast<Json::Int64>(dev.accessTime);
        item["keyType"] = dev.keyType;
        item["dy_type"] = dev.dy_type;
        Json::Value element(Json::objectValue);
        element["item_data"] = std::move(item);
        root.append(std::move(element));
    }
    return root;
}

std::string StoredListText(const std::vector<pxm_core_device_s>& devices) {
    Json::StreamWriterBuilder builder;
    return "2\n" + Json::writeString(builder, DirectListJson(devices));
}

bool ParseListJson(const std::string& text, Json::Value* root) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    return reader->parse(text.data(), text.data() + text.size(), root, &errors) && root->isArray();
}

}  // namespace bench
