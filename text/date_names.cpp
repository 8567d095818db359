/*
 * text/date_names.cpp - month, weekday and morning/afternoon names from the
 * locale of dates, without touching the process's global locale.
 *
 * The locale is looked up by name for each formatting call that needs a
 * name, as the C library would pick it for dates (LC_ALL, then LC_TIME,
 * then LANG).  A name that can't be loaded falls back on "C", so a name is
 * always found.  Full months are taken in the form used when a month stands
 * alone (nominative), where the locale has one.  The locale's texts come in
 * the character set of its time data and are converted to UTF-8 when they
 * are not ASCII.
 */
#include <cstdlib>
#include <cstring>
#include <langinfo.h>

#include "halv_core.h"
#include "text/date_internal.h"
#include "text/locale_internal.h"

namespace halv {
namespace {

/* Each kind's first item, the item to fall back on when the first is empty
 * (a locale without nominative months), and how many there are.  The
 * C library counts weekdays from Sunday, as weekDay does. */
struct NameItems {
    nl_item first;
    nl_item fallback;
    int count;
};

constexpr NameItems kNameItems[] = {
    /* kFullMonth */ {ALTMON_1, MON_1, 12},
    /* kShortMonth */ {_NL_ABALTMON_1, ABMON_1, 12},
    /* kFullWeekDay */ {DAY_1, DAY_1, 7},
    /* kShortWeekDay */ {ABDAY_1, ABDAY_1, 7},
    /* kMorning */ {AM_STR, AM_STR, 1},
    /* kAfternoon */ {PM_STR, PM_STR, 1},
};

/* Months are counted from 1, everything else from 0. */
constexpr int kFirstIndex[] = {1, 1, 0, 0, 0, 0};

} // namespace

void DateNames::Close() noexcept {
    halv_internal_free(converted_);
    freelocale(locale_);
}

bool DateNames::Open() noexcept {
    locale_ = newlocale(LC_TIME_MASK, LocaleNameOf("LC_TIME"), static_cast<locale_t>(0));
    if (locale_ == static_cast<locale_t>(0))
        locale_ = newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
    if (locale_ == static_cast<locale_t>(0))
        return false;
    codeSet_ = nl_langinfo_l(_NL_TIME_CODESET, locale_);
    return true;
}

bool DateNames::Find(Kind kind, int index, const char **text, size_t *length) noexcept {
    if (locale_ == static_cast<locale_t>(0) && !Open())
        return false;
    const NameItems &items = kNameItems[kind];
    const int offset = kind == kMorning || kind == kAfternoon ? 0 : index - kFirstIndex[kind];
    if (offset < 0 || offset >= items.count)
        return false;
    const char *name = nl_langinfo_l(items.first + offset, locale_);
    if (name == nullptr || name[0] == '\0')
        name = nl_langinfo_l(items.fallback + offset, locale_);
    if (name == nullptr)
        name = "";
    if (NeedsConversion(name, codeSet_)) {
        halv_internal_free(converted_);
        converted_ = ConvertToUtf8(name, codeSet_);
        if (converted_ == nullptr)
            return false;
        name = converted_;
    }
    *text = name;
    *length = std::strlen(name);
    return true;
}

} // namespace halv
