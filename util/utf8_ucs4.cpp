/*
 * util/utf8_ucs4.cpp - UTF-8 to and from UCS-4, one 32-bit unit for each
 * character.
 *
 * Unlike the UTF-16 bridge, the way in is lenient: an invalid sequence ends
 * the result instead of failing it.
 */
#include "halv_util.h"
#include "util/internal.h"

namespace {

constexpr uint32_t kLastCodePoint = 0x10FFFF;

} // namespace

extern "C" {

HALV_API uint32_t *HalvUTF8ConvertToUCS4(const char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    auto *p = reinterpret_cast<const unsigned char *>(text);
    halv::GrowingString<uint32_t> out;
    size_t used = 0;
    for (;;) {
        if (!out.Reserve(used, 1)) {
            out.Discard();
            return nullptr;
        }
        halv::Utf8Char c = halv::DecodeUtf8(p);
        if (c.length == 0 || c.value == 0) {
            out.Units()[used] = 0;
            return out.Release();
        }
        out.Units()[used++] = c.value;
        p += c.length;
    }
}

HALV_API char *HalvUTF8ConvertFromUCS4(const uint32_t *ucs) noexcept {
    if (ucs == nullptr)
        return nullptr;
    halv::GrowingString<unsigned char> out;
    size_t used = 0;
    for (;; ++ucs) {
        /* 4 bytes of margin: the longest form, or the terminator. */
        if (!out.Reserve(used, 4) || *ucs > kLastCodePoint) {
            out.Discard();
            return nullptr;
        }
        if (*ucs == 0) {
            out.Units()[used] = 0;
            return reinterpret_cast<char *>(out.Release());
        }
        used += halv::EncodeUtf8(*ucs, out.Units() + used);
    }
}

} // extern "C"
