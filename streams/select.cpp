/*
 * streams/select.cpp - waiting until socket streams can be read, accepted
 * on or written.
 *
 * One poll over all the streams.  eventMask records, for the length of the
 * wait, what each stream is waited for; a stream in both lists is polled
 * for both.  A peer that has closed, or a failed socket, counts as ready:
 * the next read or write reports it.
 */
#include <poll.h>

#include <cerrno>
#include <ctime>

#include "streams/socket_internal.h"

namespace {

using halv::SocketStream;

/* Entries polled from the stack; longer lists take the heap. */
constexpr uint32_t kStackEntries = 16;

int64_t MonotonicMs() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool AllSocketStreams(HalvIO *const *streams, uint32_t count) noexcept {
    if (count > 0 && streams == nullptr)
        return false;
    for (uint32_t i = 0; i < count; i++)
        if (!halv::IsSocketStream(streams[i]))
            return false;
    return true;
}

void AddToMasks(HalvIO *const *writeStreams, uint32_t writeCount, HalvIO *const *readStreams,
                uint32_t readCount) noexcept {
    for (uint32_t i = 0; i < writeCount; i++)
        halv::AsSocket(writeStreams[i])->eventMask |= halv::kSelectWrite;
    for (uint32_t i = 0; i < readCount; i++) {
        SocketStream *s = halv::AsSocket(readStreams[i]);
        s->eventMask |= s->listening ? halv::kSelectAccept : halv::kSelectRead;
    }
}

void ClearMasks(HalvIO *const *streams, uint32_t count) noexcept {
    for (uint32_t i = 0; i < count; i++)
        halv::AsSocket(streams[i])->eventMask = 0;
}

void FillEntries(pollfd *entries, HalvIO *const *streams, uint32_t count) noexcept {
    for (uint32_t i = 0; i < count; i++) {
        const SocketStream *s = halv::AsSocket(streams[i]);
        short events = 0;
        if ((s->eventMask & (halv::kSelectRead | halv::kSelectAccept)) != 0)
            events |= POLLIN;
        if ((s->eventMask & halv::kSelectWrite) != 0)
            events |= POLLOUT;
        entries[i] = {halv::SocketOf(s), events, 0};
    }
}

/* poll with an interrupted wait resumed for the time left.  timeout < 0
 * waits without limit. */
int PollFor(pollfd *entries, nfds_t count, int32_t timeout) noexcept {
    int64_t deadline = timeout < 0 ? 0 : MonotonicMs() + timeout;
    for (;;) {
        int wait = timeout;
        if (timeout >= 0) {
            int64_t left = deadline - MonotonicMs();
            wait = left > 0 ? static_cast<int>(left) : 0;
        }
        int ready = poll(entries, count, wait);
        if (ready >= 0 || errno != EINTR)
            return ready;
    }
}

} // namespace

extern "C" {

HALV_API int32_t HalvIOSelect(HalvIO *const *readStreams, uint32_t readCount, HalvIO *const *writeStreams,
                              uint32_t writeCount, int32_t timeout) noexcept {
    if (!AllSocketStreams(readStreams, readCount) || !AllSocketStreams(writeStreams, writeCount))
        return -1;
    uint64_t total = static_cast<uint64_t>(readCount) + writeCount;
    if (total == 0 && timeout < 0)
        return -1;
    pollfd onStack[kStackEntries];
    pollfd *entries = onStack;
    if (total > kStackEntries) {
        entries = static_cast<pollfd *>(halv_internal_malloc(total * sizeof(pollfd)));
        if (entries == nullptr)
            return -1;
    }
    AddToMasks(writeStreams, writeCount, readStreams, readCount);
    FillEntries(entries, writeStreams, writeCount);
    FillEntries(entries + writeCount, readStreams, readCount);
    int ready = PollFor(entries, static_cast<nfds_t>(total), timeout);
    ClearMasks(writeStreams, writeCount);
    ClearMasks(readStreams, readCount);
    if (entries != onStack)
        halv_internal_free(entries);
    if (ready < 0)
        return -1;
    return ready == 0 ? 2 : 1;
}

} // extern "C"
