/*
 * streams/file_url.cpp - the one door from file names to the URL stream.
 *
 * HalvIO_FileName and HalvFindFile hand names with the "http://" scheme to
 * HalvIO_URL.  The URL back end is linked in by its own unit; this unit
 * refers to it weakly, so that the library builds and works (every URL then
 * fails to open) while that unit is absent.  Once it is there, the weak
 * reference binds to it and nothing here changes.
 */
#include "streams/file_internal.h"

/* The URL stream constructor, defined by the socket and URL back end. */
extern "C" HALV_API HalvIO *HalvIO_URL(const char *url, const char *mode) noexcept __attribute__((weak));

namespace halv {

bool HasUrlScheme(const char *name) noexcept {
    static constexpr char kScheme[] = "http://";
    for (size_t i = 0; i + 1 < sizeof kScheme; ++i) {
        char c = name[i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (c != kScheme[i])
            return false;
    }
    return true;
}

HalvIO *OpenUrlStream(const char *name, const char *mode) noexcept {
    if (HalvIO_URL == nullptr)
        return nullptr;
    return HalvIO_URL(name, mode);
}

} // namespace halv
