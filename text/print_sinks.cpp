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
 * memory sinks take whole runs; the stream sink splits them into bytes.
 */
#include <cstring>

#include "halv_core.h"
#include "text/print_internal.h"

namespace halv {
namespace {

void InitSink(PrintSink &sink, const PrintSinkOps &ops, const HalvLocale *locale, void *location) noexcept {
    std::memset(&sink, 0, sizeof sink);
    sink.ops = &ops;
    sink.context.locale = LocaleOrFixed(locale);
    sink.context.location = location;
    sink.context.current = -1;
}

/* The context's byte sink for the memory sinks: a run of one. */
void OutCharThroughRun(HalvFormatContext *context, int32_t byte) {
    PrintSink &sink = SinkOf(context);
    const char b = static_cast<char>(byte);
    sink.ops->bytes(sink, &b, 1);
}

/* Fills through a small stack run, for sinks that have no fill of their own. */
void FillByRuns(PrintSink &sink, char byte, uint32_t count) noexcept {
    char run[64];
    std::memset(run, byte, sizeof run);
    while (count > 0) {
        const uint32_t n = count < sizeof run ? count : static_cast<uint32_t>(sizeof run);
        sink.ops->bytes(sink, run, n);
        count -= n;
    }
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

void StreamBytes(PrintSink &sink, const char *bytes, uint32_t count) noexcept {
    if (sink.context.location == nullptr) {
        AddCount(sink.context.processed, count);
        return;
    }
    for (uint32_t i = 0; i < count; ++i)
        sink.context.outChar(&sink.context, static_cast<unsigned char>(bytes[i]));
}

/* A null stream counts a fill at once, however wide. */
void StreamFill(PrintSink &sink, char byte, uint32_t count) noexcept {
    if (sink.context.location == nullptr)
        AddCount(sink.context.processed, count);
    else
        FillByRuns(sink, byte, count);
}

constexpr PrintSinkOps kStreamOps = {StreamBytes, StreamFill};

/* ---- Buffers ------------------------------------------------------- */

/* The caller's buffer, with a bound or without one: a buffer without bound
 * has the largest limit a count can reach.  Bytes go behind the text kept
 * so far while it is below the limit; every byte counts as offered. */

/* How many of count bytes still fit below the limit. */
uint32_t RoomFor(const PrintSink &sink, uint32_t count) noexcept {
    const uint32_t kept = static_cast<uint32_t>(sink.context.committed);
    const uint32_t limit = static_cast<uint32_t>(sink.context.max);
    const uint32_t room = kept < limit ? limit - kept : 0;
    return count < room ? count : room;
}

/* `put` writes count bytes at a place: from a run, or of a fill byte. */
template <typename Put>
void BufferPut(PrintSink &sink, uint32_t count, Put put) noexcept {
    const uint32_t take = RoomFor(sink, count);
    if (take > 0) {
        put(sink.buffer + static_cast<uint32_t>(sink.context.committed), take);
        AddCount(sink.context.committed, take);
    }
    AddCount(sink.context.processed, count);
}

void BufferBytes(PrintSink &sink, const char *bytes, uint32_t count) noexcept {
    BufferPut(sink, count, [bytes](char *to, uint32_t n) { std::memcpy(to, bytes, n); });
}

void BufferFill(PrintSink &sink, char byte, uint32_t count) noexcept {
    BufferPut(sink, count, [byte](char *to, uint32_t n) { std::memset(to, byte, n); });
}

constexpr PrintSinkOps kBufferOps = {BufferBytes, BufferFill};

/* The limit of a buffer without bound: all of the 32-bit count. */
constexpr uint32_t kNoBound = UINT32_MAX;

/* ---- New string ------------------------------------------------------ */

/* Makes room for count more bytes and their terminator: the capacity
 * starts at 32 and doubles.  False when memory or the 32-bit count ran out;
 * the sink then only counts, and the route reports it. */
bool GrowFor(PrintSink &sink, uint32_t count) noexcept {
    const uint64_t needed = static_cast<uint64_t>(sink.context.committed) + count;
    if (sink.buffer != nullptr && needed <= static_cast<uint64_t>(sink.context.max))
        return true;
    uint64_t capacity = sink.context.max == 0 ? 32 : static_cast<uint64_t>(sink.context.max) * 2;
    while (capacity < needed)
        capacity *= 2;
    if (capacity > INT32_MAX)
        return false;
    auto *grown = static_cast<char *>(halv_internal_realloc(sink.buffer, capacity + 1));
    if (grown == nullptr)
        return false;
    sink.buffer = grown;
    sink.context.max = static_cast<int32_t>(capacity);
    return true;
}

void NewStringBytes(PrintSink &sink, const char *bytes, uint32_t count) noexcept {
    if (!sink.outOfMemory && GrowFor(sink, count)) {
        std::memcpy(sink.buffer + sink.context.committed, bytes, count);
        AddCount(sink.context.committed, count);
        sink.buffer[sink.context.committed] = '\0';
    } else {
        sink.outOfMemory = true;
    }
    AddCount(sink.context.processed, count);
}

constexpr PrintSinkOps kNewStringOps = {NewStringBytes, FillByRuns};

} // namespace

void Staging::Add(const char *bytes, uint32_t count) noexcept {
    if (count > sizeof buffer_ - used_) {
        Flush();
        if (count > sizeof buffer_) {
            sink_.ops->bytes(sink_, bytes, count);
            return;
        }
    }
    std::memcpy(buffer_ + used_, bytes, count);
    used_ += count;
}

void Staging::Fill(char byte, int64_t count) noexcept {
    if (count <= 0)
        return;
    if (count > static_cast<int64_t>(sizeof buffer_ - used_)) {
        Flush();
        while (count > 0) {
            const uint32_t n = count > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(count);
            sink_.ops->fill(sink_, byte, n);
            count -= n;
        }
        return;
    }
    std::memset(buffer_ + used_, byte, static_cast<size_t>(count));
    used_ += static_cast<uint32_t>(count);
}

void Staging::Flush() noexcept {
    if (used_ > 0)
        sink_.ops->bytes(sink_, buffer_, used_);
    used_ = 0;
}

int32_t PrintToStream(const HalvLocale *locale, HalvIO *io, const char *format, FormatArgs &args) noexcept {
    PrintSink sink;
    InitSink(sink, kStreamOps, locale, io);
    sink.context.outChar = StreamOutChar;
    return PrintCore(sink, format, args);
}

/* Runs the core over the caller's buffer with a limit, and closes the text
 * kept with a terminator unless told not to.  The start of the text is in
 * `buffer`, and location holds its address. */
int32_t PrintToBufferSink(const HalvLocale *locale, char *buffer, uint32_t limit, bool terminate,
                          const char *format, FormatArgs &args) noexcept {
    PrintSink sink;
    InitSink(sink, kBufferOps, locale, &sink.buffer);
    sink.context.outChar = OutCharThroughRun;
    sink.buffer = buffer;
    sink.context.max = buffer != nullptr ? static_cast<int32_t>(limit) : 0;
    const int32_t result = PrintCore(sink, format, args);
    if (buffer != nullptr && terminate) /* behind the text, or an empty string on failure */
        buffer[static_cast<uint32_t>(sink.context.committed)] = '\0';
    return result;
}

int32_t PrintToBuffer(const HalvLocale *locale, char *buffer, const char *format, FormatArgs &args) noexcept {
    return PrintToBufferSink(locale, buffer, kNoBound, true, format, args);
}

int32_t PrintToBoundedBuffer(const HalvLocale *locale, char *buffer, uint32_t size, const char *format,
                             FormatArgs &args) noexcept {
    const uint32_t limit = size == 0 ? 0 : size - 1;
    return PrintToBufferSink(locale, buffer, limit > INT32_MAX ? INT32_MAX : limit, size > 0, format, args);
}

int32_t PrintToNewString(const HalvLocale *locale, char **out, const char *format, FormatArgs &args) noexcept {
    if (out == nullptr)
        return -1;
    *out = nullptr;
    PrintSink sink;
    InitSink(sink, kNewStringOps, locale, &sink.buffer);
    sink.context.outChar = OutCharThroughRun;
    const int32_t result = PrintCore(sink, format, args);
    if (result < 0) {
        halv_internal_free(sink.buffer); /* a format that fails to parse: null stays */
        return result;
    }
    if (!sink.outOfMemory && sink.buffer == nullptr)
        sink.outOfMemory = !GrowFor(sink, 0); /* an empty text is still a string */
    if (sink.outOfMemory) {
        halv_internal_free(sink.buffer);
        return -1;
    }
    sink.buffer[sink.context.committed] = '\0';
    *out = sink.buffer;
    return result;
}

} // namespace halv
