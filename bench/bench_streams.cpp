// Stream throughput side by side with memcpy of the same bytes:
//   CopyBytes  memory stream to memory stream, HalvIOCopyBytes, count 0
//   ReadBytes  a memory stream read in 64 KiB blocks with HalvIOReadBytes
//   Memcpy*    the same bytes moved by memcpy, in one go or in 64 KiB blocks
// and the line readers' cost per byte, on a memory stream and on a back end
// of the caller's (one read slot call per byte).  The *Wrapped cases put a
// pass-through back end in front of the memory stream, so that the generic
// slot path is measured as a host's own back end would see it.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr uint32_t kBlock = 64 * 1024;

std::string Pattern(size_t length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; i++)
        bytes[i] = static_cast<char>('a' + i % 26);
    return bytes;
}

HalvIO *MemOver(const std::string &bytes) {
    HalvIO *io = HalvIO_Mem(0);
    HalvIOWriteBytes(io, bytes.data(), static_cast<uint32_t>(bytes.size()));
    io->seek(io, 0, 0);
    return io;
}

// A host's own back end that passes reads and seeks to another stream.
struct Wrapper {
    HalvIO io;
    HalvIO *inner;
    static HalvIO *Inner(HalvIO *io) { return reinterpret_cast<Wrapper *>(io)->inner; }
    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        return Inner(io)->read(Inner(io), buffer, count);
    }
    static int64_t Seek(HalvIO *io, int64_t offset, int32_t whence) {
        return Inner(io)->seek(Inner(io), offset, whence);
    }
};

Wrapper Wrap(HalvIO *inner) {
    Wrapper w = {};
    w.io.read = Wrapper::Read;
    w.io.seek = Wrapper::Seek;
    w.inner = inner;
    return w;
}

void CopyBytes(benchmark::State &state, bool wrapped) {
    std::string bytes = Pattern(static_cast<size_t>(state.range(0)));
    HalvIO *src = MemOver(bytes);
    Wrapper w = Wrap(src);
    HalvIO *from = wrapped ? &w.io : src;
    HalvIO *dst = HalvIO_Mem(0);
    HalvIOCopyBytes(dst, from, 0); // grows dst once; later passes overwrite
    for (auto _ : state) {
        src->seek(src, 0, 0);
        dst->seek(dst, 0, 0);
        benchmark::DoNotOptimize(HalvIOCopyBytes(dst, from, 0));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    src->close(src);
    dst->close(dst);
}

void BM_CopyBytes(benchmark::State &state) { CopyBytes(state, false); }
void BM_CopyBytesWrapped(benchmark::State &state) { CopyBytes(state, true); }

void BM_MemcpyWhole(benchmark::State &state) {
    std::string bytes = Pattern(static_cast<size_t>(state.range(0)));
    std::vector<char> out(bytes.size());
    for (auto _ : state) {
        std::memcpy(out.data(), bytes.data(), bytes.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_ReadBytes64K(benchmark::State &state) {
    std::string bytes = Pattern(static_cast<size_t>(state.range(0)));
    HalvIO *src = MemOver(bytes);
    std::vector<char> block(kBlock);
    for (auto _ : state) {
        src->seek(src, 0, 0);
        while (HalvIOReadBytes(src, block.data(), kBlock) > 0)
            benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    src->close(src);
}

void BM_Memcpy64K(benchmark::State &state) {
    std::string bytes = Pattern(static_cast<size_t>(state.range(0)));
    std::vector<char> block(kBlock);
    for (auto _ : state) {
        for (size_t at = 0; at < bytes.size(); at += kBlock) {
            size_t n = bytes.size() - at < kBlock ? bytes.size() - at : kBlock;
            std::memcpy(block.data(), bytes.data() + at, n);
            benchmark::ClobberMemory();
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

std::string Lines() {
    std::string text;
    while (text.size() < (1u << 20))
        text += "key_" + std::to_string(text.size()) + " = some value of a typical length\r\n";
    return text;
}

template <bool Gets, bool Wrapped>
void BM_Lines(benchmark::State &state) {
    std::string text = Lines();
    HalvIO *src = MemOver(text);
    Wrapper w = Wrap(src);
    HalvIO *from = Wrapped ? &w.io : src;
    char line[1025];
    for (auto _ : state) {
        src->seek(src, 0, 0);
        if (Gets)
            while (HalvIOGets(from, line, 1024) == 1)
                benchmark::DoNotOptimize(line);
        else
            while (HalvIOReadString(from, line, 1024) > 0)
                benchmark::DoNotOptimize(line);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
    src->close(src);
}

} // namespace

BENCHMARK(BM_CopyBytes)->Arg(64 << 10)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_CopyBytesWrapped)->Arg(64 << 10)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_MemcpyWhole)->Arg(64 << 10)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_ReadBytes64K)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_Memcpy64K)->Arg(1 << 20)->Arg(16 << 20);
BENCHMARK(BM_Lines<false, false>)->Name("BM_ReadString");
BENCHMARK(BM_Lines<false, true>)->Name("BM_ReadStringWrapped");
BENCHMARK(BM_Lines<true, false>)->Name("BM_Gets");
BENCHMARK(BM_Lines<true, true>)->Name("BM_GetsWrapped");

int main(int argc, char **argv) {
    return bench::RunWithRatios(argc, argv, {
        {"HalvIOCopyBytes, 65536 bytes / memcpy", "BM_CopyBytes/65536", "BM_MemcpyWhole/65536"},
        {"HalvIOCopyBytes, 1048576 bytes / memcpy", "BM_CopyBytes/1048576", "BM_MemcpyWhole/1048576"},
        {"HalvIOCopyBytes, 16777216 bytes / memcpy", "BM_CopyBytes/16777216", "BM_MemcpyWhole/16777216"},
        {"HalvIOReadBytes in 64 KiB, 1048576 bytes / memcpy", "BM_ReadBytes64K/1048576", "BM_Memcpy64K/1048576"},
        {"HalvIOReadBytes in 64 KiB, 16777216 bytes / memcpy", "BM_ReadBytes64K/16777216", "BM_Memcpy64K/16777216"},
    });
}
