// Reading and writing a 10 MiB user data tree, side by side with copying
// the same bytes through a memory stream (the I/O floor) in the same run.
//
// The token reader must take its input one byte per read call (it may not
// consume beyond a token), so two floors are shown: the bulk copy in 4 KiB
// reads and writes, and the same bytes read one per call.  Every figure is
// bytes_per_second over the text's size.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>

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

HalvUserCMData *ReadText(const std::string &text) {
    MemoryStream in = Open(&text, nullptr);
    HalvUserCMData *tree = nullptr;
    if (HalvReadUserCMData(&in.io, &tree, 0) != 1)
        std::abort();
    return tree;
}

void BM_Floor_CopyBulk(benchmark::State &state) {
    const std::string &text = Text();
    std::string copy;
    copy.reserve(text.size());
    for (auto _ : state) {
        copy.clear();
        MemoryStream in = Open(&text, nullptr), out = Open(nullptr, &copy);
        char buffer[4096];
        int32_t got;
        while ((got = in.io.read(&in.io, buffer, sizeof buffer)) > 0)
            out.io.write(&out.io, buffer, (uint32_t)got);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}

void BM_Floor_ReadByteByByte(benchmark::State &state) {
    const std::string &text = Text();
    for (auto _ : state) {
        MemoryStream in = Open(&text, nullptr);
        HalvIO *io = &in.io;
        unsigned sum = 0;
        unsigned char byte;
        while (io->read(io, &byte, 1) == 1)
            sum += byte;
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}

void BM_ReadTree(benchmark::State &state) {
    const std::string &text = Text();
    for (auto _ : state) {
        HalvUserCMData *tree = ReadText(text);
        state.PauseTiming();
        HalvFreeUserCMData(tree);
        state.ResumeTiming();
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
    state.counters["text_MiB"] = (double)text.size() / (1 << 20);
}

void BM_WriteTree(benchmark::State &state) {
    const std::string &text = Text();
    HalvUserCMData *tree = ReadText(text);
    std::string written;
    written.reserve(text.size());
    // The text is what the writer prints: writing gives it back whole.
    for (auto _ : state) {
        written.clear();
        MemoryStream out = Open(nullptr, &written);
        if (HalvWriteUserCMData(tree, &out.io) != 1 || written.size() != text.size())
            std::abort();
    }
    HalvFreeUserCMData(tree);
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}

BENCHMARK(BM_Floor_CopyBulk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_ReadByteByByte)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTree)->Unit(benchmark::kMillisecond);
void BM_ReadTreeKeep(benchmark::State &state) {
    const std::string &text = Text();
    HalvUserCMData *trees[8] = {};
    int n = 0;
    for (auto _ : state)
        trees[n++] = ReadText(text);
    for (int i = 0; i < n; ++i) HalvFreeUserCMData(trees[i]);
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_ReadTreeKeep)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(BM_WriteTree)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
