// Loading a stored version-2 list of N records (DB_OpenFile: read from secure storage,
// parse, fill both lists), against JsonCpp parsing the same text.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "CPXMCore.h"
#include "device_fixture.h"
#include "fake_platform.h"
#include "muted_log.h"

namespace {

void LoadQuillon(benchmark::State& state) {
    CPXMCore& core = bench::StartedRegistry();
    const std::vector<pxm_core_device_s> devices =
        bench::MakeDevices(static_cast<std::size_t>(state.range(0)));
    bench::ResetRegistry(core, {});
    const std::string stored = bench::StoredListText(devices);
    fake::SetSecureItem(PXM_STORAGE_ITEM, stored);

    int result = 0;
    const std::uint64_t linesBefore = bench::LogLineCount();
    for (auto _ : state) {
        result = core.DB_OpenFile();
        benchmark::DoNotOptimize(result);
        if (state.iterations() % 1024 == 0) {
            // Each load journals three storage calls: keep the journal small.
            state.PauseTiming();
            fake::ClearJournal();
            state.ResumeTiming();
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stored.size()));
    state.counters["log_lines"] =
        benchmark::Counter(static_cast<double>(bench::LogLineCount() - linesBefore),
                           benchmark::Counter::kAvgIterations);
    // A load that failed early, or kept records of the previous one, is not a load of N.
    if (result < 0 || core.mDeviceList.size() != devices.size() ||
        !core.mReverseDeviceList.empty() ||
        std::string(core.mDeviceList.back().wifi_mac) != devices.back().wifi_mac) {
        state.SkipWithError("the load did not yield the stored list");
    }
}

void LoadBaseline(benchmark::State& state) {
    const std::vector<pxm_core_device_s> devices =
        bench::MakeDevices(static_cast<std::size_t>(state.range(0)));
    const std::string json = bench::StoredListText(devices).substr(2);
    Json::Value root;
    for (auto _ : state) {
        // A reader per load, as the daemon makes one.
        Json::CharReaderBuilder builder;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        std::string errors;
        bool parsed = reader->parse(json.data(), json.data() + json.size(), &root, &errors);
        benchmark::DoNotOptimize(parsed);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(json.size()));
    if (!root.isArray() || root.size() != devices.size()) {
        state.SkipWithError("the baseline did not parse the whole list");
    }
}

}  // namespace

BENCHMARK(LoadQuillon)->Name("load/quillon")->Apply(bench::ForEachListSize)->UseRealTime();
BENCHMARK(LoadBaseline)->Name("load/baseline")->Apply(bench::ForEachListSize)->UseRealTime();
