#include "engine/memory_policy.h"

#include <benchmark/benchmark.h>

// The benchmarks run with the memory policy of the application they measure.
int main(int argc, char** argv) {
    clarovi::engine::keepFreedMemoryForReuse();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
