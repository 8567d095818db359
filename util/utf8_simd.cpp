/*
 * util/utf8_simd.cpp - SSSE3 block kernels of the UTF-8 / UTF-16 bridge.
 *
 * UTF-8 to UTF-16 looks at 16 bytes at a time.  Every byte position gets
 * the value of the character that would start there, computed from the byte
 * and the two behind it; a bit mask of the positions where characters
 * really start then picks the values out with a byte shuffle.  The
 * structure of the block (each lead followed by exactly its continuation
 * bytes) is checked on bit masks, and overlong forms on the bytes.
 *
 * UTF-16 to UTF-8 takes 8 units at a time.  Where all are below 0x800 each
 * unit's 1 or 2 bytes are made in its own 16-bit lane and one shuffle packs
 * them; otherwise in two halves of 4: each unit is spread into a 32-bit
 * lane holding its 1 to 3 bytes, and a shuffle chosen by the lengths packs
 * the lanes together.
 *
 * Pure ASCII blocks skip all of that in both directions.  The kernels only
 * run where the processor has SSSE3; the scalar code covers everything.
 */
#include "util/utf8_simd.h"

#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#define HALV_UTF8_SIMD 1
#include <emmintrin.h>
#include <tmmintrin.h>
#endif

namespace halv {
namespace {

/* ---- Shuffle tables ------------------------------------------------------ */

struct alignas(16) Shuffle {
    unsigned char at[16];
    unsigned char length; /* units (first table) or bytes (second) kept */
};

struct ShuffleTable {
    Shuffle entry[256];
};

/* For each 8-bit mask of 16-bit lanes: the shuffle that moves the marked
 * lanes, in order, to the front. */
consteval ShuffleTable MakeLaneCompaction() {
    ShuffleTable table{};
    for (int mask = 0; mask < 256; ++mask) {
        Shuffle &s = table.entry[mask];
        int k = 0;
        for (int lane = 0; lane < 8; ++lane) {
            if (mask & (1 << lane)) {
                s.at[2 * k] = (unsigned char)(2 * lane);
                s.at[2 * k + 1] = (unsigned char)(2 * lane + 1);
                ++k;
            }
        }
        for (int i = 2 * k; i < 16; ++i)
            s.at[i] = 0x80;
        s.length = (unsigned char)k;
    }
    return table;
}

/* For 4 32-bit lanes holding the UTF-8 bytes of one unit each: key bit i
 * says lane i is at least 0x80 (2 bytes), bit 4 + i at least 0x800 (3). */
consteval ShuffleTable MakeByteCompaction() {
    ShuffleTable table{};
    for (int key = 0; key < 256; ++key) {
        Shuffle &s = table.entry[key];
        int k = 0;
        for (int lane = 0; lane < 4; ++lane) {
            int bytes = 1 + ((key >> lane) & 1) + ((key >> (4 + lane)) & 1);
            for (int b = 0; b < bytes; ++b)
                s.at[k++] = (unsigned char)(4 * lane + b);
        }
        s.length = (unsigned char)k;
        for (int i = k; i < 16; ++i)
            s.at[i] = 0x80;
    }
    return table;
}

/* For 8 16-bit lanes holding the UTF-8 bytes of one unit each, first byte
 * lowest: bit i of the mask says lane i holds 2 bytes, else 1. */
consteval ShuffleTable MakePairCompaction() {
    ShuffleTable table{};
    for (int mask = 0; mask < 256; ++mask) {
        Shuffle &s = table.entry[mask];
        int k = 0;
        for (int lane = 0; lane < 8; ++lane) {
            s.at[k++] = (unsigned char)(2 * lane);
            if (mask & (1 << lane))
                s.at[k++] = (unsigned char)(2 * lane + 1);
        }
        s.length = (unsigned char)k;
        for (int i = k; i < 16; ++i)
            s.at[i] = 0x80;
    }
    return table;
}

[[maybe_unused]] constexpr ShuffleTable kLaneCompaction = MakeLaneCompaction();
[[maybe_unused]] constexpr ShuffleTable kPairCompaction = MakePairCompaction();
[[maybe_unused]] constexpr ShuffleTable kByteCompaction = MakeByteCompaction();

} // namespace

#ifdef HALV_UTF8_SIMD

/* Aligned 16-byte loads never cross a page, so looking at the whole block
 * that holds the terminator is safe even where the string ends before the
 * block does (the technique of the C library's own strlen).  The sanitizer
 * would report those bytes, so it is told not to look here. */
__attribute__((no_sanitize_address)) size_t Utf16SpanLength(const uint16_t *wide, size_t max) noexcept {
    size_t n = 0;
    while (n < max && (reinterpret_cast<uintptr_t>(wide + n) & 15) != 0) {
        if (wide[n] == 0)
            return n;
        ++n;
    }
    for (; n < max; n += 8) {
        __m128i block = _mm_load_si128(reinterpret_cast<const __m128i *>(wide + n));
        unsigned zeros = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi16(block, _mm_setzero_si128()));
        if (zeros != 0) {
            n += (size_t)__builtin_ctz(zeros) / 2;
            break;
        }
    }
    return n < max ? n : max;
}

