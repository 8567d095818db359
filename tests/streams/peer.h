/*
 * tests/streams/peer.h - the other end of the wire for the socket and HTTP tests, on
 * plain POSIX sockets so nothing of the library checks itself, and their reading loops.
 * A Server runs one conversation per accepted connection on a thread of its own; every
 * wait is bounded, so a faulty client makes a test fail, never hang.
 */
#ifndef HALV_TESTS_NET_PEER_H
#define HALV_TESTS_NET_PEER_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "dpk_hvsup.h"
#include "streams/file_fixture.h"

namespace peer {

constexpr int kPatienceMs = 10000;

using files_test::Pattern;

/* The socket descriptor of a library stream: the first back-end field. */
inline int SocketOf(HalvIO *io) {
    intptr_t word;
    std::memcpy(&word, reinterpret_cast<const char *>(io) + sizeof(HalvIO), sizeof word);
    return static_cast<int>(word);
}

inline uint16_t PortOf(int fd) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length);
    return ntohs(address.sin_port);
}

/* A socket bound to 127.0.0.1 at a free port.  With a backlog it listens
 * (and a test may leave it never accepting); without, every connection to
 * it is refused. */
inline int BindLoopback(int backlog) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    if (backlog > 0)
        listen(fd, backlog);
    return fd;
}

inline std::string LoopbackUrl(uint16_t port, std::string_view path = "/") {
    return "http://127.0.0.1:" + std::to_string(port) + std::string(path);
}

inline bool WaitFor(int fd, short events, int timeoutMs) {
    pollfd entry = {fd, events, 0};
    int ready;
    do
        ready = poll(&entry, 1, timeoutMs);
    while (ready < 0 && errno == EINTR);
    return ready == 1;
}

