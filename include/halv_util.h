/*
 * halv_util.h - strings, tokens, UTF-8, hashes, byte order, code pages.
 */
#ifndef HALV_UTIL_H
#define HALV_UTIL_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Hashes
 * ------------------------------------------------------------------------ */

/* MD5 state the caller holds: chaining words, message length in bits (low
 * word first) and the bytes of a block not yet complete. */
typedef struct HalvMD5Context {
    uint32_t state[4];
    uint32_t count[2];
    unsigned char buffer[64];
} HalvMD5Context;

/* A weighted byte sum: 16-bit result in a 32-bit word, 0 for length 0 or
 * null bytes.  The hash the library stores beside names it looks up. */
HALV_API uint32_t HalvHashBytes(const void *bytes, uint32_t length) HALV_NOEXCEPT;

/* h = h * 33 + c over a NUL-terminated text from 5381, each byte taken as
 * signed.  The empty text, and a null one, give 5381. */
HALV_API uint32_t HalvHashString(const char *text) HALV_NOEXCEPT;

/* FNV-1 (multiply, then xor) from the caller's seed; length 0 or null bytes
 * give the seed. */
HALV_API uint32_t HalvFNVHashBytes(const void *bytes, uint32_t length, uint32_t seed) HALV_NOEXCEPT;

/* MD5 in three steps: Init prepares the context, Update adds bytes (any
 * number of calls, any lengths), Final stores the 16 digest bytes and wipes
 * the context with zeros, so it needs a new Init before further use.  A null
 * context or digest makes a call do nothing. */
HALV_API void HalvMD5Init(HalvMD5Context *context) HALV_NOEXCEPT;
HALV_API void HalvMD5Update(HalvMD5Context *context, const void *bytes, uint32_t length) HALV_NOEXCEPT;
HALV_API void HalvMD5Final(unsigned char digest[16], HalvMD5Context *context) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_UTIL_H */
