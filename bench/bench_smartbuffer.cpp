// Smart buffers and file streams against their plain baselines, in one run:
//   - 1 GiB appended to a smart buffer with a 1 MiB memory limit and read
//     back, so nearly all of it goes through spill files, beside the same
//     bytes written to and read back from a plain temporary file with
//     write/read;
//   - 16 MiB through a smart buffer with the built-in limits (15360 bytes
//     in memory, files of 10240 bytes), which creates and deletes a file
//     for every 10 KiB;
//   - 256 MiB through a memory-only smart buffer beside memcpy into and out
//     of one big block;
//   - a file stream by name writing and reading 256 MiB in 64 KiB blocks
//     beside write/read on a descriptor.
// All transfers move 64 KiB per call.  The ratios are printed at the end.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr size_t kChunk = 64 << 10;
constexpr int64_t kSpillBytes = int64_t{1} << 30;
constexpr int64_t kMemoryBytes = int64_t{256} << 20;
constexpr int64_t kStreamBytes = int64_t{256} << 20;
constexpr int64_t kSmallFilesBytes = int64_t{16} << 20;

const std::vector<char> &Chunk() {
    static const std::vector<char> chunk = [] {
        std::vector<char> bytes(kChunk);
        uint32_t x = 2463534242u;
        for (auto &b : bytes) {
            x ^= x << 13;
            x ^= x >> 17;
            x ^= x << 5;
            b = static_cast<char>(x);
        }
        return bytes;
    }();
    return chunk;
}