inline bool SendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno == EAGAIN && WaitFor(fd, POLLOUT, kPatienceMs))
            continue;
        if (sent <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

/* Reads until marker has arrived (and returns all bytes so far), the peer
 * closes, or timeoutMs passes with nothing new. */
inline std::string ReadUntil(int fd, std::string_view marker, int timeoutMs = kPatienceMs) {
    std::string bytes;
    char buffer[4096];
    while (marker.empty() || bytes.find(marker) == std::string::npos) {
        if (!WaitFor(fd, POLLIN, timeoutMs))
            break;
        ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        bytes.append(buffer, static_cast<size_t>(got));
    }
    return bytes;
}

inline std::string ReadToEnd(int fd, int timeoutMs = kPatienceMs) { return ReadUntil(fd, {}, timeoutMs); }

inline std::string ReadHead(int fd) { return ReadUntil(fd, "\r\n\r\n"); }

inline void NoDelay(int fd) {
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

/* Reads a library stream in passes of pass bytes until it gives 0 or fails
 * (the answer kept in *last), in a bounded number of calls.  Would-block is
 * waited out in HalvIOSelect; with length set, reading stops once that many
 * bytes have come. */
inline std::string Drain(HalvIO *io, uint32_t pass = 4096, int32_t *last = nullptr,
                         size_t length = SIZE_MAX) {
    std::string bytes, buffer(pass, '\0');
    HalvIO *list[1] = {io};
    int32_t got = 1;
    for (int calls = 0; calls < 1000000 && bytes.size() < length; calls++) {
        uint32_t ask = static_cast<uint32_t>(std::min<size_t>(pass, length - bytes.size()));
        got = io->read(io, buffer.data(), ask);
        if (got == -2 && HalvIOSelect(list, 1, nullptr, 0, kPatienceMs) == 1)
            continue;
        if (got <= 0 || static_cast<uint32_t>(got) > ask) // more than asked: a fault, shown in *last
            break;
        bytes.append(buffer.data(), static_cast<size_t>(got));
    }
    if (last != nullptr)
        *last = got;
    return bytes;
}

inline std::string ReadExactly(HalvIO *io, size_t length) { return Drain(io, 65536, nullptr, length); }

/* A flag one thread raises and another waits for, with a time limit. */
class Gate {
public:
    void Open() {
        std::lock_guard<std::mutex> hold(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool Wait(int timeoutMs = kPatienceMs) {
        std::unique_lock<std::mutex> hold(mutex_);
        return changed_.wait_for(hold, std::chrono::milliseconds(timeoutMs), [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

/* A listening socket on 127.0.0.1 with conversations on threads. */
class Server {
public:
    using Conversation = std::function<void(int fd)>;

    Server() : listener_(BindLoopback(16)), port_(PortOf(listener_)) {}
    ~Server() {
        Join();
        close(listener_);
    }
    uint16_t port() const { return port_; }
    std::string Url(std::string_view path = "/") const { return LoopbackUrl(port_, path); }

    /* Accepts connections (up to count) one after another, each talked to
     * by conversation; the connection is closed behind it. */
    void Serve(Conversation conversation, int count = 1) {
        Join();
        thread_ = std::thread([this, conversation, count] {
            for (int i = 0; i < count; i++) {
                if (!WaitFor(listener_, POLLIN, kPatienceMs))
                    return;
                int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd < 0)
                    return;
                accepted_.fetch_add(1);
                conversation(fd);
                close(fd);
            }
        });
    }

    /* A GET conversation: read the head (kept for request()), send the
     * response, close. */
    void Respond(std::string response) {
        Serve([this, response](int fd) {
            SetRequest(ReadHead(fd));
            SendAll(fd, response);
        });
    }

    /* Receives a whole upload (head and body) up to the client's close. */
    void Receive() {
        Serve([this](int fd) { SetRequest(ReadToEnd(fd)); });
    }

    void SetRequest(std::string bytes) {
        std::lock_guard<std::mutex> hold(mutex_);
        request_ = std::move(bytes);
    }
    /* What the client sent; call after Join (or once the reply came). */
    std::string request() {
        std::lock_guard<std::mutex> hold(mutex_);
        return request_;
    }
    int accepted() const { return accepted_.load(); }

    void Join() {
        if (thread_.joinable())
            thread_.join();
    }

private:
    int listener_;
    uint16_t port_;
    std::thread thread_;
    std::mutex mutex_;
    std::string request_;
    std::atomic<int> accepted_{0};
};

/* "HTTP/1.1 200 OK" with the given header lines and body. */
inline std::string Response(std::string_view headers, std::string_view body,
                            std::string_view status = "200 OK") {
    return "HTTP/1.1 " + std::string(status) + "\r\n" + std::string(headers) + "\r\n" + std::string(body);
}

/* body framed as chunks of at most piece bytes, with the last chunk. */
inline std::string Chunked(std::string_view body, size_t piece) {
    std::string wire;
    char size[24];
    for (size_t at = 0; at < body.size(); at += piece) {
        std::string_view part = body.substr(at, piece);
        std::snprintf(size, sizeof size, "%zx\r\n", part.size());
        wire += size + std::string(part) + "\r\n";
    }
    return wire + "0\r\n\r\n";
}

/* The decoded body of a chunked upload, and whether it ended with the last
 * chunk and the empty trailer, "0\r\n\r\n", and nothing behind them.
 * Malformed framing gives ok false. */
struct Dechunked {
    std::string body;
    bool ok = false;
    int chunks = 0;
};

inline Dechunked Dechunk(std::string_view wire) {
    Dechunked out;
    for (;;) {
        size_t lineEnd = wire.find("\r\n");
        if (lineEnd == std::string_view::npos)
            return out;
        std::string sizeText(wire.substr(0, lineEnd));
        char *end = nullptr;
        unsigned long size = std::strtoul(sizeText.c_str(), &end, 16);
        if (sizeText.empty() || *end != '\0')
            return out;
        wire.remove_prefix(lineEnd + 2);
        if (size == 0) {
            out.ok = wire == "\r\n";
            return out;
        }
        if (wire.size() < size + 2 || wire.substr(size, 2) != "\r\n")
            return out;
        out.body.append(wire.substr(0, size));
        out.chunks++;
        wire.remove_prefix(size + 2);
    }
}

} // namespace peer

#endif
