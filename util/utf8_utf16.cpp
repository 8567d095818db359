/*
 * util/utf8_utf16.cpp - the bridge between UTF-8 and UTF-16.
 *
 * Both directions make one pass over their input into a result that starts
 * at 64 units and doubles.  Room is made for a batch of characters at a
 * time, so the inner loop tests for growth once per batch, and ASCII, the
 * common case of names and paths, takes a short road through it.
 */
#include "halv_util.h"
#include "util/internal.h"

namespace {

/* Characters converted between two checks of the room left. */
constexpr size_t kBatch = 64;

/* Unit pairs of values above 0xFFFF. */
constexpr uint32_t kHighSurrogate = 0xD800, kLowSurrogate = 0xDC00, kSurrogateEnd = 0xE000;
constexpr uint16_t kByteOrderMark = 0xFEFF, kSwappedByteOrderMark = 0xFFFE;

bool IsHighSurrogate(uint32_t unit) noexcept { return unit >= kHighSurrogate && unit < kLowSurrogate; }
bool IsLowSurrogate(uint32_t unit) noexcept { return unit >= kLowSurrogate && unit < kSurrogateEnd; }

uint16_t Swapped(uint16_t unit) noexcept { return (uint16_t)((unit << 8) | (unit >> 8)); }

} // namespace

extern "C" {

/* Each UTF-8 character gives one unit, or two for values above 0xFFFF; an
 * invalid sequence throws the whole result away. */
HALV_API uint16_t *HalvUTF8ConvertToUTF16(const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    auto *p = reinterpret_cast<const unsigned char *>(text);
    halv::GrowingString<uint16_t> out;
    size_t used = 0;
    for (;;) {
        if (!out.Reserve(used, 2 * kBatch + 1))
            break;
        uint16_t *units = out.Units();
        for (size_t stop = used + kBatch; used < stop;) {
            unsigned char lead = *p;
            if (lead - 1u < 0x7Fu) { /* 0x01..0x7F */
                units[used++] = lead;
                ++p;
                continue;
            }
            halv::Utf8Char c = halv::DecodeUtf8(p);
            if (c.length == 0) {
                out.Discard();
                return nullptr;
            }
            if (c.value == 0) {
                units[used] = 0;
                return out.Release();
            }
            p += c.length;
            if (c.value < 0x10000) {
                units[used++] = (uint16_t)c.value;
            } else {
                uint32_t v = c.value - 0x10000;
                units[used++] = (uint16_t)(kHighSurrogate | ((v >> 10) & 0x3FF));
                units[used++] = (uint16_t)(kLowSurrogate | (v & 0x3FF));
            }
        }
    }
    out.Discard();
    return nullptr;
}

/* Byte order marks are taken out wherever they stand; a swapped one turns
 * on swapping for every unit behind it, partners of surrogates included. */
HALV_API char *HalvUTF8ConvertFromUTF16(const uint16_t *wide) noexcept {
    if (wide == nullptr)
        return nullptr;
    halv::GrowingString<unsigned char> out;
    size_t used = 0;
    bool swap = false;
    for (;;) {
        /* A unit gives at most 3 bytes, a surrogate pair 4: 4 per unit plus
         * the terminator is always enough. */
        if (!out.Reserve(used, 4 * kBatch + 1))
            break;
        unsigned char *bytes = out.Units();
        for (size_t unitsDone = 0; unitsDone < kBatch; ++unitsDone) {
            uint32_t unit = swap ? Swapped(*wide) : *wide;
            ++wide;
            if (unit - 1u < 0x7Fu) {
                bytes[used++] = (unsigned char)unit;
                continue;
            }
            if (unit == 0) {
                bytes[used] = 0;
                return reinterpret_cast<char *>(out.Release());
            }
            if (unit == kByteOrderMark)
                continue;
            if (unit == kSwappedByteOrderMark) {
                swap = true;
                continue;
            }
            if (IsLowSurrogate(unit))
                goto fail;
            if (IsHighSurrogate(unit)) {
                uint32_t low = swap ? Swapped(*wide) : *wide;
                if (!IsLowSurrogate(low))
                    goto fail;
                ++wide;
                unit = 0x10000 + ((unit & 0x3FF) << 10) + (low & 0x3FF);
            }
            used += halv::EncodeUtf8(unit, bytes + used);
        }
    }
fail:
    out.Discard();
    return nullptr;
}

} // extern "C"
