// Line parsers and the listing readers of the adapter services.
#include <benchmark/benchmark.h>

#include <list>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "CEmulexCommon.h"

namespace {

using Record = std::map<std::string, std::string>;

void PortCounts(benchmark::internal::Benchmark* bench) {
    bench->ArgName("ports");
    for (int ports : qdmbench::kPortCounts) bench->Arg(ports);
}

// Rows: a key with its value, a key without one, a line of another key.
const char* const kKeyLines[] = {
    "Port WWN       : 10:00:00:90:fa:c3:00:01\n",
    "Port WWN       :   \n",
    "Fabric Name    : 10:00:00:05:1e:0e:4c:71\n",
};

void BM_MatchKeyValueLine(benchmark::State& state) {
    const std::string line = kKeyLines[state.range(0)];
    const std::vector<std::string> keys = {"Port WWN", "Permanent MAC"};
    for (auto _ : state) {
        std::pair<std::string, std::string> result;
        benchmark::DoNotOptimize(CEmulexCommon::MatchKeyValueLine(line, keys, ":", result));
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_MatchKeyValueLine)->ArgName("row")->DenseRange(0, 2);

// Rows: the success line, a retryable error, a fatal error, a line that decides nothing.
const char* const kListhbasLines[] = {
    "Serial No.     : FC16100000",
    "ERROR: <64>: Adapter busy, retry later",
    "ERROR: <251>: Command failed",
    "Fabric Name    : 10:00:00:05:1e:0e:4c:71",
};

void BM_ClassifyListhbasLine(benchmark::State& state) {
    const std::string line = kListhbasLines[state.range(0)];
    for (auto _ : state) benchmark::DoNotOptimize(CEmulexCommon::ClassifyListhbasLine(line));
}
BENCHMARK(BM_ClassifyListhbasLine)->ArgName("row")->DenseRange(0, 3);

// Rows: a success message line, an end message line (no match for the prefix).
const char* const kMessageLines[] = {
    "SuccessMessage=Firmware image applied\n",
    "EndMessage=Download session closed\n",
};

void BM_ParseUpdateMessageLine(benchmark::State& state) {
    const std::string line = kMessageLines[state.range(0)];
    for (auto _ : state) {
        std::string text;
        benchmark::DoNotOptimize(CEmulexCommon::ParseUpdateMessageLine(line, "SuccessMessage=", text));
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_ParseUpdateMessageLine)->ArgName("row")->DenseRange(0, 1);

// The bus of the last port, so the whole listing is walked.
void BM_ListingFunctionMultiplier(benchmark::State& state) {
    const int ports = static_cast<int>(state.range(0));
    const std::string listing = qdmbench::ListingText(ports);
    const int lastBus = 3 + (ports - 1) / 2;
    for (auto _ : state) {
        std::istringstream in(listing);
        benchmark::DoNotOptimize(CEmulexCommon::ListingFunctionMultiplier(in, lastBus));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * listing.size()));
}
BENCHMARK(BM_ListingFunctionMultiplier)->Apply(PortCounts);

std::string WriteListing(int ports) {
    const std::string path = CEmulexCommon::CacheFilePath("Listhbas.txt");
    qdmbench::WriteFileOrDie(path, qdmbench::ListingText(ports));
    return path;
}

// The last port's WWN: the reader walks every record before it.
void BM_GetKeyValueFromFile(benchmark::State& state) {
    const int ports = static_cast<int>(state.range(0));
    const std::string path = WriteListing(ports);
    for (auto _ : state) {
        std::pair<std::string, std::string> result;
        benchmark::DoNotOptimize(CEmulexCommon::GetKeyValueFromFile_(path, "Port WWN|Permanent MAC", ":", result,
                                                                     static_cast<unsigned>(ports - 1)));
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_GetKeyValueFromFile)->Apply(PortCounts);

void BM_GetHBAInfoList(benchmark::State& state) {
    const int ports = static_cast<int>(state.range(0));
    WriteListing(ports);
    for (auto _ : state) {
        std::list<Record> adapters;
        if (!CEmulexCommon::GetHBAInfoList(&adapters) || adapters.size() != static_cast<size_t>(ports)) {
            state.SkipWithError("the listing did not parse into one record per port");
            break;
        }
        benchmark::DoNotOptimize(adapters);
    }
    state.counters["cpu_per_port"] = benchmark::Counter(static_cast<double>(ports),
                                                    benchmark::Counter::kIsIterationInvariantRate |
                                                        benchmark::Counter::kInvert);
}
BENCHMARK(BM_GetHBAInfoList)->Apply(PortCounts)->Unit(benchmark::kMicrosecond);

}  // namespace
