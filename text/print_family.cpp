/*
 * text/print_family.cpp - the 24 exported print functions.
 *
 * Each one only says where its arguments come from and which sink it
 * prints to; all of them end in one of the four routes of print_sinks.cpp.
 * The plain forms own their va_list; the V forms work on a copy, because a
 * va_list parameter is an array type on this platform and must not be
 * consumed behind the caller's back.
 */
#include "text/print_internal.h"

namespace {

using halv::FormatArgs;

/* Runs `route` over a copy of the caller's list. */
template <typename Route>
int32_t WithCopy(va_list list, Route route) noexcept {
    va_list copy;
    va_copy(copy, list);
    FormatArgs args{&copy, nullptr};
    const int32_t result = route(args);
    va_end(copy);
    return result;
}

FormatArgs FromArray(void **array) noexcept {
    return FormatArgs{nullptr, array};
}

} // namespace

extern "C" {

/* ---- Stream ------------------------------------------------------------
 * Each byte is one write call on the stream; a byte it refuses makes the
 * result HALV_FORMAT_STREAM_ERROR while the rest is still offered.  A null
 * stream only counts. */

HALV_API int32_t HalvIOPrintf(HalvIO *io, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToStream(nullptr, io, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvIOPrintfl(const HalvLocale *locale, HalvIO *io, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToStream(locale, io, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvIOVPrintf(HalvIO *io, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToStream(nullptr, io, format, args); });
}

HALV_API int32_t HalvIOVPrintfl(const HalvLocale *locale, HalvIO *io, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToStream(locale, io, format, args); });
}

HALV_API int32_t HalvIOLPrintf(HalvIO *io, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToStream(nullptr, io, format, args);
}

HALV_API int32_t HalvIOLPrintfl(const HalvLocale *locale, HalvIO *io, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToStream(locale, io, format, args);
}

/* ---- Buffer without bound ----------------------------------------------
 * The text and a terminator; the buffer must hold them.  On a parse failure
 * the buffer holds an empty string. */

HALV_API int32_t HalvSPrintf(char *buffer, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToBuffer(nullptr, buffer, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvSPrintfl(const HalvLocale *locale, char *buffer, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToBuffer(locale, buffer, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvVSPrintf(char *buffer, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToBuffer(nullptr, buffer, format, args); });
}

HALV_API int32_t HalvVSPrintfl(const HalvLocale *locale, char *buffer, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToBuffer(locale, buffer, format, args); });
}

HALV_API int32_t HalvLSPrintf(char *buffer, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToBuffer(nullptr, buffer, format, args);
}

HALV_API int32_t HalvLSPrintfl(const HalvLocale *locale, char *buffer, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToBuffer(locale, buffer, format, args);
}

/* ---- Bounded buffer ----------------------------------------------------
 * At most size - 1 bytes and a terminator, none at all for size 0; the
 * result is the full length, so a null buffer of size 0 measures. */

HALV_API int32_t HalvSNPrintf(char *buffer, uint32_t size, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToBoundedBuffer(nullptr, buffer, size, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                               ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToBoundedBuffer(locale, buffer, size, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvVSNPrintf(char *buffer, uint32_t size, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) {
        return halv::PrintToBoundedBuffer(nullptr, buffer, size, format, args);
    });
}

HALV_API int32_t HalvVSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                                va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) {
        return halv::PrintToBoundedBuffer(locale, buffer, size, format, args);
    });
}

HALV_API int32_t HalvLSNPrintf(char *buffer, uint32_t size, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToBoundedBuffer(nullptr, buffer, size, format, args);
}

HALV_API int32_t HalvLSNPrintfl(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                                void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToBoundedBuffer(locale, buffer, size, format, args);
}

/* ---- New string --------------------------------------------------------
 * *out gets a new string (never null on success, "" for no text) that the
 * caller frees with halv_internal_free; on failure *out is null. */

HALV_API int32_t HalvASPrintf(char **out, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToNewString(nullptr, out, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvASPrintfl(const HalvLocale *locale, char **out, const char *format, ...) noexcept {
    va_list list;
    va_start(list, format);
    FormatArgs args{&list, nullptr};
    const int32_t result = halv::PrintToNewString(locale, out, format, args);
    va_end(list);
    return result;
}

HALV_API int32_t HalvVASPrintf(char **out, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToNewString(nullptr, out, format, args); });
}

HALV_API int32_t HalvVASPrintfl(const HalvLocale *locale, char **out, const char *format, va_list list) noexcept {
    return WithCopy(list, [&](FormatArgs &args) { return halv::PrintToNewString(locale, out, format, args); });
}

HALV_API int32_t HalvLASPrintf(char **out, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToNewString(nullptr, out, format, args);
}

HALV_API int32_t HalvLASPrintfl(const HalvLocale *locale, char **out, const char *format, void **array) noexcept {
    FormatArgs args = FromArray(array);
    return halv::PrintToNewString(locale, out, format, args);
}

} // extern "C"
