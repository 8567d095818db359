// Fuzz target for pixel streams: the header text and the pixels behind it.
//
// The input is read from a string stream (which can seek, so the loader
// reads blocks and gives back what it didn't use) and, a second time, from
// a stream without a seek slot (read call by call): both must load the same
// pixels.  A header that asks for standard input has that stream taken away
// first.  Every chunk goes out again as text behind a header written for
// it, and that text read back must give the same samples for 8 and 16
// bits.  Any crash, leak, sanitizer report or broken promise is a fault.
#include <string>

#include "fuzz/support.h"

namespace {

using fuzz::Require;

constexpr int kMaxLoads = 64;
/* Above this a load is not tried: a header that claims huge pixels makes
 * the loader refuse its buffer, which the tests cover, and runs stay
 * short. */
constexpr uint64_t kMaxLoadBytes = 1u << 20;

/* What one pass loaded: the results and samples of every load. */
struct Loaded {
    int64_t headerEnd = -1;    // where the stream stood behind the header
    int64_t writtenHeader = -1; // bytes of the header written to out
    std::string trace;
    std::string samples;
    uint32_t bits = 0;
    uint32_t values = 0;
    bool header = false; // a pixel stream header was read
};

Loaded Pass(HalvIO *in, HalvIO *out, uint32_t pixels) {
    Loaded loaded;
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    if (HVHdrRead_Header(in, &manager, &header) != 1 || header == nullptr)
        return loaded;
    if (in->seek != nullptr)
        loaded.headerEnd = in->seek(in, 0, 1);
    if (header->managerType != HALV_HDR_PIXELSTREAM) {
        header->free(header);
        return loaded;
    }
    auto *p = reinterpret_cast<HalvPixelStreamHeader *>(header);
    Require(header->dimCount == 1 && header->dims[0] == 1 && header->interleave == 1 && p->initialised == 1);
    Require(p->valuesPerPixel == header->parts[0] + header->parts[1] + header->parts[2]);
    if (p->stdinStream != nullptr) {
        p->stdinStream->close(p->stdinStream);
        p->stdinStream = nullptr;
    }
    loaded.bits = header->bitsPerSample[0];
    loaded.values = p->valuesPerPixel;
    loaded.header = true;
    fuzz::CopyAndFree(header);
    if (out != nullptr) {
        HVHdrWrite_Header(header, &manager, out);
        loaded.writtenHeader = HalvIOMemLength(out);
    }
    uint32_t asked = pixels == 0 ? 1 : pixels;
    if ((uint64_t)p->bytesPerPixel * asked <= kMaxLoadBytes) {
        for (int i = 0; i < kMaxLoads; ++i) {
            HalvChunk chunk;
            std::memset(&chunk, 0, sizeof chunk);
            int result = HVHdrToChunkLines(manager, header, in, &chunk, pixels);
            loaded.trace += std::to_string(result);
            if (result != 1)
                break;
            Require(chunk.lines <= asked && chunk.bytes == chunk.lines * p->bytesPerPixel);
            Require(chunk.flags == (chunk.lines == asked ? 0u : HALV_CHUNK_END));
            loaded.trace += "," + std::to_string(chunk.lines) + ";";
            loaded.samples.append(static_cast<const char *>(chunk.data), chunk.bytes);
            if (out != nullptr)
                HVHdrFromChunk(manager, header, &chunk, out);
            if (chunk.flags & HALV_CHUNK_END)
                break;
        }
    }
    header->free(header);
    return loaded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    HalvIO *out = HalvIO_Mem(0);
    const uint32_t pixels = fuzz::CountToAsk(data, size, 17);
    Loaded first;
    fuzz::OverCopy(data, size, [&](HalvIO *in) { first = Pass(in, out, pixels); });
    fuzz::ByteStream single = fuzz::OpenByteStream(data, size);
    Loaded second = Pass(&single.io, nullptr, pixels);
    Require(first.trace == second.trace && first.samples == second.samples);

    // Integers come back exactly from the text they were written as.
    if ((first.bits == 8 || first.bits == 16) && first.trace.find('-') == std::string::npos)
        fuzz::ReadBack(out, [&](HalvIO *again) {
            Loaded reread = Pass(again, nullptr, pixels);
            // Only where the header text read back as it was written: a tree
            // whose names hold line ends or brackets writes text that reads as
            // another tree, which is the tree writer's matter, not this format's.
            if (reread.header && reread.headerEnd == first.writtenHeader && reread.bits == first.bits &&
                reread.values == first.values)
                Require(reread.samples == first.samples);
        });
    out->close(out);
    return 0;
}
