// HalvGetenv of a name already in the override list (the common case: a
// variable read once), beside the C library's getenv of the same name.
// Google Benchmark's time per iteration is the cost of one lookup.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>

#include "dpk_hvsup.h"

namespace {

constexpr const char *kName = "BENCH_GETENV_NAME";

/* A started engine whose list holds the name behind twenty others, as after
 * a registry's variables section. */
void StartEngine() {
    static bool started = [] {
        setenv(kName, "/some/value", 1);
        HalvernDisableRegistryLoad(1);
        HalvernInit();
        HalvGetenv(kName);
        for (int i = 0; i < 20; ++i)
            HalvSetenv(("BENCH_OTHER_" + std::to_string(i)).c_str(), "x");
        return true;
    }();
    (void)started;
}

void BM_HalvGetenv_Cached(benchmark::State &state) {
    StartEngine();
    for (auto _ : state)
        benchmark::DoNotOptimize(HalvGetenv(kName));
}

void BM_HalvGetenv_Default(benchmark::State &state) {
    StartEngine(); // HV_ROTATE_BUFFERSIZE: every layer is asked, the default answers
    for (auto _ : state)
        benchmark::DoNotOptimize(HalvGetenv("HV_ROTATE_BUFFERSIZE"));
}

void BM_LibcGetenv(benchmark::State &state) {
    StartEngine();
    for (auto _ : state)
        benchmark::DoNotOptimize(getenv(kName));
}

BENCHMARK(BM_HalvGetenv_Cached);
BENCHMARK(BM_HalvGetenv_Default);
BENCHMARK(BM_LibcGetenv);

} // namespace

BENCHMARK_MAIN();
