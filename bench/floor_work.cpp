#include "floor_work.h"

#include <glib.h>

#include "bus_batch.h"
#include "device_json.h"
#include "latency_stats.h"

namespace bench {

namespace {

Json::Value BackupEntry(const pxm_core_device_s& dev) {
    Json::Value item(Json::objectValue);
    pxm_json::WriteSharedMembers(item, dev);
    std::string key;
    for (char c : pxm_text::FieldString(dev.bt_mac)) {
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

std::vector<pxm_core_device_s> MakeBenchDevices(long n, int64_t now_ms) {
    std::vector<pxm_core_device_s> devices(static_cast<std::size_t>(n));
    for (long i = 0; i < n; ++i) {
        pxm_core_device_s& dev = devices[static_cast<std::size_t>(i)];
        pxm_text::CopyField(dev.devname, DeviceName(i).c_str());
        pxm_text::CopyField(dev.bt_mac, DeviceMac(i, 1).c_str());
        pxm_text::CopyField(dev.wifi_mac, DeviceMac(i, 2).c_str());
        pxm_text::CopyField(dev.p2p_mac, DeviceMac(i, 3).c_str());
        pxm_text::CopyField(dev.zel_id, "zel");
        pxm_text::CopyField(dev.mirroring_Id, "mirror");
        dev.devtype = 1;
        dev.devicon = 1;
        dev.isNoUX = 1;
        dev.accessTime = static_cast<uint64_t>(now_ms - 60000 - (n - i) * 1000);
    }
    return devices;
}

Json::Value SavedListDocument(const std::vector<pxm_core_device_s>& devices) {
    Json::Value root(Json::nullValue);
    Json::Value item(Json::nullValue);
    Json::ArrayIndex index = 0;
    for (const pxm_core_device_s& dev : devices) {
        pxm_json::WriteSharedMembers(item, dev);
        item["zel_id"] = pxm_text::FieldString(dev.zel_id);
        item["mirroring_Id"] = pxm_text::FieldString(dev.mirroring_Id);
        item["dy_type"] = Json::Value(static_cast<Json::Int>(dev.dy_type));
        root[index++]["item_data"] = item;
    }
    return root;
}

std::string StoredListText(const std::vector<pxm_core_device_s>& devices) {
    Json::StreamWriterBuilder builder;
    return "2\n" + Json::writeString(builder, SavedListDocument(devices));
}

std::size_t FloorOnce(const std::vector<pxm_core_device_s>& devices) {
    Json::StreamWriterBuilder builder;
    std::size_t bytes = Json::writeString(builder, SavedListDocument(devices)).size();

    Json::Value backup(Json::nullValue);
    Json::ArrayIndex index = 0;
    for (const pxm_core_device_s& dev : devices) {
        backup[index++] = BackupEntry(dev);
    }
    bytes += Json::writeString(builder, backup).size();
    if (!devices.empty()) {
        bytes += Json::writeString(builder, BackupEntry(devices.back())).size();
    }
    return bytes;
}

double MeasureFloorUs(const std::vector<pxm_core_device_s>& devices, int reps) {
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
