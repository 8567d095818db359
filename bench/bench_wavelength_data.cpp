// Spectra through their managers against the plain work on the same data:
//   binary  a 64 MiB "1.0-binary" file read and written through the
//           manager in loads of 512 measurements of 500 samples (1 MB),
//           against read()/write() of the same bytes in blocks of 1 MB
//           (target: at least 0.8x)
//   ascii   the samples of "1.0-ascii" text (4 MB) loaded through the
//           manager from a memory stream, against a strtof() loop over the
//           same text; and emitted to a memory stream, against a
//           snprintf(" %g\n") loop into a buffer (target: at least 1x)
// The file lives in the system's temporary directory; the page cache holds
// it, so both sides measure the same copy in and out of the kernel.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr uint32_t kSamples = 500;
constexpr uint32_t kBytesPerMeasurement = kSamples * 4;
constexpr uint32_t kMeasurements = (64u << 20) / kBytesPerMeasurement; // 64 MiB of samples
constexpr uint32_t kPerLoad = 512;
constexpr size_t kBlock = (size_t)kPerLoad * kBytesPerMeasurement;
constexpr uint32_t kTextMeasurements = 800; // 400,000 numbers, about 4 MB of text

HVHdrManager Manager(const char *version) {
    HVHdrManager m{};
    HVHdrGetManager_Str("spectral", version, &m);
    return m;
}

HalvHeaderStruct *MakeHeader(const char *version, uint32_t measurements) {
    HVHdrManager m = Manager(version);
    HalvHeaderStruct *h = nullptr;
    HVHdrCreateHeader(m, &h);
    auto *s = reinterpret_cast<HalvSpectralHeader *>(h);
    h->parts[0] = 1;
    h->dims[0] = kSamples;
    h->dims[1] = measurements;
    for (uint32_t i = 0; i < HALV_MAX_SEPARATIONS; ++i)
        h->bitsPerSample[i] = 32;
    s->bytesPerMeasurement = kBytesPerMeasurement;
    s->startWaveLength = 380.0f;
    s->samplingInterval = 0.8f;
    s->wavelengths[0] = HALV_SPECTRAL_NONE;
    return h;
}

/* Samples of the kind spectra hold: fractions with a few digits. */
std::vector<float> Samples(size_t count) {
    std::vector<float> values(count);
    uint32_t seed = 12345;
    for (size_t i = 0; i < count; ++i) {
        seed = seed * 1103515245u + 12345u;
        values[i] = (float)((seed >> 8) % 1000000) / 1000000.0f * (i % 7 == 0 ? 150.0f : 1.0f);
    }
    return values;
}

struct Files {
    std::string path = (std::filesystem::temp_directory_path() / "halv_bench_spectral.hvs").string();
    std::string scratch = (std::filesystem::temp_directory_path() / "halv_bench_spectral_out.hvs").string();
    std::vector<float> values = Samples((size_t)kMeasurements * kSamples);
    uint64_t dataBytes = (uint64_t)kMeasurements * kBytesPerMeasurement;
    std::string text;           // "1.0-ascii" data of kTextMeasurements
    std::vector<float> printed; // what the text holds, for emitting

    Files() {
        HVHdrManager m = Manager("1.0-binary");
        HalvHeaderStruct *h = MakeHeader("1.0-binary", kMeasurements);
        HalvIO *out = HalvIO_FileName(path.c_str(), "w");
        HVHdrWrite_Header(h, &m, out);
        HalvChunk c{0, 0, kMeasurements, (uint32_t)dataBytes, (uint32_t)dataBytes, 0, values.data()};
        HVHdrFromChunk(m, h, &c, out);
        out->close(out);
        h->free(h);
        char number[64];
        size_t count = (size_t)kTextMeasurements * kSamples;
        for (size_t i = 0; i < count; ++i) {
            std::snprintf(number, sizeof number, " %g\n", (double)values[i]);
            text += number;
            printed.push_back(std::strtof(number, nullptr));
        }
    }
    ~Files() {
        std::remove(path.c_str());
        std::remove(scratch.c_str());
    }
};

Files &Data() {
    static Files files;
    return files;
}

// ---- binary ----

void BM_BinaryRead_Manager(benchmark::State &state) {
    Files &f = Data();
    for (auto _ : state) {
        HalvIO *in = HalvIO_FileName(f.path.c_str(), "r");
        HVHdrManager m{};
        HalvHeaderStruct *h = nullptr;
        HVHdrRead_Header(in, &m, &h);
        HalvChunk chunk{};
        uint64_t got = 0;
        do {
            if (HVHdrToChunkLines(m, h, in, &chunk, kPerLoad) != 1)
                break;
            got += chunk.bytes;
        } while (!(chunk.flags & HALV_CHUNK_END));
        if (got != f.dataBytes)
            state.SkipWithError("short read");
        h->free(h);
        in->close(in);
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.dataBytes));
}

void BM_BinaryRead_Plain(benchmark::State &state) {
    Files &f = Data();
    std::vector<char> block(kBlock);
    for (auto _ : state) {
        int fd = open(f.path.c_str(), O_RDONLY | O_CLOEXEC);
        uint64_t got = 0;
        ssize_t n;
        while ((n = read(fd, block.data(), block.size())) > 0)
            got += (uint64_t)n;
        benchmark::DoNotOptimize(got);
        close(fd);
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.dataBytes));
}

