// A request merging into a stored list of N records (INTERNAL_AddDevice's duplicate path),
// against a plain case-insensitive scan of the same N records.
//   add_merge        the add alone, starting its save included: the benchmark holds the
//                    file lock while it adds, so the save thread waits at that lock instead
//                    of competing with the add, and then finishes untimed
//   add_merge_saved  the add and the save it starts, up to the write to storage: the whole
//                    cost of one change
#include <benchmark/benchmark.h>

#include <optional>
#include <string>

#include "CPXMCore.h"
#include "device_fixture.h"
#include "fake_platform.h"
#include "muted_log.h"

namespace {

// A ratio is only worth printing if every timed call did merge and the last save landed.
void CheckMerged(benchmark::State& state, CPXMCore& core, std::size_t n) {
    core.DB_WaitForSaves();
    if (core.mDeviceList.size() != n) {
        state.SkipWithError("the list changed size: a merge added or lost records");
        return;
    }
    const pxm_core_device_s& target = core.mDeviceList[n / 2];
    if (target.updated != static_cast<int32_t>(state.iterations())) {
        state.SkipWithError("not every add merged into the stored record");
        return;
    }
    std::optional<std::string> stored = fake::SecureItem(PXM_STORAGE_ITEM);
    Json::Value root;
    if (!stored || stored->rfind("2\n", 0) != 0 ||
        !bench::ParseListJson(stored->substr(2), &root) || root.size() != n) {
        state.SkipWithError("no complete save of the list landed in storage");
        return;
    }
    const Json::Value& saved = root[static_cast<Json::ArrayIndex>(n / 2)]["item_data"];
    if (saved["accessTime"].asUInt64() != target.accessTime) {
        state.SkipWithError("the last merge never reached storage");
    }
}

void AddMerge(benchmark::State& state, bool timeTheSave) {
    CPXMCore& core = bench::StartedRegistry();
    const std::size_t n = static_cast<std::size_t>(state.range(0));
    const std::vector<pxm_core_device_s> devices = bench::MakeDevices(n);
    const pxm_core_device_s request = bench::MergeRequest(devices);
    bench::ResetRegistry(core, devices);
    fake::SetSecureItem(PXM_STORAGE_ITEM, "");

    const std::uint64_t linesBefore = bench::LogLineCount();
    for (auto _ : state) {
        pxm_core_device_s dev = request;
        if (!timeTheSave) {
            // Taken before mPXMLock, as the one lock order of the daemon wants.
            core.mFileLock.Lock();
        }
        bool added = core.INTERNAL_AddDevice(&dev, PXM_SAVE_NORMAL);
        benchmark::DoNotOptimize(added);
        if (timeTheSave) {
            core.DB_WaitForSaves();
            if (state.iterations() % 64 == 0) {
                // ss_write journals the whole saved text: keep the journal small.
                state.PauseTiming();
                fake::ClearJournal();
                state.ResumeTiming();
            }
        } else {
            state.PauseTiming();
            core.mFileLock.Unlock();
            core.DB_WaitForSaves();
            fake::ClearJournal();
            state.ResumeTiming();
        }
    }
    state.counters["log_lines"] =
        benchmark::Counter(static_cast<double>(bench::LogLineCount() - linesBefore),
                           benchmark::Counter::kAvgIterations);
    CheckMerged(state, core, n);
}

void AddMergeQuillon(benchmark::State& state) {
    AddMerge(state, false);
}

void AddMergeSavedQuillon(benchmark::State& state) {
    AddMerge(state, true);
}

void ScanBaseline(benchmark::State& state) {
    const std::vector<pxm_core_device_s> devices =
        bench::MakeDevices(static_cast<std::size_t>(state.range(0)));
    const pxm_core_device_s request = bench::MergeRequest(devices);
    int matches = 0;
    for (auto _ : state) {
        matches = bench::CaseInsensitiveScan(devices, request);
        benchmark::DoNotOptimize(matches);
    }
    if (matches != 1) {
        state.SkipWithError("the scan did not find exactly the one stored device");
    }
}

}  // namespace

// Each timed add is followed by an untimed save of the whole list, up to a hundred times
// longer at N=1000: a shorter minimum keeps the run's wall time bounded.
BENCHMARK(AddMergeQuillon)
    ->Name("add_merge/quillon")
    ->Apply(bench::ForEachListSize)
    ->UseRealTime()
    ->MinTime(0.01);
BENCHMARK(ScanBaseline)->Name("add_merge/baseline")->Apply(bench::ForEachListSize)->UseRealTime();
BENCHMARK(AddMergeSavedQuillon)
    ->Name("add_merge_saved/quillon")
    ->Apply(bench::ForEachListSize)
    ->UseRealTime();
BENCHMARK(ScanBaseline)
    ->Name("add_merge_saved/baseline")
    ->Apply(bench::ForEachListSize)
    ->UseRealTime();
