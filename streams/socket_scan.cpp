/*
 * streams/socket_scan.cpp - the numbers of the HTTP head and the chunk
 * framing.
 *
 * They follow scanf's %d and %x: blanks first, then a sign, then digits;
 * but they never look at the locale, and they saturate instead of wrapping,
 * so that a hostile length can be told from a real one.
 */
#include "streams/socket_internal.h"

namespace halv {

namespace {

constexpr int kNotADigit = -1;

int DigitValue(char c, int base) noexcept {
    int value = kNotADigit;
    if (c >= '0' && c <= '9')
        value = c - '0';
    else if (c >= 'a' && c <= 'f')
        value = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
        value = c - 'A' + 10;
    return value < base ? value : kNotADigit;
}

/* The shared body of both scanners once the blanks, the sign and any 0x
 * are behind text. */
bool ScanDigits(const char *text, int base, bool negative, int64_t *value, const char **end) noexcept {
    if (DigitValue(*text, base) == kNotADigit)
        return false;
    uint64_t magnitude = 0;
    bool saturated = false;
    for (int digit; (digit = DigitValue(*text, base)) != kNotADigit; text++) {
        if (magnitude > (static_cast<uint64_t>(INT64_MAX) - static_cast<uint64_t>(digit)) / static_cast<uint64_t>(base))
            saturated = true;
        else
            magnitude = magnitude * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    }
    if (saturated)
        magnitude = static_cast<uint64_t>(INT64_MAX);
    *value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    if (end != nullptr)
        *end = text;
    return true;
}

const char *SkipBlanksAndSign(const char *text, bool *negative) noexcept {
    while (IsBlank(*text))
        text++;
    *negative = *text == '-';
    if (*text == '-' || *text == '+')
        text++;
    return text;
}

} // namespace

bool ScanDecimal(const char *text, int64_t *value, const char **end) noexcept {
    bool negative;
    text = SkipBlanksAndSign(text, &negative);
    return ScanDigits(text, 10, negative, value, end);
}

bool ScanHex(const char *text, int64_t *value) noexcept {
    bool negative;
    text = SkipBlanksAndSign(text, &negative);
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && DigitValue(text[2], 16) != kNotADigit)
        text += 2;
    return ScanDigits(text, 16, negative, value, nullptr);
}

} // namespace halv
