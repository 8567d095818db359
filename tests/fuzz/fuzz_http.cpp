// Fuzz target for the HTTP client's response reader.
//
// Input: a control byte, then the bytes a server answers with.  A peer
// thread accepts one connection on 127.0.0.1, reads the request head, sends
// those bytes and closes its side, so that every run ends by itself however
// the response is framed.  The client opens the URL with HalvIO_URL, in
// blocking or (control bit 0) non-blocking mode, and reads the body in
// pieces of sizes the control byte picks, up to the read that gives 0 or -1;
// two more reads must give the same again.  In non-blocking mode a read of
// -2 is waited for with HalvIOSelect and repeated.
//
// A model of the reader, written here from its rules, says what the client
// must see: null from HalvIO_URL (no status 200, a head line over 511 bytes,
// a Content-Length that is no number from 0 to 2^31 - 1), else the body
// (bounded by Content-Length, cut into chunks by their size lines with
// empty lines, extensions and trailers as the rules treat them, or up to
// the close), and whether it ends in 0 or in -1 (a chunk size that is no
// number from 0 to 2^31 - 1).  Lines lose their CRs and end at LF or at the
// close; the numbers are scanned as scanf's %d and %x would, saturating.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

constexpr size_t kLineBuffer = 512;

struct Expected {
    bool opens;
    std::string body;
    int32_t end; /* 0 or -1 */
};

class ModelReader {
public:
    explicit ModelReader(const std::string &bytes) : bytes_(bytes) {}

    /* One line: CRs dropped, ended by LF or the close (closed set); false,
     * too long, when 512 bytes gather with no end.  The text as C code sees
     * it: up to its first NUL. */
    bool Read(std::string &text, size_t &length, bool &closed) {
        std::string line;
        closed = false;
        for (;;) {
            if (line.size() == kLineBuffer)
                return false;
            if (at_ == bytes_.size()) {
                closed = true;
                break;
            }
            const char c = bytes_[at_++];
            if (c == '\n')
                break;
            if (c != '\r')
                line += c;
        }
        length = line.size();
        text = line.substr(0, line.find('\0'));
        return true;
    }

    std::string Take(size_t n) {
        n = std::min(n, bytes_.size() - at_);
        std::string piece = bytes_.substr(at_, n);
        at_ += n;
        return piece;
    }

private:
    const std::string &bytes_;
    size_t at_ = 0;
};

bool IsBlank(char c) { return c == ' ' || (c >= 9 && c <= 13); }

/* scanf's %d or %x: blanks, a sign, digits (for %x after an optional 0x),
 * as the C library reads them; a magnitude past 2^63 - 1 saturates. */
bool ScanNumber(const char *p, int base, int64_t &value) {
    char *end = nullptr;
    value = std::strtoll(p, &end, base);
    return end != p;
}

Expected Model(const std::string &response) {
    ModelReader in(response);
    std::string text;
    size_t length;
    bool closed;
    if (!in.Read(text, length, closed))
        return {false, "", 0};
    size_t word = 0;
    while (word < text.size() && IsBlank(text[word]))
        ++word;
    while (word < text.size() && !IsBlank(text[word]))
        ++word;
    int64_t status;
    if (!ScanNumber(text.c_str() + word, 10, status) || status != 200)
        return {false, "", 0};

    bool chunked = false, lengthKnown = false;
    int64_t remaining = 0;
    while (!closed) {
        if (!in.Read(text, length, closed))
            return {false, "", 0};
        if (length == 0)
            break;
        if (fuzz::StartsNoCase(text, "Content-Length:")) {
            if (!ScanNumber(text.c_str() + 15, 10, remaining) || remaining < 0 || remaining > INT32_MAX)
                return {false, "", 0};
            lengthKnown = true;
        } else if (fuzz::StartsNoCase(text, "Transfer-Encoding:")) {
            size_t v = 18;
            while (v < text.size() && IsBlank(text[v]))
                ++v;
            if (fuzz::StartsNoCase(text.substr(v), "chunked"))
                chunked = true;
        }
    }

    Expected e{true, "", 0};
    if (!chunked) {
        e.body = in.Take(lengthKnown ? (size_t)remaining : response.size());
        return e;
    }
    for (;;) {
        /* A chunk size line; empty lines are passed over. */
        int64_t size = 0;
        for (;;) {
            if (!in.Read(text, length, closed) || closed)
                return e;
            if (length != 0)
                break;
        }
        if (!ScanNumber(text.c_str(), 16, size) || size < 0 || size > INT32_MAX) {
            e.end = -1;
            return e;
        }
        if (size == 0)
            return e;
        const std::string data = in.Take((size_t)size);
        e.body += data;
        if (data.size() < (size_t)size)
            return e;
    }
}