/* The SSSE3 routines are compiled for that extension alone and run only
 * after SimdUtf8Available has said yes. */
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("ssse3"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("ssse3")
#endif

namespace {

inline __m128i Load(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
inline void Store(void *p, __m128i v) { _mm_storeu_si128(static_cast<__m128i *>(p), v); }
inline __m128i Bytes(int value) { return _mm_set1_epi8((char)value); }
inline __m128i Words(int value) { return _mm_set1_epi16((short)value); }
inline __m128i Select(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

/* Values of the characters that would start at 8 positions, from their
 * first three bytes widened to 16 bits.  Continuation positions give
 * garbage that the compaction drops. */
__m128i CharacterValues(__m128i b0, __m128i b1, __m128i b2) {
    __m128i low1 = _mm_and_si128(b1, Words(0x3F));
    __m128i low2 = _mm_and_si128(b2, Words(0x3F));
    __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, Words(0x1F)), 6), low1);
    /* The shift by 12 keeps just the 4 value bits of a three-byte lead. */
    __m128i three = _mm_or_si128(_mm_or_si128(_mm_slli_epi16(b0, 12), _mm_slli_epi16(low1, 6)), low2);
    __m128i isTwo = _mm_cmpgt_epi16(b0, Words(0xBF));
    __m128i isThree = _mm_cmpgt_epi16(b0, Words(0xDF));
    return Select(isThree, three, Select(isTwo, two, b0));
}

/* CharacterValues where no position starts a three-byte character. */
__m128i ShortValues(__m128i b0, __m128i b1) {
    __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, Words(0x1F)), 6), _mm_and_si128(b1, Words(0x3F)));
    return Select(_mm_cmpgt_epi16(b0, Words(0xBF)), two, b0);
}

/* Writes the values at the positions marked in starts, packed; returns
 * the units written. */
size_t PackStarts(__m128i values, unsigned starts, uint16_t *out) {
    const Shuffle &s = kLaneCompaction.entry[starts];
    Store(out, _mm_shuffle_epi8(values, _mm_load_si128(reinterpret_cast<const __m128i *>(s.at))));
    return s.length;
}

/* The UTF-8 bytes of 8 units below 0x800, packed at out; returns the bytes
 * written.  Alphabets and the Latin letters around them are all of this
 * kind, and take half the work of EncodeFour. */
size_t EncodeEightShort(__m128i v, unsigned char *out) {
    /* Two bytes: 110xxxxx 10xxxxxx, the first lowest in the lane. */
    __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(v, 6), _mm_slli_epi16(_mm_and_si128(v, Words(0x3F)), 8)),
                               Words(0x80C0));
    __m128i isTwo = _mm_cmpgt_epi16(v, Words(0x7F));
    __m128i lanes = Select(isTwo, two, v);
    int mask = _mm_movemask_epi8(_mm_packs_epi16(isTwo, _mm_setzero_si128()));
    const Shuffle &s = kPairCompaction.entry[mask];
    Store(out, _mm_shuffle_epi8(lanes, _mm_load_si128(reinterpret_cast<const __m128i *>(s.at))));
    return s.length;
}

/* The UTF-8 bytes of 4 units (zero-extended to 32 bits, none a surrogate),
 * packed at out; returns the bytes written. */
/* The three UTF-8 bytes of a unit from 0x800 (zero-extended to 32 bits),
 * first byte lowest in the lane, so that memory order is byte order. */
