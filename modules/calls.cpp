/*
 * modules/calls.cpp - driving a processing function knowing only its name,
 * or only flat data.
 *
 * By name, the init point comes from the registered bundles.  From flat
 * data, binary arguments become an argument list and 'B' 'H' blocks become
 * headers that borrow their text from the blocks; both live only for the
 * init call, and are released on every path.
 */
#include "halv_headers.h"
#include "modules/internal.h"

namespace {

/* Room the list keeps behind the binary arguments: "input:h", its array,
 * the null word and the terminator, with some to spare. */
constexpr int32_t kSpareWords = 8;

/* The headers of count blocks, borrowing their text, in a new
 * null-terminated array; a block that doesn't read is left out.  Null out
 * of memory. */
HalvHeaderStruct **BorrowHeaders(int32_t count, void *const *blocks) noexcept {
    if (count < 0)
        count = 0;
    auto **headers = static_cast<HalvHeaderStruct **>(halv_internal_calloc((size_t)count + 1, sizeof(HalvHeaderStruct *)));
    for (int32_t i = 0, filled = 0; headers != nullptr && i < count; ++i)
        if (HalvHeaderStruct *header = HalvBinHdrToHdr(blocks[i], 0, 1))
            headers[filled++] = header;
    return headers;
}

} // namespace

extern "C" {

HALV_API int HalvCallInitByName(const char *name, intptr_t *args, HalvState **out) noexcept {
    HalvInitPoint init = nullptr;
    if (args == nullptr || out == nullptr || HalvLoadInitPointByName(name, &init) != 1)
        return 0;
    return HalvCallInit(init, args, out);
}

HALV_API int HalvCallInitBin(const HalvBundleModule *module, int32_t count, const HalvBinArg *args,
                             int32_t headerCount, void *const *headers, intptr_t unused, HalvState **out) noexcept {
    (void)unused;
    intptr_t *list = HalvBinArgToArgs(count, args, kSpareWords);
    if (list == nullptr)
        return 0;
    HalvHeaderStruct **inputs = nullptr;
    int result = 0;
    if (headers != nullptr) {
        inputs = BorrowHeaders(headerCount, headers);
        if (inputs == nullptr || HalvAppendArgs(list, "input:h", inputs, (intptr_t)0, (intptr_t)1) != 1)
            goto done;
    }
    if (module != nullptr && module->init != nullptr)
        result = HalvCallInit(module->init, list, out);
done:
    halv_internal_free(list);
    HalvFreeSmartArray(inputs);
    return result;
}

} // extern "C"
