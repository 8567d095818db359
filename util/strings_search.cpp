/*
 * util/strings_search.cpp - finding bytes, units and substrings, and
 * trimming whitespace in place.
 */
#include <cstring>

#include "halv_util.h"
#include "util/internal.h"

namespace {

/* First or last unit of a 0-terminated string equal to c; the terminator
 * itself is never a match.  One template serves bytes and 16-bit units. */
template <typename Unit, typename Value>
Unit *FindUnit(const Unit *text, int c, bool last) noexcept {
    if (text == nullptr || c == 0)
        return nullptr;
    const Unit *found = nullptr;
    for (; *text != 0; ++text) {
        if ((Value)*text == c) {
            found = text;
            if (!last)
                break;
        }
    }
    return const_cast<Unit *>(found);
}

} // namespace

extern "C" {

HALV_API char *HalvStrChr(const char *text, int c) noexcept {
    return FindUnit<char, signed char>(text, c, false);
}

HALV_API char *HalvStrRChr(const char *text, int c) noexcept {
    return FindUnit<char, signed char>(text, c, true);
}

HALV_API uint16_t *HalvWideStrChr(const uint16_t *wide, int c) noexcept {
    return FindUnit<uint16_t, uint16_t>(wide, c, false);
}

HALV_API uint16_t *HalvWideStrRChr(const uint16_t *wide, int c) noexcept {
    return FindUnit<uint16_t, uint16_t>(wide, c, true);
}

HALV_API char *HalvStrStr(const char *text, const char *sub) noexcept {
    if (text == nullptr || sub == nullptr || text[0] == '\0')
        return nullptr;
    return const_cast<char *>(std::strstr(text, sub));
}

HALV_API char *HalvStripLeadingSpaces(char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    size_t skip = 0;
    while (halv::IsSpaceByte((unsigned char)text[skip]))
        ++skip;
    if (skip > 0)
        std::memmove(text, text + skip, std::strlen(text + skip) + 1);
    return text;
}

HALV_API char *HalvStripTrailingSpaces(char *text) noexcept {
    if (text == nullptr)
        return nullptr;
    size_t length = std::strlen(text);
    while (length > 0 && halv::IsSpaceByte((unsigned char)text[length - 1]))
        text[--length] = '\0';
    return text;
}

} // extern "C"
