/*
 * text/print_internal.h - the print engine's sinks and writers.
 *
 * Every byte the engine produces goes into the sink's window, a run of
 * memory the writers fill directly: for the memory sinks it is the free part
 * of the destination itself, so the text is formatted in place with no copy;
 * for the stream sink it is a stage on the stack that is handed on one write
 * call per byte.  What does not fit goes to the sink's spill function, which
 * flushes, grows, or only counts.  The public HalvFormatContext sits at the
 * head of the sink; its counts are brought up to date by SyncCounts.
 */
#ifndef HALV_TEXT_PRINT_INTERNAL_H
#define HALV_TEXT_PRINT_INTERNAL_H

#include <stdint.h>
#include <string.h>

#include "text/format_internal.h"
#include "text/print_digits.h"

namespace halv {

struct PrintSink;

/* Takes what did not fit in the window: `count` bytes from `bytes`, or,
 * with bytes null, `count` copies of `fill`.  It may move the window. */
using SpillFunction = void (*)(PrintSink &sink, const char *bytes, uint64_t count, char fill);

/* The stream sink's: hands what the window holds to the stream. */
using FlushFunction = void (*)(PrintSink &sink);

struct PrintSink {
    HalvFormatContext context; /* first, so a context leads back to its sink */
    char *cursor;              /* where the next byte goes */
    char *limit;               /* the end of the window */
    char *buffer;              /* memory sinks: the start of the text; stream: the stage */
    SpillFunction spill;
    FlushFunction flush;       /* null for the memory sinks */
    uint32_t dropped;          /* memory sinks: bytes offered beyond the window */
    bool outOfMemory;          /* the growing sink could not grow */
    char stage[256];           /* the stream sink's window */
};

inline PrintSink &SinkOf(HalvFormatContext *context) noexcept {
    return *reinterpret_cast<PrintSink *>(context);
}

/* Raises a count the way the engine counts: unsigned 32-bit, wrapping. */
inline void AddCount(int32_t &count, uint64_t n) noexcept {
    count = static_cast<int32_t>(static_cast<uint32_t>(count) + static_cast<uint32_t>(n));
}

/* Brings context.processed and context.committed up to date with all that
 * was written so far, and gives processed.  A memory sink has committed what
 * its window took (nothing while the window is the empty stage) and was
 * offered that and what it dropped. */
inline int32_t SyncCounts(PrintSink &sink) noexcept {
    if (sink.flush != nullptr) {
        sink.flush(sink);
        return sink.context.processed;
    }
    const auto committed = static_cast<int32_t>(sink.cursor - sink.buffer);
    int32_t processed = committed;
    AddCount(processed, sink.dropped);
    sink.context.committed = committed;
    sink.context.processed = processed;
    return processed;
}

inline size_t Room(const PrintSink &sink) noexcept {
    return static_cast<size_t>(sink.limit - sink.cursor);
}

/* Copies count bytes.  Runs up to 16 bytes, most literal text and most
 * fields, move as two overlapping fixed-size pieces instead of a library
 * call. */
inline void CopyBytes(char *to, const char *from, size_t count) noexcept {
    if (count >= 8 && count <= 16) {
        memcpy(to, from, 8);
        memcpy(to + count - 8, from + count - 8, 8);
    } else if (count >= 4 && count < 8) {
        memcpy(to, from, 4);
        memcpy(to + count - 4, from + count - 4, 4);
    } else if (count > 0 && count < 4) {
        to[0] = from[0];
        to[count / 2] = from[count / 2];
        to[count - 1] = from[count - 1];
    } else if (count > 16) {
        memcpy(to, from, count);
    }
}

inline void Put(PrintSink &sink, const char *bytes, size_t count) noexcept {
    if (__builtin_expect(count <= Room(sink), 1)) {
        CopyBytes(sink.cursor, bytes, count);
        sink.cursor += count;
    } else {
        sink.spill(sink, bytes, count, 0);
    }
}

inline void PutByte(PrintSink &sink, char byte) noexcept {
    if (sink.cursor != sink.limit)
        *sink.cursor++ = byte;
    else
        sink.spill(sink, &byte, 1, 0);
}

/* count copies of byte; nothing for a count of 0 or below. */
inline void PutFill(PrintSink &sink, char byte, int64_t count) noexcept {
    if (count <= 0)
        return;
    if (static_cast<uint64_t>(count) <= Room(sink)) {
        memset(sink.cursor, byte, static_cast<size_t>(count));
        sink.cursor += count;
    } else {
        sink.spill(sink, nullptr, static_cast<uint64_t>(count), byte);
    }
}

struct IntegerRequest {
    uint32_t flags;
    int64_t width;
    int64_t precision; /* -1 for none */
    int32_t base;      /* 2 to 36 */
    bool isSigned;
    bool wide;  /* read in 64 bits: the high word stays */
    bool upper; /* upper-case digits and prefix */
};

/* The integer writer: any integer field, laid out by the full rules of
 * flags, width, precision and base; see print_integer.cpp. */
void WriteInteger(PrintSink &sink, uint64_t value, const IntegerRequest &request) noexcept;

/* The request of an integer directive's field. */
inline IntegerRequest IntegerRequestOf(const HalvFormatParameter &p) noexcept {
    IntegerRequest request;
    request.flags = p.flags;
    request.width = p.width;
    request.precision = p.precision;
    request.base = p.base;
    /* A size_t is unsigned whatever the conversion says. */
    request.isSigned = IsSignedConversion(ConversionOf(p)) && !(p.flags & kFlagSizeZ);
    request.wide = IsWideInteger(p);
    request.upper = ConversionOf(p) == 'X';
    return request;
}

/* The field of an integer directive.  Nearly every one has no precision
 * and no '+', ' ' or '#': it is blanks or zeros, a minus and the digits.
 * When such a field fits the window it is made here, in place, in the bytes
 * the integer writer gives it; every other field goes to the writer.  The
 * writer's request is made only then, so the common field never lays one
 * out in memory. */
[[gnu::always_inline]] inline void WriteIntegerField(PrintSink &sink, uint64_t value, const HalvFormatParameter &p) noexcept {
    const uint32_t flags = p.flags;
    if (__builtin_expect(p.precision >= 0 || (flags & (kFlagPlus | kFlagBlank | kFlagAlt)) != 0, 0))
        return WriteInteger(sink, value, IntegerRequestOf(p));
    const bool negative =
        IsSignedConversion(ConversionOf(p)) && !(flags & kFlagSizeZ) && static_cast<int64_t>(value) < 0;
    uint64_t magnitude = negative ? 0 - value : value; /* in 64 bits: INT64_MIN survives */
    if (!IsWideInteger(p))
        magnitude &= 0xFFFFFFFFu;
    const auto base = static_cast<uint32_t>(p.base);
    const int count = DigitCount(magnitude, base);
    const int32_t body = count + (negative ? 1 : 0);
    const char *set = ConversionOf(p) == 'X' ? kUpperDigits : kLowerDigits;
    char *at = sink.cursor;
    if (__builtin_expect(p.width <= body, 1)) { /* no padding, the usual field */
        if (__builtin_expect(static_cast<size_t>(body) > Room(sink), 0))
            return WriteInteger(sink, value, IntegerRequestOf(p));
        if (negative)
            *at++ = '-';
        at += count;
        WriteDigits(magnitude, base, set, at);
        sink.cursor = at;
        return;
    }
    const int64_t pad = static_cast<int64_t>(p.width) - body;
    if (__builtin_expect(static_cast<uint64_t>(body + pad) > Room(sink), 0))
        return WriteInteger(sink, value, IntegerRequestOf(p));
    const bool zeros = (flags & kFlagZero) != 0;
    const bool left = (flags & kFlagLeft) != 0 && !zeros;
    if (!left && !zeros) {
        memset(at, ' ', static_cast<size_t>(pad));
        at += pad;
    }
    if (negative)
        *at++ = '-';
    if (zeros) {
        memset(at, '0', static_cast<size_t>(pad));
        at += pad;
    }
    at += count;
    WriteDigits(magnitude, base, set, at);
    if (left) {
        memset(at, ' ', static_cast<size_t>(pad));
        at += pad;
    }
    sink.cursor = at;
}

/* The bytes of text as '#' writes them: see print_text.cpp. */
void WriteEscaped(PrintSink &sink, const char *text, uint32_t length) noexcept;

/* Text of `length` bytes in a field, escaped under '#'.  The width counts
 * the bytes as given, not what escapes add. */
inline void WriteText(PrintSink &sink, const char *text, uint32_t length, uint32_t flags, int64_t width) noexcept {
    const int64_t blanks = width - length;
    if (!(flags & kFlagLeft))
        PutFill(sink, ' ', blanks);
    if (flags & kFlagAlt)
        WriteEscaped(sink, text, length);
    else
        Put(sink, text, length);
    if (flags & kFlagLeft)
        PutFill(sink, ' ', blanks);
}

/* A NUL-terminated string in a field, cut by precision; null is "(nil)". */
inline void WriteString(PrintSink &sink, const char *text, uint32_t flags, int64_t width, int64_t precision) noexcept {
    /* "(nil)" in a block the copy may read whole. */
    static constexpr char kNil[16] = "(nil)";
    if (text == nullptr)
        text = kNil;
    /* Never read past the precision: the text need not be terminated there. */
    size_t length = precision >= 0 ? strnlen(text, static_cast<size_t>(precision)) : strlen(text);
    if (length > UINT32_MAX)
        length = UINT32_MAX;
    WriteText(sink, text, static_cast<uint32_t>(length), flags, width);
}

/* A floating value in the field of a floating directive. */
void WriteFloat(PrintSink &sink, double number, const HalvFormatParameter &field) noexcept;

/* The writers of the walk, one for each parameter type.  Each takes the
 * directive's entry with its '*' arguments resolved, its value in data. */
void PrintIntegerField(PrintSink &sink, const HalvFormatParameter &p) noexcept;
void PrintFloatField(PrintSink &sink, const HalvFormatParameter &p) noexcept;
void PrintCharacterField(PrintSink &sink, const HalvFormatParameter &p) noexcept;
void PrintStringField(PrintSink &sink, const HalvFormatParameter &p) noexcept;
void PrintPointerField(PrintSink &sink, const HalvFormatParameter &p) noexcept;
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p) noexcept;

