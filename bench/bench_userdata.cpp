// Reading and writing a 10 MiB user data tree, side by side with plain
// passes over the same bytes (the floors) in the same run.
//
// The tree is read from a library string stream, whose bytes the reader
// scans in place, and from a hand-built stream, which it may only read one
// byte per call (it may not consume beyond a token).  Three floors are
// shown: counting the lines with memchr, the bulk copy in 4 KiB reads and
// writes, and the same bytes read one per call.  bytes_per_second counts the
// text's size over the CPU time; best_MBps is the best single pass, and
// x_scan_floor, x_copy_floor and x_byte_floor say how many times the best
// pass of each floor (measured once per run) a pass takes.  All times are
// CPU time of the benchmark's thread.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <time.h>

#include "dpk_hvsup.h"

namespace {

/* A minimal memory stream: reads from a byte range, writes into a buffer
 * that grows. */
struct MemoryStream {
    HalvIO io;
    const char *bytes;
    size_t size;
    size_t position;
    std::string *sink;
};

int32_t MemoryRead(HalvIO *io, void *buffer, uint32_t count) {
    auto *stream = reinterpret_cast<MemoryStream *>(io);
    if (count == 1 && stream->position < stream->size) { // the token reader's step
        *static_cast<char *>(buffer) = stream->bytes[stream->position++];
        return 1;
    }
    size_t take = stream->size - stream->position;
    if (take > count)
        take = count;
    std::memcpy(buffer, stream->bytes + stream->position, take);
    stream->position += take;
    return (int32_t)take;
}

int32_t MemoryWrite(HalvIO *io, const void *bytes, uint32_t count) {
    reinterpret_cast<MemoryStream *>(io)->sink->append(static_cast<const char *>(bytes), count);
    return (int32_t)count;
}

MemoryStream Open(const std::string *from, std::string *to) {
    MemoryStream stream{};
    stream.io.read = MemoryRead;
    stream.io.write = MemoryWrite;
    if (from != nullptr) {
        stream.bytes = from->data();
        stream.size = from->size();
    }
    stream.sink = to;
    return stream;
}

/* About 10 MiB of header text as the writer prints it: many sections of
 * labels with words, strings, two-line values and small Base64 blocks. */
const std::string &Text() {
    static const std::string text = [] {
        // The Base64 line of a 48-byte blob, as the library writes it.
        std::string blob(48, '\0');
        for (size_t i = 0; i < blob.size(); ++i)
            blob[i] = (char)(i * 37);
        HalvUserCMData *blobTree = HalvSetData(nullptr, nullptr, nullptr, "blob", blob.data(), (uint32_t)blob.size());
        std::string blobLine;
        MemoryStream out = Open(nullptr, &blobLine);
        HalvWriteUserCMData(blobTree, &out.io);
        HalvFreeUserCMData(blobTree);

        std::string text;
        for (int section = 0; text.size() < (10u << 20); ++section) {
            if (section != 0)
                text += "\n";
            text += "[Section" + std::to_string(section) + "]\n";
            for (int label = 0; label < 12; ++label) {
                text += "key" + std::to_string(label) + ": ";
                if (label % 4 == 0)
                    text += "\"a string: with " + std::to_string(section) + "\"\n";
                else if (label % 4 == 1)
                    text += "12 34 56 78\n90 " + std::to_string(label) + "\n";
                else
                    text += "word value " + std::to_string(section * label) + "\n";
            }
            text += blobLine;
        }
        return text + "\n[End]";
    }();
    return text;
}

/* The tree of text, read from a string stream over it, or with byByte
 * from the hand-built stream. */
HalvUserCMData *ReadText(const std::string &text, bool byByte = false) {
    MemoryStream hand = Open(&text, nullptr);
    HalvIO *in = byByte ? &hand.io : HalvIO_Str(const_cast<char *>(text.data()), (uint32_t)text.size());
    HalvUserCMData *tree = nullptr;
    if (in == nullptr || HalvReadUserCMData(in, &tree, 0) != 1)
        std::abort();
    if (!byByte)
        in->close(in);
    return tree;
}

/* CPU time of this thread: on a shared machine wall time counts the other
 * processes too. */
struct Clock {
    using time_point = double;
    static double now() {
        timespec ts;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
    }
};

double Seconds(double since) { return Clock::now() - since; }

/* One pass of each floor, in seconds. */
double CountLinesOnce(const std::string &text) {
    const auto start = Clock::now();
    size_t lines = 0;
    for (const char *p = text.data(), *end = p + text.size();
         (p = static_cast<const char *>(std::memchr(p, '\n', (size_t)(end - p)))) != nullptr; ++p)
        ++lines;
    benchmark::DoNotOptimize(lines);
    return Seconds(start);
}

double CopyBulkOnce(const std::string &text, std::string &copy) {
    const auto start = Clock::now();
    copy.clear();
    MemoryStream in = Open(&text, nullptr), out = Open(nullptr, &copy);
    char buffer[4096];
    int32_t got;
    while ((got = in.io.read(&in.io, buffer, sizeof buffer)) > 0)
        out.io.write(&out.io, buffer, (uint32_t)got);
    benchmark::DoNotOptimize(copy.data());
    return Seconds(start);
}

double ReadByteByByteOnce(const std::string &text) {
    const auto start = Clock::now();
    MemoryStream in = Open(&text, nullptr);
    HalvIO *io = &in.io;
    unsigned sum = 0;
    unsigned char byte;
    while (io->read(io, &byte, 1) == 1)
        sum += byte;
    benchmark::DoNotOptimize(sum);
    return Seconds(start);
}

/* The best of several passes of each floor, measured once per run, so the
 * tree benchmarks can report how many times the floor they take. */
struct Floors {
    double scan = 1e9, bulk = 1e9, byteByByte = 1e9;
};
const Floors &MeasuredFloors() {
    static const Floors floors = [] {
        Floors best;
        std::string copy;
        copy.reserve(Text().size());
        for (int i = 0; i < 20; ++i) {
            best.scan = std::min(best.scan, CountLinesOnce(Text()));
            best.bulk = std::min(best.bulk, CopyBulkOnce(Text(), copy));
            best.byteByByte = std::min(best.byteByByte, ReadByteByByteOnce(Text()));
        }
        return best;
    }();
    return floors;
}

void ReportAgainstFloors(benchmark::State &state, double bestSeconds) {
    const Floors &floors = MeasuredFloors();
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Text().size());
    state.counters["best_MBps"] = (double)Text().size() / 1e6 / bestSeconds;
    state.counters["x_scan_floor"] = bestSeconds / floors.scan;
    state.counters["x_copy_floor"] = bestSeconds / floors.bulk;
    state.counters["x_byte_floor"] = bestSeconds / floors.byteByByte;
}

