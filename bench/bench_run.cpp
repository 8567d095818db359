// halvern run as a whole process against the libvips command line and cp,
// side by side in one run, each on its own native uncompressed format: the
// same 8000 x 8000 8-bit RGB picture as a vips image (.v) and as an
// internal image.  vips invert against halvern run invert, vips copy
// against halvern run copy, cp of each file as the floor.  Then a batch of
// 64 pictures through halvern run invert --out DIR with one job and with
// two: the ratio is what the second worker buys.
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
#include "ratio_report.h"

extern char **environ;

namespace {

constexpr uint32_t kWidth = 8000, kHeight = 8000;     // 192 MB of samples
constexpr uint32_t kBatch = 64, kBatchSide = 1024;    // 64 x 3 MB
constexpr int kIterations = 3;

void WritePpm(const std::string &path, uint32_t width, uint32_t height, uint32_t seed) {
    FILE *out = std::fopen(path.c_str(), "wb");
    if (out == nullptr)
        std::abort();
    std::fprintf(out, "P6\n%u %u\n255\n", width, height);
    std::vector<unsigned char> line((size_t)width * 3);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width * 3; ++x)
            line[x] = (unsigned char)(x * 7 + y * 3 + seed);
        std::fwrite(line.data(), 1, line.size(), out);
    }
    std::fclose(out);
}

struct Fixture {
    std::string dir, vipsInput, halvernInput, batchDir;
    std::vector<std::string> batch;
    bool ready = false;
};

// The same picture made into each tool's own format by the tool itself.
Fixture &Shared() {
    static Fixture fixture = [] {
        Fixture f;
        char templ[] = "/tmp/halvern-bench-run-XXXXXX";
        if (mkdtemp(templ) == nullptr)
            std::abort();
        f.dir = templ;
        std::string ppm = f.dir + "/in.ppm";
        WritePpm(ppm, kWidth, kHeight, 0);
        f.vipsInput = f.dir + "/in.v";
        f.halvernInput = f.dir + "/in.hv";
        f.ready = SpawnSeconds({VIPS_PATH, "copy", ppm, f.vipsInput}) >= 0 &&
                  SpawnSeconds({HALVERN_PATH, "import", ppm, f.halvernInput}) >= 0;
        unlink(ppm.c_str());
        for (uint32_t i = 0; i < kBatch && f.ready; ++i) {
            std::string small = f.dir + "/small.ppm", image = f.dir + "/batch" + std::to_string(i) + ".hv";
            WritePpm(small, kBatchSide, kBatchSide, i);
            f.ready = SpawnSeconds({HALVERN_PATH, "import", small, image}) >= 0;
            f.batch.push_back(image);
            unlink(small.c_str());
        }
        f.batchDir = f.dir + "/out";
        static char removal[256];
        std::snprintf(removal, sizeof removal, "rm -rf '%s'", f.dir.c_str());
        std::atexit([] { (void)!std::system(removal); });
        return f;
    }();
    return fixture;
}

// Times the process; the bytes of samples it handles make the rate, so
// that the ratios compare the tools on the same picture.
void TimeProcess(benchmark::State &state, const std::vector<std::string> &args, const std::string &cleanup,
                 uint64_t samples) {
    Fixture &f = Shared();
    if (!f.ready) {
        state.SkipWithError("the inputs could not be made (is vips installed?)");
        return;
    }
    for (auto _ : state) {
        double seconds = SpawnSeconds(args);
        if (seconds < 0) {
            state.SkipWithError("the process failed");
            break;
        }
        state.SetIterationTime(seconds);
        state.PauseTiming();
        (void)!std::system(("rm -rf '" + cleanup + "'").c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * samples));
}

constexpr uint64_t kSamples = (uint64_t)kWidth * kHeight * 3;

void BM_CpVipsFile(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {"/bin/cp", f.vipsInput, f.dir + "/cp.v"}, f.dir + "/cp.v", kSamples);
}

void BM_CpHalvernFile(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {"/bin/cp", f.halvernInput, f.dir + "/cp.hv"}, f.dir + "/cp.hv", kSamples);
}

void BM_VipsCopy(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {VIPS_PATH, "copy", f.vipsInput, f.dir + "/copy.v"}, f.dir + "/copy.v", kSamples);
}

void BM_HalvernCopy(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {HALVERN_PATH, "run", "copy", f.halvernInput, f.dir + "/copy.hv"}, f.dir + "/copy.hv",
                kSamples);
}

void BM_VipsInvert(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {VIPS_PATH, "invert", f.vipsInput, f.dir + "/invert.v"}, f.dir + "/invert.v", kSamples);
}

void BM_HalvernInvert(benchmark::State &state) {
    Fixture &f = Shared();
    TimeProcess(state, {HALVERN_PATH, "run", "invert", f.halvernInput, f.dir + "/invert.hv"}, f.dir + "/invert.hv",
                kSamples);
}

void Batch(benchmark::State &state, const char *jobs) {
    Fixture &f = Shared();
    std::vector<std::string> args = {HALVERN_PATH, "run", "invert"};
    args.insert(args.end(), f.batch.begin(), f.batch.end());
    args.insert(args.end(), {"--out", f.batchDir, "--jobs", jobs});
    TimeProcess(state, args, f.batchDir, (uint64_t)kBatch * kBatchSide * kBatchSide * 3);
}

void BM_BatchOneJob(benchmark::State &state) { Batch(state, "1"); }
void BM_BatchTwoJobs(benchmark::State &state) { Batch(state, "2"); }

#define PROCESS_BENCHMARK(name) \
    BENCHMARK(name)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(kIterations)
PROCESS_BENCHMARK(BM_CpVipsFile);
PROCESS_BENCHMARK(BM_CpHalvernFile);
PROCESS_BENCHMARK(BM_VipsCopy);
PROCESS_BENCHMARK(BM_HalvernCopy);
PROCESS_BENCHMARK(BM_VipsInvert);
PROCESS_BENCHMARK(BM_HalvernInvert);
PROCESS_BENCHMARK(BM_BatchOneJob);
PROCESS_BENCHMARK(BM_BatchTwoJobs);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {{"halvern run invert vs vips invert", "BM_HalvernInvert", "BM_VipsInvert"},
                                 {"halvern run copy vs vips copy", "BM_HalvernCopy", "BM_VipsCopy"},
                                 {"halvern run copy vs cp", "BM_HalvernCopy", "BM_CpHalvernFile"},
                                 {"vips copy vs cp", "BM_VipsCopy", "BM_CpVipsFile"},
                                 {"batch of 64: --jobs 2 vs --jobs 1", "BM_BatchTwoJobs", "BM_BatchOneJob"}},
                                "ratios (first speed over second speed):");
}
