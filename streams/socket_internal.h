/*
 * streams/socket_internal.h - what the TCP and HTTP back ends share without
 * exporting it: their records, the slots both kinds of stream use, the line
 * reader, the thin layer over the system's socket calls, and the small
 * number scanners the HTTP head and the chunk framing need.
 */
#ifndef HALV_STREAMS_SOCKET_INTERNAL_H
#define HALV_STREAMS_SOCKET_INTERNAL_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "halv_util.h"
#include "streams/internal.h"

namespace halv {

/* Bits of eventMask, set only while HalvIOSelect waits on the stream. */
constexpr uint32_t kSelectRead = 1;
constexpr uint32_t kSelectWrite = 2;
constexpr uint32_t kSelectAccept = 8;

/* The line buffer of a URL stream; a delivered line holds at most one byte
 * less, for its terminator. */
constexpr size_t kLineBufferSize = 512;

/* Upload framing bytes a chunked write may still owe the peer: the rest of a
 * size line ("7fffffff\r\n" at most) or of the line end behind a chunk. */
constexpr size_t kFrameMax = 16;

/* A TCP stream: plain client, accepted connection or listener.  The socket
 * descriptor is the first field behind the slots, where the would-block
 * wait of the generic copy finds it.  Everything but socket and listening
 * stays zero on a plain stream, so its read is a raw byte stream. */
struct SocketStream {
    HalvIO io;
    intptr_t socket;
    uint32_t eventMask;
    char *lineStart;      /* the URL stream's line buffer, null otherwise */
    char *lineCursor;     /* end of the half-read line kept across calls */
    int32_t remaining;    /* bytes left in the current chunk or the body */
    int32_t chunked;
    int32_t lastChunk;
    int32_t lengthKnown;
    int32_t uploading;
    int32_t listening;
    /* Private to this back end. */
    int32_t broken;       /* a hostile chunk size was read: reads fail */
    uint32_t frameLength; /* upload framing bytes not yet sent ... */
    char frame[kFrameMax]; /* ... kept here, first one at frame[0] */
    int32_t trailerOwed;  /* the current upload chunk still needs "\r\n" */
};

/* A stream from HalvIO_URL: the TCP record and its line buffer. */
struct UrlStream {
    SocketStream base;
    char line[kLineBufferSize];
};

inline SocketStream *AsSocket(HalvIO *io) noexcept { return reinterpret_cast<SocketStream *>(io); }
inline int SocketOf(const SocketStream *s) noexcept { return static_cast<int>(s->socket); }

/* Slots of client, accepted and URL streams. */
int32_t SocketRead(HalvIO *io, void *buffer, uint32_t count) noexcept;
int32_t SocketWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept;
void SocketClose(HalvIO *io) noexcept;

/* The slot table of a connected socket (client, accepted and URL streams)
 * or of a listener.  A listener's record also says so in its listening
 * field. */
const HalvIO &SocketSlots(bool listening) noexcept;

/* True when io is a stream of this back end (any kind). */
inline bool IsSocketStream(const HalvIO *io) noexcept { return io != nullptr && io->close == SocketClose; }

/* Takes the WSAK lock and marks the socket layer started, registering the
 * cleanup that clears the mark at the engine's last stop. */
void StartSocketLayer() noexcept;

/* Line reader over s's line buffer.  Reads one byte per recv, drops CR,
 * ends the line at LF or at a closed connection (*closed then set).
 * Result: the line's length, its text NUL-terminated at s->lineStart until
 * the next call; -1 failure, -2 would block (the bytes so far are kept),
 * kLineTooLong when the buffer filled with no line end (the line is never
 * delivered, and every further call says the same). */
constexpr int32_t kLineTooLong = -3;
int32_t ReadSocketLine(SocketStream *s, bool *closed) noexcept;

/* ---- System calls, with EINTR retried and SIGPIPE never raised ---- */

/* A new IPv4 stream socket (close-on-exec), or -1. */
int OpenTcpSocket() noexcept;

/* The first IPv4 address of host, in network order; false if none. */
bool ResolveIPv4(const char *host, uint32_t *address) noexcept;

/* A point in time on the monotonic clock that a chain of waits must not
 * pass: the time bound of a URL stream's request and head. */
struct Deadline {
    int64_t endMs;
};
Deadline DeadlineIn(int32_t ms) noexcept;
/* Milliseconds left, 0 once it has passed. */
int32_t LeftMs(const Deadline &deadline) noexcept;

/* Waits until fd is ready for events (POLLIN, POLLOUT), a hang-up or an
 * error counting as ready; false when the deadline passes first. */
bool WaitSocket(int fd, short events, const Deadline &deadline) noexcept;

/* Connects fd to address (network order) and port (host order).  On a
 * non-blocking fd the connection is waited for until the deadline, when
 * one is given; on a blocking fd the system's own connect time applies. */
bool ConnectIPv4(int fd, uint32_t address, uint16_t port, const Deadline *deadline = nullptr) noexcept;

/* Reuse of a port in TIME_WAIT, bind, listen. */
bool ListenIPv4(int fd, uint32_t address, uint16_t port, int backlog) noexcept;

bool SetNonBlocking(int fd) noexcept;
bool SetBlocking(int fd) noexcept;
bool IsNonBlocking(int fd) noexcept;

ssize_t RecvSome(int fd, void *buffer, size_t count) noexcept;
/* moreFollows: the bytes may wait for the next send and share its segment. */
ssize_t SendSome(int fd, const void *bytes, size_t count, bool moreFollows = false) noexcept;
ssize_t SendVector(int fd, struct iovec *pieces, int count) noexcept;

/* -2 when the failed call would have blocked, else -1 (reads errno). */
int32_t FailedIoResult() noexcept;

/* Linger of 5 seconds, then close. */
void CloseLingering(int fd) noexcept;

/* Makes a receive (and a wait for reading) hold out for `bytes` bytes, or
 * the end of the connection; 1 is the system's usual. */
void SetReceiveLowWater(int fd, int bytes) noexcept;

/* ---- Number scanners with the C library's scanf rules, locale-free ----
 * Leading blanks (9 to 13 and 32) are skipped, a sign is taken; at least one
 * digit must follow.  Values beyond 64 bits saturate.  *end, when given,
 * is set behind the last digit. */
bool ScanDecimal(const char *text, int64_t *value, const char **end = nullptr) noexcept;
/* Hexadecimal digits, with an optional 0x or 0X in front of them. */
bool ScanHex(const char *text, int64_t *value) noexcept;

/* ASCII case-insensitive test that text starts with prefix. */
inline bool StartsWithNoCase(const char *text, const char *prefix) noexcept {
    return HalvStrNCaseCmp(text, prefix, HalvStrLen(prefix)) == 0;
}

/* Blanks as the scanners skip them. */
inline bool IsBlank(char c) noexcept { return c == ' ' || (c >= 9 && c <= 13); }

/* The URL stream; the door HalvIO_FileName and HalvIO_URL go through. */
HalvIO *OpenUrl(const char *url, const char *mode) noexcept;

} // namespace halv

#endif
