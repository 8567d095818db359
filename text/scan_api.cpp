/*
 * text/scan_api.cpp - the twelve exported scan functions: a string or a
 * stream source, arguments as variables, a va_list or an array of
 * pointers, and each once more with a locale record in front.  All of them
 * end in ScanCore.
 */
#include "text/scan_internal.h"

namespace {

using halv::ScanArguments;
using halv::ScanInput;

ScanInput StringInput(const char *text) {
    ScanInput in{};
    in.text = (const unsigned char *)(text != nullptr ? text : "");
    return in;
}

ScanInput StreamInput(HalvIO *io) {
    ScanInput in{};
    in.io = io;
    return in;
}

/* va_list is an array type here: the core gets a copy it may advance. */
int32_t ScanList(ScanInput &&in, const HalvLocale *locale, const char *format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int32_t result = halv::ScanCore(in, locale, format, ScanArguments{&copy, nullptr});
    va_end(copy);
    return result;
}

int32_t ScanArray(ScanInput &&in, const HalvLocale *locale, const char *format, void **args) {
    return halv::ScanCore(in, locale, format, ScanArguments{nullptr, args});
}

} // namespace

extern "C" {

int32_t HalvVSScanfl(const HalvLocale *locale, const char *text, const char *format,
                     va_list args) noexcept {
    return ScanList(StringInput(text), locale, format, args);
}

int32_t HalvVSScanf(const char *text, const char *format, va_list args) noexcept {
    return ScanList(StringInput(text), nullptr, format, args);
}

int32_t HalvSScanfl(const HalvLocale *locale, const char *text, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int32_t result = ScanList(StringInput(text), locale, format, args);
    va_end(args);
    return result;
}

int32_t HalvSScanf(const char *text, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int32_t result = ScanList(StringInput(text), nullptr, format, args);
    va_end(args);
    return result;
}

int32_t HalvLSScanfl(const HalvLocale *locale, const char *text, const char *format,
                     void **args) noexcept {
    return ScanArray(StringInput(text), locale, format, args);
}

int32_t HalvLSScanf(const char *text, const char *format, void **args) noexcept {
    return ScanArray(StringInput(text), nullptr, format, args);
}

int32_t HalvIOVScanfl(const HalvLocale *locale, HalvIO *io, const char *format,
                      va_list args) noexcept {
    return ScanList(StreamInput(io), locale, format, args);
}

int32_t HalvIOVScanf(HalvIO *io, const char *format, va_list args) noexcept {
    return ScanList(StreamInput(io), nullptr, format, args);
}

int32_t HalvIOScanfl(const HalvLocale *locale, HalvIO *io, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int32_t result = ScanList(StreamInput(io), locale, format, args);
    va_end(args);
    return result;
}

int32_t HalvIOScanf(HalvIO *io, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    int32_t result = ScanList(StreamInput(io), nullptr, format, args);
    va_end(args);
    return result;
}

int32_t HalvIOLScanfl(const HalvLocale *locale, HalvIO *io, const char *format,
                      void **args) noexcept {
    return ScanArray(StreamInput(io), locale, format, args);
}

int32_t HalvIOLScanf(HalvIO *io, const char *format, void **args) noexcept {
    return ScanArray(StreamInput(io), nullptr, format, args);
}

} // extern "C"
