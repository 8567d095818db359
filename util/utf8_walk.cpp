/*
 * util/utf8_walk.cpp - walking UTF-8 text one character at a time.
 *
 * Every function here rests on halv::DecodeUtf8, which checks the form of a
 * sequence (lead byte, continuation bytes, no overlong value) and nothing
 * else: surrogates and values up to 0x1FFFFF pass.
 */
#include "halv_util.h"
#include "util/internal.h"

namespace {

const unsigned char *Bytes(const char *text) noexcept { return reinterpret_cast<const unsigned char *>(text); }

/* The decode step with a null pointer counted as invalid. */
halv::Utf8Char DecodeAt(const char *text) noexcept {
    if (text == nullptr)
        return halv::Utf8Char{0, 0};
    return halv::DecodeUtf8(Bytes(text));
}

/* Walks text up to its NUL or first invalid sequence and gives the address
 * behind the first (or last) character equal to code. */
char *FindChar(const char *text, uint32_t code, bool last) noexcept {
    if (text == nullptr)
        return nullptr;
    const char *found = nullptr;
    for (;;) {
        halv::Utf8Char c = halv::DecodeUtf8(Bytes(text));
        if (c.length == 0)
            return last ? const_cast<char *>(found) : nullptr;
        if (c.value == 0)
            return const_cast<char *>(found);
        text += c.length;
        if (c.value == code) {
            found = text;
            if (!last)
                return const_cast<char *>(found);
        }
    }
}

} // namespace

extern "C" {

HALV_API uint32_t HalvUTF8NextChar(const char *text) noexcept { return DecodeAt(text).value; }

HALV_API int HalvUTF8IsNextCharValid(const char *text) noexcept { return DecodeAt(text).length != 0; }

HALV_API int HalvUTF8NextCharLen(const char *text) noexcept { return (int)DecodeAt(text).length; }

HALV_API char *HalvUTF8Inc(const char *text) noexcept {
    halv::Utf8Char c = DecodeAt(text);
    return c.length == 0 ? nullptr : const_cast<char *>(text + c.length);
}

HALV_API int32_t HalvUTF8StrLen(const char *text) noexcept {
    if (text == nullptr)
        return -1;
    int32_t count = 0;
    for (;;) {
        halv::Utf8Char c = halv::DecodeUtf8(Bytes(text));
        if (c.length == 0 || c.value == 0)
            return count;
        text += c.length;
        ++count;
    }
}

/* The lead byte tells the length before any continuation byte is read, so
 * a sequence that would cross maxBytes ends the count without a byte past
 * the limit being touched. */
HALV_API int32_t HalvUTF8StrNLen(const char *text, uint32_t maxBytes) noexcept {
    if (text == nullptr)
        return -1;
    int32_t count = 0;
    uint32_t left = maxBytes;
    while (left > 0) {
        uint32_t announced = halv::kUtf8LeadLength.at[Bytes(text)[0]];
        if (announced > left)
            break;
        halv::Utf8Char c = halv::DecodeUtf8(Bytes(text));
        if (c.length == 0 || c.value == 0)
            break;
        text += c.length;
        left -= c.length;
        ++count;
    }
    return count;
}

HALV_API char *HalvUTF8StrChr(const char *text, uint32_t code) noexcept { return FindChar(text, code, false); }

HALV_API char *HalvUTF8StrRChr(const char *text, uint32_t code) noexcept { return FindChar(text, code, true); }

} // extern "C"
