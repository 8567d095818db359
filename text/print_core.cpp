/*
 * text/print_core.cpp - the formatting core: parse the format into its table
 * and outline, then one walk over the outline that copies each literal run
 * and reads and writes each directive in turn.
 *
 * Nothing is written and no argument is read until the whole format has
 * parsed, so a malformed directive anywhere leaves the sink untouched.  From
 * then on the walk reads each entry's argument as it reaches it: in table
 * order, the order of the arguments, each once.
 *
 * The walk has two modes, which the outline chooses.  An everyday format
 * (integers and strings, no '*' argument) has one entry a directive, and each
 * entry is its own field; every other format may have entries of '*'
 * arguments in front of a directive, which the field takes its width,
 * precision or base from.  Both modes read through the one argument reader
 * and write through the same writers into the same sinks.
 *
 * The parameter table, the context and every digit buffer live on the stack;
 * the core allocates nothing and keeps nothing between calls.
 */
#include <cstring>
#include <iterator>

#include "text/format_args.h"
#include "text/format_parser.h"
#include "text/print_internal.h"

namespace halv {
namespace {

using FieldWriter = void (*)(PrintSink &, const HalvFormatParameter &) noexcept;

/* The writer of each parameter type from HALV_FORMAT_INTEGER on.  '*'
 * entries never get here, and groups never parse in print mode. */
constexpr FieldWriter kFieldWriters[] = {nullptr,           PrintIntegerField, PrintFloatField,
                                         PrintCharacterField, PrintStringField, PrintPointerField,
                                         PrintCountField};

/* Hands a directive to the writer of its type. */
void WriteField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    if (p.type > 0 && static_cast<uint32_t>(p.type) < std::size(kFieldWriters))
        kFieldWriters[p.type](sink, p);
}

/* A directive's entry with its '*' arguments resolved from the table.  A
 * negative width argument left-adjusts; a negative precision argument means
 * none. */
HalvFormatParameter Resolved(const HalvFormatParameter &p, const FormatTable &table) noexcept {
    HalvFormatParameter field = p;
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
    field.flags &= ~(kFlagWidthArg | kFlagPrecisionArg | kFlagBaseArg);
    return field;
}

/* The literal text from `from` to `to` of a format with escaped percents:
 * each "%%" in it gives one '%'.  Every '%' of a literal run is the first of
 * such a pair, since the parser took all others as directives. */
[[gnu::noinline]] void PutEscapedLiteral(PrintSink &sink, const char *from, const char *to) noexcept {
    while (from < to) {
        const char *percent = NextPercent(from); /* stops at `to` at the latest: a '%' or the end */
        const char *end = percent < to ? percent + 1 : to;
        Put(sink, from, static_cast<size_t>(end - from));
        from = percent < to ? percent + 2 : to;
    }
}

/* The literal text from `from` to `to`. */
[[gnu::always_inline]] inline void PutLiteral(PrintSink &sink, const char *from, const char *to,
                                              bool hasEscapedPercent) noexcept {
    if (__builtin_expect(hasEscapedPercent, 0))
        PutEscapedLiteral(sink, from, to);
    else if (to != from)
        Put(sink, from, static_cast<size_t>(to - from));
}

/* Everyday mode: each entry is a directive whose field is its own, and
 * whose argument is a string or an integer of a size known in advance. */
class EverydayFields {
public:
    static constexpr bool kHasStars = false;

    explicit EverydayFields(FormatArgs &args) noexcept : reader_(args) {}

    /* The argument, read ahead of the literal text in front of its field:
     * the digits of an integer hang on a long chain from it, which the copy
     * of the text then overlaps. */
    uint64_t Read(const HalvFormatParameter &param) noexcept {
        if (param.type == HALV_FORMAT_STRING)
            return reinterpret_cast<uintptr_t>(reader_.ReadPointer());
        return ReadEverydayInteger(param, reader_);
    }

    void Field(PrintSink &sink, const HalvFormatParameter &param, const FormatTable &, uint64_t value) noexcept {
        if (param.type == HALV_FORMAT_STRING)
            WriteString(sink, reinterpret_cast<const char *>(value), param.flags, param.width, param.precision);
        else
            WriteIntegerField(sink, value, param);
    }

private:
    ArgumentReader reader_;
};

/* Any format: the entries of '*' arguments are read as they come, and the
 * directive behind them takes its field from them. */
class AnyFields {
public:
    static constexpr bool kHasStars = true;

    explicit AnyFields(FormatArgs &args) noexcept : reader_(args) {}

    /* Every entry's argument goes into its data, where a directive finds
     * the '*' arguments in front of it. */
    uint64_t Read(HalvFormatParameter &param) noexcept {
        FetchPrintArgument(param, reader_);
        return param.data.u;
    }

    void Field(PrintSink &sink, HalvFormatParameter &param, const FormatTable &table, uint64_t) noexcept {
        WriteField(sink, Resolved(param, table));
    }

private:
    ArgumentReader reader_;
};

/* The walk over the outline: each literal run, then the field of the
 * directive behind it, in the order of the table, and the run behind the
 * last directive. */
template <class Fields>
[[gnu::always_inline]] inline void Walk(PrintSink &sink, const char *format, FormatTable &table,
                                        const int32_t *directiveStart, FormatOutline outline, Fields fields) noexcept {
    const char *p = format;
    for (int32_t i = 0; i < outline.count; ++i) {
        HalvFormatParameter &param = table[i];
        const uint64_t value = fields.Read(param);
        if (Fields::kHasStars && param.type == HALV_FORMAT_STAR)
            continue;
        PutLiteral(sink, p, format + directiveStart[i], outline.hasEscapedPercent);
        fields.Field(sink, param, table, value);
        p = format + param.indexAfterSpecifier;
    }
    PutLiteral(sink, p, format + outline.length, outline.hasEscapedPercent);
}

} // namespace

/* %n: stores what the sink took so far, in the width of its size. */
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p) noexcept {
    SyncCounts(sink);
    StoreInteger(p, p.data.p, static_cast<uint64_t>(static_cast<int64_t>(sink.context.committed)));
}

int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept {
    FormatTable table;
    int32_t directiveStart[HALV_FORMAT_MAX_ARGS];
    const FormatOutline outline = ParseFormat(format, FormatMode::Print, table, directiveStart);
    if (outline.count < 0)
        return outline.count;
    if (outline.everyday)
        Walk(sink, format, table, directiveStart, outline, EverydayFields(args));
    else
        Walk(sink, format, table, directiveStart, outline, AnyFields(args));
    const int32_t processed = SyncCounts(sink);
    return sink.context.error != 0 ? sink.context.error : processed;
}

} // namespace halv
