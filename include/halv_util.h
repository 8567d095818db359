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
 * Strings
 *
 * They look like their C library namesakes, but the edges differ: no
 * padding, signed bytes in the plain comparison, the library's own ASCII
 * case fold.  A null pointer is accepted only where a contract says so.
 * ------------------------------------------------------------------------ */

/* A new copy of text, which the caller releases with halv_internal_free;
 * null for null text or when memory runs out. */
HALV_API char *HalvStrDup(const char *text) HALV_NOEXCEPT;

/* A new copy of at most max bytes of text, always terminated, which the
 * caller releases with halv_internal_free; null for null text or when
 * memory runs out. */
HALV_API char *HalvStrNDup(const char *text, uint32_t max) HALV_NOEXCEPT;

/* The bytes before the NUL; 0 for null text. */
HALV_API uint32_t HalvStrLen(const char *text) HALV_NOEXCEPT;

/* The bytes before the NUL, looking at no more than max bytes (max when
 * there is no NUL among them); 0 for null text. */
HALV_API uint32_t HalvStrNLen(const char *text, uint32_t max) HALV_NOEXCEPT;

/* The 16-bit units before the 0 unit; 0 for null. */
HALV_API uint32_t HalvWideStrLen(const uint16_t *wide) HALV_NOEXCEPT;

/* Copies src with its NUL to dst, which has the room.  Neither may be
 * null. */
HALV_API void HalvStrCpy(char *dst, const char *src) HALV_NOEXCEPT;

/* Copies bytes of src to dst until src's NUL or until n bytes are done.
 * The NUL is stored only when src ended within the n bytes: there is no
 * padding, and with n or more bytes in src no terminator at all.  Neither
 * pointer may be null. */
HALV_API void HalvStrNCpy(char *dst, const char *src, uint32_t n) HALV_NOEXCEPT;

/* Appends src with its NUL to the text in dst, which has the room.
 * Neither may be null. */
HALV_API void HalvStrCat(char *dst, const char *src) HALV_NOEXCEPT;

/* Appends src to the text in dst by the rule of HalvStrNCpy, so an append
 * cut off at n bytes leaves dst unterminated.  Neither may be null.
 * Returns dst. */
HALV_API char *HalvStrNCat(char *dst, const char *src, uint32_t n) HALV_NOEXCEPT;

/* The difference of the bytes, taken as signed values, at the first
 * mismatch or at the first NUL: 0 when the texts are equal, negative when
 * a sorts first (so 0x80 sorts before 0x01).  Neither may be null. */
HALV_API int HalvStrCmp(const char *a, const char *b) HALV_NOEXCEPT;

/* HalvStrCmp over the first n bytes at most; n 0 gives 0. */
HALV_API int HalvStrNCmp(const char *a, const char *b, uint32_t n) HALV_NOEXCEPT;

/* HalvStrCmp with both sides lowered through HalvAsciiToLower and the bytes
 * taken as unsigned values (so 0x80 sorts after 0x01).  Only the 26 ASCII
 * letters fold; the process locale plays no part.  Neither may be null. */
HALV_API int HalvStrCaseCmp(const char *a, const char *b) HALV_NOEXCEPT;

/* HalvStrCaseCmp over the first n bytes at most; n 0 gives 0. */
HALV_API int HalvStrNCaseCmp(const char *a, const char *b, uint32_t n) HALV_NOEXCEPT;

/* The first byte of text whose signed value equals c, or null.  The NUL is
 * never found: c 0 gives null, and so does null text.  c must come from a
 * char: 0xE9 as an int doesn't match the byte 0xE9, (char)0xE9 does. */
HALV_API char *HalvStrChr(const char *text, int c) HALV_NOEXCEPT;

/* The last byte of text whose signed value equals c, or null; as
 * HalvStrChr otherwise. */
HALV_API char *HalvStrRChr(const char *text, int c) HALV_NOEXCEPT;

/* The first 16-bit unit of wide equal to c, or null; c 0 and null wide give
 * null. */
HALV_API uint16_t *HalvWideStrChr(const uint16_t *wide, int c) HALV_NOEXCEPT;

/* The last 16-bit unit of wide equal to c, or null; c 0 and null wide give
 * null. */
