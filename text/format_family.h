/*
 * text/format_family.h - the six exported members of one print sink or one
 * scan source.
 *
 * Every sink and every source has the same six forms: arguments as
 * variables, as a va_list or as an array of pointers, each once with the
 * fixed locale and once with a locale record first.  They differ only in
 * where the arguments come from, so one macro writes all six around the
 * route that does the work:
 *
 *   int32_t route(const HalvLocale *locale, <leading>, const char *format,
 *                 halv::FormatArgs &args) noexcept;
 *
 * `params` is the parenthesised list of the leading parameters, `names` the
 * parenthesised list of their names.  A null locale means the fixed record.
 */
#ifndef HALV_TEXT_FORMAT_FAMILY_H
#define HALV_TEXT_FORMAT_FAMILY_H

#include <stdarg.h>

#include "text/format_internal.h"

namespace halv {

/* Runs `route` over a copy of the caller's list: a va_list parameter is an
 * array type on this platform and must not be consumed behind the caller's
 * back. */
template <typename Route>
int32_t WithListCopy(va_list list, Route route) noexcept {
    va_list copy;
    va_copy(copy, list);
    FormatArgs args{&copy, nullptr};
    const int32_t result = route(args);
    va_end(copy);
    return result;
}

} // namespace halv

#define HALV_FAMILY_UNPAREN(...) __VA_ARGS__

/* The three forms of one locale choice.  `lead` is the parenthesised start
 * of the parameter list, `locale` what the route gets for it. */
#define HALV_FAMILY_FORMS(route, lead, locale, params, names, plain, vform, lform)                      \
    HALV_API int32_t plain(HALV_FAMILY_UNPAREN lead HALV_FAMILY_UNPAREN params, const char *format,     \
                           ...) noexcept {                                                              \
        va_list list;                                                                                   \
        va_start(list, format);                                                                         \
        halv::FormatArgs args{&list, nullptr};                                                          \
        const int32_t result = route(locale, HALV_FAMILY_UNPAREN names, format, args);                  \
        va_end(list);                                                                                   \
        return result;                                                                                  \
    }                                                                                                   \
    HALV_API int32_t vform(HALV_FAMILY_UNPAREN lead HALV_FAMILY_UNPAREN params, const char *format,     \
                           va_list list) noexcept {                                                     \
        return halv::WithListCopy(list, [&](halv::FormatArgs &args) {                                   \
            return route(locale, HALV_FAMILY_UNPAREN names, format, args);                              \
        });                                                                                             \
    }                                                                                                   \
    HALV_API int32_t lform(HALV_FAMILY_UNPAREN lead HALV_FAMILY_UNPAREN params, const char *format,     \
                           void **array) noexcept {                                                     \
        halv::FormatArgs args{nullptr, array};                                                          \
        return route(locale, HALV_FAMILY_UNPAREN names, format, args);                                  \
    }

/* All six: the three forms with the fixed locale, and the three that take
 * a locale record first. */
#define HALV_FORMAT_FAMILY(route, params, names, plain, plainl, vform, vforml, lform, lforml)           \
    HALV_FAMILY_FORMS(route, (), nullptr, params, names, plain, vform, lform)                           \
    HALV_FAMILY_FORMS(route, (const HalvLocale *locale, ), locale, params, names, plainl, vforml, lforml)

#endif
