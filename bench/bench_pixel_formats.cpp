// The two newest stored formats against the plain work on the same data:
//   convert  halvern convert of a 256 MiB internal image into pixr, as a
//            whole process, against cp of the same file (target: at least
//            0.7x)
//   text     a pixel stream of 10 million 8-bit samples (grey, one a
//            pixel, a pixel a line as the format writes it) loaded through
//            its manager from a memory stream, in loads of 65536 pixels, against a strtol() loop over the same text into
//            a byte array (target: at least 1x)
// The image lives in the system's temporary directory; the page cache
// holds it, so both processes read the same copy.
#include <benchmark/benchmark.h>

#include "process_timer.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

extern char **environ;

namespace {

constexpr uint32_t kWidth = 8192, kHeight = 32768; // 8-bit grey: 256 MiB of samples
constexpr uint32_t kSamples = 10000000;
constexpr uint32_t kPixelsPerLoad = 65536;

struct Image {
    std::string dir, input;
    uint64_t bytes = 0;
};

Image &SharedImage() {
    static Image image = [] {
        Image f;
        char templ[] = "/tmp/halv-bench-pixels-XXXXXX";
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
    return image;
}

void TimeProcess(benchmark::State &state, std::vector<std::string> args, const std::string &output) {
    Image &f = SharedImage();
    for (auto _ : state) {
        double seconds = SpawnSeconds(args);
        if (seconds < 0) {
            state.SkipWithError("the process failed");
            break;
        }
        state.SetIterationTime(seconds);
        state.PauseTiming();
        unlink(output.c_str());
        state.ResumeTiming();
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.bytes));
}

void BM_Cp(benchmark::State &state) {
    Image &f = SharedImage();
    TimeProcess(state, {"/bin/cp", f.input, f.dir + "/cp.out"}, f.dir + "/cp.out");
}

void BM_ConvertToPixr(benchmark::State &state) {
    Image &f = SharedImage();
    TimeProcess(state, {HALVERN_PATH, "convert", f.input, f.dir + "/out.pixr", "--format", "pixr"},
                f.dir + "/out.pixr");
}

// ---- pixel stream text ----

struct Text {
    std::string header =
        "[ID]\nformat: pixelstream\nversion: 1.0-ascii\n\n[Encoding]\nimageParts: 1 0 0\nbits/sample: 8\n\n[End]\f\n";
    std::string data; // what follows the header: " %u" and a line feed each
    Text() {
        uint32_t seed = 12345;
        char number[8];
        for (uint32_t i = 0; i < kSamples; ++i) {
            seed = seed * 1103515245u + 12345u;
            std::snprintf(number, sizeof number, " %u", (seed >> 16) & 0xFF);
            data += number;
            data += '\n';
        }
    }
};

Text &SharedText() {
    static Text text;
    return text;
}

void BM_PixelStreamLoad(benchmark::State &state) {
    Text &t = SharedText();
    std::string whole = t.header + t.data;
    for (auto _ : state) {
        HalvIO *in = HalvIO_Str(whole.data(), (uint32_t)whole.size());
        HVHdrManager m{};
        HalvHeaderStruct *h = nullptr;
        if (HVHdrRead_Header(in, &m, &h) != 1) {
            state.SkipWithError("no header");
            in->close(in);
            break;
        }
        uint64_t got = 0;
        HalvChunk chunk{};
        do {
            if (HVHdrToChunkLines(m, h, in, &chunk, kPixelsPerLoad) != 1)
                break;
            got += chunk.bytes;
        } while (!(chunk.flags & HALV_CHUNK_END));
        if (got != kSamples)
            state.SkipWithError("short load");
        h->free(h);
        in->close(in);
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * t.data.size()));
}

void BM_PixelStreamStrtol(benchmark::State &state) {
    Text &t = SharedText();
    std::vector<unsigned char> samples(kSamples);
    for (auto _ : state) {
        const char *p = t.data.c_str();
        char *end = nullptr;
        uint32_t n = 0;
        for (;;) {
            long v = std::strtol(p, &end, 10);
            if (end == p)
                break;
            samples[n++] = (unsigned char)v;
            p = end;
        }
        benchmark::DoNotOptimize(samples.data());
        if (n != kSamples)
            state.SkipWithError("short scan");
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * t.data.size()));
}

BENCHMARK(BM_Cp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_ConvertToPixr)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_PixelStreamStrtol)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_PixelStreamLoad)->Unit(benchmark::kMillisecond)->MinTime(1.0);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {{"convert internal to pixr, 256 MiB, against cp (target 0.7x)", "BM_ConvertToPixr",
                                  "BM_Cp"},
                                 {"pixel stream load against strtol (target 1x)", "BM_PixelStreamLoad",
                                  "BM_PixelStreamStrtol"}});
}
