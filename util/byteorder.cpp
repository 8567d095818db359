/*
 * util/byteorder.cpp - byte-order words of image headers, and byte
 * swapping of header and sample values.
 */
#include <cstring>

#include "halv_util.h"
#include "util/internal.h"

namespace {

struct EndianWord {
    const char *word;
    int value;
};

/* Words read from header text.  Writing uses only the "type" forms. */
constexpr EndianWord kEndianWords[] = {
    {"type 1", HALV_BIG_ENDIAN},
    {"big", HALV_BIG_ENDIAN},
    {"type 2", HALV_LITTLE_ENDIAN},
    {"little", HALV_LITTLE_ENDIAN},
};

} // namespace

extern "C" {

HALV_API int HalvIdentifyEndian(void) noexcept {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return HALV_BIG_ENDIAN;
#else
    return HALV_LITTLE_ENDIAN;
#endif
}

HALV_API int HalvStr2Endian(const char *text) noexcept {
    if (text == nullptr)
        return -1;
    for (const EndianWord &entry : kEndianWords)
        if (HalvStrCaseCmp(text, entry.word) == 0)
            return entry.value;
    return -1;
}

HALV_API const char *HalvEndian2Str(int value) noexcept {
    switch (value) {
    case HALV_LITTLE_ENDIAN: return "type 2";
    case HALV_BIG_ENDIAN: return "type 1";
    default: return "unknown";
    }
}

HALV_API void HalvSwabShort(void *pointer) noexcept { halv::SwabValues<uint16_t>(pointer, 1); }
HALV_API void HalvSwabLong(void *pointer) noexcept { halv::SwabValues<uint32_t>(pointer, 1); }
HALV_API void HalvSwabDouble(void *pointer) noexcept { halv::SwabValues<uint64_t>(pointer, 1); }
HALV_API void HalvSwabShortArray(void *pointer, uint32_t count) noexcept { halv::SwabValues<uint16_t>(pointer, count); }
HALV_API void HalvSwabLongArray(void *pointer, uint32_t count) noexcept { halv::SwabValues<uint32_t>(pointer, count); }
HALV_API void HalvSwabDoubleArray(void *pointer, uint32_t count) noexcept { halv::SwabValues<uint64_t>(pointer, count); }

} // extern "C"
