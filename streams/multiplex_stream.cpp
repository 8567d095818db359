/*
 * streams/multiplex_stream.cpp - one stream over a sequence of streams.
 *
 * Reads and writes go to the current component; a component that answers 0
 * is finished and the next one takes over.  A negative answer is not passed
 * on: the same component is asked again, up to kRetryLimit answers in a row,
 * so that a component that fails for good can't hold the caller forever.
 * The end of the sequence reads as -1, and a write reports the requested
 * count whatever the components took.  The components stay the caller's.
 */
#include <cstring>

#include "streams/internal.h"

namespace halv {
namespace {

constexpr int kRetryLimit = 100;

MultiplexStream *AsMultiplex(HalvIO *io) noexcept { return reinterpret_cast<MultiplexStream *>(io); }

/* A null entry, or one without the slot, counts as a finished component. */
template <typename Slot>
Slot ComponentSlot(HalvIO *component, Slot HalvIO::*slot) noexcept {
    return component != nullptr ? component->*slot : nullptr;
}

/* Walks the components from the current one with one slot until one moves
 * bytes.  Result: that component's count, 0 when the sequence ran out, or
 * the last negative answer of a component that gave up. */
template <typename Slot, typename Buffer>
int32_t Walk(MultiplexStream *m, Slot HalvIO::*slot, Buffer buffer, uint32_t count) noexcept {
    int failures = 0;
    while (m->current < m->count) {
        HalvIO *component = m->streams[m->current];
        Slot call = ComponentSlot(component, slot);
        int32_t result = call != nullptr ? call(component, buffer, count) : 0;
        if (result > 0)
            return result;
        if (result == 0) {
            m->current++;
            failures = 0;
        } else if (++failures == kRetryLimit) {
            return result;
        }
    }
    return 0;
}

int32_t MultiplexRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    int32_t result = Walk(AsMultiplex(io), &HalvIO::read, buffer, count);
    return result > 0 ? result : -1;
}

int32_t MultiplexWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    count = ClampSlotCount(count);
    Walk(AsMultiplex(io), &HalvIO::write, bytes, count);
    return static_cast<int32_t>(count);
}

void MultiplexFlush(HalvIO *io) noexcept {
    MultiplexStream *m = AsMultiplex(io);
    for (uint32_t i = 0; i < m->count; i++) {
        HalvIO *component = m->streams[i];
        if (auto flush = ComponentSlot(component, &HalvIO::flush))
            flush(component);
    }
}

/* The offset selects a component; whence has no meaning here. */
int64_t MultiplexSeek(HalvIO *io, int64_t offset, int32_t) noexcept {
    MultiplexStream *m = AsMultiplex(io);
    if (offset < 0 || offset > m->count)
        return -1;
    m->current = static_cast<uint32_t>(offset);
    return offset;
}

void MultiplexClose(HalvIO *io) noexcept {
    halv_internal_free(AsMultiplex(io)->streams);
    halv_internal_free(io);
}

/* The slots every stream of this back end starts with. */
constexpr HalvIO kMultiplexSlots = {
    .copy = nullptr,
    .reservedWord = 0,
    .close = MultiplexClose,
    .read = MultiplexRead,
    .write = MultiplexWrite,
    .flush = MultiplexFlush,
    .seek = MultiplexSeek,
    .setAutoClose = nullptr,
};

} // namespace
} // namespace halv

using halv::MultiplexStream;

extern "C" {

HALV_API HalvIO *HalvIO_Multiplex(HalvIO *const *streams, uint32_t count) noexcept {
    if (streams == nullptr && count != 0)
        return nullptr;
    auto *m = halv::AllocStreamRecord<MultiplexStream>(halv::kMultiplexSlots);
    if (m == nullptr)
        return nullptr;
    if (count != 0) {
        m->streams = static_cast<HalvIO **>(halv_internal_malloc(count * sizeof(HalvIO *)));
        if (m->streams == nullptr) {
            halv_internal_free(m);
            return nullptr;
        }
        std::memcpy(m->streams, streams, count * sizeof(HalvIO *));
    }
    m->count = count;
    return &m->io;
}

HALV_API int32_t HalvIOMultiplexSet(HalvIO *io, uint32_t index) noexcept {
    if (io == nullptr || io->close != halv::MultiplexClose)
        return 0;
    MultiplexStream *m = reinterpret_cast<MultiplexStream *>(io);
    if (index > m->count)
        return 0;
    m->current = index;
    return 1;
}

} // extern "C"
