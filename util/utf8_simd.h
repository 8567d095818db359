/*
 * util/utf8_simd.h - block kernels of the UTF-8 / UTF-16 bridge.
 *
 * The kernels convert the easy blocks of a run whose length is already
 * known (no terminator inside it) and stop at the first block they can't
 * take: a four-byte sequence, a surrogate, a byte order mark, anything
 * invalid, or fewer units left than a block reads.  The scalar code in
 * utf8_utf16.cpp then takes the next characters and decides every hard case,
 * so the kernels never fail a conversion by themselves.
 *
 * Both kernels may write up to kSimdSlack units of scratch behind what they
 * report as written; the caller keeps that much room.
 */
#ifndef HALV_UTIL_UTF8_SIMD_H
#define HALV_UTIL_UTF8_SIMD_H

#include <cstddef>
#include <cstdint>

namespace halv {

constexpr size_t kSimdSlack = 16;

/* True when the processor runs the block kernels. */
bool SimdUtf8Available() noexcept;

/* Converts blocks of UTF-8 from *src towards end into UTF-16 at out and
 * returns the units written; *src moves behind the last character taken. */
size_t SimdUtf8ToUtf16(const unsigned char **src, const unsigned char *end, uint16_t *out) noexcept;

/* Converts blocks of UTF-16 from *src towards end into UTF-8 at out and
 * returns the bytes written; *src moves behind the last unit taken. */
size_t SimdUtf16ToUtf8(const uint16_t **src, const uint16_t *end, unsigned char *out) noexcept;

/* Units before the 0 unit of wide, counting no further than max. */
size_t Utf16SpanLength(const uint16_t *wide, size_t max) noexcept;

} // namespace halv

#endif
