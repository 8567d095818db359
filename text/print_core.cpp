/*
 * text/print_core.cpp - the formatting core: parse, fetch, then one output
 * pass over the format that copies literal text and hands each directive to
 * the writer of its type.
 *
 * The parameter table, the context and every digit buffer live on the stack;
 * the core allocates nothing and keeps nothing between calls.
 */
#include <cstring>

#include "text/print_internal.h"

namespace halv {
namespace {

/* Hands a directive to the writer of its type.  Stars are skipped before
 * this, and groups never parse in print mode. */
void WriteField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept {
    switch (p.type) {
    case HALV_FORMAT_INTEGER:
        PrintIntegerField(sink, p, field);
        break;
    case HALV_FORMAT_FLOATING:
        PrintFloatField(sink, p, field);
        break;
    case HALV_FORMAT_CHARACTER:
        PrintCharacterField(sink, p, field);
        break;
    case HALV_FORMAT_STRING:
        PrintStringField(sink, p, field);
        break;
    case HALV_FORMAT_POINTER:
        PrintPointerField(sink, p, field);
        break;
    case HALV_FORMAT_COUNT:
        PrintCountField(sink, p, field);
        break;
    default:
        break;
    }
}

/* Resolves the '*' arguments of a directive.  A negative width argument
 * left-adjusts; a negative precision argument means none. */
PrintField ResolveField(const HalvFormatParameter &p, const FormatTable &table) noexcept {
    PrintField field{p.flags, p.width, p.precision, p.base, ConversionOf(p)};
    if (p.flags & kFlagWidthArg) {
        const int32_t width = static_cast<int32_t>(table[p.width].data.i);
        if (width < 0) {
            field.flags = (field.flags | kFlagLeft) & ~kFlagZero;
            field.width = width == INT32_MIN ? INT32_MAX : -width;
        } else {
            field.width = width;
        }
    }
    if (p.flags & kFlagPrecisionArg) {
        const int32_t precision = static_cast<int32_t>(table[p.precision].data.i);
        field.precision = precision < 0 ? -1 : precision;
    }
    field.base = ResolveBase(p, table);
    return field;
}

/* The output pass of a format without "%%": the outline says where each
 * literal run ends, so runs are copied without looking at them again. */
void OutputByOutline(PrintSink &sink, const char *format, const FormatTable &table, int32_t count,
                     const FormatOutline &outline) noexcept {
    const char *p = format;
    for (int32_t i = 0; i < count; ++i) {
        const HalvFormatParameter &param = table[i];
        if (param.type == HALV_FORMAT_STAR)
            continue;
        Put(sink, p, static_cast<size_t>(format + outline.directiveStart[i] - p));
        WriteField(sink, param, ResolveField(param, table));
        p = format + param.indexAfterSpecifier;
    }
    Put(sink, p, static_cast<size_t>(format + outline.length - p));
}

/* The output pass of a format with "%%": literal text is walked again, and
 * each "%%" gives one '%'. */
void OutputByScanning(PrintSink &sink, const char *format, const FormatTable &table) noexcept {
    const char *p = format;
    int32_t next = 0;
    for (;;) {
        const char *percent = NextPercent(p);
        if (percent > p)
            Put(sink, p, static_cast<size_t>(percent - p));
        if (*percent == '\0')
            return;
        if (percent[1] == '%') {
            PutByte(sink, '%');
            p = percent + 2;
            continue;
        }
        while (table[next].type == HALV_FORMAT_STAR)
            ++next;
        const HalvFormatParameter &param = table[next++];
        WriteField(sink, param, ResolveField(param, table));
        p = format + param.indexAfterSpecifier;
    }
}

} // namespace

/* %n: stores what the sink took so far, in the width of its size. */
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &) noexcept {
    SyncCounts(sink);
    StoreInteger(p, p.data.p, static_cast<uint64_t>(static_cast<int64_t>(sink.context.committed)));
}

int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept {
    FormatTable table;
    FormatOutline outline;
    const int32_t count = PrepareFormat(format, FormatMode::Print, table, args, &outline);
    if (count < 0)
        return count;
    if (outline.hasEscapedPercent)
        OutputByScanning(sink, format, table);
    else
        OutputByOutline(sink, format, table, count, outline);
    SyncCounts(sink);
    return sink.context.error != 0 ? sink.context.error : sink.context.processed;
}

} // namespace halv
