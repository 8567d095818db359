/*
 * headers/c_locale.cpp - the "C" locale under which header numbers are
 * printed and scanned.
 *
 * newlocale gives the same object for every call with "C", so one cached
 * handle serves all threads and needs no release.
 */
#include "headers/internal.h"

namespace halv {

static locale_t NumberLocale() noexcept {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return locale;
}

// uselocale with a null handle only asks for the current one: when "C"
// can't be had at all, numbers go out in the thread's locale.
CNumberLocale::CNumberLocale() noexcept : previous_(uselocale(NumberLocale())) {}

CNumberLocale::~CNumberLocale() { uselocale(previous_); }

} // namespace halv
