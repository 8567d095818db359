/*
 * util/strings_ctype.cpp - ASCII character classes and case through
 * constant tables, and the test that tells in-line numbers from a name.
 */
#include "halv_util.h"
#include "util/internal.h"

namespace {

/* Class test of an int: only byte values 0..255 can carry a class. */
int HasClass(int c, unsigned char bit) noexcept {
    if (c < 0 || c > 255)
        return 0;
    return (halv::kAsciiClass.at[c] & bit) != 0;
}

} // namespace

extern "C" {

HALV_API int HalvIsAsciiPrint(int c) noexcept { return HasClass(c, halv::kAsciiPrint); }
HALV_API int HalvIsAsciiChar(int c) noexcept { return (c & 0x80) == 0; }
HALV_API int HalvIsAsciiSpace(int c) noexcept { return HasClass(c, halv::kAsciiSpace); }
HALV_API int HalvIsAsciiAlpha(int c) noexcept { return HasClass(c, halv::kAsciiAlpha); }
HALV_API int HalvIsAsciiDigit(int c) noexcept { return HasClass(c, halv::kAsciiDigit); }
HALV_API int HalvIsAsciiHexDigit(int c) noexcept { return HasClass(c, halv::kAsciiHex); }

HALV_API int HalvAsciiToUpper(int c) noexcept { return halv::kAsciiUpper.at[c & 0xFF]; }
HALV_API int HalvAsciiToLower(int c) noexcept { return halv::kAsciiLower.at[c & 0xFF]; }

HALV_API int HalvIsImmediateData(const char *text) noexcept {
    if (text == nullptr || text[0] == '\0')
        return 0;
    uint32_t bytes = 0, digits = 0, separators = 0;
    for (const char *p = text; *p != '\0'; ++p, ++bytes) {
        auto c = (unsigned char)*p;
        digits += (halv::kAsciiClass.at[c] & halv::kAsciiDigit) != 0;
        separators += halv::IsSpaceByte(c) || c == ',';
    }
    return digits >= bytes / 4 && separators > 0;
}

} // extern "C"