void BM_Floor_CountLines(benchmark::State &state) {
    double best = 1e9;
    for (auto _ : state)
        best = std::min(best, CountLinesOnce(Text()));
    ReportAgainstFloors(state, best);
}

void BM_Floor_CopyBulk(benchmark::State &state) {
    std::string copy;
    copy.reserve(Text().size());
    double best = 1e9;
    for (auto _ : state)
        best = std::min(best, CopyBulkOnce(Text(), copy));
    ReportAgainstFloors(state, best);
}

void BM_Floor_ReadByteByByte(benchmark::State &state) {
    double best = 1e9;
    for (auto _ : state)
        best = std::min(best, ReadByteByByteOnce(Text()));
    ReportAgainstFloors(state, best);
}

void ReadTreeFrom(benchmark::State &state, bool byByte) {
    double best = 1e9;
    for (auto _ : state) {
        const auto start = Clock::now();
        HalvUserCMData *tree = ReadText(Text(), byByte);
        best = std::min(best, Seconds(start));
        state.PauseTiming();
        HalvFreeUserCMData(tree);
        state.ResumeTiming();
    }
    ReportAgainstFloors(state, best);
}

void BM_ReadTree(benchmark::State &state) { ReadTreeFrom(state, false); }
void BM_ReadTree_ByteStream(benchmark::State &state) { ReadTreeFrom(state, true); }

void BM_WriteTree(benchmark::State &state) {
    const std::string &text = Text();
    HalvUserCMData *tree = ReadText(text);
    std::string written;
    written.reserve(text.size());
    double best = 1e9;
    for (auto _ : state) {
        const auto start = Clock::now();
        written.clear();
        MemoryStream out = Open(nullptr, &written);
        if (HalvWriteUserCMData(tree, &out.io) != 1)
            std::abort();
        best = std::min(best, Seconds(start));
    }
    // The text is what the writer prints: the tree read from it writes it
    // back whole.
    if (written != text)
        std::abort();
    HalvFreeUserCMData(tree);
    ReportAgainstFloors(state, best);
}

BENCHMARK(BM_Floor_CountLines)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_CopyBulk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_ReadByteByByte)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTree)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTree_ByteStream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteTree)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
