// Fuzz target for stored images: the header text, the manager it picks,
// and every chunk behind it.
//
// Each input is read from a library memory stream as a stored image: the
// header, then chunks until one ends the image, a load fails, or a bound of
// loads is reached.  Each chunk goes straight out again behind the header
// written to a second memory stream, and what was written is read once
// more.  The header is copied and released through its own slots.  Any
// crash, leak or sanitizer report is a fault.
#include <cstdint>
#include <cstring>

#include "dpk_hvsup.h"

namespace {

constexpr int kMaxLoads = 64;
/* Loads of an internal image allocate a whole block of lines up front;
 * above this the header alone is exercised, so that a sizeable claim
 * doesn't make every run an allocation of gigabytes. */
constexpr uint64_t kMaxInternalLoad = 64u << 20;

uint32_t LinesToAsk(const uint8_t *data, size_t size) { return size % 3 == 0 ? 0 : data[size - 1] % 40; }

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
    if (HalvHeaderStruct *copy = header->copy(header))
        copy->free(copy);
    if (out != nullptr)
        HVHdrWrite_Header(header, &manager, out);
    if (LoadIsBounded(header, lines)) {
        for (int i = 0; i < kMaxLoads; ++i) {
            HalvChunk chunk;
            int result = HVHdrToChunkLines(manager, header, in, &chunk, lines);
            if (result != 1)
                break;
            if (out != nullptr)
                HVHdrFromChunk(manager, header, &chunk, out);
            if (chunk.flags & HALV_CHUNK_END)
                break;
        }
    }
    header->free(header);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    // A string stream needs a writable buffer of its own.
    auto *bytes = static_cast<uint8_t *>(halv_internal_malloc(size));
    std::memcpy(bytes, data, size);
    HalvIO *in = HalvIO_Str(bytes, (uint32_t)size);
    HalvIO *out = HalvIO_Mem(0);
    uint32_t lines = LinesToAsk(data, size);
    Pass(in, out, lines);
    in->close(in);
    halv_internal_free(bytes);

    uint32_t written = HalvIOMemLength(out);
    if (written != 0) {
        HalvIO *again = HalvIO_Str(HalvIOMemBuffer(out), written);
        Pass(again, nullptr, lines);
        again->close(again);
    }
    out->close(out);
    return 0;
}
