/*
 * text/print_text.cpp - the character and string conversions, and the
 * escapes that '#' turns on for them.
 *
 * Widths count the bytes of the text as given: what escapes add is not
 * allowed for, so an escaped field may come out wider than asked.
 */
#include <cstring>

#include "text/print_internal.h"

namespace halv {
namespace {

/* How '#' writes a byte: 0 as it is, 'x' as \x and two hex digits, any other
 * letter as a backslash and that letter. */
constexpr auto kEscapes = [] {
    struct {
        char letter[256];
    } t{};
    for (int b = 0; b < 256; ++b)
        t.letter[b] = (b >= 32 && b <= 126) ? 0 : 'x';
    t.letter[static_cast<unsigned char>('\\')] = '\\';
    t.letter[7] = 'a';
    t.letter[8] = 'b';
    t.letter[9] = 't';
    t.letter[10] = 'n';
    t.letter[11] = 'v';
    t.letter[12] = 'f';
    t.letter[13] = 'r';
    return t;
}();

} // namespace

void WriteEscaped(PrintSink &out, const char *text, uint32_t length) noexcept {
    for (uint32_t i = 0; i < length; ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        const char letter = kEscapes.letter[byte];
        if (letter == 0) {
            PutByte(out, static_cast<char>(byte));
            continue;
        }
        PutByte(out, '\\');
        PutByte(out, letter);
        if (letter == 'x') {
            PutByte(out, kLowerDigits[byte >> 4]);
            PutByte(out, kLowerDigits[byte & 15]);
        }
    }
}

void PrintCharacterField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    const char byte = static_cast<char>(p.data.i);
    WriteText(sink, &byte, 1, p.flags, p.width);
}

void PrintStringField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    WriteString(sink, static_cast<const char *>(p.data.p), p.flags, p.width, p.precision);
}

} // namespace halv