HALV_API uint16_t *HalvWideStrRChr(const uint16_t *wide, int c) HALV_NOEXCEPT;

/* The first occurrence of sub in text, or null.  An empty text gives null,
 * also for an empty sub; an empty sub in a non-empty text gives text.  A
 * null text or sub gives null. */
HALV_API char *HalvStrStr(const char *text, const char *sub) HALV_NOEXCEPT;

/* Moves text down over its leading whitespace (HalvIsAsciiSpace), in place;
 * text of whitespace only becomes empty.  Returns text, null for null. */
HALV_API char *HalvStripLeadingSpaces(char *text) HALV_NOEXCEPT;

/* Cuts trailing whitespace (HalvIsAsciiSpace) by storing NULs, in place;
 * text of whitespace only becomes empty.  Returns text, null for null. */
HALV_API char *HalvStripTrailingSpaces(char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Blocks
 * ------------------------------------------------------------------------ */

/* Exchanges n bytes between a and b, which must not overlap; no alignment
 * is needed. */
HALV_API void HalvSwapBlock(void *a, void *b, uint32_t n) HALV_NOEXCEPT;

/* The difference of the first differing bytes of a and b, taken as
 * unsigned values, over n bytes; 0 when they are equal or n is 0. */
HALV_API int HalvCmpBlock(const void *a, const void *b, uint32_t n) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * ASCII characters
 *
 * Tests and case changes through constant tables, independent of the
 * process locale.  The tests take any int and give 1 or 0.
 * ------------------------------------------------------------------------ */

/* 1 for 32 to 126, else 0. */
HALV_API int HalvIsAsciiPrint(int c) HALV_NOEXCEPT;

/* 1 when bit 7 of c is clear, else 0: 0 to 127 give 1, 128 to 255 give
 * 0. */
HALV_API int HalvIsAsciiChar(int c) HALV_NOEXCEPT;

/* 1 for 32, 12, 10, 13, 9 and 11, else 0. */
HALV_API int HalvIsAsciiSpace(int c) HALV_NOEXCEPT;

/* 1 for 65 to 90 and 97 to 122 ('A' to 'Z', 'a' to 'z'), else 0. */
HALV_API int HalvIsAsciiAlpha(int c) HALV_NOEXCEPT;

/* 1 for 48 to 57 ('0' to '9'), else 0. */
HALV_API int HalvIsAsciiDigit(int c) HALV_NOEXCEPT;

/* 1 for 48 to 57, 65 to 70 and 97 to 102 ('0' to '9', 'A' to 'F', 'a' to
 * 'f'), else 0. */
HALV_API int HalvIsAsciiHexDigit(int c) HALV_NOEXCEPT;

/* The low 8 bits of c with 'a' to 'z' turned into 'A' to 'Z'; every other
 * byte comes back as it is. */
HALV_API int HalvAsciiToUpper(int c) HALV_NOEXCEPT;

/* The low 8 bits of c with 'A' to 'Z' turned into 'a' to 'z'; every other
 * byte comes back as it is. */
HALV_API int HalvAsciiToLower(int c) HALV_NOEXCEPT;

/* 1 when text looks like numbers given in line rather than a name: of its
 * n bytes at least n / 4 (rounded down) are digits, and at least one is
 * whitespace or a comma.  "1 2 3" and "10,20" qualify, "12345" (no
 * separator) and "image 1.tif" (too few digits) don't.  0 otherwise, and
 * for empty or null text. */
HALV_API int HalvIsImmediateData(const char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Tokens
 *
 * The caller sets *next to null before the first call and passes the same
 * text every time; *next is the parser's whole state, so parsers run side
 * by side without locks.  A token is returned until the text is used up,
 * then null.  Without HALV_TOKEN_SKIP_DELIMITERS adjacent delimiters give
 * empty tokens, and a text that ends in a delimiter gives an empty last
 * token.  With a quote flag, delimiters inside a quote group don't split,
 * and an unclosed quote runs to the end of the text.
 * ------------------------------------------------------------------------ */

#define HALV_TOKEN_SKIP_DELIMITERS 1 /* skip delimiters in front of a token: no empty tokens */
#define HALV_TOKEN_SINGLE_QUOTES 2   /* '...' groups; the quotes are removed */
#define HALV_TOKEN_DOUBLE_QUOTES 4   /* "..." groups; the quotes are removed */
#define HALV_TOKEN_ESCAPES 8         /* inside quotes \n \r \t give LF CR TAB, \ and any other byte that byte */
#define HALV_TOKEN_KEEP_QUOTES 16    /* quotes group but stay in the token */

/* The next token of text by the bytes of delimiters and the HALV_TOKEN_
 * flags, cut in place: the delimiter behind it becomes a NUL, and with a
 * quote flag the token is rewritten without its quotes and with its escapes
 * resolved.  The token points into text.  Null at the end, and for a null
 * text or next; null delimiters count as none. */
HALV_API char *HalvTokenParseEx(char *text, const char *delimiters, int flags, char **next) HALV_NOEXCEPT;

/* HalvTokenParseEx with flags 0. */
HALV_API char *HalvTokenParse(char *text, const char *delimiters, char **next) HALV_NOEXCEPT;

/* HalvTokenParseEx without touching text: each token is a new string that
 * the caller releases with halv_internal_free.  Null at the end, and for a
 * null text or next; when memory runs out also null, with *next left as it
 * was, so the call can be repeated. */
HALV_API char *HalvDupTokenParseEx(const char *text, const char *delimiters, int flags,
                                   const char **next) HALV_NOEXCEPT;

/* HalvDupTokenParseEx with flags 0. */
HALV_API char *HalvDupTokenParse(const char *text, const char *delimiters, const char **next) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * UTF-8
 *
 * A sequence is valid when its lead byte announces 1 to 4 bytes, the
 * continuation bytes follow, and the value needs that many bytes (no
 * overlong forms).  Surrogate values and values up to 0x1FFFFF pass.  The
 * terminating NUL counts as a valid character of 1 byte with value 0.
 * ------------------------------------------------------------------------ */

/* The code point of the first character of text; 0 at the NUL, for an
 * invalid sequence and for null. */
HALV_API uint32_t HalvUTF8NextChar(const char *text) HALV_NOEXCEPT;

/* 1 when the first character of text, the terminating NUL included, is a
 * valid sequence; 0 when it isn't, and for null. */
HALV_API int HalvUTF8IsNextCharValid(const char *text) HALV_NOEXCEPT;

/* The bytes of the first character, 1 to 4 (the NUL has 1); 0 when it is
 * invalid, and for null. */
HALV_API int HalvUTF8NextCharLen(const char *text) HALV_NOEXCEPT;

/* The address behind the first character (behind the NUL at the end); null
 * when it is invalid, and for null. */
HALV_API char *HalvUTF8Inc(const char *text) HALV_NOEXCEPT;

/* The characters up to the NUL or the first invalid sequence; -1 for
 * null. */
HALV_API int32_t HalvUTF8StrLen(const char *text) HALV_NOEXCEPT;

/* The characters up to the NUL or the first invalid sequence, taking in no
 * more than maxBytes bytes: a sequence that doesn't fit into what is left
 * ends the count, and no byte past the limit is read.  -1 for null;
 * maxBytes 0 gives 0. */
HALV_API int32_t HalvUTF8StrNLen(const char *text, uint32_t maxBytes) HALV_NOEXCEPT;

/* The address of the byte BEHIND the first character equal to code (unlike
 * HalvStrChr, which gives the address at it), or null.  The NUL is never
 * found, and an invalid sequence ends the search with null.  Null for
 * null. */
HALV_API char *HalvUTF8StrChr(const char *text, uint32_t code) HALV_NOEXCEPT;

/* The address of the byte BEHIND the last character equal to code, or
 * null.  An invalid sequence ends the search, and what was found before it
 * stands.  Null for null. */
HALV_API char *HalvUTF8StrRChr(const char *text, uint32_t code) HALV_NOEXCEPT;

/* A new UTF-16 string of text: values above 0xFFFF become surrogate pairs,
 * and no byte order mark is written.  The caller releases it with
 * halv_internal_free.  Null for null text, any invalid sequence, or no
 * memory. */
HALV_API uint16_t *HalvUTF8ConvertToUTF16(const char *text) HALV_NOEXCEPT;

/* A new UTF-8 string of the UTF-16 string wide, which the caller releases
 * with halv_internal_free.  0xFEFF units are dropped wherever they stand;
 * 0xFFFE is dropped too and makes every later unit read byte-swapped,
 * surrogate partners included.  Null for null input, a surrogate without
 * its partner, or no memory. */
HALV_API char *HalvUTF8ConvertFromUTF16(const uint16_t *wide) HALV_NOEXCEPT;

/* A new UCS-4 string of the characters before the NUL or the first invalid
 * sequence, which simply ends it; the caller releases it with
 * halv_internal_free.  Null only for null text or no memory. */
HALV_API uint32_t *HalvUTF8ConvertToUCS4(const char *text) HALV_NOEXCEPT;

/* A new UTF-8 string of the UCS-4 string ucs, which the caller releases
 * with halv_internal_free.  Surrogate values pass; null for null input, a
 * value above 0x10FFFF, or no memory. */
HALV_API char *HalvUTF8ConvertFromUCS4(const uint32_t *ucs) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Machine identification and byte order
 *
 * Byte order values: 0 little endian, 1 big endian, -1 neither.  Header
 * text writes them as "type 2" and "type 1".
 * ------------------------------------------------------------------------ */

#define HALV_LITTLE_ENDIAN 0 /* byte order value: least significant byte first */
#define HALV_BIG_ENDIAN 1    /* byte order value: most significant byte first */

/* The byte order of this machine, fixed at build time: 0 (little endian)
 * on x86-64. */
HALV_API int HalvIdentifyEndian(void) HALV_NOEXCEPT;

/* The byte order that a word of header text names: "big" and "type 1" give
 * 1, "little" and "type 2" give 0, compared ignoring case; -1 for any other
 * text, the empty text and null. */
HALV_API int HalvStr2Endian(const char *text) HALV_NOEXCEPT;

/* The word for a byte order: 0 gives "type 2", 1 gives "type 1", anything
 * else "unknown".  A static string that is never released. */
HALV_API const char *HalvEndian2Str(int value) HALV_NOEXCEPT;

/* Stores the processor's signature and feature bits (CPUID leaf 1, EAX and
 * EDX; zeros where there is no such instruction) in the pointers given;
 * either may be null.  Returns 0. */
HALV_API int HalvIdentifyArch(uint32_t *signature, uint32_t *features) HALV_NOEXCEPT;

/* The number of logical processors online; 1 when the system can't tell. */
HALV_API int32_t HalvIdentifyProcessorCount(void) HALV_NOEXCEPT;

/* The low 32 bits of a size in bytes, so sizes of 4 GiB and more wrap:
 * kind 0 total physical memory, 1 available physical memory, 2 the
 * process's total address space (its RLIMIT_AS, else the whole user
 * space), 3 the part of that not in use.  0 for any other kind, and when
 * the system can't tell. */
HALV_API uint32_t HalvIdentifyMemory(int kind) HALV_NOEXCEPT;

/* Reverses the 2 bytes at pointer, in place; no alignment is needed. */
HALV_API void HalvSwabShort(void *pointer) HALV_NOEXCEPT;

/* Reverses the 4 bytes at pointer, in place; no alignment is needed. */
HALV_API void HalvSwabLong(void *pointer) HALV_NOEXCEPT;

/* Reverses the 8 bytes at pointer, in place; no alignment is needed. */
HALV_API void HalvSwabDouble(void *pointer) HALV_NOEXCEPT;

/* Reverses the bytes of each of count 2-byte values at pointer, in place;
 * no alignment is needed, and count 0 does nothing. */
HALV_API void HalvSwabShortArray(void *pointer, uint32_t count) HALV_NOEXCEPT;

/* Reverses the bytes of each of count 4-byte values at pointer, in place;
 * no alignment is needed, and count 0 does nothing. */
HALV_API void HalvSwabLongArray(void *pointer, uint32_t count) HALV_NOEXCEPT;

/* Reverses the bytes of each of count 8-byte values at pointer, in place;
 * no alignment is needed, and count 0 does nothing. */
HALV_API void HalvSwabDoubleArray(void *pointer, uint32_t count) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Code pages
 *
 * Names compare ignoring case: null, "utf8" and "utf-8" mean no conversion
 * (a plain copy); "ACP" is the ANSI code page (Windows-1252 here); "OEMCP"
 * the OEM code page (437); "CP" and a decimal number that code page
 * ("CP1252", "CP65001", "CP1200" for UTF-16LE ...), where a number that
 * doesn't scan as "%d" means the ANSI page.  Any other name, and a number
 * the platform has no converter for, is not supported.  Characters the
 * target can't hold become '?'; bytes that are invalid in the source page
 * become U+FFFD.  Results are new strings that the caller releases with
 * halv_internal_free.
 * ------------------------------------------------------------------------ */

/* New text in codePage from UTF-8 text.  *size (size may be null) gets its
 * length in bytes without the terminator, except for a plain copy, which
 * leaves it alone.  Null for null text, invalid UTF-8 (unless copying), an
 * unsupported code page, or no memory. */
HALV_API char *HalvUTF8ConvertTo(const char *text, const char *codePage, int32_t *size) HALV_NOEXCEPT;

/* New UTF-8 text from size bytes of text in codePage; a negative size (-1)
 * takes the text up to its NUL.  Text is never read beyond its NUL,
 * whatever size says.  The text goes by way of UTF-16 and
 * HalvUTF8ConvertFromUTF16, so a U+FEFF or U+FFFE character in it acts as a
 * byte order mark there: it is dropped, and behind U+FFFE every unit reads
 * byte-swapped.  Null for null text, an unsupported code page, a swap that
 * leaves a surrogate alone, or no memory. */
HALV_API char *HalvUTF8ConvertFrom(const char *text, int32_t size, const char *codePage) HALV_NOEXCEPT;

/* UTF-8 text in the file system's code page, which is UTF-8 here: a new
 * copy of text; null for null text or no memory. */
HALV_API char *HalvUTF8ConvertToFilename(const char *text) HALV_NOEXCEPT;

/* UTF-8 text from the file system's code page, which is UTF-8 here: a new
 * copy of text; null for null text or no memory. */
HALV_API char *HalvUTF8ConvertFromFilename(const char *text) HALV_NOEXCEPT;

/* ------------------------------------------------------------------------
 * Hashes
 *
 * Three small non-cryptographic hashes, and MD5.
 * ------------------------------------------------------------------------ */

/* MD5 state the caller holds, prepared by HalvMD5Init. */
typedef struct HalvMD5Context {
    uint32_t state[4];         /* the chaining words */
    uint32_t count[2];         /* message length in bits, low word first */
    unsigned char buffer[64];  /* bytes of a block not yet complete */
} HalvMD5Context;

/* A weighted byte sum, the hash the library stores beside the names it
 * looks up: for each byte b in order, ((2b + 1) * m) & 0xFF is added, with
 * m running 1, 3, 5 ... 253 and back to 1; the result is the sum's low 16
 * bits ("abc" gives 501).  0 for length 0 or null bytes. */
HALV_API uint32_t HalvHashBytes(const void *bytes, uint32_t length) HALV_NOEXCEPT;

/* h = h * 33 + c over a NUL-terminated text, from 5381, modulo 2^32, each
 * byte c taken as a signed value ("abc" gives 193485963).  The empty text,
 * and a null one, give 5381. */
HALV_API uint32_t HalvHashString(const char *text) HALV_NOEXCEPT;

/* FNV-1 from the caller's seed: for each byte, multiply by 16777619, then
 * xor the byte in; no offset basis is built in.  Length 0 or null bytes
 * give the seed. */
HALV_API uint32_t HalvFNVHashBytes(const void *bytes, uint32_t length, uint32_t seed) HALV_NOEXCEPT;

/* Prepares the context for a new digest.  A null context does nothing. */
HALV_API void HalvMD5Init(HalvMD5Context *context) HALV_NOEXCEPT;

/* Adds length bytes to the digest; any number of calls with any lengths
 * give the digest of all the bytes in order.  Null context or bytes, or
 * length 0, do nothing. */
HALV_API void HalvMD5Update(HalvMD5Context *context, const void *bytes, uint32_t length) HALV_NOEXCEPT;

/* Stores the 16 digest bytes (note: the digest comes first) and wipes the
 * context with zeros, so it needs a new HalvMD5Init before further use.  A
 * null digest or context does nothing. */
HALV_API void HalvMD5Final(unsigned char digest[16], HalvMD5Context *context) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_UTIL_H */
