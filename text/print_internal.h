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
 * was written so far.  A memory sink has committed what its window took
 * (nothing while the window is the empty stage) and was offered that and
 * what it dropped. */
inline void SyncCounts(PrintSink &sink) noexcept {
    if (sink.flush != nullptr) {
        sink.flush(sink);
        return;
    }
    sink.context.committed = static_cast<int32_t>(sink.cursor - sink.buffer);
    sink.context.processed = sink.context.committed;
    AddCount(sink.context.processed, sink.dropped);
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
    if (count <= Room(sink)) {
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

/* A directive with its '*' arguments resolved. */
struct PrintField {
    uint32_t flags;
    int32_t width;
    int32_t precision; /* -1 for none */
    int32_t base;
    char conversion;
};

struct IntegerRequest {
    uint32_t flags;
    int64_t width;
    int64_t precision; /* -1 for none */
    int32_t base;      /* 2 to 36 */
    bool isSigned;
    bool wide;  /* read in 64 bits: the high word stays */
    bool upper; /* upper-case digits and prefix */
};

void WriteInteger(PrintSink &sink, uint64_t value, const IntegerRequest &request) noexcept;

/* Text of `length` bytes in a field, escaped under '#'. */
void WriteText(PrintSink &sink, const char *text, uint32_t length, uint32_t flags, int64_t width) noexcept;

/* A NUL-terminated string in a field, cut by precision; null is "(nil)". */
void WriteString(PrintSink &sink, const char *text, uint32_t flags, int64_t width, int64_t precision) noexcept;

void WriteFloat(PrintSink &sink, double number, const PrintField &field) noexcept;

/* The writers of the output pass, one for each parameter type. */
void PrintIntegerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintFloatField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintCharacterField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintStringField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintPointerField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;
void PrintCountField(PrintSink &sink, const HalvFormatParameter &p, const PrintField &field) noexcept;

/* Runs the engine over a sink that is set up: parse, fetch, output.  Result:
 * `processed`, the sink's error, or the parser's negative result, in which
 * case nothing reached the sink. */
int32_t PrintCore(PrintSink &sink, const char *format, FormatArgs &args) noexcept;

/* The capacity of the growing sink's string once it holds `needed` bytes,
 * grown from `current`: 32 at first, then doubled until they fit; 0 when
 * that passes the 32-bit count.  The plain route sizes its strings by the
 * same rule, so both routes give a text the same allocation. */
inline uint64_t GrownCapacity(uint64_t current, uint64_t needed) noexcept {
    uint64_t capacity = current == 0 ? 32 : current * 2;
    while (capacity < needed)
        capacity *= 2;
    return capacity > INT32_MAX ? 0 : capacity;
}

/* The short route of the memory sinks for plain formats: literal text,
 * "%%", and %d, %i, %u, %x, %X and %s with at most a '-' or zeros and a
 * width, 'l' or "ll" for the integers, and for %s a precision.  For any
 * other format both return false having read no argument and written
 * nothing, and the general engine takes over.
 *
 * PrintPlain stores at most `limit` bytes at buffer (none when it is null)
 * and gives in `total` the length of the whole text.  PrintPlainToNewString
 * sets *out to a new string of the text, sized as the growing sink would
 * size it, and `result` to its length, or -1 when memory ran out. */
bool PrintPlain(char *buffer, size_t limit, const char *format, FormatArgs &args, uint64_t &total) noexcept;
bool PrintPlainToNewString(char **out, const char *format, FormatArgs &args, int32_t &result) noexcept;

/* The general engine over the caller's buffer, storing at most `limit`
 * bytes, and closing the text kept with a terminator unless told not to. */
int32_t PrintToBufferByCore(const HalvLocale *locale, char *buffer, uint32_t limit, bool terminate,
                            const char *format, FormatArgs &args) noexcept;

/* The four routes of the family, one for each sink.  A null locale means the
 * fixed record.  The two buffer routes are thin, and inline, so that the
 * exported functions reach the plain route with no frame between. */
inline int32_t PrintToBufferSink(const HalvLocale *locale, char *buffer, uint32_t limit, bool terminate,
                                 const char *format, FormatArgs &args) noexcept {
    uint64_t total = 0;
    if (PrintPlain(buffer, limit, format, args, total)) {
        if (buffer != nullptr && terminate)
            buffer[total < limit ? total : limit] = '\0';
        return static_cast<int32_t>(static_cast<uint32_t>(total));
    }
    return PrintToBufferByCore(locale, buffer, limit, terminate, format, args);
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