/* Runs the engine over a sink that is set up: parse, then one walk that
 * reads each argument and writes each field.  Result: `processed`, the
 * sink's error, or the parser's negative result, in which case nothing
 * reached the sink and no argument was read. */
int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept;

/* A sink with no room yet: the sinks open their windows behind this.  A
 * null locale means the fixed record. */
inline void InitSink(PrintSink &sink, const HalvLocale *locale, void *location, SpillFunction spill,
                     FlushFunction flush) noexcept {
    sink.context.outChar = nullptr;
    sink.context.inChar = nullptr;
    sink.context.location = location;
    sink.context.current = -1;
    sink.context.processed = 0;
    sink.context.committed = 0;
    sink.context.max = 0;
    sink.context.error = 0;
    sink.context.locale = LocaleOrFixed(locale);
    sink.buffer = sink.stage;
    sink.cursor = sink.stage; /* no room until a sink opens its window */
    sink.limit = sink.stage;
    sink.spill = spill;
    sink.flush = flush;
    sink.dropped = 0;
    sink.outOfMemory = false;
}

/* The memory sinks' byte sink for the context: one byte into the window. */
void OutCharThroughWindow(HalvFormatContext *context, int32_t byte);

/* The caller's buffer, with a bound or without one: stores what still fits
 * below the limit, and counts the rest as offered. */
