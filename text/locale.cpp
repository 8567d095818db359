/*
 * text/locale.cpp - the two locale records: the fixed one, and the user's,
 * which is filled on first use from the process's locale or set by the
 * program, and emptied again by a cleanup at the last engine stop.
 *
 * The user record's strings are the library's own.  No field is ever null:
 * where the platform gives nothing, or memory runs out, the field falls back
 * to the fixed record's text, and the fixed texts are never freed.
 */
#include "halv_core.h"
#include "halv_text.h"
#include "core/internal.h"
#include "text/locale_internal.h"

namespace halv {
namespace {

constexpr char kFixedDecimalPoint[] = ".";
constexpr char kFixedThousandSeparator[] = ",";
constexpr char kFixedGrouping[] = "";


} // namespace

constinit const HalvLocale kHalvernLocale = {kFixedDecimalPoint, kFixedThousandSeparator, kFixedGrouping};

namespace {

using LocaleLock = ScopedKeyLock<HALV_LOCK_LOCL>;

struct UserLocale {
    HalvLocale record;
    bool filled;
};

/* Guarded by HALV_LOCK_LOCL. */
constinit UserLocale userLocale = {{nullptr, nullptr, nullptr}, false};

/* The fields of a record in order, with their fallbacks. */
struct FieldSlot {
    const char *HalvLocale::*field;
    const char *fallback;
};

constexpr FieldSlot kFields[] = {
    {&HalvLocale::decimalPoint, kFixedDecimalPoint},
    {&HalvLocale::thousandSeparator, kFixedThousandSeparator},
    {&HalvLocale::grouping, kFixedGrouping},
};

bool IsFixedText(const char *text) noexcept {
    for (const FieldSlot &slot : kFields)
        if (text == slot.fallback)
            return true;
    return false;
}

void ReleaseFields() noexcept {
    for (const FieldSlot &slot : kFields) {
        const char *&text = userLocale.record.*slot.field;
        if (text != nullptr && !IsFixedText(text))
            halv_internal_free(const_cast<char *>(text));
        text = nullptr;
    }
}

/* Stores text, which is new and the record's from now on; when it is null a
 * copy of the fallback, or the fallback itself when even that fails. */
void StoreField(const FieldSlot &slot, char *text) noexcept {
    if (text == nullptr)
        text = CopyString(slot.fallback);
    userLocale.record.*slot.field = text != nullptr ? text : slot.fallback;
}

int32_t CleanupUserLocale(intptr_t) noexcept {
    LocaleLock lock;
    ReleaseFields();
    userLocale.filled = false;
    return 1;
}

/* Marks the record filled, with a cleanup for the engine's stop.  When the
 * engine isn't running the registration is refused and the strings live on
 * until the process ends. */
void MarkFilled() noexcept {
    HalvernRegisterCleanupFunc(CleanupUserLocale, 0);
    userLocale.filled = true;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API const HalvLocale *HalvGetHalvernLocale(void) noexcept {
    return &halv::kHalvernLocale;
}

HALV_API HalvLocale *HalvGetUserLocale(void) noexcept {
    using namespace halv;
    LocaleLock lock;
    if (!userLocale.filled) {
        ReleaseFields();
        const PlatformPunctuation platform = ReadPlatformPunctuation();
        char *const texts[] = {platform.decimalPoint, platform.thousandSeparator, platform.grouping};
        for (size_t i = 0; i < sizeof kFields / sizeof kFields[0]; ++i)
            StoreField(kFields[i], texts[i]);
        MarkFilled();
    }
    return &userLocale.record;
}

HALV_API void HalvSetUserLocale(const HalvLocale *locale) noexcept {
    using namespace halv;
    if (locale == nullptr)
        return;
    LocaleLock lock;
    /* Copy before releasing: the caller may hand in the user record itself. */
    char *copies[3];
    for (size_t i = 0; i < 3; ++i) {
        const char *text = locale->*kFields[i].field;
        copies[i] = text != nullptr ? CopyString(text) : nullptr;
    }
    ReleaseFields();
    for (size_t i = 0; i < 3; ++i)
        StoreField(kFields[i], copies[i]);
    if (!userLocale.filled)
        MarkFilled();
}

} // extern "C"
