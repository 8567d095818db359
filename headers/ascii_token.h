/*
 * headers/ascii_token.h - one white-space separated token of sample text,
 * taken from any source of single bytes, and its number.
 *
 * The exported readers take their bytes one at a time through a stream's
 * read slot, so that they never read ahead; a loader that reads many
 * values at once hands in a source that reads blocks and gives back what
 * it didn't use.  Both go through the same rules here, so a value reads
 * the same whichever way its bytes came.
 */
#ifndef HALV_HEADERS_ASCII_TOKEN_H
#define HALV_HEADERS_ASCII_TOKEN_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "headers/float_text.h"
#include "headers/internal.h"

namespace halv {

constexpr unsigned char kEndOfTransmission = 0x04;
constexpr unsigned char kEndByte = 0xFF;
constexpr size_t kIntTokenBytes = 32;
constexpr size_t kFloatTokenBytes = 64;

enum TokenResult { kToken = 0, kTooLong = 1, kTokenEnd = -1 };

/* Bytes one read slot call at a time: never a byte more than the token
 * needs.  A source is told (MarkEnd) when its bytes ran out or a 0xFF or
 * 0x04 stood for the end; this one has no use for it. */
struct SlotBytes {
    HalvIO *in;
    bool Next(unsigned char *byte) { return in->read(in, byte, 1) == 1; }
    void MarkEnd() {}
};

/* Reads one token into text (capacity bytes, terminator included), from a
 * source with bool Next(unsigned char *).  White space in front is
 * skipped; the white space or 0x04 behind it is consumed.  A source that
 * gives out, a 0xFF or a 0x04 before the token is the end; a 0xFF or a
 * source that gives out after it ends the token.  A token that doesn't fit
 * is read to its end and reported as too long, so the next read starts at
 * the next token.  Whatever stood for the end, before or behind the
 * token, is told to the source through MarkEnd. */
template <typename Source> TokenResult ReadToken(Source &source, char *text, size_t capacity, size_t *length) {
    unsigned char byte = 0;
    do {
        if (!source.Next(&byte) || byte == kEndByte || byte == kEndOfTransmission) {
            source.MarkEnd();
            return kTokenEnd;
        }
    } while (IsHeaderSpace(byte));
    size_t used = 0;
    bool fits = true;
    for (;;) {
        if (used + 1 < capacity)
            text[used++] = (char)byte;
        else
            fits = false;
        if (!source.Next(&byte) || byte == kEndByte || byte == kEndOfTransmission) {
            source.MarkEnd();
            break;
        }
        if (IsHeaderSpace(byte))
            break;
    }
    text[used] = '\0';
    *length = used;
    return fits ? kToken : kTooLong;
}

/* "%u" of a token: plain runs of up to nine digits directly, whose value
 * is sure; signs, long runs and trailing text through sscanf, which wraps
 * and stops as that conversion does.  0 scanned, 1 no number. */
inline int ScanUnsignedToken(const char *text, size_t length, uint32_t *value) {
    if (length != 0 && length <= 9) {
        uint32_t v = 0;
        size_t i = 0;
        for (; i < length && text[i] >= '0' && text[i] <= '9'; ++i)
            v = v * 10 + (uint32_t)(text[i] - '0');
        if (i == length) {
            *value = v;
            return 0;
        }
    }
    unsigned scanned;
    CNumberLocale c;
    if (std::sscanf(text, "%u", &scanned) != 1)
        return 1;
    *value = scanned;
    return 0;
}

/* 0 a number, 1 a token that is no number (or too long), -1 the end. */
template <typename Source> int ReadUnsigned(Source &source, uint32_t *value) {
    char text[kIntTokenBytes];
    size_t length = 0;
    TokenResult got = ReadToken(source, text, sizeof text, &length);
    if (got != kToken)
        return got;
    return ScanUnsignedToken(text, length, value);
}

template <typename Source> int ReadFloat(Source &source, float *value) {
    char text[kFloatTokenBytes];
    size_t length = 0;
    TokenResult got = ReadToken(source, text, sizeof text, &length);
    if (got != kToken)
        return got;
    double scanned;
    if (!DecimalToDouble(text, &scanned)) {
        CNumberLocale c;
        if (std::sscanf(text, "%lf", &scanned) != 1)
            return 1;
    }
    *value = (float)scanned;
    return 0;
}

/* The second number is read only when the first was one. */
template <typename Source> int ReadComplex(Source &source, float *pair) {
    int result = ReadFloat(source, &pair[0]);
    return result != 0 ? result : ReadFloat(source, &pair[1]);
}

} // namespace halv

#endif /* HALV_HEADERS_ASCII_TOKEN_H */
