/*
 * util/strings_block.cpp - exchanging and comparing blocks of bytes.
 */
#include <cstring>

#include "halv_util.h"

extern "C" {

/* Moves 32 bits at a time through memcpy, which keeps unaligned blocks
 * legal, and the remaining 0 to 3 bytes one by one. */
HALV_API void HalvSwapBlock(void *a, void *b, uint32_t n) noexcept {
    auto *x = static_cast<unsigned char *>(a);
    auto *y = static_cast<unsigned char *>(b);
    uint32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        uint32_t wx, wy;
        std::memcpy(&wx, x + i, 4);
        std::memcpy(&wy, y + i, 4);
        std::memcpy(x + i, &wy, 4);
        std::memcpy(y + i, &wx, 4);
    }
    for (; i < n; ++i) {
        unsigned char t = x[i];
        x[i] = y[i];
        y[i] = t;
    }
}

/* memcmp finds the first difference quickly but gives only its sign; the
 * result here is the difference itself. */
HALV_API int HalvCmpBlock(const void *a, const void *b, uint32_t n) noexcept {
    auto *x = static_cast<const unsigned char *>(a);
    auto *y = static_cast<const unsigned char *>(b);
    if (n == 0 || std::memcmp(x, y, n) == 0)
        return 0;
    uint32_t i = 0;
    while (x[i] == y[i])
        ++i;
    return (int)x[i] - (int)y[i];
}

} // extern "C"
