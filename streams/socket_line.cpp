/*
 * streams/socket_line.cpp - the line reader of the HTTP head and the chunk
 * size lines.
 *
 * It takes one byte per recv, so it never reads past the line: whatever
 * follows stays in the socket and the body can go straight into the
 * caller's buffer.  The half-read line lives in the stream's line buffer
 * between calls, so a non-blocking stream goes on where it stopped.
 */
#include "streams/socket_internal.h"

namespace halv {

int32_t ReadSocketLine(SocketStream *s, bool *closed) noexcept {
    *closed = false;
    char *const end = s->lineStart + kLineBufferSize;
    for (;;) {
        /* Full with no line end: the terminator has no place left. */
        if (s->lineCursor == end)
            return kLineTooLong;
        char c;
        ssize_t got = RecvSome(SocketOf(s), &c, 1);
        if (got < 0)
            return FailedIoResult();
        if (got == 0) {
            *closed = true;
            break;
        }
        if (c == '\n')
            break;
        if (c != '\r')
            *s->lineCursor++ = c;
    }
    auto length = static_cast<int32_t>(s->lineCursor - s->lineStart);
    *s->lineCursor = '\0';
    s->lineCursor = s->lineStart;
    return length;
}

} // namespace halv
