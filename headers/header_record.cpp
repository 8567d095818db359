/*
 * headers/header_record.cpp - the generic header as a smart record: its
 * copy and free slots, and arrays of freshly prepared headers.
 *
 * Formats extend the record behind userData; the functions here know only
 * the generic part, which is why users go through the copy and free slots
 * rather than copying records themselves.
 */
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/internal.h"

extern "C" {

HALV_API int HalvInitGenericHeader(HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return 0;
    header->copy = HalvGenericHeaderCopy;
    header->free = HalvGenericHeaderFree;
    header->endian = HalvIdentifyEndian();
    return 1;
}

/* A negative count is refused like a failed allocation: as an unsigned
 * count it would ask for billions of items.  Items smaller than a header
 * (size 0 gives reserved marker slots) aren't headers and stay zeroed. */
HALV_API int HalvAllocHeaders(HalvHeaderStruct ***array, int32_t count, uint32_t itemSize) noexcept {
    if (count < 0) {
        if (array != nullptr)
            *array = nullptr;
        return 0;
    }
    if (!HalvAllocArray(array, (uint32_t)count, itemSize))
        return 0;
    if (count < 1 || itemSize < sizeof(HalvHeaderStruct))
        return 1;
    for (HalvHeaderStruct **slot = *array; *slot != nullptr; ++slot)
        HalvInitGenericHeader(*slot);
    return 1;
}

HALV_API HalvHeaderStruct *HalvGenericHeaderCopy(HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvHeaderStruct *>(halv_internal_malloc(sizeof(HalvHeaderStruct)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, header, sizeof(HalvHeaderStruct));
    copy->copy = HalvGenericHeaderCopy;
    copy->free = HalvGenericHeaderFree;
    copy->userData = nullptr;
    if (header->userData != nullptr) {
        copy->userData = HalvUserCMDupData(header->userData);
        if (copy->userData == nullptr) {
            copy->free(copy);
            return nullptr;
        }
    }
    return copy;
}

HALV_API void HalvGenericHeaderFree(HalvHeaderStruct *header) noexcept {
    if (header == nullptr)
        return;
    HalvFreeUserCMData(header->userData);
    halv_internal_free(header);
}

} // extern "C"