__m128i ThreeBytes(__m128i u, __m128i low6) {
    __m128i mid6 = _mm_and_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0x3F));
    return _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0x8080E0)),
                        _mm_or_si128(_mm_slli_epi32(mid6, 8), _mm_slli_epi32(low6, 16)));
}

size_t EncodeFour(__m128i u, unsigned char *out) {
    __m128i low6 = _mm_and_si128(u, _mm_set1_epi32(0x3F));
    /* Two bytes: 110xxxxx 10xxxxxx; three: 1110xxxx 10xxxxxx 10xxxxxx. */
    __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0x80C0)), _mm_slli_epi32(low6, 8));
    __m128i three = ThreeBytes(u, low6);
    __m128i atLeast2 = _mm_cmpgt_epi32(u, _mm_set1_epi32(0x7F));
    __m128i atLeast3 = _mm_cmpgt_epi32(u, _mm_set1_epi32(0x7FF));
    __m128i lanes = Select(atLeast3, three, Select(atLeast2, two, u));
    int key = _mm_movemask_ps(_mm_castsi128_ps(atLeast2)) | (_mm_movemask_ps(_mm_castsi128_ps(atLeast3)) << 4);
    const Shuffle &s = kByteCompaction.entry[key];
    Store(out, _mm_shuffle_epi8(lanes, _mm_load_si128(reinterpret_cast<const __m128i *>(s.at))));
    return s.length;
}

/* EncodeFour where all 4 units take three bytes, as the units of Chinese,
 * Japanese and Korean text do: 12 bytes, always in the same places. */
size_t EncodeFourLong(__m128i u, unsigned char *out) {
    const __m128i pack = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -128, -128, -128, -128);
    Store(out, _mm_shuffle_epi8(ThreeBytes(u, _mm_and_si128(u, _mm_set1_epi32(0x3F))), pack));
    return 12;
}

} // namespace

size_t SimdUtf8ToUtf16(const unsigned char **src, const unsigned char *end, uint16_t *out) noexcept {
    const unsigned char *p = *src;
    uint16_t *start = out;
    const __m128i zero = _mm_setzero_si128();
    /* A block reads 18 bytes: 16 positions and two bytes of look-ahead. */
    while (end - p >= 18) {
        __m128i x0 = Load(p);
        unsigned high = (unsigned)_mm_movemask_epi8(x0);
        if (high == 0) {
            Store(out, _mm_unpacklo_epi8(x0, zero));
            Store(out + 8, _mm_unpackhi_epi8(x0, zero));
            out += 16;
            p += 16;
            continue;
        }
        __m128i x1 = Load(p + 1);
        /* As signed bytes: continuation 0x80..0xBF is below -64, and leads
         * from 0xE0 and 0xF0 are above -33 and -17. */
        unsigned cont = (unsigned)_mm_movemask_epi8(_mm_cmplt_epi8(x0, Bytes(-64)));
        unsigned lead3 = (unsigned)_mm_movemask_epi8(_mm_cmpgt_epi8(x0, Bytes(-33))) & high;
        unsigned lead4 = (unsigned)_mm_movemask_epi8(_mm_cmpgt_epi8(x0, Bytes(-17))) & high;
        if (lead4 != 0)
            break; /* four-byte forms and bytes that are never valid */
        unsigned lead2 = high & ~cont & ~lead3;
        if (lead3 == 0) {
            /* Alphabets: one- and two-byte characters only, which need
             * neither the third byte nor the three-byte values. */
            unsigned claimed = lead2 << 1;
            unsigned contAhead = ((unsigned)_mm_movemask_epi8(_mm_cmplt_epi8(x1, Bytes(-64))) >> 15) << 16;
            if ((claimed & 0xFFFF) != cont || ((claimed >> 16) & ~(contAhead >> 16)) != 0)
                break;
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(x0, Bytes(0xFE)), Bytes(0xC0))) != 0)
                break; /* overlong: C0 and C1 leads */
            unsigned starts = ~cont & 0xFFFF;
            out += PackStarts(ShortValues(_mm_unpacklo_epi8(x0, zero), _mm_unpacklo_epi8(x1, zero)), starts & 0xFF, out);
            out += PackStarts(ShortValues(_mm_unpackhi_epi8(x0, zero), _mm_unpackhi_epi8(x1, zero)), starts >> 8, out);
            p += 16 + ((claimed >> 16) & 1);
            continue;
        }
        __m128i x2 = Load(p + 2);
        /* Each lead claims the bytes behind it; exactly the continuation
         * bytes must be claimed, and the claims on bytes 16 and 17 must
         * find continuation bytes there. */
        unsigned claimed = ((lead2 | lead3) << 1) | (lead3 << 2);
        unsigned contAhead = ((unsigned)_mm_movemask_epi8(_mm_cmplt_epi8(x2, Bytes(-64))) >> 14) << 16;
        if ((claimed & 0xFFFF) != cont || ((claimed >> 16) & ~(contAhead >> 16)) != 0)
            break;
        /* Overlong: C0 and C1 leads, and E0 with a second byte below A0. */
        unsigned c0c1 = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(x0, Bytes(0xFE)), Bytes(0xC0)));
        unsigned e0 = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi8(x0, Bytes(0xE0)));
        unsigned below_a0 = (unsigned)_mm_movemask_epi8(_mm_cmplt_epi8(x1, Bytes(-96)));
        if ((c0c1 | (e0 & below_a0)) != 0)
            break;
        unsigned starts = ~cont & 0xFFFF;
        __m128i low = CharacterValues(_mm_unpacklo_epi8(x0, zero), _mm_unpacklo_epi8(x1, zero),
                                      _mm_unpacklo_epi8(x2, zero));
        __m128i highValues = CharacterValues(_mm_unpackhi_epi8(x0, zero), _mm_unpackhi_epi8(x1, zero),
                                             _mm_unpackhi_epi8(x2, zero));
        out += PackStarts(low, starts & 0xFF, out);
        out += PackStarts(highValues, starts >> 8, out);
        p += 16 + ((claimed >> 16) & 1) + ((claimed >> 17) & 1);
    }
    *src = p;
    return (size_t)(out - start);
}