int Listener(uint16_t &port) {
    static int fd = -1;
    static uint16_t bound = 0;
    if (fd < 0) {
        fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
            listen(fd, 8) != 0 || getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0)
            Fail("the peer can't listen");
        bound = ntohs(address.sin_port);
    }
    port = bound;
    return fd;
}

bool WaitFor(int fd, short events) {
    pollfd entry = {fd, events, 0};
    return poll(&entry, 1, 10000) == 1;
}

/* Serves one connection: the request head is read, the response sent, the
 * sending side shut; then the peer waits for the client to close, so that
 * nothing it sent is cut off by a reset. */
void Serve(int listener, const std::string &response) {
    if (!WaitFor(listener, POLLIN))
        return;
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    std::string request;
    char buffer[1024];
    while (request.find("\r\n\r\n") == std::string::npos && request.size() < 8192 && WaitFor(fd, POLLIN)) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0)
            break;
        request.append(buffer, (size_t)got);
    }
    for (size_t sent = 0; sent < response.size();) {
        const ssize_t n = send(fd, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += (size_t)n;
    }
    shutdown(fd, SHUT_WR);
    while (WaitFor(fd, POLLIN) && recv(fd, buffer, sizeof buffer, 0) > 0) {
    }
    close(fd);
}

constexpr uint32_t kPieces[] = {1, 2, 3, 7, 16, 64, 511, 4096};

/* One read, waiting out would-block in non-blocking mode. */
int32_t ReadOnce(HalvIO *io, char *buffer, uint32_t count) {
    for (int tries = 0; tries < 100000; ++tries) {
        const int32_t got = io->read(io, buffer, count);
        if (got != -2)
            return got;
        FailIf(HalvIOSelect(&io, 1, nullptr, 0, 10000) != 1, "a non-blocking stream stayed unreadable");
    }
    Fail("a non-blocking stream kept answering -2");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > (1u << 16))
        return 0;
    const uint8_t control = data[0];
    const std::string response(reinterpret_cast<const char *>(data + 1), size - 1);
    const Expected expected = Model(response);

    uint16_t port;
    const int listener = Listener(port);
    std::thread peer(Serve, listener, std::cref(response));
    char url[64];
    std::snprintf(url, sizeof url, "http://127.0.0.1:%u/fuzz", port);
    HalvIO *io = HalvIO_URL(url, (control & 1) ? "rn" : "r");
    if ((io != nullptr) != expected.opens) {
        peer.join();
        Fail(io != nullptr ? "a response the rules refuse was taken" : "a response the rules take was refused");
    }
    if (io != nullptr) {
        std::string body;
        char buffer[4096];
        int32_t got = 0;
        for (uint32_t piece = control >> 1;; piece = piece * 5 + 1) {
            got = ReadOnce(io, buffer, kPieces[piece % 8]);
            if (got <= 0)
                break;
            FailIf((uint32_t)got > kPieces[piece % 8], "a read gave more than it was asked for");
            body.append(buffer, (size_t)got);
            FailIf(body.size() > response.size(), "the body grew past the response");
        }
        FailIf(body != expected.body, "the body differs from what the rules give");
        FailIf(got != expected.end, "the body ended otherwise than the rules say");
        for (int again = 0; again < 2; ++again)
            FailIf(ReadOnce(io, buffer, sizeof buffer) != got, "a read behind the end gave something else");
        io->close(io);
    }
    peer.join();
    return 0;
}
