// halvern run as a whole process against cp on the same 256 MiB internal
// image, side by side in one run: throughput of each, and the ratio of
// halvern's throughput to cp's (vs_cp).  HALVERN_TIMING=1 halvern run ...
// tells how a run's time splits into loading, processing and writing.
#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "process_timer.h"

extern char **environ;

namespace {

constexpr uint32_t kWidth = 8192, kHeight = 32768; // 8-bit grey: 256 MiB of samples

struct Fixture {
    std::string dir, input;
    uint64_t bytes = 0;
    double cpSeconds = 0; // best cp time, the baseline of the ratios
};

Fixture &Shared() {
    static Fixture fixture = [] {
        Fixture f;
        char templ[] = "/tmp/halvern-bench-XXXXXX";
        if (mkdtemp(templ) == nullptr)
            std::abort();
        f.dir = templ;
        f.input = f.dir + "/in.hv";
        FILE *out = std::fopen(f.input.c_str(), "wb");
        std::string header = "[ID]\nformat: internal\nbinary: " + std::string(4, '\0') +
                             "\nversion: 2.1\narchitecture: type 2\n\n[Raster]\npixels: " + std::to_string(kWidth) +
                             "\nscanlines: " + std::to_string(kHeight) +
                             "\n\n[Encoding]\nimageParts: 1 0 0\nbytes/sl: " + std::to_string(kWidth) +
                             "\nbits/sample: 8\ninterleave: scanline\n\n[Photometry]\nname: grayLinear\n\n[End]\f\n";
        std::fwrite(header.data(), 1, header.size(), out);
        std::vector<unsigned char> line(kWidth);
        for (uint32_t y = 0; y < kHeight; ++y) {
            for (uint32_t x = 0; x < kWidth; ++x)
                line[x] = (unsigned char)(x * 7 + y);
            std::fwrite(line.data(), 1, line.size(), out);
        }
        std::fclose(out);
        f.bytes = header.size() + (uint64_t)kWidth * kHeight;
        // The fixture is gone by the time atexit handlers run: keep the command.
        static char removal[256];
        std::snprintf(removal, sizeof removal, "rm -rf '%s'", f.dir.c_str());
        std::atexit([] { (void)!std::system(removal); });
        return f;
    }();
    return fixture;
}

void TimeProcess(benchmark::State &state, const std::vector<std::string> &args, const std::string &output,
                 bool baseline) {
    Fixture &f = Shared();
    double best = 1e9;
    for (auto _ : state) {
        double seconds = SpawnSeconds(args);
        if (seconds < 0) {
            state.SkipWithError("the process failed");
            break;
        }
        state.SetIterationTime(seconds);
        best = seconds < best ? seconds : best;
        state.PauseTiming();
        unlink(output.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.bytes));
    if (baseline)
        f.cpSeconds = best;
    else if (f.cpSeconds > 0)
        state.counters["vs_cp"] = f.cpSeconds / best; // halvern throughput / cp throughput
}

void BM_Cp(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {"/bin/cp", f.input, f.dir + "/cp.out"}, f.dir + "/cp.out", true);
}

void BM_HalvernCopy(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {HALVERN_PATH, "run", "copy", f.input, f.dir + "/copy.out"}, f.dir + "/copy.out", false);
}

void BM_HalvernInvert(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {HALVERN_PATH, "run", "invert", f.input, f.dir + "/invert.out"}, f.dir + "/invert.out",
                false);
}

// The same road with no function in it: what the host itself costs.
void BM_HalvernConvert(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {HALVERN_PATH, "convert", f.input, f.dir + "/convert.out", "--format", "internal"},
                f.dir + "/convert.out", false);
}

// cp first: its best time is the baseline of the ratios.
BENCHMARK(BM_Cp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_HalvernCopy)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_HalvernInvert)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_HalvernConvert)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

BENCHMARK_MAIN();