void BM_BinaryWrite_Manager(benchmark::State &state) {
    Files &f = Data();
    HVHdrManager m = Manager("1.0-binary");
    HalvHeaderStruct *h = MakeHeader("1.0-binary", kMeasurements);
    for (auto _ : state) {
        HalvIO *out = HalvIO_FileName(f.scratch.c_str(), "w");
        HVHdrWrite_Header(h, &m, out);
        for (uint32_t at = 0; at < kMeasurements; at += kPerLoad) {
            uint32_t lines = kMeasurements - at < kPerLoad ? kMeasurements - at : kPerLoad;
            HalvChunk c{0, 0, lines, lines * kBytesPerMeasurement, lines * kBytesPerMeasurement, 0,
                        f.values.data() + (size_t)at * kSamples};
            HVHdrFromChunk(m, h, &c, out);
        }
        out->close(out);
    }
    h->free(h);
    state.SetBytesProcessed((int64_t)(state.iterations() * f.dataBytes));
}

void BM_BinaryWrite_Plain(benchmark::State &state) {
    Files &f = Data();
    const char *bytes = reinterpret_cast<const char *>(f.values.data());
    for (auto _ : state) {
        int fd = open(f.scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        for (uint64_t at = 0; at < f.dataBytes; at += kBlock) {
            size_t n = f.dataBytes - at < kBlock ? (size_t)(f.dataBytes - at) : kBlock;
            if (write(fd, bytes + at, n) != (ssize_t)n)
                state.SkipWithError("short write");
        }
        close(fd);
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.dataBytes));
}

// ---- ascii ----

void BM_AsciiLoad_Manager(benchmark::State &state) {
    Files &f = Data();
    HVHdrManager m = Manager("1.0-ascii");
    HalvHeaderStruct *h = MakeHeader("1.0-ascii", kTextMeasurements);
    std::string text = f.text;
    HalvIO *in = HalvIO_Str(text.data(), (uint32_t)text.size());
    uint64_t numbers = 0;
    for (auto _ : state) {
        HalvIOStrReset(in);
        reinterpret_cast<HalvSpectralHeader *>(h)->linesRead = 0;
        HalvChunk chunk{};
        do {
            if (HVHdrToChunkLines(m, h, in, &chunk, 100) != 1)
                break;
            numbers += chunk.bytes / 4;
        } while (!(chunk.flags & HALV_CHUNK_END));
    }
    if (numbers != state.iterations() * (uint64_t)kTextMeasurements * kSamples)
        state.SkipWithError("not every number was read");
    in->close(in);
    h->free(h);
    state.SetBytesProcessed((int64_t)(state.iterations() * text.size()));
}

void BM_AsciiLoad_Strtof(benchmark::State &state) {
    Files &f = Data();
    std::vector<float> values((size_t)kTextMeasurements * kSamples);
    for (auto _ : state) {
        const char *p = f.text.c_str();
        char *end = nullptr;
        size_t i = 0;
        for (float v = std::strtof(p, &end); end != p; v = std::strtof(p, &end)) {
            values[i++] = v;
            p = end;
        }
        benchmark::DoNotOptimize(values.data());
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.text.size()));
}

void BM_AsciiEmit_Manager(benchmark::State &state) {
    Files &f = Data();
    HVHdrManager m = Manager("1.0-ascii");
    HalvHeaderStruct *h = MakeHeader("1.0-ascii", kTextMeasurements);
    HalvIO *out = HalvIO_Mem((uint32_t)f.text.size() + 1024);
    std::vector<float> values = f.printed;
    for (auto _ : state) {
        out->seek(out, 0, 0);
        for (uint32_t at = 0; at < kTextMeasurements; at += 100) {
            HalvChunk c{0, 0, 100, 100 * kBytesPerMeasurement, 100 * kBytesPerMeasurement, 0,
                        values.data() + (size_t)at * kSamples};
            HVHdrFromChunk(m, h, &c, out);
        }
    }
    if (HalvIOMemLength(out) != f.text.size() ||
        std::memcmp(HalvIOMemBuffer(out), f.text.data(), f.text.size()) != 0)
        state.SkipWithError("the text differs from snprintf's");
    out->close(out);
    h->free(h);
    state.SetBytesProcessed((int64_t)(state.iterations() * f.text.size()));
}

void BM_AsciiEmit_Snprintf(benchmark::State &state) {
    Files &f = Data();
    std::vector<char> text(f.text.size() + 64);
    for (auto _ : state) {
        size_t used = 0;
        for (float v : f.printed)
            used += (size_t)std::snprintf(text.data() + used, text.size() - used, " %g\n", (double)v);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed((int64_t)(state.iterations() * f.text.size()));
}

} // namespace

BENCHMARK(BM_BinaryRead_Manager)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BinaryRead_Plain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BinaryWrite_Manager)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BinaryWrite_Plain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AsciiLoad_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AsciiLoad_Strtof)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AsciiEmit_Manager)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AsciiEmit_Snprintf)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv,
                                {{"binary read, 64 MiB (target 0.8x)", "BM_BinaryRead_Manager", "BM_BinaryRead_Plain"},
                                 {"binary write, 64 MiB (target 0.8x)", "BM_BinaryWrite_Manager", "BM_BinaryWrite_Plain"},
                                 {"ascii load against strtof (target 1x)", "BM_AsciiLoad_Manager", "BM_AsciiLoad_Strtof"},
                                 {"ascii emit against snprintf (target 1x)", "BM_AsciiEmit_Manager",
                                  "BM_AsciiEmit_Snprintf"}});
}
