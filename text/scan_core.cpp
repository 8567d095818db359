/*
 * text/scan_core.cpp - the scan core: parse the format, fetch the
 * destinations, then walk the format against the input.
 *
 * Format white space skips any input white space; a literal byte must match
 * the look-ahead; a UTF-8 sequence of the format must match byte for byte;
 * a directive goes to the reader of its type.  The walk ends at the first
 * mismatch or failed field with the number of assignments made so far, and
 * when the input has ended before a directive other than %n, with that
 * number or -1 if it is 0.
 */
#include "halv_util.h"
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kEndedBeforeAssignment = -1;
constexpr int32_t kMismatch = -2;

const char *const kDefaultPoint = ".";

constinit const HalvLocale kFixedLocale = {".", ",", ""};

/* Byte width an integer or count is stored with, by its size qualifier:
 * 64 bits for ll j z t l (the platform's long) and I64, 16 for h and hh,
 * 32 otherwise, I8 I16 I32 included. */
int StoreWidth(const ScanDirective &d) {
    if (d.flags & (kFlagLongLong | kFlagMax | kFlagSize | kFlagPtrDiff | kFlagLong))
        return 8;
    if ((d.flags & kFlagExplicitSize) && d.varsize == 8)
        return 8;
    if (d.flags & (kFlagShort | kFlagShortShort))
        return 2;
    return 4;
}

void StoreInteger(const ScanDirective &d, uint64_t value) {
    if (d.target == nullptr)
        return;
    switch (StoreWidth(d)) {
    case 2:
        *(int16_t *)d.target = (int16_t)value;
        break;
    case 4:
        *(int32_t *)d.target = (int32_t)value;
        break;
    default:
        *(int64_t *)d.target = (int64_t)value;
        break;
    }
}

bool Suppressed(const ScanDirective &d) {
    return (d.flags & kFlagSuppress) != 0;
}

struct ScanCall {
    const char *format;
    const char *decimalPoint;
};

using FieldReader = int (*)(ScanInput &, const ScanDirective &, const ScanCall &);

int IntegerField(ScanInput &in, const ScanDirective &d, const ScanCall &) {
    const int base = (d.base >= 2 && d.base <= 36) ? d.base : 10;
    uint64_t value = 0;
    int result = ReadScanInteger(in, base, (d.flags & kFlagUnsigned) != 0,
                                 (d.flags & kFlagAlternative) != 0, d.width, &value);
    if (result == kFieldDone && !Suppressed(d))
        StoreInteger(d, value);
    return result;
}

int FloatField(ScanInput &in, const ScanDirective &d, const ScanCall &call) {
    double value = 0;
    int result = ReadScanFloat(in, call.decimalPoint, d.width, &value);
    if (result == kFieldDone && !Suppressed(d) && d.target != nullptr)
        *(double *)d.target = value; /* always a double, whatever the size */
    return result;
}

/* "0x" and up to 16 digits, or the word "(nil)" for a null pointer. */
int PointerField(ScanInput &in, const ScanDirective &d, const ScanCall &) {
    constexpr int32_t kPointerWidth = 18;
    static const char kNil[] = "(nil)";
    uint64_t value = 0;
    if (ReadScanInteger(in, 16, true, true, kPointerWidth, &value) != kFieldDone) {
        int n = 0;
        bool same = true;
        for (; n < 5 && in.current != -1 && !IsScanSpace(in.current); ++n) {
            same = same && in.current == kNil[n];
            in.Advance();
        }
        if (!same || n != 5)
            return kFieldFailed;
        value = 0;
    }
    if (!Suppressed(d) && d.target != nullptr)
        *(void **)d.target = (void *)(uintptr_t)value;
    return kFieldDone;
}

/* Bytes taken so far, not counting a look-ahead that is still unread by
 * any field. */
int CountField(ScanInput &in, const ScanDirective &d, const ScanCall &) {
    if (!Suppressed(d))
        StoreInteger(d, (uint64_t)(int64_t)(in.committed - (in.current != -1 ? 1 : 0)));
    return kFieldDone;
}

int CharsField(ScanInput &in, const ScanDirective &d, const ScanCall &call) {
    return ReadScanChars(in, d, call.format);
}

int StringField(ScanInput &in, const ScanDirective &d, const ScanCall &call) {
    return ReadScanString(in, d, call.format);
}

int GroupField(ScanInput &in, const ScanDirective &d, const ScanCall &call) {
    return ReadScanGroup(in, d, call.format);
}

/* Indexed by ScanType. */
constexpr FieldReader kReaders[] = {
    nullptr,      IntegerField, FloatField, CharsField, StringField,
    PointerField, CountField,   nullptr,    GroupField,
};

/* Index of the next directive entry at or after i, passing over the
 * entries of `*` arguments. */
int NextDirective(const ScanDirective *table, int entries, int i) {
    while (i < entries && table[i].type == kScanArgument)
        ++i;
    return i;
}

bool IsFormatSpace(unsigned char c) {
    return c == ' ' || (c >= 9 && c <= 13);
}

int32_t RunScanLoop(ScanInput &in, const ScanCall &call, const ScanDirective *table, int entries) {
    const unsigned char *format = (const unsigned char *)call.format;
    int32_t assigned = 0;
    int next = NextDirective(table, entries, 0);
    int32_t pos = 0;
    while (format[pos] != 0) {
        const unsigned char c = format[pos];
        if (c >= 0x80) {
            int length = HalvUTF8NextCharLen((const char *)format + pos);
            if (length > 0) {
                for (int k = 0; k < length; ++k, ++pos) {
                    if (in.current != format[pos])
                        return kMismatch;
                    in.Advance();
                }
                continue;
            }
            /* A byte that starts no sequence is an ordinary literal. */
        } else if (in.current == -1 && (next >= entries || table[next].type != kScanCount)) {
            return assigned > 0 ? assigned : kEndedBeforeAssignment;
        } else if (c == '%' && format[pos + 1] == '%') {
            if (in.current != '%')
                return kMismatch;
            in.Advance();
            pos += 2;
            continue;
        } else if (c == '%') {
            if (next >= entries) /* the parser saw this directive; never met */
                return assigned;
            const ScanDirective &d = table[next];
            int result = kReaders[d.type](in, d, call);
            if (result < 0)
                return result;
            if (result == kFieldFailed)
                return assigned;
            if (!Suppressed(d) && d.type != kScanCount)
                ++assigned;
            pos = d.indexAfterSpecifier;
            next = NextDirective(table, entries, next + 1);
            continue;
        } else if (IsFormatSpace(c)) {
            SkipScanSpace(in);
            ++pos;
            continue;
        }
        if (in.current != c)
            return assigned;
        in.Advance();
        ++pos;
    }
    return assigned;
}

} // namespace

const HalvLocale *ScanFixedLocale() noexcept {
    return &kFixedLocale;
}

int32_t ScanCore(ScanInput &in, const HalvLocale *locale, const char *format,
                 ScanArguments args) noexcept {
    constexpr int32_t kMalformed = -2;
    if (format == nullptr)
        return kMalformed;
    ScanDirective table[kScanMaxEntries];
    int entries = ParseScanFormat(format, table);
    if (entries < 0)
        return entries;
    FetchScanArguments(table, entries, args);
    if (locale == nullptr)
        locale = ScanFixedLocale();
    ScanCall call = {format, locale->decimalPoint != nullptr ? locale->decimalPoint : kDefaultPoint};
    in.Advance(); /* the look-ahead, read even for a format that asks nothing */
    int32_t result = RunScanLoop(in, call, table, entries);
    return in.error != 0 ? in.error : result;
}

} // namespace halv