size_t SimdUtf16ToUtf8(const uint16_t **src, const uint16_t *end, unsigned char *out) noexcept {
    const uint16_t *w = *src;
    unsigned char *start = out;
    const __m128i zero = _mm_setzero_si128();
    while (end - w >= 8) {
        __m128i v = Load(w);
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, Words(0xFF80)), zero)) == 0xFFFF) {
            _mm_storel_epi64(reinterpret_cast<__m128i *>(out), _mm_packus_epi16(v, v));
            out += 8;
            w += 8;
            continue;
        }
        /* Lanes of units below 0x800, which take one or two bytes. */
        const unsigned shortUnits = (unsigned)_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(v, Words(0xF800)), zero));
        if (shortUnits == 0xFFFF) {
            out += EncodeEightShort(v, out);
            w += 8;
            continue;
        }
        /* Surrogates and byte order marks are for the scalar code. */
        __m128i surrogate = _mm_cmpeq_epi16(_mm_and_si128(v, Words(0xF800)), Words(0xD800));
        __m128i mark = _mm_or_si128(_mm_cmpeq_epi16(v, Words(0xFEFF)), _mm_cmpeq_epi16(v, Words(0xFFFE)));
        if (_mm_movemask_epi8(_mm_or_si128(surrogate, mark)) != 0)
            break;
        if (shortUnits == 0) {
            out += EncodeFourLong(_mm_unpacklo_epi16(v, zero), out);
            out += EncodeFourLong(_mm_unpackhi_epi16(v, zero), out);
        } else {
            out += EncodeFour(_mm_unpacklo_epi16(v, zero), out);
            out += EncodeFour(_mm_unpackhi_epi16(v, zero), out);
        }
        w += 8;
    }
    *src = w;
    return (size_t)(out - start);
}

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

bool SimdUtf8Available() noexcept { return __builtin_cpu_supports("ssse3"); }

#else /* no block kernels on this processor */

bool SimdUtf8Available() noexcept { return false; }

size_t SimdUtf8ToUtf16(const unsigned char **, const unsigned char *, uint16_t *) noexcept { return 0; }

size_t SimdUtf16ToUtf8(const uint16_t **, const uint16_t *, unsigned char *) noexcept { return 0; }

size_t Utf16SpanLength(const uint16_t *wide, size_t max) noexcept {
    size_t n = 0;
    while (n < max && wide[n] != 0)
        ++n;
    return n;
}

#endif

} // namespace halv
