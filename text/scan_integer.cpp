/*
 * text/scan_integer.cpp - the integer reader behind %d %i %u %o %x %X %p.
 *
 * The sign stands outside the width; every byte behind it, a '#' prefix
 * included, counts against it.  Values wrap in 64 bits without notice.
 */
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kNoWidth = 0x7FFFFFFF;

/* The letter that may follow a leading 0 under '#', by base. */
int PrefixLetter(int base) {
    return base == 16 ? 'x' : base == 2 ? 'b' : 0;
}

} // namespace

int ReadScanInteger(ScanSource &in, int base, bool isUnsigned, bool alternative, int32_t width,
                    uint64_t *value) noexcept {
    SkipScanSpace(in);
    bool negative = false;
    if (!isUnsigned && (in.Current() == '+' || in.Current() == '-')) {
        negative = in.Current() == '-';
        in.Advance();
    }
    int32_t remaining = width > 0 ? width : kNoWidth;
    bool anyDigit = false;
    if (alternative && (base == 2 || base == 8 || base == 16)) {
        if (in.Current() != '0')
            return kFieldFailed;
        /* In base 8 the 0 is the first digit; elsewhere it opens 0x / 0b,
         * and on its own it is the value 0. */
        if (base != 8) {
            in.Advance();
            --remaining;
            anyDigit = true;
            if (remaining > 0 && (in.Current() | 0x20) == PrefixLetter(base)) {
                in.Advance();
                --remaining;
            }
        }
    }
    uint64_t result = 0;
    const uint64_t wide = (uint64_t)base;
    int32_t taken = in.TakeRun(
        remaining, [base](int32_t c) { return (unsigned)DigitValue(c) < (unsigned)base; },
        [&result, wide](int32_t c) { result = result * wide + (uint64_t)DigitValue(c); });
    anyDigit = anyDigit || taken > 0;
    if (!anyDigit)
        return kFieldFailed;
    *value = negative ? (uint64_t)0 - result : result;
    return kFieldDone;
}

} // namespace halv
