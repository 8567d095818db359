/*
 * streams/socket_stream.cpp - reading and closing TCP streams, and the
 * slots of listening streams.
 *
 * One read serves plain connections and HTTP bodies.  A plain stream has
 * no framing flags, so it is a raw byte stream.  An HTTP body is bounded by
 * its Content-Length or cut into chunks, whose size lines are read here
 * between the chunks; the data itself goes from the socket straight into
 * the caller's buffer.
 */
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "streams/socket_internal.h"

namespace halv {

namespace {

/* How long close waits for a full send buffer to take the last chunk: as
 * long as the linger that follows. */
constexpr int kCloseSendWaitMs = 5000;

/* Reads the size line of the next chunk.  Empty lines are skipped: the line
 * end behind the previous chunk's data is one.  Result: 1 with remaining
 * set (and lastChunk at size 0); 0 at a closed connection or a line too
 * long to be a size; -1 or -2 from the line reader; -1 for a size that is
 * no hexadecimal number or doesn't fit in 31 bits, which also marks the
 * stream broken, so that its data is never taken for a size again. */
int32_t ReadChunkSize(SocketStream *s) noexcept {
    for (;;) {
        bool closed;
        int32_t length = ReadSocketLine(s, &closed);
        if (length == kLineTooLong || closed)
            return 0;
        if (length < 0)
            return length;
        if (length == 0)
            continue;
        int64_t size;
        if (!ScanHex(s->lineStart, &size) || size < 0 || size > INT32_MAX) {
            s->broken = 1;
            return -1;
        }
        s->remaining = static_cast<int32_t>(size);
        s->lastChunk = size == 0;
        return 1;
    }
}

/* Sends bytes on a socket that may be non-blocking, waiting at most
 * kCloseSendWaitMs in all for room.  No result: close can't report. */
void SendBeforeClose(int fd, const char *bytes, size_t length) noexcept {
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (length > 0) {
        ssize_t sent = SendSome(fd, bytes, length);
        if (sent > 0) {
            bytes += sent;
            length -= static_cast<size_t>(sent);
            continue;
        }
        if (sent == 0 || FailedIoResult() != -2)
            return;
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        long spentMs = (now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1000000;
        if (spentMs >= kCloseSendWaitMs)
            return;
        pollfd entry = {fd, POLLOUT, 0};
        if (poll(&entry, 1, static_cast<int>(kCloseSendWaitMs - spentMs)) < 0 && errno != EINTR)
            return;
    }
}

/* The end of a chunked upload: framing still owed, then the last chunk
 * and the empty trailer, "0\r\n\r\n".  HTTP/1.1 ends a chunked body only
 * with that second line end; without it a server waits for more until the
 * lingering close cuts it off, and refuses the upload.  An upload cut inside
 * a chunk gets no last chunk, so the peer sees it short instead of taking it
 * as whole. */
void FinishUpload(SocketStream *s) noexcept {
    if (s->remaining > 0)
        return;
    static constexpr char kLastChunk[] = "0\r\n\r\n";
    char tail[kFrameMax + sizeof kLastChunk];
    size_t length = s->frameLength;
    for (size_t i = 0; i < length; i++)
        tail[i] = s->frame[i];
    for (size_t i = 0; i + 1 < sizeof kLastChunk; i++)
        tail[length++] = kLastChunk[i];
    SendBeforeClose(SocketOf(s), tail, length);
}

int64_t SocketSeek(HalvIO *, int64_t, int32_t) noexcept { return -1; }

/* A listener hands out one new stream per read: its pointer is the data. */
int32_t ListenerRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    if (count != sizeof(HalvIO *))
        return -1;
    int listener = SocketOf(AsSocket(io));
    int flags = SOCK_CLOEXEC | (IsNonBlocking(listener) ? SOCK_NONBLOCK : 0);
    int fd;
    do
        fd = accept4(listener, nullptr, nullptr, flags);
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return FailedIoResult();
    auto *s = AllocStreamRecord<SocketStream>(SocketSlots(false));
    if (s == nullptr) {
        CloseLingering(fd);
        return -1;
    }
    s->socket = fd;
    HalvIO *connection = &s->io;
    std::memcpy(buffer, &connection, sizeof connection);
    return static_cast<int32_t>(count);
}

int32_t ListenerWrite(HalvIO *, const void *, uint32_t) noexcept { return -1; }

} // namespace

int32_t SocketRead(HalvIO *io, void *buffer, uint32_t count) noexcept {
    SocketStream *s = AsSocket(io);
    /* An upload never reads: its chunk state counts what it writes. */
    if (s->broken || s->uploading)
        return -1;
    if (s->chunked && s->remaining <= 0 && !s->lastChunk) {
        int32_t next = ReadChunkSize(s);
        if (next != 1)
            return next;
    }
    uint32_t request = ClampSlotCount(count);
    bool framed = s->chunked || s->lengthKnown;
    if (framed) {
        uint32_t left = s->remaining > 0 ? static_cast<uint32_t>(s->remaining) : 0;
        request = request < left ? request : left;
    }
    if (request == 0)
        return 0;
    ssize_t got = RecvSome(SocketOf(s), buffer, request);
    if (got < 0)
        return FailedIoResult();
    if (framed)
        s->remaining -= static_cast<int32_t>(got);
    return static_cast<int32_t>(got);
}

void SocketClose(HalvIO *io) noexcept {
    SocketStream *s = AsSocket(io);
    if (s->uploading && s->chunked)
        FinishUpload(s);
    CloseLingering(SocketOf(s));
    halv_internal_free(s);
}

const HalvIO &SocketSlots(bool listening) noexcept {
    static constexpr HalvIO kConnected = {
        .copy = nullptr,
        .reservedWord = 0,
        .close = SocketClose,
        .read = SocketRead,
        .write = SocketWrite,
        .flush = FlushNothing,
        .seek = SocketSeek,
        .setAutoClose = nullptr,
    };
    static constexpr HalvIO kListener = {
        .copy = nullptr,
        .reservedWord = 0,
        .close = SocketClose,
        .read = ListenerRead,
        .write = ListenerWrite,
        .flush = FlushNothing,
        .seek = SocketSeek,
        .setAutoClose = nullptr,
    };
    return listening ? kListener : kConnected;
}

} // namespace halv