void BufferSpill(PrintSink &sink, const char *bytes, uint64_t count, char fill) noexcept;

/* The caller's buffer as the sink: the window is the buffer up to `limit`,
 * and the text kept is closed with a terminator unless told not to.  Inline,
 * so that the exported functions reach the core with no frame between. */
inline int32_t PrintToBufferSink(const HalvLocale *locale, char *buffer, uint32_t limit, bool terminate,
                                 const char *format, FormatArgs &args) noexcept {
    PrintSink sink;
    InitSink(sink, locale, &sink.cursor, BufferSpill, nullptr);
    sink.context.outChar = OutCharThroughWindow;
    if (buffer != nullptr) {
        sink.buffer = buffer;
        sink.cursor = buffer;
        sink.limit = buffer + limit;
        sink.context.max = static_cast<int32_t>(limit);
    }
    const int32_t result = PrintCore(sink, format, args);
    if (buffer != nullptr && terminate) /* behind the text, or an empty string on failure */
        *sink.cursor = '\0';
    return result;
}

/* A buffer without bound has the largest limit the 32-bit count reaches. */
inline int32_t PrintToBuffer(const HalvLocale *locale, char *buffer, const char *format, FormatArgs &args) noexcept {
    return PrintToBufferSink(locale, buffer, UINT32_MAX, true, format, args);
}

/* At most size - 1 bytes and a terminator; none at all for size 0. */
inline int32_t PrintToBoundedBuffer(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                                    FormatArgs &args) noexcept {
    const uint32_t limit = size == 0 ? 0 : size - 1;
    return PrintToBufferSink(locale, buffer, limit > INT32_MAX ? INT32_MAX : limit, size > 0, format, args);
}

int32_t PrintToStream(const HalvLocale *locale, HalvIO *io, const char *format, FormatArgs &args) noexcept;
int32_t PrintToNewString(const HalvLocale *locale, char **out, const char *format, FormatArgs &args) noexcept;

} // namespace halv

#endif
