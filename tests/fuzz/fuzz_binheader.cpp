// Fuzz target for flat header blocks ('B' 'H').
//
// The first byte chooses how the block is handed over: with its size or
// vouched for (size 0), and with borrowed or copied texts.  The rest is the
// block, copied into an allocation of exactly its size so that a read past
// it is caught.  A block that reads is flattened again in both byte orders
// and read back, and its header copied and freed through its slots.  Any
// crash, leak or sanitizer report is a fault.
//
// A vouched block is trusted for its tree length, so a vouched input whose
// tree length runs past the bytes is left alone: that reading past the
// block is the caller's promise broken, not a fault of the reader.
#include "fuzz/support.h"

namespace {

uint32_t TreeLength(const uint8_t *block) {
    uint32_t t;
    std::memcpy(&t, block + 552, 4);
    return block[2] == 'B' ? __builtin_bswap32(t) : t;
}

void RoundTrip(const HalvHeaderStruct *header) {
    for (int32_t order : {0, 1}) {
        void *block = nullptr;
        int32_t size = HalvBinHdrFromHdr(header, order, &block, 0);
        if (size > 0) {
            HalvHeaderStruct *again = HalvBinHdrToHdr(block, (uint32_t)size, order);
            if (again == nullptr)
                __builtin_trap(); /* what the writer makes, the reader must take */
            again->free(again);
        }
        halv_internal_free(block);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1)
        return 0;
    uint8_t mode = data[0];
    size_t length = size - 1;
    bool vouched = (mode & 1) != 0, borrow = (mode & 2) != 0;
    if (vouched && (length < 556 || 556 + (uint64_t)TreeLength(data + 1) > length))
        return 0;
    uint8_t *block = fuzz::Exact(data + 1, length);
    if (HalvHeaderStruct *header = HalvBinHdrToHdr(block, vouched ? 0 : (uint32_t)length, borrow ? 1 : 0)) {
        fuzz::CopyAndFree(header);
        RoundTrip(header);
        header->free(header);
    }
    std::free(block); // after the header, which may borrow its texts
    return 0;
}
