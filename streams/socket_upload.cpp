/*
 * streams/socket_upload.cpp - writing to TCP streams, and the chunk framing
 * of an HTTP upload.
 *
 * A plain stream, and a download, send the bytes once.  An upload wraps each write in a
 * chunk: the size line in lower-case hexadecimal, the bytes, a line end,
 * all handed to one sendmsg.  A non-blocking socket may take only part of
 * that.  The chunk then stays open: remaining counts the data it still
 * owes, and framing bytes not yet sent wait in the record, so the next
 * write first finishes the chunk before it begins another and the peer
 * always sees whole, well-formed chunks.
 */
#include <cstring>

#include "halv_text.h"
#include "streams/socket_internal.h"

namespace halv {

namespace {

constexpr char kLineEnd[] = "\r\n";

void AppendFrame(SocketStream *s, const char *bytes, size_t length) noexcept {
    std::memcpy(s->frame + s->frameLength, bytes, length);
    s->frameLength += static_cast<uint32_t>(length);
}

void DropSentFrame(SocketStream *s, size_t sent) noexcept {
    std::memmove(s->frame, s->frame + sent, s->frameLength - sent);
    s->frameLength -= static_cast<uint32_t>(sent);
}

/* Takes sent bytes off what the last sendmsg offered: framing owed, then
 * data of the chunk, then the chunk's line end.  Result: data bytes. */
uint32_t AccountSent(SocketStream *s, size_t sent, uint32_t offered, bool lineEndOffered) noexcept {
    size_t framing = sent < s->frameLength ? sent : s->frameLength;
    DropSentFrame(s, framing);
    sent -= framing;
    uint32_t data = sent < offered ? static_cast<uint32_t>(sent) : offered;
    s->remaining -= static_cast<int32_t>(data);
    sent -= data;
    if (lineEndOffered && s->remaining == 0) {
        s->trailerOwed = 0;
        /* The part of the line end that didn't go is owed as framing. */
        AppendFrame(s, kLineEnd + sent, 2 - sent);
    }
    return data;
}

int32_t ChunkedWrite(SocketStream *s, const char *bytes, uint32_t count) noexcept {
    bool opened = false;
    uint32_t framingBeforeOpen = s->frameLength;
    if (s->remaining == 0 && !s->trailerOwed) {
        uint32_t size = ClampSlotCount(count);
        char line[kFrameMax];
        int32_t length = HalvSNPrintf(line, sizeof line, "%x\r\n", size);
        AppendFrame(s, line, static_cast<size_t>(length));
        s->remaining = static_cast<int32_t>(size);
        s->trailerOwed = 1;
        opened = true;
    }
    for (;;) {
        uint32_t offered = count < static_cast<uint32_t>(s->remaining) ? count : static_cast<uint32_t>(s->remaining);
        bool lineEndOffered = offered == static_cast<uint32_t>(s->remaining) && s->trailerOwed;
        iovec pieces[3] = {{s->frame, s->frameLength},
                           {const_cast<char *>(bytes), offered},
                           {const_cast<char *>(kLineEnd), lineEndOffered ? 2u : 0u}};
        ssize_t sent = SendVector(SocketOf(s), pieces, 3);
        if (sent < 0) {
            int32_t result = FailedIoResult();
            /* Nothing of a chunk opened here went out: forget it, so that
             * the next write sizes its chunk by its own count. */
            if (opened) {
                s->frameLength = framingBeforeOpen;
                s->remaining = 0;
                s->trailerOwed = 0;
            }
            return result;
        }
        opened = false;
        uint32_t data = AccountSent(s, static_cast<size_t>(sent), offered, lineEndOffered);
        if (data > 0)
            return static_cast<int32_t>(data);
        /* Only framing went: a blocking socket takes the rest at once, a
         * non-blocking one says would-block on the next try. */
    }
}

} // namespace

int32_t SocketWrite(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    SocketStream *s = AsSocket(io);
    /* An empty chunk would end the upload. */
    if (count == 0)
        return 0;
    if (s->uploading)
        return ChunkedWrite(s, static_cast<const char *>(bytes), count);
    ssize_t sent = SendSome(SocketOf(s), bytes, ClampSlotCount(count));
    return sent < 0 ? FailedIoResult() : static_cast<int32_t>(sent);
}

} // namespace halv
