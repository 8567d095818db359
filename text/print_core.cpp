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

using FieldWriter = void (*)(PrintSink &, const HalvFormatParameter &, const PrintField &);

/* By parameter type.  Stars are skipped before the table is consulted, and
 * groups never parse in print mode. */
constexpr FieldWriter kFieldWriters[] = {
    nullptr,             /* 0 */
    PrintIntegerField,   /* HALV_FORMAT_INTEGER */
    PrintFloatField,     /* HALV_FORMAT_FLOATING */
    PrintCharacterField, /* HALV_FORMAT_CHARACTER */
    PrintStringField,    /* HALV_FORMAT_STRING */
    PrintPointerField,   /* HALV_FORMAT_POINTER */
    PrintCountField,     /* HALV_FORMAT_COUNT */
};

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

void OutputPass(PrintSink &sink, const char *format, const FormatTable &table) noexcept {
    const char *p = format;
    int32_t next = 0;
    for (;;) {
        const char *percent = NextPercent(p);
        if (percent > p)
            sink.ops->bytes(sink, p, static_cast<uint32_t>(percent - p));
        if (*percent == '\0')
            return;
        if (percent[1] == '%') {
            sink.ops->bytes(sink, "%", 1);
            p = percent + 2;
            continue;
        }
        while (table[next].type == HALV_FORMAT_STAR)
            ++next;
        const HalvFormatParameter &param = table[next++];
        kFieldWriters[param.type](sink, param, ResolveField(param, table));
        p = format + param.indexAfterSpecifier;
    }
}

} // namespace

/* %n: stores what the sink took so far, in the width of its size. */
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &) noexcept {
    StoreInteger(p, p.data.p, static_cast<uint64_t>(static_cast<int64_t>(sink.context.committed)));
}

int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept {
    FormatTable table;
    const int32_t count = PrepareFormat(format, FormatMode::Print, table, args);
    if (count < 0)
        return count;
    OutputPass(sink, format, table);
    return sink.context.error != 0 ? sink.context.error : sink.context.processed;
}

} // namespace halv
