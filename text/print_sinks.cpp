/*
 * text/print_sinks.cpp - the four sinks of the print engine, and the route
 * of each through the core.
 *
 *   stream   one write call per byte, as a stream sees it from any writer
 *            of single bytes; a null stream only counts.
 *   buffer   stores everything; the caller's buffer must be large enough.
 *   bounded  stores while below its limit, then only counts.
 *   new      stores into a buffer that doubles from 32 bytes.
 *
 * `processed` counts every byte offered, `committed` every byte kept.  The
 * memory sinks let the writers format straight into the destination; the
 * stream sink stages a field's bytes and then offers them one by one.
 */
#include <cstring>

#include "halv_core.h"
#include "text/print_internal.h"

namespace halv {
namespace {


/* Copies count bytes, or count fill bytes, to `to`. */
void CopyOrFill(char *to, const char *bytes, size_t count, char fill) noexcept {
    if (bytes != nullptr)
        std::memcpy(to, bytes, count);
    else
        std::memset(to, fill, count);
}

/* ---- Stream ---------------------------------------------------------- */

/* One write call of one byte, as a byte-wide transfer over the write slot
 * goes: a missing slot fails, and only a result of exactly 1 counts as
 * taken.  The slot's answer is kept as it is, so a slot that claims more
 * than the one byte it was offered reads as a refusal; the library's
 * transfer helper caps such a claim at the count, which would hide it. */
int32_t WriteOneByte(HalvIO *io, char byte) noexcept {
    if (io->write == nullptr)
        return -1;
    return io->write(io, &byte, 1);
}

void StreamOutChar(HalvFormatContext *context, int32_t byte) {
    auto *io = static_cast<HalvIO *>(context->location);
    if (io != nullptr) {
        if (WriteOneByte(io, static_cast<char>(byte)) == 1)
            AddCount(context->committed, 1);
        else if (context->error == 0)
            context->error = HALV_FORMAT_STREAM_ERROR;
    }
    AddCount(context->processed, 1);
}

/* Hands bytes to the stream one call each; a null stream counts them at
 * once, however many. */
void StreamSend(PrintSink &sink, const char *bytes, uint64_t count, char fill) noexcept {
    if (sink.context.location == nullptr) {
        AddCount(sink.context.processed, count);
        return;
    }
    for (uint64_t i = 0; i < count; ++i)
        sink.context.outChar(&sink.context, static_cast<unsigned char>(bytes != nullptr ? bytes[i] : fill));
}

/* Empties the stage into the stream. */
void StreamFlush(PrintSink &sink) noexcept {
    StreamSend(sink, sink.stage, static_cast<uint64_t>(sink.cursor - sink.stage), 0);
    sink.cursor = sink.stage;
}

/* The stage is full: it goes out, and what came is staged or, when larger
 * than the stage, sent as it is. */
void StreamSpill(PrintSink &sink, const char *bytes, uint64_t count, char fill) noexcept {
    StreamFlush(sink);
    if (count <= sizeof sink.stage) {
        CopyOrFill(sink.cursor, bytes, static_cast<size_t>(count), fill);
        sink.cursor += count;
    } else {
        StreamSend(sink, bytes, count, fill);
    }
}

/* ---- Buffers ------------------------------------------------------- */

/* The caller's buffer, with a bound or without one: the window is the
 * buffer up to its limit, and what goes beyond it is only counted.  A
 * buffer without bound has the largest limit a count can reach. */


/* ---- New string ------------------------------------------------------ */

/* The capacity once the string holds `needed` bytes, grown from `current`:
 * 32 at first, then doubled until they fit; 0 when that passes the 32-bit
 * count. */
uint64_t GrownCapacity(uint64_t current, uint64_t needed) noexcept {
    uint64_t capacity = current == 0 ? 32 : current * 2;
    while (capacity < needed)
        capacity *= 2;
    return capacity > INT32_MAX ? 0 : capacity;
}

/* Makes room for count more bytes and their terminator: the capacity
 * starts at 32 and doubles.  False when memory or the 32-bit count ran out;
 * the sink then only counts, and the route reports it. */
bool GrowFor(PrintSink &sink, uint64_t count) noexcept {
    const bool allocated = sink.buffer != sink.stage;
    const uint64_t needed = static_cast<uint64_t>(sink.context.committed) + count;
    if (allocated && needed <= static_cast<uint64_t>(sink.context.max))
        return true;
    const uint64_t capacity = GrownCapacity(static_cast<uint64_t>(sink.context.max), needed);
    if (capacity == 0)
        return false;
    auto *grown = static_cast<char *>(halv_internal_realloc(allocated ? sink.buffer : nullptr, capacity + 1));
    if (grown == nullptr)
        return false;
    sink.buffer = grown;
    sink.context.max = static_cast<int32_t>(capacity);
    sink.cursor = grown + sink.context.committed;
    sink.limit = grown + capacity;
    return true;
}

/* The window of the growing sink is its allocation; before the first one it
 * is the empty stage, and after memory ran out it has no room. */
void NewStringSpill(PrintSink &sink, const char *bytes, uint64_t count, char fill) noexcept {
    SyncCounts(sink);
    if (!sink.outOfMemory && GrowFor(sink, count)) {
        CopyOrFill(sink.cursor, bytes, static_cast<size_t>(count), fill);
        sink.cursor += count;
        return;
    }
    sink.outOfMemory = true;
    sink.limit = sink.cursor; /* from now on everything only counts */
    sink.dropped += static_cast<uint32_t>(count);
}

} // namespace

int32_t PrintToStream(const HalvLocale *locale, HalvIO *io, const char *format, FormatArgs &args) noexcept {
    PrintSink sink;
    InitSink(sink, locale, io, StreamSpill, StreamFlush);
    sink.context.outChar = StreamOutChar;
    sink.limit = sink.stage + sizeof sink.stage;
    return PrintCore(sink, format, args);
}

void OutCharThroughWindow(HalvFormatContext *context, int32_t byte) {
    PutByte(SinkOf(context), static_cast<char>(byte));
}

void BufferSpill(PrintSink &sink, const char *bytes, uint64_t count, char fill) noexcept {
    const size_t take = Room(sink);
    if (take > 0) {
        CopyOrFill(sink.cursor, bytes, take, fill);
        sink.cursor += take;
    }
    sink.dropped += static_cast<uint32_t>(count - take);
}

int32_t PrintToNewString(const HalvLocale *locale, char **out, const char *format, FormatArgs &args) noexcept {
    if (out == nullptr)
        return -1;
    *out = nullptr;
    PrintSink sink;
    InitSink(sink, locale, &sink.cursor, NewStringSpill, nullptr);
    sink.context.outChar = OutCharThroughWindow;
    const int32_t result = PrintCore(sink, format, args);
    const bool allocated = sink.buffer != sink.stage;
    if (result < 0) {
        if (allocated) /* a format that fails to parse: null stays */
            halv_internal_free(sink.buffer);
        return result;
    }
    if (!sink.outOfMemory && !allocated)
        sink.outOfMemory = !GrowFor(sink, 0); /* an empty text is still a string */
    if (sink.outOfMemory) {
        if (sink.buffer != sink.stage)
            halv_internal_free(sink.buffer);
        return -1;
    }
    SyncCounts(sink);
    sink.buffer[sink.context.committed] = '\0';
    *out = sink.buffer;
    return result;
}

} // namespace halv
