/*
 * text/scan_api.cpp - the twelve exported scan functions: a string or a
 * stream source, arguments as variables, a va_list or an array of
 * pointers, and each once more with a locale record in front.  All of them
 * end in ScanCore.
 */
#include "text/format_family.h"
#include "text/scan_internal.h"

namespace {

int32_t ScanText(const HalvLocale *locale, const char *text, const char *format, halv::FormatArgs &args) noexcept {
    halv::ScanSource in;
    halv::InitTextSource(in, locale, text);
    return halv::ScanCore(in, format, args);
}

int32_t ScanStream(const HalvLocale *locale, HalvIO *io, const char *format, halv::FormatArgs &args) noexcept {
    halv::ScanSource in;
    halv::InitStreamSource(in, locale, io);
    return halv::ScanCore(in, format, args);
}

} // namespace

extern "C" {

HALV_FORMAT_FAMILY(ScanText, (const char *text), (text), HalvSScanf, HalvSScanfl, HalvVSScanf, HalvVSScanfl,
                   HalvLSScanf, HalvLSScanfl)

HALV_FORMAT_FAMILY(ScanStream, (HalvIO *io), (io), HalvIOScanf, HalvIOScanfl, HalvIOVScanf, HalvIOVScanfl,
                   HalvIOLScanf, HalvIOLScanfl)

} // extern "C"
