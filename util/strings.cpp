/*
 * util/strings.cpp - copying, measuring and comparing NUL-terminated text.
 *
 * These look like their C library namesakes, but the edges differ on
 * purpose: HalvStrNCpy never pads, HalvStrCmp compares signed bytes while
 * HalvStrCaseCmp compares unsigned ones, and the case fold is the library's
 * own ASCII table, never the process locale.
 */
#include <cstring>

#include "halv_core.h"
#include "halv_util.h"
#include "util/internal.h"

namespace {

/* Copies src up to its NUL or n bytes; the NUL goes along only when src
 * ended in time.  The shared rule of HalvStrNCpy and HalvStrNCat. */
void CopyAtMost(char *dst, const char *src, uint32_t n) noexcept {
    size_t length = strnlen(src, n);
    std::memcpy(dst, src, length);
    if (length < n)
        dst[length] = '\0';
}

} // namespace

extern "C" {

HALV_API char *HalvStrDup(const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    return HalvStrNDup(text, UINT32_MAX);
}

HALV_API char *HalvStrNDup(const char *text, uint32_t max) noexcept {
    if (text == nullptr)
        return nullptr;
    size_t length = strnlen(text, max);
    auto *copy = static_cast<char *>(halv_internal_malloc(length + 1));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

HALV_API uint32_t HalvStrLen(const char *text) noexcept {
    return text == nullptr ? 0 : (uint32_t)std::strlen(text);
}

HALV_API uint32_t HalvStrNLen(const char *text, uint32_t max) noexcept {
    return text == nullptr ? 0 : (uint32_t)strnlen(text, max);
}

HALV_API uint32_t HalvWideStrLen(const uint16_t *wide) noexcept {
    if (wide == nullptr)
        return 0;
    uint32_t length = 0;
    while (wide[length] != 0)
        ++length;
    return length;
}

HALV_API void HalvStrCpy(char *dst, const char *src) noexcept { std::strcpy(dst, src); }

HALV_API void HalvStrNCpy(char *dst, const char *src, uint32_t n) noexcept { CopyAtMost(dst, src, n); }

HALV_API void HalvStrCat(char *dst, const char *src) noexcept { std::strcat(dst, src); }

HALV_API char *HalvStrNCat(char *dst, const char *src, uint32_t n) noexcept {
    CopyAtMost(dst + std::strlen(dst), src, n);
    return dst;
}

HALV_API int HalvStrCmp(const char *a, const char *b) noexcept { return HalvStrNCmp(a, b, UINT32_MAX); }

HALV_API int HalvStrNCmp(const char *a, const char *b, uint32_t n) noexcept {
    for (uint32_t i = 0; i < n; ++i) {
        auto x = (signed char)a[i], y = (signed char)b[i];
        if (x != y || x == 0)
            return x - y;
    }
    return 0;
}

HALV_API int HalvStrCaseCmp(const char *a, const char *b) noexcept { return HalvStrNCaseCmp(a, b, UINT32_MAX); }

HALV_API int HalvStrNCaseCmp(const char *a, const char *b, uint32_t n) noexcept {
    for (uint32_t i = 0; i < n; ++i) {
        int x = halv::LowerByte((unsigned char)a[i]), y = halv::LowerByte((unsigned char)b[i]);
        if (x != y || x == 0)
            return x - y;
    }
    return 0;
}

} // extern "C"
