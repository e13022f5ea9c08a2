#include "floor_work.h"

#include <glib.h>

#include "bus_batch.h"
#include "latency_stats.h"

namespace bench {

namespace {

void SharedMembers(Json::Value& item, const BenchDevice& dev) {
    item["devname"] = dev.devname;
    item["bt_mac"] = dev.bt_mac;
    item["wifi_mac"] = dev.wifi_mac;
    item["p2p_mac"] = dev.p2p_mac;
    item["devtype"] = Json::Value(static_cast<Json::Int>(dev.devtype));
    item["devicon"] = Json::Value(static_cast<Json::Int>(dev.devicon));
    item["devstatus"] = Json::Value(static_cast<Json::Int>(dev.devstatus));
    item["tvInitMirroringSupport"] =
        Json::Value(static_cast<Json::Int>(dev.tvInitMirroringSupport));
    item["isNoUX"] = Json::Value(static_cast<Json::Int>(dev.isNoUX));
    item["isUXAlways"] = Json::Value(static_cast<Json::Int>(dev.isUXAlways));
    item["accessTime"] = Json::Value(static_cast<Json::Int64>(dev.accessTime));
    item["keyType"] = Json::Value(static_cast<Json::Int>(dev.keyType));
}

Json::Value BackupEntry(const BenchDevice& dev) {
    Json::Value item(Json::objectValue);
    SharedMembers(item, dev);
    std::string key;
    for (char c : dev.bt_mac) {
        if (c != ':') {
            key += c;
        }
    }
    Json::Value entry(Json::objectValue);
    entry["key"] = key;
    entry["timestamp"] = Json::Value(static_cast<Json::Int64>(dev.accessTime));
    entry["item_data"] = item;
    return entry;
}

}  // namespace

std::vector<BenchDevice> MakeBenchDevices(long n, int64_t now_ms) {
    std::vector<BenchDevice> devices(static_cast<std::size_t>(n));
    for (long i = 0; i < n; ++i) {
        BenchDevice& dev = devices[static_cast<std::size_t>(i)];
        dev.devname = DeviceName(i);
        dev.bt_mac = DeviceMac(i, 1);
        dev.wifi_mac = DeviceMac(i, 2);
        dev.p2p_mac = DeviceMac(i, 3);
        dev.zel_id = "zel";
        dev.mirroring_Id = "mirror";
        dev.accessTime = now_ms - 60000 - (n - i) * 1000;
    }
    return devices;
}

Json::Value SavedListDocument(const std::vector<BenchDevice>& devices) {
    Json::Value root(Json::nullValue);
    Json::Value item(Json::nullValue);
    Json::ArrayIndex index = 0;
    for (const BenchDevice& dev : devices) {
        SharedMembers(item, dev);
        item["zel_id"] = dev.zel_id;
        item["mirroring_Id"] = dev.mirroring_Id;
        item["dy_type"] = Json::Value(static_cast<Json::Int>(dev.dy_type));
        root[index++]["item_data"] = item;
    }
    return root;
}

std::string StoredListText(const std::vector<BenchDevice>& devices) {
    Json::StreamWriterBuilder builder;
    return "2\n" + Json::writeString(builder, SavedListDocument(devices));
}

std::size_t FloorOnce(const std::vector<BenchDevice>& devices) {
    Json::StreamWriterBuilder builder;
    std::size_t bytes = Json::writeString(builder, SavedListDocument(devices)).size();

    Json::Value backup(Json::nullValue);
    Json::ArrayIndex index = 0;
    for (const BenchDevice& dev : devices) {
        backup[index++] = BackupEntry(dev);
    }
    bytes += Json::writeString(builder, backup).size();
    if (!devices.empty()) {
        bytes += Json::writeString(builder, BackupEntry(devices.back())).size();
    }
    return bytes;
}

double MeasureFloorUs(const std::vector<BenchDevice>& devices, int reps) {
    std::vector<double> samples;
    volatile std::size_t sink = 0;
    for (int i = 0; i < reps; ++i) {
        const gint64 start = g_get_monotonic_time();
        sink = sink + FloorOnce(devices);
        samples.push_back(static_cast<double>(g_get_monotonic_time() - start));
    }
    return Percentile(samples, 50);
}

}  // namespace bench
