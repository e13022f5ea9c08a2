// The floor of one change: the work the daemon must do for every stored device whatever
// else it does, done here in process with JsonCpp as the daemon does it. The save thread
// writes both lists as one document with JsonCpp's default writer; the bus handler builds the
// backup payload (the normal list as backup entries) and the entry of the changed device.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

#include "pxm_types.h"

namespace bench {

// Devices 0 .. n-1 as the bus benchmarks store them (bus_batch.h names and addresses), allowed,
// their access times one second apart and ending a minute before `now_ms`, so that a new request is
// always the newest and evicts nobody.
std::vector<pxm_core_device_s> MakeBenchDevices(long n, int64_t now_ms);

// The stored list document: [{"item_data": {15 members}}, ...].
Json::Value SavedListDocument(const std::vector<pxm_core_device_s>& devices);

// The text secure storage holds for `devices`: "2", a line feed and the document.
std::string StoredListText(const std::vector<pxm_core_device_s>& devices);

// One change's floor: the saved document and the backup payload built and written, and the
// changed device's entry written. Returns the bytes written, so that nothing is left out.
std::size_t FloorOnce(const std::vector<pxm_core_device_s>& devices);

// The median time of FloorOnce over `reps` runs, in microseconds.
double MeasureFloorUs(const std::vector<pxm_core_device_s>& devices, int reps);

}  // namespace bench
