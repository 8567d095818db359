/*
 * text/scan_core.cpp - the scan core: parse the format in scan mode, fetch
 * the destinations, then walk the format against the input.
 *
 * Format white space skips any input white space; a literal byte must match
 * the look-ahead; a UTF-8 sequence of the format must match byte for byte;
 * a directive goes to the reader of its type.  The walk ends at the first
 * mismatch or failed field with the number of assignments made so far, and
 * when the input has ended before a directive other than %n, with that
 * number or -1 if it is 0.
 */
#include "halv_util.h"
#include "text/format_args.h"
#include "text/format_parser.h"
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kEndedBeforeAssignment = -1;

struct ScanCall {
    const char *format;
    const FormatTable &table;
};

using FieldReader = int (*)(ScanSource &, const HalvFormatParameter &, const ScanCall &);

int IntegerField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &call) {
    uint64_t value = 0;
    const int result = ReadScanInteger(in, ResolveBase(p, call.table), !IsSignedConversion(ConversionOf(p)),
                                       (p.flags & kFlagAlt) != 0, p.width, &value);
    if (result == kFieldDone)
        StoreInteger(p, DestinationOf(p), value);
    return result;
}

int FloatField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &) {
    double value = 0;
    const int result = ReadScanFloat(in, p.width, &value);
    if (result == kFieldDone && DestinationOf(p) != nullptr)
        *static_cast<double *>(DestinationOf(p)) = value; /* always a double, whatever the size */
    return result;
}

/* "0x" and up to 16 digits, or the word "(nil)" for a null pointer. */
int PointerField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &) {
    constexpr int32_t kPointerWidth = 18;
    static const char kNil[] = "(nil)";
    uint64_t value = 0;
    if (ReadScanInteger(in, 16, true, true, kPointerWidth, &value) != kFieldDone) {
        int n = 0;
        bool same = true;
        for (; n < 5 && in.Current() != -1 && !IsScanSpace(in.Current()); ++n) {
            same = same && in.Current() == kNil[n];
            in.Advance();
        }
        if (!same || n != 5)
            return kFieldFailed;
        value = 0;
    }
    if (DestinationOf(p) != nullptr)
        *static_cast<void **>(DestinationOf(p)) = reinterpret_cast<void *>(static_cast<uintptr_t>(value));
    return kFieldDone;
}

/* Bytes taken so far, not counting a look-ahead that is still unread by
 * any field. */
int CountField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &) {
    const int32_t taken = in.context.committed - (in.Current() != -1 ? 1 : 0);
    StoreInteger(p, DestinationOf(p), static_cast<uint64_t>(static_cast<int64_t>(taken)));
    return kFieldDone;
}

int CharsField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &) {
    return ReadScanChars(in, p);
}

int StringField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &) {
    return ReadScanString(in, p);
}

int GroupField(ScanSource &in, const HalvFormatParameter &p, const ScanCall &call) {
    return ReadScanGroup(in, p, call.format);
}

/* By parameter type; '*' entries are passed over before the table is
 * consulted. */
constexpr FieldReader kReaders[] = {
    nullptr,      /* 0 */
    IntegerField, /* HALV_FORMAT_INTEGER */
    FloatField,   /* HALV_FORMAT_FLOATING */
    CharsField,   /* HALV_FORMAT_CHARACTER */
    StringField,  /* HALV_FORMAT_STRING */
    PointerField, /* HALV_FORMAT_POINTER */
    CountField,   /* HALV_FORMAT_COUNT */
    nullptr,      /* HALV_FORMAT_STAR */
    GroupField,   /* HALV_FORMAT_GROUP */
};

/* Index of the next directive entry at or after i, passing over the
 * entries of `*` arguments. */
int32_t NextDirective(const FormatTable &table, int32_t entries, int32_t i) {
    while (i < entries && table[i].type == HALV_FORMAT_STAR)
        ++i;
    return i;
}

int32_t RunScanLoop(ScanSource &in, const ScanCall &call, int32_t entries) {
    const auto *format = reinterpret_cast<const unsigned char *>(call.format);
    const FormatTable &table = call.table;
    int32_t assigned = 0;
    int32_t next = NextDirective(table, entries, 0);
    int32_t pos = 0;
    while (format[pos] != 0) {
        const unsigned char c = format[pos];
        if (c >= 0x80) {
            const int length = HalvUTF8NextCharLen(call.format + pos);
            if (length > 0) {
                for (int k = 0; k < length; ++k, ++pos) {
                    if (in.Current() != format[pos])
                        return HALV_FORMAT_MALFORMED;
                    in.Advance();
                }
                continue;
            }
            /* A byte that starts no sequence is an ordinary literal. */
        } else if (in.Current() == -1 && (next >= entries || table[next].type != HALV_FORMAT_COUNT)) {
            return assigned > 0 ? assigned : kEndedBeforeAssignment;
        } else if (c == '%' && format[pos + 1] == '%') {
            if (in.Current() != '%')
                return HALV_FORMAT_MALFORMED;
            in.Advance();
            pos += 2;
            continue;
        } else if (c == '%') {
            if (next >= entries) /* the parser saw this directive; never met */
                return assigned;
            const HalvFormatParameter &p = table[next];
            const int result = kReaders[p.type](in, p, call);
            if (result < 0)
                return result;
            if (result == kFieldFailed)
                return assigned;
            if (!(p.flags & kFlagSuppress) && p.type != HALV_FORMAT_COUNT)
                ++assigned;
            pos = p.indexAfterSpecifier;
            next = NextDirective(table, entries, next + 1);
            continue;
        } else if (IsScanSpace(c)) {
            SkipScanSpace(in);
            ++pos;
            continue;
        }
        if (in.Current() != c)
            return assigned;
        in.Advance();
        ++pos;
    }
    return assigned;
}

} // namespace

int32_t ScanCore(ScanSource &in, const char *format, FormatArgs &args) noexcept {
    FormatTable table;
    const int32_t entries = ParseFormat(format, FormatMode::Scan, table).count;
    if (entries < 0)
        return entries;
    FetchScanArguments(table, entries, args);
    in.Advance(); /* the look-ahead, read even for a format that asks nothing */
    const int32_t result = RunScanLoop(in, ScanCall{format, table}, entries);
    return in.context.error != 0 ? in.context.error : result;
}

} // namespace halv
