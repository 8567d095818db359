/*
 * core/format_bridge.cpp - the core's one door to text formatting and number
 * scanning.  Everything in the core that turns a format into text goes
 * through FormatV, and every "%d" scan through ScanInt.  Both run the
 * library's own engines, which know no process locale, so a host's
 * setlocale never turns a number into something else.
 */
#include "core/internal.h"
#include "halv_text.h"

namespace halv {

int FormatV(char *buffer, size_t size, const char *format, va_list args) noexcept {
    const uint32_t bounded = size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(size);
    return HalvVSNPrintf(buffer, bounded, format, args);
}

int ScanInt(const char *text, int *value) noexcept { return HalvSScanf(text, "%d", value) == 1 ? 1 : 0; }

} // namespace halv
