/*
 * streams/url_stream.cpp - the HTTP/1.1 client stream: GET for reading, PUT
 * for writing.
 *
 * Each stream makes one request on a connection of its own and keeps the
 * connection for its life.  The request is three sends: the request line,
 * Host, and either Accept-Encoding (GET) or Transfer-Encoding (PUT), and
 * no other header.  A GET reads the response head here, in blocking mode,
 * and leaves the body to the read slot; a PUT never reads the answer.
 *
 * Connecting, sending the request and reading the head share one time
 * bound, HV_URL_TIMEOUT milliseconds, so that a server that accepts and
 * never answers, or dribbles its head out, can't hold the constructor for
 * ever.  The socket is non-blocking for that step, each wait a poll up to
 * the deadline; blocking mode, if the caller wants it, comes back after.
 */
#include <poll.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "halv_env.h"
#include "halv_text.h"
#include "streams/socket_internal.h"

namespace {

using halv::SocketStream;

constexpr size_t kSchemeLength = sizeof "http://" - 1;
constexpr uint16_t kDefaultPort = 80;
/* The port a failed %hd scan leaves behind: it stands for "none given". */
constexpr uint16_t kNoPort = 65535;
constexpr size_t kPieceSize = 512;
constexpr int kStatusOk = 200;
/* The time bound of connect, request and head when HV_URL_TIMEOUT is
 * unset or no positive number: long enough for any server that answers. */
constexpr int32_t kDefaultTimeoutMs = 60000;

constexpr char kGetTail[] = "Accept-Encoding: chunked, identity\r\n\r\n";
constexpr char kPutTail[] = "Transfer-Encoding: chunked\r\n\r\n";

struct Request {
    char host[kPieceSize]; /* without the port: connect to it and name it in Host */
    uint16_t port;
    char requestLine[kPieceSize];
    char hostLine[kPieceSize];
    bool put;
};

bool HasLetter(const char *mode, char letter) noexcept { return mode != nullptr && std::strchr(mode, letter) != nullptr; }

/* Bytes that would end a request line early or smuggle a header in. */
bool HasControlBytes(const char *text) noexcept {
    for (; *text != '\0'; text++)
        if (static_cast<unsigned char>(*text) < 0x20 || *text == 0x7F)
            return true;
    return false;
}

/* host[:port] up to the first '/'.  A port that is missing, doesn't scan,
 * or is 65535 becomes 80; a scanned port keeps its low 16 bits, as %hd
 * does. */
bool SplitAddress(const char *text, Request *request) noexcept {
    size_t length = std::strcspn(text, "/");
    if (length >= sizeof request->host)
        return false;
    std::memcpy(request->host, text, length);
    request->host[length] = '\0';
    request->port = kDefaultPort;
    if (char *colon = std::strchr(request->host, ':')) {
        *colon = '\0';
        int64_t scanned;
        if (halv::ScanDecimal(colon + 1, &scanned)) {
            auto port = static_cast<uint16_t>(static_cast<uint64_t>(scanned));
            if (port != kNoPort)
                request->port = port;
        }
    }
    return true;
}

/* Formats one request piece; false when it doesn't fit its buffer. */
bool FormatPiece(char (&piece)[kPieceSize], const char *format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    int32_t length = HalvVSNPrintf(piece, sizeof piece, format, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<size_t>(length) < sizeof piece;
}

/* Everything the request needs, from the URL and the proxy setting.  With a
 * proxy the connection goes to it, its host is named in Host, and the
 * request target is the whole URL. */
bool BuildRequest(const char *url, const char *proxy, const char *mode, Request *request) noexcept {
    const char *address = url + kSchemeLength;
    if (HasControlBytes(url) || (proxy != nullptr && HasControlBytes(proxy)) ||
        !SplitAddress(proxy != nullptr ? proxy : address, request))
        return false;
    const char *path = std::strchr(address, '/');
    const char *target = proxy != nullptr ? url : path != nullptr ? path : "/";
    request->put = HasLetter(mode, 'w');
    return FormatPiece(request->requestLine, "%s %s HTTP/1.1\r\n", request->put ? "PUT" : "GET", target) &&
           FormatPiece(request->hostLine, "Host: %s\r\n", request->host);
}

int32_t HeadTimeoutMs() noexcept {
    const char *text = HalvGetenv("HV_URL_TIMEOUT");
    int64_t ms;
    if (text == nullptr || !halv::ScanDecimal(text, &ms) || ms <= 0)
        return kDefaultTimeoutMs;
    return ms > INT32_MAX ? INT32_MAX : static_cast<int32_t>(ms);
}

/* All of bytes, on a non-blocking socket, by the deadline. */
bool SendWithin(int fd, const char *bytes, size_t length, bool moreFollows, const halv::Deadline &deadline) noexcept {
    while (length > 0) {
        ssize_t sent = halv::SendSome(fd, bytes, length, moreFollows);
        if (sent > 0) {
            bytes += sent;
            length -= static_cast<size_t>(sent);
        } else if (sent == 0 || halv::FailedIoResult() != -2 || !halv::WaitSocket(fd, POLLOUT, deadline)) {
            return false;
        }
    }
    return true;
}

/* The three pieces, each its own send.  The first two may wait for the
 * third, so the head leaves in one segment.  False only when the time runs
 * out: a failed send shows in what the server answers, or in the writes of
 * a PUT. */
bool SendRequest(int fd, const Request &request, const halv::Deadline &deadline) noexcept {
    const char *tail = request.put ? kPutTail : kGetTail;
    const char *pieces[] = {request.requestLine, request.hostLine, tail};
    for (size_t i = 0; i < 3; i++)
        if (!SendWithin(fd, pieces[i], std::strlen(pieces[i]), i < 2, deadline) && LeftMs(deadline) == 0)
            return false;
    return true;
}

int ConnectTo(const Request &request, const halv::Deadline &deadline) noexcept {
    uint32_t address;
    if (!halv::ResolveIPv4(request.host, &address))
        return -1;
    int fd = halv::OpenTcpSocket();
    if (fd >= 0 && (!halv::SetNonBlocking(fd) || !halv::ConnectIPv4(fd, address, request.port, &deadline))) {
        close(fd);
        fd = -1;
    }
    return fd;
}

/* "HTTP/1.1 200 any reason": the number behind the first word. */
bool StatusIsOk(const char *line) noexcept {
    while (halv::IsBlank(*line))
        line++;
    while (*line != '\0' && !halv::IsBlank(*line))
        line++;
    int64_t status;
    return halv::ScanDecimal(line, &status) && status == kStatusOk;
}

/* One header line.  Only the body's length and chunking matter; a length
 * that isn't a number from 0 to 2^31 - 1 refuses the response. */
bool TakeHeader(SocketStream *s, const char *line) noexcept {
    static constexpr char kLength[] = "Content-Length:";
    static constexpr char kEncoding[] = "Transfer-Encoding:";
    if (halv::StartsWithNoCase(line, kLength)) {
        int64_t length;
        if (!halv::ScanDecimal(line + sizeof kLength - 1, &length) || length < 0 || length > INT32_MAX)
            return false;
        s->remaining = static_cast<int32_t>(length);
        s->lengthKnown = 1;
    } else if (halv::StartsWithNoCase(line, kEncoding)) {
        const char *value = line + sizeof kEncoding - 1;
        while (halv::IsBlank(*value))
            value++;
        if (halv::StartsWithNoCase(value, "chunked"))
            s->chunked = 1;
    }
    return true;
}

/* One line of the head, waiting for its bytes up to the deadline; a time
 * that runs out is a failed read (-1).  The deadline is looked at before
 * every line too, so a server that sends header lines without end, as fast
 * as they are taken, is cut off as well. */
int32_t ReadHeadLine(SocketStream *s, bool *closed, const halv::Deadline &deadline) noexcept {
    *closed = false;
    if (LeftMs(deadline) == 0)
        return -1;
    for (;;) {
        int32_t length = halv::ReadSocketLine(s, closed);
        if (length != -2)
            return length;
        if (!halv::WaitSocket(halv::SocketOf(s), POLLIN, deadline))
            return -1;
    }
}

/* Status line and headers, up to the empty line; a failed read or a closed
 * connection also ends the head.  False for a status other than 200, a
 * status line that can't be read, a line longer than the line buffer, or a
 * head that isn't complete by the deadline. */
bool ReadHead(SocketStream *s, const halv::Deadline &deadline) noexcept {
    bool closed;
    if (ReadHeadLine(s, &closed, deadline) < 0 || !StatusIsOk(s->lineStart))
        return false;
    while (!closed) {
        int32_t length = ReadHeadLine(s, &closed, deadline);
        if (length == halv::kLineTooLong || (length < 0 && LeftMs(deadline) == 0))
            return false;
        if (length <= 0)
            break;
        if (!TakeHeader(s, s->lineStart))
            return false;
    }
    /* Chunk sizes bound a chunked body, whatever a Content-Length said. */
    if (s->chunked)
        s->remaining = 0;
    return true;
}

} // namespace

namespace halv {

HalvIO *OpenUrl(const char *url, const char *mode) noexcept {
    if (url == nullptr)
        return nullptr;
    auto *u = AllocStreamRecord<UrlStream>(SocketSlots(false));
    if (u == nullptr)
        return nullptr;
    SocketStream *s = &u->base;
    s->lineStart = s->lineCursor = u->line;
    const char *proxy = HalvGetenv("HV_PROXY");
    StartSocketLayer();
    Request request;
    int fd = -1;
    const halv::Deadline deadline = DeadlineIn(HeadTimeoutMs());
    bool opened = HalvIsURL(url) && BuildRequest(url, proxy, mode, &request) &&
                  (fd = ConnectTo(request, deadline)) >= 0;
    if (opened) {
        s->socket = fd;
        /* An upload's head comes back only when its stream closes. */
        s->chunked = s->uploading = request.put ? 1 : 0;
        opened = SendRequest(fd, request, deadline) && (request.put || ReadHead(s, deadline)) &&
                 (HasLetter(mode, 'n') || SetBlocking(fd));
    }
    if (!opened) {
        if (fd >= 0)
            close(fd);
        halv_internal_free(u);
        return nullptr;
    }
    return &s->io;
}

} // namespace halv

extern "C" {

HALV_API HalvIO *HalvIO_URL(const char *url, const char *mode) noexcept { return halv::OpenUrl(url, mode); }

} // extern "C"
