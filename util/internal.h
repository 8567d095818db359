/*
 * util/internal.h - tables and small helpers that the string, token and
 * UTF-8 units share, and the byte reversal the stored formats use too.
 * Nothing here is exported.
 */
#ifndef HALV_UTIL_INTERNAL_H
#define HALV_UTIL_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "halv_core.h"

namespace halv {

/* ---- byte order -------------------------------------------------------- */

/* Reverses the bytes of each of count values of sizeof(Word) bytes.  Going
 * through an integer and memcpy keeps unaligned data legal and lets the
 * compiler use bswap (and vectorise the loop). */
template <typename Word> inline void SwabValues(void *pointer, uint32_t count) noexcept {
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

/* ---- ASCII classes and case ------------------------------------------- */

enum AsciiClass : unsigned char {
    kAsciiPrint = 1,
    kAsciiSpace = 2,
    kAsciiAlpha = 4,
    kAsciiDigit = 8,
    kAsciiHex = 16,
};

struct ByteTable {
    unsigned char at[256];
};

/* Class bits of every byte value; only the 128 ASCII values have any. */
consteval ByteTable MakeAsciiClassTable() {
    ByteTable t{};
    for (int c = 0; c < 256; ++c) {
        unsigned char bits = 0;
        if (c >= 32 && c <= 126)
            bits |= kAsciiPrint;
        if (c == ' ' || c == '\f' || c == '\n' || c == '\r' || c == '\t' || c == '\v')
            bits |= kAsciiSpace;
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))
            bits |= kAsciiAlpha;
        if (c >= '0' && c <= '9')
            bits |= kAsciiDigit | kAsciiHex;
        if ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'))
            bits |= kAsciiHex;
        t.at[c] = bits;
    }
    return t;
}

/* Maps the 26 letters of one case onto the other and every other byte onto
 * itself; the folding never depends on the process locale. */
consteval ByteTable MakeCaseTable(bool toUpper) {
    ByteTable t{};
    for (int c = 0; c < 256; ++c) {
        int mapped = c;
        if (toUpper && c >= 'a' && c <= 'z')
            mapped = c - 'a' + 'A';
        if (!toUpper && c >= 'A' && c <= 'Z')
            mapped = c - 'A' + 'a';
        t.at[c] = (unsigned char)mapped;
    }
    return t;
}

inline constexpr ByteTable kAsciiClass = MakeAsciiClassTable();
inline constexpr ByteTable kAsciiUpper = MakeCaseTable(true);
inline constexpr ByteTable kAsciiLower = MakeCaseTable(false);

inline bool IsSpaceByte(unsigned char c) noexcept { return (kAsciiClass.at[c] & kAsciiSpace) != 0; }
inline unsigned char LowerByte(unsigned char c) noexcept { return kAsciiLower.at[c]; }

/* ---- UTF-8 ------------------------------------------------------------- */

/* One decoded character: its value and the bytes it took, 0 when the
 * sequence is invalid.  The NUL decodes to value 0 with length 1. */
struct Utf8Char {
    uint32_t value;
    uint32_t length;
};

/* Sequence length announced by a lead byte: 1 for ASCII and the NUL, 2 to 4
 * for the multi-byte leads, 0 for continuation bytes and 0xF8..0xFF. */
consteval ByteTable MakeUtf8LeadTable() {
    ByteTable t{};
    for (int c = 0; c < 256; ++c)
        t.at[c] = c < 0x80 ? 1 : c < 0xC0 ? 0 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : c < 0xF8 ? 4 : 0;
    return t;
}
inline constexpr ByteTable kUtf8LeadLength = MakeUtf8LeadTable();

/* Value bits kept from the lead byte, and the least value a sequence of each
 * length may carry (anything less is an overlong form), by length. */
inline constexpr unsigned char kUtf8LeadMask[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
inline constexpr uint32_t kUtf8MinValue[5] = {0, 0, 0x80, 0x800, 0x10000};

/* Decodes the character at text.  The continuation bytes are read one by one
 * and a NUL is no continuation byte, so the step never reads past the
 * terminator of a truncated sequence.  Surrogate values and values up to
 * 0x1FFFFF pass; only the form is checked. */
inline Utf8Char DecodeUtf8(const unsigned char *text) noexcept {
    unsigned char lead = text[0];
    uint32_t length = kUtf8LeadLength.at[lead];
    if (length <= 1)
        return Utf8Char{length == 1 ? lead : 0u, length};
    uint32_t value = lead & kUtf8LeadMask[length];
    for (uint32_t i = 1; i < length; ++i) {
        unsigned char next = text[i];
        if ((next & 0xC0) != 0x80)
            return Utf8Char{0, 0};
        value = (value << 6) | (next & 0x3Fu);
    }
    if (value < kUtf8MinValue[length])
        return Utf8Char{0, 0};
    return Utf8Char{value, length};
}

/* Writes value (at most 0x1FFFFF) as 1 to 4 bytes of UTF-8 at out and
 * returns the count.  Surrogate values are written like any other. */
inline uint32_t EncodeUtf8(uint32_t value, unsigned char *out) noexcept {
    if (value < 0x80) {
        out[0] = (unsigned char)value;
        return 1;
    }
    if (value < 0x800) {
        out[0] = (unsigned char)(0xC0 | (value >> 6));
        out[1] = (unsigned char)(0x80 | (value & 0x3F));
        return 2;
    }
    if (value < 0x10000) {
        out[0] = (unsigned char)(0xE0 | (value >> 12));
        out[1] = (unsigned char)(0x80 | ((value >> 6) & 0x3F));
        out[2] = (unsigned char)(0x80 | (value & 0x3F));
        return 3;
    }
    out[0] = (unsigned char)(0xF0 | (value >> 18));
    out[1] = (unsigned char)(0x80 | ((value >> 12) & 0x3F));
    out[2] = (unsigned char)(0x80 | ((value >> 6) & 0x3F));
    out[3] = (unsigned char)(0x80 | (value & 0x3F));
    return 4;
}

/* ---- Growing output of the converters ---------------------------------- */

/* A result string under construction: starts at 64 units and doubles.  The
 * block comes from halv_internal_*, so the finished string is handed to the
 * caller as it stands, untrimmed.  Release() gives it away; Discard() frees
 * it on failure. */
template <typename Unit>
class GrowingString {
public:
    /* Makes room for at least `margin` more units behind `used`. */
    bool Reserve(size_t used, size_t margin) noexcept {
        if (used + margin <= capacity_)
            return true;
        size_t capacity = capacity_ == 0 ? 64 : capacity_;
        while (capacity < used + margin)
            capacity *= 2;
        void *grown = halv_internal_realloc(units_, capacity * sizeof(Unit));
        if (grown == nullptr)
            return false;
        units_ = static_cast<Unit *>(grown);
        capacity_ = capacity;
        return true;
    }
    Unit *Units() noexcept { return units_; }
    Unit *Release() noexcept {
        Unit *units = units_;
        units_ = nullptr;
        capacity_ = 0;
        return units;
    }
    void Discard() noexcept {
        halv_internal_free(units_);
        units_ = nullptr;
        capacity_ = 0;
    }

private:
    Unit *units_ = nullptr;
    size_t capacity_ = 0;
};

} // namespace halv

#endif
