// Reading and writing a 10 MiB user data tree, side by side with plain
// passes over the same bytes (the floors) in the same run.
//
// The I/O floor is the copy of the text through the library's memory
// streams: a string stream over it copied into a memory stream with
// HalvIOCopyBytes.  The tree is read from such a string stream, which the
// reader scans in place, and from a hand-built stream, which it may only
// read one byte per call (it may not consume beyond a token); that one's
// floor is the same bytes read one per call.  The tree is written into a
// memory stream.  memchr counting the lines shows what a plain scan costs.
//
// Times are CPU time of the benchmark's thread; freeing the tree between
// passes is left out.  Each case runs one untimed pass first, so the figures
// are those of a process that reads trees again and again, not of the first
// touch of fresh heap pages; best_MBps is the best single pass.  The lines
// behind the table give each case's MB/s against its floor.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <time.h>

#include "bench/ratio_report.h"
#include "dpk_hvsup.h"

namespace {

/* A minimal stream the library knows nothing of: reads from a byte range,
 * writes into a buffer that grows. */
struct HandStream {
    HalvIO io;
    const char *bytes;
    size_t size;
    size_t position;
    std::string *sink;
};

int32_t HandRead(HalvIO *io, void *buffer, uint32_t count) {
    auto *stream = reinterpret_cast<HandStream *>(io);
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

int32_t HandWrite(HalvIO *io, const void *bytes, uint32_t count) {
    reinterpret_cast<HandStream *>(io)->sink->append(static_cast<const char *>(bytes), count);
    return (int32_t)count;
}

HandStream OpenHand(const std::string *from, std::string *to) {
    HandStream stream{};
    stream.io.read = HandRead;
    stream.io.write = HandWrite;
    if (from != nullptr) {
        stream.bytes = from->data();
        stream.size = from->size();
    }
    stream.sink = to;
    return stream;
}

/* A string stream over text, which the reader may scan in place. */
HalvIO *OpenText(const std::string &text) {
    HalvIO *in = HalvIO_Str(const_cast<char *>(text.data()), (uint32_t)text.size());
    if (in == nullptr)
        std::abort();
    return in;
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
        HandStream out = OpenHand(nullptr, &blobLine);
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
HalvUserCMData *ReadText(const std::string &text, bool byByte) {
    HandStream hand = OpenHand(&text, nullptr);
    HalvIO *in = byByte ? &hand.io : OpenText(text);
    HalvUserCMData *tree = nullptr;
    if (HalvReadUserCMData(in, &tree, 0) != 1)
        std::abort();
    if (!byByte)
        in->close(in);
    return tree;
}

/* CPU time of this thread, for the best single pass. */
double Now() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return (double)ts.tv_sec + (double)ts.tv_nsec / 1e9;
}

/* Runs pass once untimed, then as the benchmark's iterations, with `after`
 * (untimed) behind each; reports bytes and the best pass. */
template <class Pass, class After>
void Measure(benchmark::State &state, Pass pass, After after) {
    after(pass());
    double best = 1e9;
    for (auto _ : state) {
        const double start = Now();
        auto result = pass();
        best = std::min(best, Now() - start);
        state.PauseTiming();
        after(result);
        state.ResumeTiming();
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Text().size());
    state.counters["best_MBps"] = (double)Text().size() / 1e6 / best;
}

void BM_Floor_CopyThroughMemoryStream(benchmark::State &state) {
    const std::string &text = Text();
    Measure(
        state,
        [&] {
            HalvIO *in = OpenText(text);
            HalvIO *out = HalvIO_Mem((uint32_t)text.size());
            if (out == nullptr || HalvIOCopyBytes(out, in, (int64_t)text.size()) != (int64_t)text.size())
                std::abort();
            in->close(in);
            return out;
        },
        [](HalvIO *out) { out->close(out); });
}

void BM_Floor_CountLines(benchmark::State &state) {
    const std::string &text = Text();
    Measure(
        state,
        [&] {
            size_t lines = 0;
            for (const char *p = text.data(), *end = p + text.size();
                 (p = static_cast<const char *>(std::memchr(p, '\n', (size_t)(end - p)))) != nullptr; ++p)
                ++lines;
            return lines;
        },
        [](size_t lines) { benchmark::DoNotOptimize(lines); });
}

void BM_Floor_ReadByteByByte(benchmark::State &state) {
    const std::string &text = Text();
    Measure(
        state,
        [&] {
            HandStream in = OpenHand(&text, nullptr);
            unsigned sum = 0;
            unsigned char byte;
            while (in.io.read(&in.io, &byte, 1) == 1)
                sum += byte;
            return sum;
        },
        [](unsigned sum) { benchmark::DoNotOptimize(sum); });
}

void BM_ReadTree(benchmark::State &state) {
    Measure(state, [] { return ReadText(Text(), false); }, HalvFreeUserCMData);
}

void BM_ReadTree_ByteStream(benchmark::State &state) {
    Measure(state, [] { return ReadText(Text(), true); }, HalvFreeUserCMData);
}

void BM_WriteTree(benchmark::State &state) {
    const std::string &text = Text();
    HalvUserCMData *tree = ReadText(text, false);
    Measure(
        state,
        [&] {
            HalvIO *out = HalvIO_Mem((uint32_t)text.size());
            if (out == nullptr || HalvWriteUserCMData(tree, out) != 1)
                std::abort();
            return out;
        },
        [&](HalvIO *out) {
            // The text is what the writer prints: the tree read from it
            // writes it back whole.
            std::string written(text.size() + 1, '\0');
            out->seek(out, 0, 0);
            if (out->read(out, written.data(), (uint32_t)written.size()) != (int32_t)text.size() ||
                written.compare(0, text.size(), text) != 0)
                std::abort();
            out->close(out);
        });
    HalvFreeUserCMData(tree);
}

BENCHMARK(BM_Floor_CopyThroughMemoryStream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_CountLines)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_ReadByteByByte)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTree)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTree_ByteStream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteTree)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv) {
    return bench::RunWithRatios(
        argc, argv,
        {
            {"read a tree from a string stream / copy through memory streams", "BM_ReadTree",
             "BM_Floor_CopyThroughMemoryStream"},
            {"read a tree from a byte-at-a-time stream / read it byte by byte", "BM_ReadTree_ByteStream",
             "BM_Floor_ReadByteByByte"},
            {"write a tree into a memory stream / copy through memory streams", "BM_WriteTree",
             "BM_Floor_CopyThroughMemoryStream"},
        },
        "ratios (MB/s of the tree against its floor):");
}