const char *SpillDirectory() {
    const char *dir = getenv("TMPDIR");
    return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

void SetLimits(const char *memoryMax, const char *tempFileMax) {
    HalvSetenv("HALV_TEMP", SpillDirectory());
    HalvSetenv("HALV_MEMORY_MAX", memoryMax);
    HalvSetenv("HALV_TEMPFILE_MAX", tempFileMax);
}

// Appends total bytes in chunks, then reads them all back.
void ThroughSmartBuffer(benchmark::State &state, int32_t memoryOnly, int64_t total) {
    const auto &chunk = Chunk();
    std::vector<char> in(kChunk);
    for (auto _ : state) {
        HalvSmartBuffer *sb = HalvSBInit(memoryOnly, 1 << 20);
        for (int64_t done = 0; done < total; done += kChunk)
            if (HalvSBAppend(sb, chunk.data(), kChunk) != static_cast<int32_t>(kChunk)) {
                state.SkipWithError("append failed");
                break;
            }
        int64_t read = 0;
        while (uint32_t n = HalvSBRead(sb, in.data(), kChunk))
            read += n;
        benchmark::DoNotOptimize(in.data());
        if (read != total)
            state.SkipWithError("short read");
        HalvSBFree(sb);
    }
    state.SetBytesProcessed(state.iterations() * total);
}

void BM_SmartBuffer_Spilled(benchmark::State &state) {
    SetLimits("1048576", "67108864"); // 1 MiB in memory, files of 64 MiB
    ThroughSmartBuffer(state, 0, kSpillBytes);
}

void BM_SmartBuffer_SpilledDefaultLimits(benchmark::State &state) {
    SetLimits(nullptr, nullptr); // 15360 bytes in memory, files of 10240
    ThroughSmartBuffer(state, 0, kSmallFilesBytes);
}

void BM_PlainTempFile(benchmark::State &state) {
    const auto &chunk = Chunk();
    std::vector<char> in(kChunk);
    std::string pattern = std::string(SpillDirectory()) + "/bench_plainXXXXXX";
    for (auto _ : state) {
        std::vector<char> name(pattern.begin(), pattern.end());
        name.push_back('\0');
        int fd = mkstemp(name.data());
        for (int64_t done = 0; done < kSpillBytes; done += kChunk)
            if (write(fd, chunk.data(), kChunk) != static_cast<ssize_t>(kChunk))
                state.SkipWithError("write failed");
        lseek(fd, 0, SEEK_SET);
        int64_t read = 0;
        while (ssize_t n = ::read(fd, in.data(), kChunk)) {
            if (n < 0)
                break;
            read += n;
        }
        benchmark::DoNotOptimize(in.data());
        if (read != kSpillBytes)
            state.SkipWithError("short read");
        close(fd);
        unlink(name.data());
    }
    state.SetBytesProcessed(state.iterations() * kSpillBytes);
}

void BM_SmartBuffer_Memory(benchmark::State &state) { ThroughSmartBuffer(state, 1, kMemoryBytes); }

void BM_Memcpy(benchmark::State &state) {
    const auto &chunk = Chunk();
    std::vector<char> in(kChunk);
    for (auto _ : state) {
        // A fresh block each pass, as the buffer allocates afresh.
        char *block = static_cast<char *>(malloc(kMemoryBytes));
        for (int64_t done = 0; done < kMemoryBytes; done += kChunk)
            std::memcpy(block + done, chunk.data(), kChunk);
        for (int64_t done = 0; done < kMemoryBytes; done += kChunk)
            std::memcpy(in.data(), block + done, kChunk);
        benchmark::DoNotOptimize(in.data());
        free(block);
    }
    state.SetBytesProcessed(state.iterations() * kMemoryBytes);
}

std::string StreamFileName() { return std::string(SpillDirectory()) + "/bench_stream_" + std::to_string(getpid()); }

void BM_FileStream(benchmark::State &state) {
    const auto &chunk = Chunk();
    std::vector<char> in(kChunk);
    std::string name = StreamFileName();
    for (auto _ : state) {
        HalvIO *io = HalvIO_FileName(name.c_str(), "w+b");
        for (int64_t done = 0; done < kStreamBytes; done += kChunk)
            if (io->write(io, chunk.data(), kChunk) != static_cast<int32_t>(kChunk))
                state.SkipWithError("write failed");
        io->seek(io, 0, 0);
        int64_t read = 0;
        while (int32_t n = io->read(io, in.data(), kChunk))
            read += n;
        benchmark::DoNotOptimize(in.data());
        io->close(io);
        unlink(name.c_str());
        if (read != kStreamBytes)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(state.iterations() * kStreamBytes);
}

void BM_PosixReadWrite(benchmark::State &state) {
    const auto &chunk = Chunk();
    std::vector<char> in(kChunk);
    std::string name = StreamFileName();
    for (auto _ : state) {
        int fd = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        for (int64_t done = 0; done < kStreamBytes; done += kChunk)
            if (write(fd, chunk.data(), kChunk) != static_cast<ssize_t>(kChunk))
                state.SkipWithError("write failed");
        lseek(fd, 0, SEEK_SET);
        int64_t read = 0;
        while (ssize_t n = ::read(fd, in.data(), kChunk)) {
            if (n < 0)
                break;
            read += n;
        }
        benchmark::DoNotOptimize(in.data());
        close(fd);
        unlink(name.c_str());
        if (read != kStreamBytes)
            state.SkipWithError("short read");
    }
    state.SetBytesProcessed(state.iterations() * kStreamBytes);
}

// Each pair runs back to back, so both see the same machine load.
// The first pass over 1 GiB pays for growing the page cache: warm up first.
BENCHMARK(BM_SmartBuffer_Spilled)->Unit(benchmark::kMillisecond)->UseRealTime()->MinWarmUpTime(1.0)->MinTime(5.0);
BENCHMARK(BM_PlainTempFile)->Unit(benchmark::kMillisecond)->UseRealTime()->MinWarmUpTime(1.0)->MinTime(5.0);
BENCHMARK(BM_SmartBuffer_SpilledDefaultLimits)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_SmartBuffer_Memory)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(BM_FileStream)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);
BENCHMARK(BM_PosixReadWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(
        argc, argv,
        {
            {"smart buffer, 1 GiB spilled (1 MiB memory, 64 MiB files) / plain temp file", "BM_SmartBuffer_Spilled",
             "BM_PlainTempFile"},
            {"smart buffer, 16 MiB spilled with the default limits / plain temp file",
             "BM_SmartBuffer_SpilledDefaultLimits", "BM_PlainTempFile"},
            {"smart buffer, 256 MiB in memory / memcpy in and out", "BM_SmartBuffer_Memory", "BM_Memcpy"},
            {"file stream by name, 64 KiB blocks / write and read", "BM_FileStream", "BM_PosixReadWrite"},
        });
}
