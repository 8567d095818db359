// Fuzz target for pixr images: the header text and the stored chunks
// behind it.
//
// A pixr header is checked against what reading promises, copied and
// released through its own slots, and its chunks are loaded until one ends
// the data, a load fails, or a bound of loads is reached.  Every chunk goes
// out again behind a header written for it, once as pixr and once through
// image-ext, which shares pixr's emitChunk; the pixr copy read back must
// give the same chunks.  Any crash, leak, sanitizer report or broken
// promise is a fault.
#include <string>

#include "fuzz/support.h"

namespace {

using fuzz::Require;

constexpr int kMaxLoads = 256;

/* Every chunk loaded, record and payload, one after the other. */
struct Loaded {
    int64_t headerEnd = -1;    // where the stream stood behind the header
    int64_t writtenHeader = -1; // bytes of the header written to out
    std::string chunks;
    bool header = false;
    bool failed = false;
};

void Append(std::string &s, uint32_t word) { s.append(reinterpret_cast<const char *>(&word), sizeof word); }

Loaded Pass(HalvIO *in, HalvIO *out, HalvIO *ext) {
    Loaded loaded;
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    if (HVHdrRead_Header(in, &manager, &header) != 1 || header == nullptr)
        return loaded;
    if (in->seek != nullptr)
        loaded.headerEnd = in->seek(in, 0, 1);
    if (header->managerType != HALV_HDR_PIXR) {
        header->free(header);
        return loaded;
    }
    loaded.header = true;
    Require(header->dimCount == 4 || header->dimCount == 5);
    Require(header->endian == -1 || header->endian == HalvIdentifyEndian());
    HVHdrManager extManager{};
    Require(HVHdrGetManager_Str("image-ext", "1.0", &extManager) == 1 && extManager.emitChunk == manager.emitChunk);
    fuzz::CopyAndFree(header);
    HalvHeaderStruct *asExt = nullptr;
    if (out != nullptr) {
        HVHdrWrite_Header(header, &manager, out);
        loaded.writtenHeader = HalvIOMemLength(out);
        if (HVHdrCreateHeader(extManager, &asExt) == 1) {
            // The raster description, not the format's own fields.
            asExt->parts[0] = header->parts[0];
            asExt->bitsPerSample[0] = header->bitsPerSample[0];
            asExt->dims[0] = header->dims[0];
            asExt->endian = header->endian;
            HVHdrWrite_Header(asExt, &extManager, ext);
        }
    }
    for (int i = 0; i < kMaxLoads; ++i) {
        HalvChunk chunk;
        std::memset(&chunk, 0, sizeof chunk);
        int result = HVHdrToChunk(manager, header, in, &chunk);
        if (result != 1) {
            Require(result == 0);
            loaded.failed = true;
            break;
        }
        Require((chunk.flags & ~0x21u) == 0 && chunk.bytes <= chunk.capacity);
        Require(chunk.bytes == 0 || chunk.data != nullptr);
        if (chunk.flags & HALV_CHUNK_END && chunk.bytes == 0 && chunk.lines == 0 && chunk.auxWord == 0 &&
            chunk.data == nullptr)
            break; // the clean end of the stream
        Append(loaded.chunks, chunk.bytes);
        Append(loaded.chunks, chunk.lines);
        Append(loaded.chunks, chunk.auxWord);
        Append(loaded.chunks, chunk.flags);
        loaded.chunks.append(static_cast<const char *>(chunk.data), chunk.bytes);
        if (out != nullptr) {
            Require(HVHdrFromChunk(manager, header, &chunk, out) == 1);
            if (asExt != nullptr)
                Require(HVHdrFromChunk(extManager, asExt, &chunk, ext) == 1);
        }
    }
    if (asExt != nullptr)
        asExt->free(asExt);
    header->free(header);
    return loaded;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    HalvIO *out = HalvIO_Mem(0), *ext = HalvIO_Mem(0);
    Loaded first;
    fuzz::OverCopy(data, size, [&](HalvIO *in) { first = Pass(in, out, ext); });
    if (first.header)
        fuzz::ReadBack(out, [&](HalvIO *again) {
            Loaded reread = Pass(again, nullptr, nullptr);
            // Only where the header text read back as it was written: a tree
            // whose names hold line ends or brackets writes text that reads as
            // another tree, which is the tree writer's matter, not this format's.
            if (reread.header && reread.headerEnd == first.writtenHeader)
                Require(reread.chunks == first.chunks && !reread.failed);
        });
    out->close(out);
    ext->close(ext);
    return 0;
}
