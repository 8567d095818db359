/*
 * core/format_bridge.cpp - the core's one door to text formatting and number
 * scanning.  Everything in the core that turns a format into text goes
 * through FormatV, and every "%d" scan through ScanInt, so that the engines
 * behind them can be exchanged in one place.
 *
 * FormatV is the library's own print engine, which knows no process locale.
 * ScanInt still runs the runtime's scanner, under the "C" locale whatever
 * locale the host has set, so numbers never pick up a host's decimal comma.
 */
#include <clocale>
#include <cstdio>
#include <locale.h>

#include "core/internal.h"
#include "halv_text.h"

namespace halv {
namespace {

locale_t CLocale() noexcept {
    static locale_t cLocale = newlocale(LC_ALL_MASK, "C", (locale_t)0);
    return cLocale;
}

/* Switches the calling thread to the "C" locale for one scope. */
class CLocaleScope {
public:
    CLocaleScope() noexcept : previous_(CLocale() ? uselocale(CLocale()) : (locale_t)0) {}
    ~CLocaleScope() {
        if (previous_ != (locale_t)0)
            uselocale(previous_);
    }
    CLocaleScope(const CLocaleScope &) = delete;
    CLocaleScope &operator=(const CLocaleScope &) = delete;

private:
    locale_t previous_;
};

} // namespace

int FormatV(char *buffer, size_t size, const char *format, va_list args) noexcept {
    const uint32_t bounded = size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
    return HalvVSNPrintf(buffer, bounded, format, args);
}

int ScanInt(const char *text, int *value) noexcept {
    CLocaleScope scope;
    return std::sscanf(text, "%d", value) == 1 ? 1 : 0;
}

} // namespace halv
