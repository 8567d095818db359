// Reading an info table stored in the other byte order: a 64 MiB table of
// the example entry (an integer x and two doubles, 20 bytes) in chunks of
// about 1 MiB, read from a file through the info manager (header, then
// chunks, each entry's numbers reversed in place by the swap table drawn
// from the field list), against a plain loop that reads the same file with
// stdio and reverses the same three numbers of each entry by hand.
// Target: the manager at 0.8x of the plain loop or better.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

constexpr uint32_t kEntryBytes = 20;
constexpr uint64_t kTableBytes = 64u << 20;
constexpr uint32_t kEntriesPerChunk = (1u << 20) / kEntryBytes;

void PutBig32(std::string &s, uint32_t v) {
    for (int i = 3; i >= 0; --i)
        s.push_back((char)(v >> (8 * i)));
}

void PutBig64(std::string &s, uint64_t v) {
    for (int i = 7; i >= 0; --i)
        s.push_back((char)(v >> (8 * i)));
}

/* The header text the library writes for a big-endian table. */
std::string HeaderBytes(uint32_t entries) {
    HVHdrManager manager;
    HalvHeaderStruct *h = nullptr;
    HVHdrGetManager_Str("info", "1.0", &manager);
    HVHdrCreateHeader(manager, &h);
    const char *forms[] = {"x:1i", "weight:2f", nullptr};
    HalvInfoField **fields = nullptr;
    HalvParseInfoFields(forms, &fields);
    HalvWriteInfoFieldsToHdr(h, fields);
    HalvFreeSmartArray(fields);
    h->endian = 1;
    h->bytesPerSep[0] = kEntryBytes;
    h->dimCount = 2;
    h->dims[1] = entries;
    HalvIO *mem = HalvIO_Mem(0);
    HVHdrWrite_Header(h, &manager, mem);
    std::string text(static_cast<const char *>(HalvIOMemBuffer(mem)), HalvIOMemLength(mem));
    mem->close(mem);
    h->free(h);
    return text;
}

/* The table file, written once; removed when the program ends. */
struct TableFile {
    std::string path;
    uint64_t size = 0;
    uint64_t expectedSum = 0;
    TableFile() {
        char name[] = "/tmp/bench_info_XXXXXX";
        int fd = mkstemp(name);
        path = name;
        FILE *f = fdopen(fd, "wb");
        uint32_t entries = (uint32_t)(kTableBytes / kEntryBytes);
        std::string bytes = HeaderBytes(entries);
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        size += bytes.size();
        for (uint32_t first = 0; first < entries; first += kEntriesPerChunk) {
            uint32_t lines = entries - first < kEntriesPerChunk ? entries - first : kEntriesPerChunk;
            std::string chunk;
            PutBig32(chunk, lines * kEntryBytes);
            PutBig32(chunk, lines);
            PutBig32(chunk, 0);
            PutBig32(chunk, first + lines == entries ? 1 : 0);
            for (uint32_t k = first; k < first + lines; ++k) {
                double w0 = k * 0.5, w1 = -(double)k;
                uint64_t b0, b1;
                std::memcpy(&b0, &w0, 8);
                std::memcpy(&b1, &w1, 8);
                PutBig32(chunk, k);
                PutBig64(chunk, b0);
                PutBig64(chunk, b1);
                expectedSum += k;
            }
            std::fwrite(chunk.data(), 1, chunk.size(), f);
            size += chunk.size();
        }
        std::fclose(f);
    }
    ~TableFile() { unlink(path.c_str()); }
};

const TableFile &Table() {
    static const TableFile table;
    return table;
}

/* The sum of every entry's x and a check of its doubles: the reads can't
 * be skipped, and a wrong reversal shows. */
uint64_t SumEntries(const unsigned char *data, uint32_t lines, bool *right) {
    uint64_t sum = 0;
    for (uint32_t n = 0; n < lines; ++n, data += kEntryBytes) {
        int32_t x;
        double w1;
        std::memcpy(&x, data, 4);
        std::memcpy(&w1, data + 12, 8);
        sum += (uint32_t)x;
        *right = *right && w1 == -(double)(uint32_t)x;
    }
    return sum;
}

void Check(benchmark::State &state, uint64_t sum, bool right) {
    if (sum != Table().expectedSum || !right)
        state.SkipWithError("the entries read back wrong");
}

void BM_InfoManager(benchmark::State &state) {
    const TableFile &table = Table();
    for (auto _ : state) {
        HalvIO *in = HalvIO_FileName(table.path.c_str(), "rb");
        HVHdrManager manager;
        HalvHeaderStruct *header = nullptr;
        if (in == nullptr || HVHdrRead_Header(in, &manager, &header) != 1) {
            state.SkipWithError("the table doesn't read");
            break;
        }
        uint64_t sum = 0;
        bool right = true;
        HalvChunk chunk{};
        while (!(chunk.flags & HALV_CHUNK_END)) {
            if (HVHdrToChunk(manager, header, in, &chunk) != 1) {
                state.SkipWithError("a chunk doesn't load");
                break;
            }
            sum += SumEntries(static_cast<const unsigned char *>(chunk.data), chunk.lines, &right);
        }
        Check(state, sum, right);
        header->free(header);
        in->close(in);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)table.size);
}

uint32_t Big32(const unsigned char *p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return __builtin_bswap32(v);
}

/* The same file read with stdio, the header skipped to its end marker,
 * each chunk's record words and each entry's three numbers reversed by a
 * loop that knows them. */
void BM_PlainLoop(benchmark::State &state) {
    const TableFile &table = Table();
    std::vector<unsigned char> buffer;
    for (auto _ : state) {
        FILE *f = std::fopen(table.path.c_str(), "rb");
        const char marker[] = "[End]\f\n";
        size_t matched = 0;
        for (int c; matched < sizeof marker - 1 && (c = std::getc(f)) != EOF;)
            matched = c == marker[matched] ? matched + 1 : c == marker[0] ? 1 : 0;
        uint64_t sum = 0;
        bool right = true;
        unsigned char record[16];
        while (std::fread(record, 1, 16, f) == 16) {
            uint32_t bytes = Big32(record), lines = Big32(record + 4);
            if (buffer.size() < bytes)
                buffer.resize(bytes);
            if (std::fread(buffer.data(), 1, bytes, f) != bytes)
                break;
            unsigned char *entry = buffer.data();
            for (uint32_t n = 0; n < lines; ++n, entry += kEntryBytes) {
                uint32_t x;
                uint64_t w0, w1;
                std::memcpy(&x, entry, 4);
                std::memcpy(&w0, entry + 4, 8);
                std::memcpy(&w1, entry + 12, 8);
                x = __builtin_bswap32(x);
                w0 = __builtin_bswap64(w0);
                w1 = __builtin_bswap64(w1);
                std::memcpy(entry, &x, 4);
                std::memcpy(entry + 4, &w0, 8);
                std::memcpy(entry + 12, &w1, 8);
            }
            sum += SumEntries(buffer.data(), lines, &right);
        }
        Check(state, sum, right);
        std::fclose(f);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)table.size);
}

BENCHMARK(BM_InfoManager)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainLoop)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(
        argc, argv, {{"a 64 MiB table of the other byte order, manager against a plain loop", "BM_InfoManager",
                      "BM_PlainLoop"}});
}
