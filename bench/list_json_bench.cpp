// The list JSON of N records (Util_GetJsonStringForDeviceList, what every save writes),
// against JsonCpp writing the same document built straight from the records.
#include <benchmark/benchmark.h>

#include <string>

#include "CPXMCore.h"
#include "device_fixture.h"
#include "muted_log.h"

namespace {

void ListJsonQuillon(benchmark::State& state) {
    CPXMCore& core = bench::StartedRegistry();
    const std::vector<pxm_core_device_s> devices =
        bench::MakeDevices(static_cast<std::size_t>(state.range(0)));
    bench::ResetRegistry(core, devices);

    // The baseline must write the very same text, or the ratio compares different work.
    Json::StreamWriterBuilder builder;
    const std::string expected = Json::writeString(builder, bench::DirectListJson(devices));

    std::string out;
    const std::uint64_t linesBefore = bench::LogLineCount();
    for (auto _ : state) {
        // Saves read the lists under mPXMLock; so does this, to pay what a save pays.
        core.mPXMLock.Lock();
        core.Util_GetJsonStringForDeviceList(out);
        core.mPXMLock.Unlock();
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["log_lines"] =
        benchmark::Counter(static_cast<double>(bench::LogLineCount() - linesBefore),
                           benchmark::Counter::kAvgIterations);
    if (out != expected) {
        state.SkipWithError("the baseline document differs from the daemon's");
    }
}

void ListJsonBaseline(benchmark::State& state) {
    const std::vector<pxm_core_device_s> devices =
        bench::MakeDevices(static_cast<std::size_t>(state.range(0)));
    Json::StreamWriterBuilder builder;
    std::string out;
    for (auto _ : state) {
        out = Json::writeString(builder, bench::DirectListJson(devices));
        benchmark::DoNotOptimize(out.data());
    }
    Json::Value root;
    if (!bench::ParseListJson(out, &root) || root.size() != devices.size()) {
        state.SkipWithError("the baseline did not write the whole list");
    }
}

}  // namespace

BENCHMARK(ListJsonQuillon)->Name("list_json/quillon")->Apply(bench::ForEachListSize)->UseRealTime();
BENCHMARK(ListJsonBaseline)
    ->Name("list_json/baseline")
    ->Apply(bench::ForEachListSize)
    ->UseRealTime();
