// Fuzz target for stored images: the header text, the manager it picks,
// and every chunk behind it.
//
// The input is read as a stored image: the header (copied and released
// through its own slots), then chunks until one ends the image, a load
// fails, or a bound of loads is reached.  Each chunk goes straight out
// again behind the header written to a memory stream, which is read once
// more.  Any crash, leak or sanitizer report is a fault.
#include "fuzz/support.h"

namespace {

constexpr int kMaxLoads = 64;
/* Loads of an internal image allocate a whole block of lines up front;
 * above this the header alone is exercised, so that a sizeable claim
 * doesn't make every run an allocation of gigabytes. */
constexpr uint64_t kMaxInternalLoad = 64u << 20;

bool LoadIsBounded(const HalvHeaderStruct *h, uint32_t lines) {
    if (h->managerType != HALV_HDR_INTERNAL)
        return true;
    const auto *ih = reinterpret_cast<const HalvInternalHeader *>(h);
    uint64_t perLine = ih->bytesPerLine != 0 ? ih->bytesPerLine : 1024;
    return perLine * (lines == 0 ? 32 : lines) <= kMaxInternalLoad;
}

/* Reads one stored image from in; when out isn't null, writes it there. */
void Pass(HalvIO *in, HalvIO *out, uint32_t lines) {
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    if (HVHdrRead_Header(in, &manager, &header) != 1 || header == nullptr)
        return;
    fuzz::CopyAndFree(header);
    if (out != nullptr)
        HVHdrWrite_Header(header, &manager, out);
    for (int i = 0; i < kMaxLoads && LoadIsBounded(header, lines); ++i) {
        HalvChunk chunk;
        if (HVHdrToChunkLines(manager, header, in, &chunk, lines) != 1)
            break;
        if (out != nullptr)
            HVHdrFromChunk(manager, header, &chunk, out);
        if (chunk.flags & HALV_CHUNK_END)
            break;
    }
    header->free(header);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    HalvIO *out = HalvIO_Mem(0);
    const uint32_t lines = fuzz::CountToAsk(data, size, 40);
    fuzz::OverCopy(data, size, [&](HalvIO *in) { Pass(in, out, lines); });
    fuzz::ReadBack(out, [&](HalvIO *again) { Pass(again, nullptr, lines); });
    out->close(out);
    return 0;
}
