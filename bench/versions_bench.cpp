// Version normalisation, parsing and comparison.
#include <benchmark/benchmark.h>

#include <string>

#include "CEmulexCommon.h"

namespace {

// Rows: dust behind the last segment, a clean version, a two-part firmware version.
const char* const kDustyVersions[] = {" 4.1.334.0a ", "10.2.370.15", "2.02a4"};

void BM_FormatVersion4SegCleanDust(benchmark::State& state) {
    const std::string version = kDustyVersions[state.range(0)];
    for (auto _ : state) benchmark::DoNotOptimize(CEmulexCommon::FormatVersion4SegCleanDust(version));
}
BENCHMARK(BM_FormatVersion4SegCleanDust)->ArgName("row")->DenseRange(0, 2);

struct VersionPair {
    const char* first;
    const char* second;
};

// Rows: newer in the last segment, equal, malformed (the failure is logged
// to the operator message file, which this row measures too).
const VersionPair k4SegPairs[] = {
    {"11.2.156.27", "11.2.156.28"},
    {"11.2.156.27", "11.2.156.27"},
    {"11.2.156", "11.2.156.27"},
};

void BM_CheckVendorVersion4SegNormal(benchmark::State& state) {
    const VersionPair pair = k4SegPairs[state.range(0)];
    const std::string first = pair.first, second = pair.second;
    for (auto _ : state) benchmark::DoNotOptimize(CEmulexCommon::CheckVendorVersion4SegNormal(first, second));
}
BENCHMARK(BM_CheckVendorVersion4SegNormal)->ArgName("row")->DenseRange(0, 2);

// Rows: a valid version, a long build number, a rejected one (tail not digits).
const char* const kFirmwareVersions[] = {"2.02a4", "1.11x15000", "2.02a4b"};

void BM_CheckVersionFCFirmwareFormat(benchmark::State& state) {
    const std::string version = kFirmwareVersions[state.range(0)];
    for (auto _ : state) {
        long major = 0, minor = 0, build = 0;
        std::string letters;
        benchmark::DoNotOptimize(CEmulexCommon::CheckVersionFCFirmwareFormat(version, major, minor, letters, build));
        benchmark::DoNotOptimize(letters);
    }
}
BENCHMARK(BM_CheckVersionFCFirmwareFormat)->ArgName("row")->DenseRange(0, 2);

// Rows: newer build, letters decide, equal, malformed (logged as above).
const VersionPair kFirmwarePairs[] = {
    {"2.02a4", "2.02a5"},
    {"2.02a4", "2.02b1"},
    {"2.02a4", "2.02a4"},
    {"2.02-4", "2.02a4"},
};

void BM_CheckVendorVersionFCFirmware(benchmark::State& state) {
    const VersionPair pair = kFirmwarePairs[state.range(0)];
    const std::string first = pair.first, second = pair.second;
    for (auto _ : state) benchmark::DoNotOptimize(CEmulexCommon::CheckVendorVersionFCFirmware(first, second));
}
BENCHMARK(BM_CheckVendorVersionFCFirmware)->ArgName("row")->DenseRange(0, 3);

}  // namespace
