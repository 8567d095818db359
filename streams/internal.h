/*
 * streams/internal.h - what the stream back ends and the generic operations
 * share without exporting it: record allocation, the common slot helpers,
 * the back-end records of the memory family, direct access to the bytes of
 * an in-memory stream, and the wait for a would-block stream.
 */
#ifndef HALV_STREAMS_INTERNAL_H
#define HALV_STREAMS_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "halv_core.h"
#include "halv_streams.h"

namespace halv {

/* A slot result is a signed 32-bit count, so one slot call moves at most
 * this many bytes (slots may always move fewer than asked). */
constexpr uint32_t kSlotCountMax = 0x7FFFFFFF;

inline uint32_t ClampSlotCount(uint32_t count) noexcept {
    return count < kSlotCountMax ? count : kSlotCountMax;
}

/* What an operation that reports bare failure makes of a negative slot
 * result: would-block stays -2, so the caller may wait and call again;
 * anything else is -1. */
inline int32_t FailureResult(int32_t result) noexcept { return result == -2 ? -2 : -1; }

/* A zeroed back-end record whose HalvIO, at its head, holds a copy of the
 * back end's constant slot table; null when memory runs out. */
template <typename Record>
Record *AllocStreamRecord(const HalvIO &slots) noexcept {
    auto *record = static_cast<Record *>(halv_internal_calloc(1, sizeof(Record)));
    if (record != nullptr)
        *reinterpret_cast<HalvIO *>(record) = slots;
    return record;
}

/* The flush slot of a stream with no buffer of its own. */
void FlushNothing(HalvIO *io) noexcept;

/* The reference point of a seek: 0 for whence 0, current for 1, end for 2;
 * -1 for any other whence. */
int64_t SeekReference(int32_t whence, int64_t current, int64_t end) noexcept;

/* The offset of a seek on a back end with 32-bit positions: the low 32 bits,
 * signed, so that relative seeks may go backwards. */
inline int64_t SeekOffset32(int64_t offset) noexcept {
    return static_cast<int32_t>(static_cast<uint32_t>(offset));
}

/* String stream.  size 0: the buffer is NUL-terminated text, unguarded. */
struct StrStream {
    HalvIO io;
    char *base;
    uint32_t size;
    char *readPtr;
    char *writePtr;
    int32_t own;
};

/* Memory stream.  The cursor is kept as an offset: the buffer moves on
 * growth, is absent until the first write, and a seek may leave the cursor
 * beyond the capacity. */
struct MemStream {
    HalvIO io;
    char *base;
    uint32_t capacity;
    uint32_t length;
    uint32_t cursor;
};

/* Multiplex stream. */
struct MultiplexStream {
    HalvIO io;
    HalvIO **streams;
    uint32_t count;
    uint32_t current;
};

/* The unread bytes of a stream whose read slot is an in-memory back end of
 * this library that reads from one contiguous buffer up to a known end.
 * Reading n bytes through the view and then calling consume(io, n) is
 * exactly what one read slot call for n bytes does, so the generic
 * operations may scan the bytes in place instead of calling the slot byte by
 * byte or copying them through a bounce buffer. */
struct ReadView {
    const char *bytes;
    size_t available;
    void (*consume)(HalvIO *io, size_t n);
};

/* Fills view and returns true when io reads from such a buffer. */
bool PeekReadable(HalvIO *io, ReadView *view) noexcept;

/* True when a write slot call on dst may take its bytes straight from the
 * view: dst is an in-memory back end of this library whose write neither
 * moves nor frees the memory the view points into (overlap is allowed; the
 * in-memory writes move bytes as memmove does). */
bool CanWriteFromView(const HalvIO *dst, const ReadView *view) noexcept;

/* When dst is a growing memory stream: gives it the capacity that bytes
 * written in writes of pass bytes each would leave it, so that one write of
 * them all leaves it exactly as those writes would.  False when dst is no
 * such stream, the writes would pass 4 GiB, or memory runs out (the stream
 * is then as it was). */
bool MemReserveForPasses(HalvIO *dst, uint64_t bytes, uint32_t pass) noexcept;

/* The halves of the two above that each in-memory back end provides. */
bool StrPeekReadable(HalvIO *io, ReadView *view) noexcept;
bool MemPeekReadable(HalvIO *io, ReadView *view) noexcept;
bool StrCanWriteFromView(const HalvIO *dst, const ReadView *view) noexcept;
bool MemCanWriteFromView(const HalvIO *dst, const ReadView *view) noexcept;

/* Waits, with no time limit, until a stream that answered would-block can be
 * read (forWrite 0) or written (forWrite 1).  Result 1 ready, -1 failed. */
int32_t WaitStreamReady(HalvIO *io, int forWrite) noexcept;

} // namespace halv

#endif
