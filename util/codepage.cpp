/*
 * util/codepage.cpp - UTF-8 to and from named code pages, by way of UTF-16
 * and the platform's converter.
 *
 * Text that the target can't represent becomes '?', and bytes that are not
 * valid in the source code page become U+FFFD, each unit on its own.  A
 * conversion fails for invalid UTF-8 on the way out, an unknown code page
 * or memory, and on the way in only where the UTF-16 step takes a U+FFFE
 * of the text for a byte order mark and the swap behind it leaves a
 * surrogate alone.
 */
#include <string.h>

#include "halv_core.h"
#include "halv_util.h"
#include "util/codepage_internal.h"

namespace {

constexpr size_t kNameCapacity = 32;
const char kWideSet[] = "UTF-16LE";

/* '?' as one UTF-16LE unit, and U+FFFD as one. */
const char kQuestionMarkUnit[] = {'?', 0};
const char kReplacementUnit[] = {(char)0xFD, (char)0xFF};

} // namespace

extern "C" {

char *HalvUTF8ConvertTo(const char *text, const char *codePage, int32_t *size) noexcept {
    if (text == nullptr)
        return nullptr;
    char name[kNameCapacity];
    switch (halv::ResolveCodePage(codePage, name, sizeof name)) {
    case halv::kCodePageCopy:
        return HalvStrDup(text);
    case halv::kCodePageUnsupported:
        return nullptr;
    case halv::kCodePageConverter:
        break;
    }
    uint16_t *wide = HalvUTF8ConvertToUTF16(text);
    if (wide == nullptr)
        return nullptr;
    const halv::Replacement unmappable = {2, kQuestionMarkUnit, sizeof kQuestionMarkUnit, nullptr, 0};
    halv::ConvertedText converted = {};
    bool ok = halv::ConvertCharacterSet(name, kWideSet, (const char *)wide,
                                        (size_t)HalvWideStrLen(wide) * 2, unmappable, &converted);
    halv_internal_free(wide);
    if (!ok)
        return nullptr;
    if (size != nullptr)
        *size = (int32_t)converted.size;
    return converted.data;
}

char *HalvUTF8ConvertFrom(const char *text, int32_t size, const char *codePage) noexcept {
    if (text == nullptr)
        return nullptr;
    char name[kNameCapacity];
    switch (halv::ResolveCodePage(codePage, name, sizeof name)) {
    case halv::kCodePageCopy:
        return size < 0 ? HalvStrDup(text) : HalvStrNDup(text, (uint32_t)size);
    case halv::kCodePageUnsupported:
        return nullptr;
    case halv::kCodePageConverter:
        break;
    }
    /* The text is measured up to its NUL; a larger size doesn't reach
     * beyond it. */
    size_t length = strlen(text);
    if (size >= 0 && (size_t)size < length)
        length = (size_t)size;
    const halv::Replacement invalid = {1, nullptr, 0, kReplacementUnit, sizeof kReplacementUnit};
    halv::ConvertedText converted = {};
    if (!halv::ConvertCharacterSet(kWideSet, name, text, length, invalid, &converted))
        return nullptr;
    char *result = HalvUTF8ConvertFromUTF16((const uint16_t *)converted.data);
    halv_internal_free(converted.data);
    return result;
}

char *HalvUTF8ConvertToFilename(const char *text) noexcept {
    return HalvStrDup(text);
}

char *HalvUTF8ConvertFromFilename(const char *text) noexcept {
    return HalvStrDup(text);
}

} // extern "C"
