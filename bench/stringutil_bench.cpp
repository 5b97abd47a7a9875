// The host's string helpers that the provider's parsers lean on.
#include <benchmark/benchmark.h>

#include <string>

#include "StringUtil.h"

namespace {

const std::string kDeviceId = "0000:03:00.1-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF";
const std::string kPaddedValue = "  \t11.2.156.27; HBAAPI(I) v2.3.d, 07-12-10 \r\n";
const std::string kWwpn = "10:00:00:90:fa:c3:00:01";

void BM_StringUtil_Split(benchmark::State& state) {
    std::string version = "11.2.156.27";
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::Split(version, "."));
}
BENCHMARK(BM_StringUtil_Split);

void BM_StringUtil_strTrimAll(benchmark::State& state) {
    for (auto _ : state) {
        std::string out;
        CStringUtil::strTrimAll(kPaddedValue, out);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_StringUtil_strTrimAll);

// The cache file name's ":" to "-" rewrite.
void BM_StringUtil_strReplace(benchmark::State& state) {
    for (auto _ : state) {
        std::string text = kWwpn;
        CStringUtil::strReplace(text, ":", "-");
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_StringUtil_strReplace);

void BM_StringUtil_StringToUpperCase(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::StringToUpperCase(kWwpn));
}
BENCHMARK(BM_StringUtil_StringToUpperCase);

void BM_StringUtil_IsDigitString(benchmark::State& state) {
    const std::string digits = "156027";
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::IsDigitString(digits));
}
BENCHMARK(BM_StringUtil_IsDigitString);

void BM_StringUtil_CheckVersion4SegFormat(benchmark::State& state) {
    const std::string version = "11.2.156.27";
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::CheckVersion4SegFormat(version));
}
BENCHMARK(BM_StringUtil_CheckVersion4SegFormat);

void BM_StringUtil_TStringToNumber(benchmark::State& state) {
    const std::string number = "370";
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::TStringToNumber(number));
}
BENCHMARK(BM_StringUtil_TStringToNumber);

void BM_StringUtil_NumberToTString(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(CStringUtil::NumberToTString(370));
}
BENCHMARK(BM_StringUtil_NumberToTString);

void BM_StringUtil_GetVenIdDevIdformDeviceId(benchmark::State& state) {
    for (auto _ : state) {
        std::string vendor, device;
        benchmark::DoNotOptimize(CStringUtil::GetVenIdDevIdformDeviceId(kDeviceId, vendor, device));
        benchmark::DoNotOptimize(device);
    }
}
BENCHMARK(BM_StringUtil_GetVenIdDevIdformDeviceId);

}  // namespace
