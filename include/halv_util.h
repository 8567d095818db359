/*
 * halv_util.h - strings, tokens, UTF-8, hashes, byte order, code pages.
 *
 * Text is NUL-terminated bytes, in practice UTF-8.  The string family knows
 * nothing of multi-byte characters; the UTF-8 family does.  UTF-16 strings
 * are arrays of uint16_t and UCS-4 strings arrays of uint32_t, each closed by
 * a 0 unit.  Strings and arrays that a function calls "new" come from
 * halv_internal_malloc, and the caller releases them with halv_internal_free.
 */
#ifndef HALV_UTIL_H
#define HALV_UTIL_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Strings.  A null pointer is accepted only where a comment says so.
 * ------------------------------------------------------------------------ */

/* New copy of text; null for null text or when memory runs out. */
HALV_API char *HalvStrDup(const char *text) HALV_NOEXCEPT;
/* New copy of at most max bytes of text, always terminated; null for null
 * text or when memory runs out. */
HALV_API char *HalvStrNDup(const char *text, uint32_t max) HALV_NOEXCEPT;
/* Bytes before the NUL (0 for null text). */
HALV_API uint32_t HalvStrLen(const char *text) HALV_NOEXCEPT;
/* Bytes before the NUL, looking at no more than max bytes (0 for null). */
HALV_API uint32_t HalvStrNLen(const char *text, uint32_t max) HALV_NOEXCEPT;
/* 16-bit units before the 0 unit (0 for null). */
HALV_API uint32_t HalvWideStrLen(const uint16_t *wide) HALV_NOEXCEPT;

/* Copies src with its NUL to dst. */
HALV_API void HalvStrCpy(char *dst, const char *src) HALV_NOEXCEPT;
/* Copies bytes of src until its NUL or until n bytes are done.  The NUL is
 * stored only when src ended within the n bytes: no padding, and with n or
 * more bytes in src no terminator at all. */
HALV_API void HalvStrNCpy(char *dst, const char *src, uint32_t n) HALV_NOEXCEPT;
/* Appends src with its NUL to dst. */
HALV_API void HalvStrCat(char *dst, const char *src) HALV_NOEXCEPT;
/* Appends src to dst by the rule of HalvStrNCpy, so an append cut off at n
 * bytes leaves dst unterminated.  Returns dst. */
HALV_API char *HalvStrNCat(char *dst, const char *src, uint32_t n) HALV_NOEXCEPT;

/* Difference of the bytes, as signed values, at the first mismatch or the
 * first NUL; 0 when equal.  The N form looks at n bytes at most (n 0 gives 0). */
HALV_API int HalvStrCmp(const char *a, const char *b) HALV_NOEXCEPT;
HALV_API int HalvStrNCmp(const char *a, const char *b, uint32_t n) HALV_NOEXCEPT;
/* As HalvStrCmp with both sides lowered by HalvAsciiToLower, the bytes taken
 * as unsigned values.  Only the 26 ASCII letters fold. */
HALV_API int HalvStrCaseCmp(const char *a, const char *b) HALV_NOEXCEPT;
HALV_API int HalvStrNCaseCmp(const char *a, const char *b, uint32_t n) HALV_NOEXCEPT;

/* First (Chr) or last (RChr) byte of text whose signed value equals c, or
 * null.  The NUL is never found: c 0 gives null, as does null text.  c must
 * come from a char: 0xE9 as an int doesn't match the byte 0xE9. */
HALV_API char *HalvStrChr(const char *text, int c) HALV_NOEXCEPT;
HALV_API char *HalvStrRChr(const char *text, int c) HALV_NOEXCEPT;
/* The same on 16-bit units; c 0 gives null. */
HALV_API uint16_t *HalvWideStrChr(const uint16_t *wide, int c) HALV_NOEXCEPT;
HALV_API uint16_t *HalvWideStrRChr(const uint16_t *wide, int c) HALV_NOEXCEPT;
/* First occurrence of sub in text, or null.  Empty (or null) text gives
 * null even for an empty sub; an empty sub in non-empty text gives text. */
HALV_API char *HalvStrStr(const char *text, const char *sub) HALV_NOEXCEPT;

/* Moves text down over its leading whitespace (HalvIsAsciiSpace), in place.
 * Returns text. */
HALV_API char *HalvStripLeadingSpaces(char *text) HALV_NOEXCEPT;
/* Cuts trailing whitespace by storing NULs, in place; text of whitespace
 * only becomes empty.  Returns text. */
