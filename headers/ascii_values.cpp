/*
 * headers/ascii_values.cpp - single sample values as text on a stream:
 * written as " %u" or " %g", read back one white-space-separated token at
 * a time, always in the C locale.
 *
 * Reading takes single bytes through the read slot and never reads ahead,
 * so a token reader can share its stream with any other reader.  Floats
 * take the exact quick road of float_text.cpp where it applies, which
 * gives the same text and the same bits as snprintf and sscanf.
 */
#include <cstdio>

#include "headers/float_text.h"
#include "headers/internal.h"

namespace {

constexpr unsigned char kEndOfTransmission = 0x04;
constexpr unsigned char kEndByte = 0xFF;
constexpr size_t kIntToken = 32;
constexpr size_t kFloatToken = 64;

enum TokenResult { kToken = 0, kTooLong = 1, kEnd = -1 };

/* Reads one token into text (capacity bytes, terminator included).  White
 * space in front is skipped; the white space or 0x04 behind it is
 * consumed.  A token that doesn't fit is read to its end and reported as
 * too long, so the next read starts at the next token. */
TokenResult ReadToken(HalvIO *in, char *text, size_t capacity) {
    unsigned char byte = 0;
    do {
        if (in->read(in, &byte, 1) != 1 || byte == kEndByte || byte == kEndOfTransmission)
            return kEnd;
    } while (halv::IsHeaderSpace(byte));
    size_t length = 0;
    bool fits = true;
    for (;;) {
        if (length + 1 < capacity)
            text[length++] = (char)byte;
        else
            fits = false;
        if (in->read(in, &byte, 1) != 1 || byte == kEndByte)
            break;
        if (halv::IsHeaderSpace(byte) || byte == kEndOfTransmission)
            break;
    }
    text[length] = '\0';
    return fits ? kToken : kTooLong;
}

/* Reads one token and scans it with format into scanned, in the C locale:
 * 0 when a number was scanned, 1 when the token is no number or too long,
 * -1 at the end of the values or for a null argument.  destination is only
 * checked here; the caller narrows scanned into it. */
template <size_t TokenBytes, typename Scanned>
int ReadNumber(HalvIO *in, const void *destination, const char *format, Scanned *scanned) {
    if (in == nullptr || destination == nullptr)
        return -1;
    char text[TokenBytes];
    TokenResult got = ReadToken(in, text, sizeof text);
    if (got != kToken)
        return got;
    halv::CNumberLocale c;
    return std::sscanf(text, format, scanned) == 1 ? 0 : 1;
}

/* 0 when all of the text went out, -1 otherwise. */
int WriteText(HalvIO *out, const char *text, int length) {
    if (length < 0)
        return -1;
    return HalvIOWriteBytes(out, text, (uint32_t)length) == length ? 0 : -1;
}

} // namespace

extern "C" {

HALV_API int __HVHdrReadAsciiInt(HalvIO *in, uint32_t *value) noexcept {
    unsigned scanned;
    int result = ReadNumber<kIntToken>(in, value, "%u", &scanned);
    if (result == 0)
        *value = scanned;
    return result;
}

HALV_API int __HVHdrReadAsciiFloat(HalvIO *in, float *value) noexcept {
    if (in == nullptr || value == nullptr)
        return -1;
    char text[kFloatToken];
    TokenResult got = ReadToken(in, text, sizeof text);
    if (got != kToken)
        return got;
    double scanned;
    if (!halv::DecimalToDouble(text, &scanned)) {
        halv::CNumberLocale c;
        if (std::sscanf(text, "%lf", &scanned) != 1)
            return 1;
    }
    *value = (float)scanned;
    return 0;
}

HALV_API int __HVHdrReadAsciiComplex(HalvIO *in, float *pair) noexcept {
    if (pair == nullptr)
        return -1;
    int result = __HVHdrReadAsciiFloat(in, &pair[0]);
    return result != 0 ? result : __HVHdrReadAsciiFloat(in, &pair[1]);
}

HALV_API int __HVHdrWriteAsciiInt(HalvIO *out, const uint32_t *value) noexcept {
    if (out == nullptr || value == nullptr)
        return -1;
    char text[16];
    halv::CNumberLocale c;
    return WriteText(out, text, std::snprintf(text, sizeof text, " %u", (unsigned)*value));
}

HALV_API int __HVHdrWriteAsciiFloat(HalvIO *out, const float *value) noexcept {
    if (out == nullptr || value == nullptr)
        return -1;
    char text[48];
    text[0] = ' ';
    int length = halv::FloatToG(*value, text + 1);
    if (length >= 0)
        return WriteText(out, text, length + 1);
    halv::CNumberLocale c;
    return WriteText(out, text, std::snprintf(text, sizeof text, " %g", (double)*value));
}

HALV_API int __HVHdrWriteAsciiComplex(HalvIO *out, const float *pair) noexcept {
    if (pair == nullptr)
        return -1;
    int result = __HVHdrWriteAsciiFloat(out, &pair[0]);
    return result != 0 ? result : __HVHdrWriteAsciiFloat(out, &pair[1]);
}

} // extern "C"
