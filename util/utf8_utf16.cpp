/*
 * util/utf8_utf16.cpp - the bridge between UTF-8 and UTF-16.
 *
 * Both directions make one pass over their input, span by span: the length
 * of the next span (at most kSpan units, none of them the terminator) is
 * found first, room is made for everything the span can produce, and then
 * the span is converted while it is hot in the cache.  Inside a span the
 * block kernels (utf8_simd.cpp) take the easy blocks, and the scalar steps
 * here take one hard spot at a time and decide every error.  The result
 * starts at 64 units and doubles, and isn't trimmed.
 */
#include <cstring>

#include "halv_util.h"
#include "util/internal.h"
#include "util/utf8_simd.h"

namespace {

/* Units looked at ahead of the conversion, a size that stays in L1. */
constexpr size_t kSpan = 4096;

/* Units the scalar steps take before the block kernels are tried again. */
constexpr size_t kScalarRun = 16;

constexpr uint32_t kHighSurrogate = 0xD800, kLowSurrogate = 0xDC00, kSurrogateEnd = 0xE000;
constexpr uint16_t kByteOrderMark = 0xFEFF, kSwappedByteOrderMark = 0xFFFE;

bool IsHighSurrogate(uint32_t unit) noexcept { return unit >= kHighSurrogate && unit < kLowSurrogate; }
bool IsLowSurrogate(uint32_t unit) noexcept { return unit >= kLowSurrogate && unit < kSurrogateEnd; }

uint16_t Swapped(uint16_t unit) noexcept { return (uint16_t)((unit << 8) | (unit >> 8)); }

/* Decodes one character at p (which is before the NUL) into 1 or 2 units
 * at out.  Returns the units written, or 0 for an invalid sequence. */
size_t ScalarToUtf16(const unsigned char *&p, uint16_t *out) noexcept {
    halv::Utf8Char c = halv::DecodeUtf8(p);
    if (c.length == 0)
        return 0;
    p += c.length;
    if (c.value < 0x10000) {
        out[0] = (uint16_t)c.value;
        return 1;
    }
    uint32_t v = c.value - 0x10000;
    out[0] = (uint16_t)(kHighSurrogate | ((v >> 10) & 0x3FF));
    out[1] = (uint16_t)(kLowSurrogate | (v & 0x3FF));
    return 2;
}

/* Converts the UTF-8 of [p, end) into units at out; a character that
 * starts before end may end behind it.  Returns the units written, or
 * SIZE_MAX for an invalid sequence. */
size_t SpanToUtf16(const unsigned char *&p, const unsigned char *end, uint16_t *out, bool simd) noexcept {
    size_t used = 0;
    while (p < end) {
        if (simd) {
            used += halv::SimdUtf8ToUtf16(&p, end, out + used);
            if (p >= end)
                break;
        }
        for (size_t n = 0; n < kScalarRun && p < end; ++n) {
            size_t units = ScalarToUtf16(p, out + used);
            if (units == 0)
                return SIZE_MAX;
            used += units;
        }
    }
    return used;
}

/* State of the way back, which byte order marks can change midway. */
struct Utf16Reader {
    bool swap = false;

    uint32_t Unit(const uint16_t *w) const noexcept { return swap ? Swapped(*w) : *w; }

    /* Converts the unit at w (which is before the terminator), with its
     * partner if it is a high surrogate, to UTF-8 at out.  Returns the bytes
     * written, 0 for a dropped mark, or SIZE_MAX for a lone surrogate. */
    size_t Step(const uint16_t *&w, unsigned char *out) noexcept {
        uint32_t unit = Unit(w++);
        if (unit == kByteOrderMark)
            return 0;
        if (unit == kSwappedByteOrderMark) {
            swap = true;
            return 0;
        }
        if (IsLowSurrogate(unit))
            return SIZE_MAX;
        if (IsHighSurrogate(unit)) {
            uint32_t low = Unit(w); /* the terminator at worst, never past it */
            if (!IsLowSurrogate(low))
                return SIZE_MAX;
            ++w;
            unit = 0x10000 + ((unit & 0x3FF) << 10) + (low & 0x3FF);
        }
        return halv::EncodeUtf8(unit, out);
    }
};

/* Converts the units of [w, end) to UTF-8 at out; a surrogate pair that
 * starts before end may end behind it.  Returns the bytes written, or
 * SIZE_MAX for a lone surrogate. */
size_t SpanToUtf8(const uint16_t *&w, const uint16_t *end, unsigned char *out, Utf16Reader &reader,
                  bool simd) noexcept {
    size_t used = 0;
    while (w < end) {
        if (simd && !reader.swap) {
            used += halv::SimdUtf16ToUtf8(&w, end, out + used);
            if (w >= end)
                break;
        }
        for (size_t n = 0; n < kScalarRun && w < end; ++n) {
            size_t bytes = reader.Step(w, out + used);
            if (bytes == SIZE_MAX)
                return SIZE_MAX;
            used += bytes;
        }
    }
    return used;
}

} // namespace

extern "C" {

HALV_API uint16_t *HalvUTF8ConvertToUTF16(const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    const bool simd = halv::SimdUtf8Available();
    auto *p = reinterpret_cast<const unsigned char *>(text);
    halv::GrowingString<uint16_t> out;
    size_t used = 0;
    for (;;) {
        size_t known = strnlen(reinterpret_cast<const char *>(p), kSpan);
        /* A span gives at most one unit per byte, plus a pair for a
         * character that runs past its end, plus the terminator. */
        if (!out.Reserve(used, known + 3 + halv::kSimdSlack))
            break;
        if (known == 0) {
            out.Units()[used] = 0;
            return out.Release();
        }
        size_t units = SpanToUtf16(p, p + known, out.Units() + used, simd);
        if (units == SIZE_MAX)
            break;
        used += units;
    }
    out.Discard();
    return nullptr;
}

HALV_API char *HalvUTF8ConvertFromUTF16(const uint16_t *wide) noexcept {
    if (wide == nullptr)
        return nullptr;
    const bool simd = halv::SimdUtf8Available();
    halv::GrowingString<unsigned char> out;
    Utf16Reader reader;
    size_t used = 0;
    for (;;) {
        size_t known = halv::Utf16SpanLength(wide, kSpan);
        /* At most 3 bytes per unit, 4 for a pair that runs past the end. */
        if (!out.Reserve(used, 3 * known + 5 + halv::kSimdSlack))
            break;
        if (known == 0) {
            out.Units()[used] = 0;
            return reinterpret_cast<char *>(out.Release());
        }
        size_t bytes = SpanToUtf8(wide, wide + known, out.Units() + used, reader, simd);
        if (bytes == SIZE_MAX)
            break;
        used += bytes;
    }
    out.Discard();
    return nullptr;
}

} // extern "C"