HALV_API char *HalvStripTrailingSpaces(char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Blocks
 * ------------------------------------------------------------------------ */

/* Exchanges n bytes between a and b (which must not overlap). */
HALV_API void HalvSwapBlock(void *a, void *b, uint32_t n) HALV_NOEXCEPT;
/* Difference of the first differing bytes as unsigned values, else 0. */
HALV_API int HalvCmpBlock(const void *a, const void *b, uint32_t n) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * ASCII character tests and case, independent of the process locale.
 * The tests give 1 or 0 for any int; only the listed values are true.
 * ------------------------------------------------------------------------ */

HALV_API int HalvIsAsciiPrint(int c) HALV_NOEXCEPT;    /* 32..126 */
HALV_API int HalvIsAsciiChar(int c) HALV_NOEXCEPT;     /* bit 7 of c clear */
HALV_API int HalvIsAsciiSpace(int c) HALV_NOEXCEPT;    /* 32, 12, 10, 13, 9, 11 */
HALV_API int HalvIsAsciiAlpha(int c) HALV_NOEXCEPT;    /* A..Z, a..z */
HALV_API int HalvIsAsciiDigit(int c) HALV_NOEXCEPT;    /* 0..9 */
HALV_API int HalvIsAsciiHexDigit(int c) HALV_NOEXCEPT; /* 0..9, A..F, a..f */
/* Map the low 8 bits of c through a 256-byte table that changes the 26
 * letters and nothing else; the result is the mapped byte. */
HALV_API int HalvAsciiToUpper(int c) HALV_NOEXCEPT;
HALV_API int HalvAsciiToLower(int c) HALV_NOEXCEPT;

/* 1 when text looks like numbers given in line rather than a name: of its n
 * bytes at least n / 4 (rounded down) are digits, and at least one is
 * whitespace or a comma.  Empty or null text gives 0. */
HALV_API int HalvIsImmediateData(const char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Tokens.  The caller sets *next to null before the first call and passes
 * the same text every time; *next is the parser's whole state, so parsers
 * run side by side without locks.  A token is returned until the text is
 * used up, then null.
 * ------------------------------------------------------------------------ */

#define HALV_TOKEN_SKIP_DELIMITERS 1 /* no empty tokens from adjacent delimiters */
#define HALV_TOKEN_SINGLE_QUOTES 2   /* '...' groups; the quotes are removed */
#define HALV_TOKEN_DOUBLE_QUOTES 4   /* "..." groups; the quotes are removed */
#define HALV_TOKEN_ESCAPES 8         /* \n \r \t and \<any> inside quotes */
#define HALV_TOKEN_KEEP_QUOTES 16    /* quotes group but stay in the token */

/* Next token of text, cut in place (the delimiter behind it becomes a NUL,
 * and quotes are rewritten inside it), or null at the end.  Null text gives
 * null; null delimiters count as none. */
HALV_API char *HalvTokenParseEx(char *text, const char *delimiters, int flags, char **next) HALV_NOEXCEPT;
HALV_API char *HalvTokenParse(char *text, const char *delimiters, char **next) HALV_NOEXCEPT;
/* The same without touching text: each token is a new string.  When memory
 * runs out the result is null and *next stays as it was, so the call can be
 * repeated. */
HALV_API char *HalvDupTokenParseEx(const char *text, const char *delimiters, int flags,
                                   const char **next) HALV_NOEXCEPT;
HALV_API char *HalvDupTokenParse(const char *text, const char *delimiters, const char **next) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * UTF-8.  A sequence is valid when its lead byte announces 1 to 4 bytes,
 * the continuation bytes follow, and the value needs that many bytes (no
 * overlong forms).  Surrogate values and values up to 0x1FFFFF pass.
 * ------------------------------------------------------------------------ */

/* Code point of the first character; 0 at the end and for an invalid one. */
HALV_API uint32_t HalvUTF8NextChar(const char *text) HALV_NOEXCEPT;
/* 1 when the first character, the terminating NUL included, is valid. */
HALV_API int HalvUTF8IsNextCharValid(const char *text) HALV_NOEXCEPT;
/* Bytes of the first character, 1 to 4 (the NUL has 1); 0 when invalid. */
HALV_API int HalvUTF8NextCharLen(const char *text) HALV_NOEXCEPT;
/* Address behind the first character (behind the NUL at the end); null
 * when it is invalid. */
HALV_API char *HalvUTF8Inc(const char *text) HALV_NOEXCEPT;
/* Characters up to the NUL or the first invalid sequence; -1 for null. */
HALV_API int32_t HalvUTF8StrLen(const char *text) HALV_NOEXCEPT;
/* The same, taking in no more than maxBytes bytes: a sequence that doesn't
 * fit into what is left ends the count.  -1 for null; maxBytes 0 gives 0. */
HALV_API int32_t HalvUTF8StrNLen(const char *text, uint32_t maxBytes) HALV_NOEXCEPT;
/* Address of the byte BEHIND the first (Chr) or last (RChr) character equal
 * to code, or null.  The NUL is never found.  An invalid sequence ends the
 * search: Chr then gives null, RChr what it had found before. */
HALV_API char *HalvUTF8StrChr(const char *text, uint32_t code) HALV_NOEXCEPT;
HALV_API char *HalvUTF8StrRChr(const char *text, uint32_t code) HALV_NOEXCEPT;

/* New UTF-16 string (values above 0xFFFF become surrogate pairs, no byte
 * order mark).  Null for null text, any invalid sequence, or no memory. */
HALV_API uint16_t *HalvUTF8ConvertToUTF16(const char *text) HALV_NOEXCEPT;
/* New UTF-8 string.  0xFEFF units are dropped wherever they stand; 0xFFFE is
 * dropped too and makes every later unit read byte-swapped.  Null for null
 * input, a surrogate without its partner, or no memory. */
HALV_API char *HalvUTF8ConvertFromUTF16(const uint16_t *wide) HALV_NOEXCEPT;
/* New UCS-4 string of the characters before the NUL or the first invalid
 * sequence, which simply ends it.  Null only for null text or no memory. */
HALV_API uint32_t *HalvUTF8ConvertToUCS4(const char *text) HALV_NOEXCEPT;
/* New UTF-8 string.  Surrogate values pass; null for null input, a value
 * above 0x10FFFF, or no memory. */
HALV_API char *HalvUTF8ConvertFromUCS4(const uint32_t *ucs) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Machine identification and byte order.  Byte order values: 0 little
 * endian, 1 big endian, -1 neither.
 * ------------------------------------------------------------------------ */

#define HALV_LITTLE_ENDIAN 0
#define HALV_BIG_ENDIAN 1

/* Byte order of this machine, fixed at build time: 0. */
HALV_API int HalvIdentifyEndian(void) HALV_NOEXCEPT;
/* "big" and "type 1" give 1, "little" and "type 2" give 0, compared
 * ignoring case; any other text, or null, gives -1. */
HALV_API int HalvStr2Endian(const char *text) HALV_NOEXCEPT;
/* 0 gives "type 2", 1 gives "type 1", anything else "unknown" (static). */
HALV_API const char *HalvEndian2Str(int value) HALV_NOEXCEPT;
/* Stores the processor signature and feature bits (CPUID leaf 1, EAX and
 * EDX; zeros where unavailable).  Either pointer may be null.  Returns 0. */
HALV_API int HalvIdentifyArch(uint32_t *signature, uint32_t *features) HALV_NOEXCEPT;
/* Number of logical processors online. */
HALV_API int32_t HalvIdentifyProcessorCount(void) HALV_NOEXCEPT;
/* Low 32 bits of a size in bytes: kind 0 total physical memory, 1 available
 * physical memory, 2 total address space of the process, 3 the part of it
 * not in use.  Any other kind gives 0. */
HALV_API uint32_t HalvIdentifyMemory(int kind) HALV_NOEXCEPT;

/* Reverse the bytes of one value, or of each of count values, in place.
 * No alignment is needed; count 0 does nothing. */
HALV_API void HalvSwabShort(void *pointer) HALV_NOEXCEPT;
HALV_API void HalvSwabLong(void *pointer) HALV_NOEXCEPT;
HALV_API void HalvSwabDouble(void *pointer) HALV_NOEXCEPT;
HALV_API void HalvSwabShortArray(void *pointer, uint32_t count) HALV_NOEXCEPT;
HALV_API void HalvSwabLongArray(void *pointer, uint32_t count) HALV_NOEXCEPT;
HALV_API void HalvSwabDoubleArray(void *pointer, uint32_t count) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Code pages.  Names compare ignoring case: null, "utf8" and "utf-8" mean
 * no conversion (a plain copy); "ACP" is the ANSI code page (Windows-1252
 * here); "OEMCP" the OEM code page (437); "CP" and a decimal number that
 * code page ("CP1252", "CP65001", "CP1200" for UTF-16LE ...), where a
 * number that doesn't scan as "%d" means the ANSI page.  Any other name,
 * and a number the platform has no converter for, is not supported.
 * Characters the target can't hold become '?'; bytes that are invalid in
 * the source page become U+FFFD.  Results are new strings for
 * halv_internal_free, null on any failure.
 * ------------------------------------------------------------------------ */

/* New text in codePage from UTF-8 text.  *size (size may be null) gets its
 * length in bytes without the terminator, except for a plain copy, which
 * leaves it alone.  Null for null text, invalid UTF-8 (unless copying), an
 * unsupported code page, or no memory. */
HALV_API char *HalvUTF8ConvertTo(const char *text, const char *codePage, int32_t *size) HALV_NOEXCEPT;
/* New UTF-8 text from size bytes of text in codePage; size -1 for text up
 * to its NUL.  Text is never read beyond its NUL, whatever size says.  The
 * text goes by way of UTF-16 and HalvUTF8ConvertFromUTF16, so a U+FEFF or
 * U+FFFE character in it acts as a byte order mark there: it is dropped,
 * and behind U+FFFE every unit reads byte-swapped.  Null for null text, an
 * unsupported code page, a swap that leaves a surrogate alone, or no
 * memory. */
HALV_API char *HalvUTF8ConvertFrom(const char *text, int32_t size, const char *codePage) HALV_NOEXCEPT;
/* The same for the file system's code page, which is UTF-8 here: copies;
 * null for null text. */
HALV_API char *HalvUTF8ConvertToFilename(const char *text) HALV_NOEXCEPT;
HALV_API char *HalvUTF8ConvertFromFilename(const char *text) HALV_NOEXCEPT;

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
