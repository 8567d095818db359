/*
 * streams/file_url.cpp - the one test of whether a name is a URL.
 *
 * HalvIO_FileName and HalvFindFile hand names with the "http://" scheme,
 * in any case of its letters, to HalvIO_URL, which refuses every other
 * name; hosts ask the same question through HalvIsURL.
 */
#include "halv_streams.h"

extern "C" {

HALV_API int HalvIsURL(const char *name) noexcept {
    static constexpr char kScheme[] = "http://";
    if (name == nullptr)
        return 0;
    for (size_t i = 0; i + 1 < sizeof kScheme; ++i) {
        char c = name[i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (c != kScheme[i])
            return 0;
    }
    return 1;
}

} // extern "C"
