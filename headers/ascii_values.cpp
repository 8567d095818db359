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

#include "headers/ascii_token.h"
#include "headers/float_text.h"

namespace {

/* 0 when all of the text went out, -1 otherwise. */
int WriteText(HalvIO *out, const char *text, int length) {
    if (length < 0)
        return -1;
    return HalvIOWriteBytes(out, text, (uint32_t)length) == length ? 0 : -1;
}

} // namespace

extern "C" {

HALV_API int __HVHdrReadAsciiInt(HalvIO *in, uint32_t *value) noexcept {
    if (in == nullptr || value == nullptr)
        return -1;
    halv::SlotBytes source{in};
    return halv::ReadUnsigned(source, value);
}

HALV_API int __HVHdrReadAsciiFloat(HalvIO *in, float *value) noexcept {
    if (in == nullptr || value == nullptr)
        return -1;
    halv::SlotBytes source{in};
    return halv::ReadFloat(source, value);
}

HALV_API int __HVHdrReadAsciiComplex(HalvIO *in, float *pair) noexcept {
    if (in == nullptr || pair == nullptr)
        return -1;
    halv::SlotBytes source{in};
    return halv::ReadComplex(source, pair);
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
