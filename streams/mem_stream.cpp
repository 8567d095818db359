/*
 * streams/mem_stream.cpp - the growing memory stream.
 *
 * One cursor serves reading and writing.  length is the high-water mark of
 * written bytes; a seek may put the cursor past it (or past the capacity),
 * and a write there first fills the gap with zeros so that no byte of the
 * stream is ever uninitialised memory.  Growth takes the larger of what the
 * write needs and twice the capacity; a failed growth empties the stream.
 * Positions are 32-bit: a write that would pass 4 GiB is cut to what fits.
 */
#include <cstring>

#include "streams/internal.h"

namespace halv {
namespace {

MemStream *AsMem(HalvIO *io) noexcept { return reinterpret_cast<MemStream *>(io); }

int32_t MemRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    MemStream *m = AsMem(io);
    if (m->cursor >= m->length)
        return 0;
    uint32_t n = ClampSlotCount(count);
    if (n > m->length - m->cursor)
        n = m->length - m->cursor;
    std::memcpy(buffer, m->base + m->cursor, n);
    m->cursor += n;
    return static_cast<int32_t>(n);
}

void Empty(MemStream *m) noexcept {
    halv_internal_free(m->base);
    m->base = nullptr;
    m->capacity = m->length = m->cursor = 0;
}

/* Makes room for position end; false (stream emptied) when that fails. */
bool Grow(MemStream *m, uint64_t end) noexcept {
    uint64_t doubled = 2 * static_cast<uint64_t>(m->capacity);
    uint64_t capacity = end > doubled ? end : doubled;
    if (capacity > UINT32_MAX)
        capacity = UINT32_MAX;
    void *grown = halv_internal_realloc(m->base, capacity);
    if (grown == nullptr) {
        Empty(m);
        return false;
    }
    m->base = static_cast<char *>(grown);
    m->capacity = static_cast<uint32_t>(capacity);
    return true;
}

int32_t MemWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    MemStream *m = AsMem(io);
    uint64_t n = ClampSlotCount(count);
    if (m->cursor + n > UINT32_MAX)
        n = UINT32_MAX - m->cursor;
    uint64_t end = m->cursor + n;
    /* Bytes taken from the stream's own buffer must survive its move. */
    auto from = static_cast<const char *>(bytes);
    bool fromOwnBuffer = m->base != nullptr && from >= m->base && from < m->base + m->capacity;
    size_t fromOffset = fromOwnBuffer ? static_cast<size_t>(from - m->base) : 0;
    if (end > m->capacity && !Grow(m, end))
        return -1;
    if (fromOwnBuffer)
        from = m->base + fromOffset;
    if (n == 0)
        return 0;
    if (m->cursor > m->length)
        std::memset(m->base + m->length, 0, m->cursor - m->length);
    std::memmove(m->base + m->cursor, from, n);
    m->cursor = static_cast<uint32_t>(end);
    if (m->cursor > m->length)
        m->length = m->cursor;
    return static_cast<int32_t>(n);
}

int64_t MemSeek(HalvIO *io, int64_t offset, int32_t whence) noexcept {
    MemStream *m = AsMem(io);
    int64_t reference = SeekReference(whence, m->cursor, m->length);
    if (reference < 0)
        return -1;
    int64_t target = reference + SeekOffset32(offset);
    if (target < 0 || target > UINT32_MAX)
        return -1;
    m->cursor = static_cast<uint32_t>(target);
    return target;
}

void MemClose(HalvIO *io) noexcept {
    halv_internal_free(AsMem(io)->base);
    halv_internal_free(io);
}

void MemConsume(HalvIO *io, size_t n) noexcept { AsMem(io)->cursor += static_cast<uint32_t>(n); }

MemStream *MemOrNull(HalvIO *io) noexcept {
    return io != nullptr && io->close == MemClose ? AsMem(io) : nullptr;
}

} // namespace

bool MemPeekReadable(HalvIO *io, ReadView *view) noexcept {
    if (io->read != MemRead)
        return false;
    MemStream *m = AsMem(io);
    size_t available = m->cursor < m->length ? m->length - m->cursor : 0;
    *view = ReadView{available != 0 ? m->base + m->cursor : nullptr, available, MemConsume};
    return true;
}

bool MemReserveForPasses(HalvIO *io, uint64_t bytes, uint32_t pass) noexcept {
    if (io->write != MemWrite)
        return false;
    MemStream *m = AsMem(io);
    uint64_t position = m->cursor, capacity = m->capacity;
    if (position + bytes > UINT32_MAX)
        return false; /* the passes would be cut at 4 GiB: let them run */
    /* Whole passes that fit move on without growth; a pass that doesn't
     * grows the capacity as MemWrite would.  Each growth at least doubles,
     * so this takes a few rounds, not one a pass. */
    for (uint64_t left = bytes; left > 0;) {
        uint64_t room = capacity > position ? capacity - position : 0;
        uint64_t whole = (left / pass < room / pass ? left / pass : room / pass) * pass;
        position += whole;
        left -= whole;
        if (left == 0)
            break;
        uint64_t step = left < pass ? left : pass;
        if (position + step > capacity) {
            uint64_t doubled = 2 * capacity;
            capacity = position + step > doubled ? position + step : doubled;
            if (capacity > UINT32_MAX)
                capacity = UINT32_MAX;
        }
        position += step;
        left -= step;
    }
    if (capacity > m->capacity) {
        void *grown = halv_internal_realloc(m->base, capacity);
        if (grown == nullptr)
            return false; /* the passes will meet the same shortage */
        m->base = static_cast<char *>(grown);
        m->capacity = static_cast<uint32_t>(capacity);
    }
    return true;
}

/* A write may move the buffer, so the view must not point into it. */
bool MemCanWriteFromView(const HalvIO *dst, const ReadView *view) noexcept {
    if (dst->write != MemWrite)
        return false;
    const MemStream *m = reinterpret_cast<const MemStream *>(dst);
    auto at = reinterpret_cast<uintptr_t>(view->bytes);
    auto base = reinterpret_cast<uintptr_t>(m->base);
    return m->base == nullptr || at + view->available <= base || at >= base + m->capacity;
}

/* The slots every stream of this back end starts with. */
constexpr HalvIO kMemSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = MemClose,
    .read = MemRead,
    .write = MemWrite,
    .flush = FlushNothing,
    .seek = MemSeek,
    .setAutoClose = nullptr,
};

} // namespace halv

using halv::MemStream;

extern "C" {

HALV_API HalvIO *HalvIO_Mem(uint32_t initialCapacity) noexcept {
    auto *m = halv::AllocStreamRecord<MemStream>(halv::kMemSlots);
    if (m == nullptr)
        return nullptr;
    if (initialCapacity != 0) {
        m->base = static_cast<char *>(halv_internal_malloc(initialCapacity));
        m->capacity = m->base != nullptr ? initialCapacity : 0;
    }
    return &m->io;
}

HALV_API void *HalvIOMemBuffer(HalvIO *io) noexcept {
    MemStream *m = halv::MemOrNull(io);
    return m != nullptr ? m->base : nullptr;
}

HALV_API uint32_t HalvIOMemLength(HalvIO *io) noexcept {
    MemStream *m = halv::MemOrNull(io);
    return m != nullptr ? m->length : 0;
}

HALV_API uint32_t HalvIOMemCapacity(HalvIO *io) noexcept {
    MemStream *m = halv::MemOrNull(io);
    return m != nullptr ? m->capacity : 0;
}

} // extern "C"
