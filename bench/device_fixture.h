// Synthetic device lists for the in-process benchmarks, the registry state they start
// from, and the plain-library baselines each measurement is compared with.
#pragma once

#include <benchmark/benchmark.h>
#include <json/json.h>

#include <cstddef>
#include <string>
#include <vector>

#include "pxm_types.h"

class CPXMCore;

namespace bench {

// The list sizes every registry benchmark runs with. Beyond about 150 records the saved
// text outgrows what the daemon reads back from secure storage (64 KiB); the larger size
// still shows how each operation scales.
inline constexpr long kListSizes[] = {10, 100, 1000};

// Registers one run per list size, named N:<size>.
void ForEachListSize(benchmark::internal::Benchmark* b);

// n allowed devices with distinct, valid, upper-case addresses and identifiers.
std::vector<pxm_core_device_s> MakeDevices(std::size_t n);

// The registry singleton, started once as the daemon starts it (thread attributes,
// callbacks, settings) on a freshly seeded fake platform.
CPXMCore& StartedRegistry();

// Waits for every save, then makes the normal list exactly `devices` and the reverse list
// empty, and drops the fake's journal so that it does not grow across runs.
void ResetRegistry(CPXMCore& core, const std::vector<pxm_core_device_s>& devices);

// The device in the middle of `devices` asking again, its addresses in lower case so that
// finding it takes comparisons that ignore case.
pxm_core_device_s MergeRequest(const std::vector<pxm_core_device_s>& devices);

// Baseline of a merge: every record's three addresses compared, ignoring case, with the
// request's; the number of records that share at least one.
int CaseInsensitiveScan(const std::vector<pxm_core_device_s>& devices,
                        const pxm_core_device_s& request);

// Baseline of the list JSON: the same document built straight from the records.
Json::Value DirectListJson(const std::vector<pxm_core_device_s>& devices);

// What secure storage holds for `devices`: the version line "2" and the list JSON.
std::string StoredListText(const std::vector<pxm_core_device_s>& devices);

// Parses a list JSON document; false (and `root` unspecified) when it is not one.
bool ParseListJson(const std::string& text, Json::Value* root);

}  // namespace bench
