// The floor of one change: the work the daemon must do for every stored device whatever
// else it does, done here in process with JsonCpp as the daemon does it. The save thread
// writes both lists as one document with JsonCpp's default writer; the bus handler builds the
// backup payload (the normal list as backup entries) and the entry of the changed device.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// A device as the bus benchmarks store it (bus_batch.h names and addresses).
struct BenchDevice {
    std::string devname, bt_mac, wifi_mac, p2p_mac, zel_id, mirroring_Id;
    int devtype = 1, devicon = 1, devstatus = 0, tvInitMirroringSupport = 0, isNoUX = 1,
        isUXAlways = 0, keyType = 0, dy_type = 0;
    int64_t accessTime = 0;
};

// Devices 0 .. n-1, allowed, their access times one second apart and ending a minute before
// `now_ms`, so that a new request is always the newest and evicts nobody.
std::vector<BenchDevice> MakeBenchDevices(long n, int64_t now_ms);

// The stored list document: [{"item_data": {15 members}}, ...].
Json::Value SavedListDocument(const std::vector<BenchDevice>& devices);

// The text secure storage holds for `devices`: "2", a line feed and the document.
std::string StoredListText(const std::vector<BenchDevice>& devices);

// One change's floor: the saved document and the backup payload built and written, and the
// changed device's entry written. Returns the bytes written, so that nothing is left out.
std::size_t FloorOnce(const std::vector<BenchDevice>& devices);

// The median time of FloorOnce over `reps` runs, in microseconds.
double MeasureFloorUs(const std::vector<BenchDevice>& devices, int reps);

}  // namespace bench
