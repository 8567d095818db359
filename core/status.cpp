/*
 * core/status.cpp - status and accumulated error text of a processing state.
 *
 * Errors accumulate oldest first, joined by ", ", until an end call releases
 * the text.  Out of memory keeps the older text and still records the status.
 */
#include <cstdarg>
#include <cstring>

#include "core/internal.h"

namespace {

/* Appends the formatted text to state->errorMessage. */
void AppendErrorText(HalvState *state, const char *format, va_list args) noexcept {
    va_list measure;
    va_copy(measure, args);
    int added = halv::FormatV(nullptr, 0, format, measure);
    va_end(measure);
    if (added < 0)
        return;
    size_t oldLength = state->errorMessage != nullptr ? std::strlen(state->errorMessage) + 2 : 0;
    auto *text = static_cast<char *>(halv_internal_realloc(state->errorMessage, oldLength + (size_t)added + 1));
    if (text == nullptr)
        return;
    char *tail = text;
    if (oldLength != 0) {
        tail = text + oldLength;
        tail[-2] = ',';
        tail[-1] = ' ';
    }
    halv::FormatV(tail, (size_t)added + 1, format, args);
    state->errorMessage = text;
}

/* The first error code "HV-<digits>" of a text, by the letters H, V and '-'
 * in this order, not necessarily adjacent; see HalvParseErrorCode. */
enum ScanState { kNothing, kSawH, kSawV, kSawHyphen, kInDigits };

ScanState NextScanState(ScanState state, char c) noexcept {
    bool digit = c >= '0' && c <= '9';
    switch (state) {
    case kNothing: return c == 'H' ? kSawH : kNothing;
    case kSawH: return c == 'V' ? kSawV : kSawH;
    case kSawV: return c == '-' ? kSawHyphen : c == 'H' ? kSawH : kSawV;
    case kSawHyphen: return digit ? kInDigits : c == 'H' ? kSawH : kSawHyphen;
    case kInDigits: return kInDigits;
    }
    return kNothing;
}

} // namespace

extern "C" {

HALV_API int32_t HalvGetStatus(HalvState *state) noexcept { return state->status; }

HALV_API int32_t HalvSetStatus(HalvState *state, int32_t value) noexcept {
    state->status = value;
    return value;
}

HALV_API int32_t HalvSetError(HalvState *state, int32_t status, const char *format, ...) noexcept {
    if (state == nullptr)
        return status;
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        AppendErrorText(state, format, args);
        va_end(args);
    }
    state->status = status;
    return status;
}

HALV_API const char *HalvGetErrorMsg(HalvState *state) noexcept {
    if (state == nullptr || state->errorMessageFn == nullptr)
        return nullptr;
    return state->errorMessageFn(state);
}

HALV_API int HalvGetErrorCode(HalvState *state) noexcept {
    if (state == nullptr || state->errorMessage == nullptr)
        return 0;
    return HalvParseErrorCode(state->errorMessage);
}

HALV_API int HalvParseErrorCode(const char *text) noexcept {
    if (text == nullptr)
        return 0;
    ScanState state = kNothing;
    const char *digits = nullptr;
    for (const char *p = text; *p != '\0'; ++p) {
        bool digit = *p >= '0' && *p <= '9';
        if (state == kInDigits && !digit)
            break;
        ScanState next = NextScanState(state, *p);
        if (next == kInDigits && state != kInDigits)
            digits = p;
        state = next;
    }
    if (state != kInDigits)
        return 0;
    int value = 0;
    return halv::ScanInt(digits, &value) ? value : 0;
}

HALV_API int HalvReportError(HalvState *state) noexcept {
    if (state == nullptr || state->errorMessage == nullptr)
        return 0;
    return HalvError("\t%s\n", state->errorMessage);
}

} // extern "C"
