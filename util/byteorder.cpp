/*
 * util/byteorder.cpp - byte-order words of image headers, and byte
 * swapping of header and sample values.
 */
#include <cstring>

#include "halv_util.h"

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

/* Reverses the bytes of each of count values of sizeof(Word) bytes.  Going through
 * an integer and memcpy keeps unaligned data legal and lets the compiler
 * use bswap (and vectorise the loop). */
template <typename Word>
void SwabValues(void *pointer, uint32_t count) noexcept {
    auto *bytes = static_cast<unsigned char *>(pointer);
    for (uint32_t i = 0; i < count; ++i, bytes += sizeof(Word)) {
        Word value;
        std::memcpy(&value, bytes, sizeof value);
        if constexpr (sizeof(Word) == 2)
            value = __builtin_bswap16(value);
        else if constexpr (sizeof(Word) == 4)
            value = __builtin_bswap32(value);
        else
            value = __builtin_bswap64(value);
        std::memcpy(bytes, &value, sizeof value);
    }
}

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

HALV_API void HalvSwabShort(void *pointer) noexcept { SwabValues<uint16_t>(pointer, 1); }
HALV_API void HalvSwabLong(void *pointer) noexcept { SwabValues<uint32_t>(pointer, 1); }
HALV_API void HalvSwabDouble(void *pointer) noexcept { SwabValues<uint64_t>(pointer, 1); }
HALV_API void HalvSwabShortArray(void *pointer, uint32_t count) noexcept { SwabValues<uint16_t>(pointer, count); }
HALV_API void HalvSwabLongArray(void *pointer, uint32_t count) noexcept { SwabValues<uint32_t>(pointer, count); }
HALV_API void HalvSwabDoubleArray(void *pointer, uint32_t count) noexcept { SwabValues<uint64_t>(pointer, count); }

} // extern "C"
