// Micro-benchmarks of the provider's parsers, version comparisons and the
// host's string helpers. Every run works in its own install root below /tmp.
#include <benchmark/benchmark.h>

#include "BenchSupport.h"

int main(int argc, char** argv) {
    qdmbench::QuietHost host;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
