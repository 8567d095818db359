/*
 * streams/socket_sys.cpp - the system's socket calls as the TCP and HTTP
 * back ends use them.
 *
 * Every descriptor is close-on-exec, every call that a signal can interrupt
 * is repeated, and sends never raise SIGPIPE: a peer that has gone away is
 * an ordinary failure of the call.
 */
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "streams/socket_internal.h"

namespace halv {

namespace {

constexpr int kLingerSeconds = 5;

sockaddr_in IPv4Endpoint(uint32_t address, uint16_t port) noexcept {
    sockaddr_in endpoint;
    std::memset(&endpoint, 0, sizeof endpoint);
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    endpoint.sin_addr.s_addr = address;
    return endpoint;
}

} // namespace

int OpenTcpSocket() noexcept { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool ResolveIPv4(const char *host, uint32_t *address) noexcept {
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0 || found == nullptr)
        return false;
    *address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr.s_addr;
    freeaddrinfo(found);
    return true;
}

Deadline DeadlineIn(int32_t ms) noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return Deadline{now.tv_sec * 1000 + now.tv_nsec / 1000000 + ms};
}

int32_t LeftMs(const Deadline &deadline) noexcept {
    int64_t left = DeadlineIn(0).endMs;
    left = deadline.endMs - left;
    return left <= 0 ? 0 : left > INT32_MAX ? INT32_MAX : static_cast<int32_t>(left);
}

bool WaitSocket(int fd, short events, const Deadline &deadline) noexcept {
    for (;;) {
        pollfd entry = {fd, events, 0};
        int ready = poll(&entry, 1, LeftMs(deadline));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

bool ConnectIPv4(int fd, uint32_t address, uint16_t port, const Deadline *deadline) noexcept {
    sockaddr_in endpoint = IPv4Endpoint(address, port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&endpoint), sizeof endpoint) == 0)
        return true;
    if (errno != EINTR && errno != EINPROGRESS)
        return false;
    /* The connection goes on by itself: wait for its outcome. */
    bool ready;
    if (deadline != nullptr) {
        ready = WaitSocket(fd, POLLOUT, *deadline);
    } else {
        pollfd entry = {fd, POLLOUT, 0};
        int polled;
        do
            polled = poll(&entry, 1, -1);
        while (polled < 0 && errno == EINTR);
        ready = polled == 1;
    }
    int fault = 0;
    socklen_t length = sizeof fault;
    return ready && getsockopt(fd, SOL_SOCKET, SO_ERROR, &fault, &length) == 0 && fault == 0;
}

bool ListenIPv4(int fd, uint32_t address, uint16_t port, int backlog) noexcept {
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in endpoint = IPv4Endpoint(address, port);
    return bind(fd, reinterpret_cast<const sockaddr *>(&endpoint), sizeof endpoint) == 0 &&
           listen(fd, backlog) == 0;
}

bool SetNonBlocking(int fd) noexcept {
    int flags = fcntl(fd, F_GETFL);
    return flags != -1 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool SetBlocking(int fd) noexcept {
    int flags = fcntl(fd, F_GETFL);
    return flags != -1 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

bool IsNonBlocking(int fd) noexcept {
    int flags = fcntl(fd, F_GETFL);
    return flags != -1 && (flags & O_NONBLOCK) != 0;
}

ssize_t RecvSome(int fd, void *buffer, size_t count) noexcept {
    ssize_t got;
    do
        got = recv(fd, buffer, count, 0);
    while (got < 0 && errno == EINTR);
    return got;
}

ssize_t SendSome(int fd, const void *bytes, size_t count, bool moreFollows) noexcept {
    int flags = MSG_NOSIGNAL | (moreFollows ? MSG_MORE : 0);
    ssize_t sent;
    do
        sent = send(fd, bytes, count, flags);
    while (sent < 0 && errno == EINTR);
    return sent;
}

ssize_t SendVector(int fd, struct iovec *pieces, int count) noexcept {
    msghdr message;
    std::memset(&message, 0, sizeof message);
    message.msg_iov = pieces;
    message.msg_iovlen = static_cast<size_t>(count);
    ssize_t sent;
    do
        sent = sendmsg(fd, &message, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent;
}

void SetReceiveLowWater(int fd, int bytes) noexcept {
    setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
}

int32_t FailedIoResult() noexcept { return errno == EAGAIN || errno == EWOULDBLOCK ? -2 : -1; }

void CloseLingering(int fd) noexcept {
    struct linger linger = {1, kLingerSeconds};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &linger, sizeof linger);
    close(fd);
}

} // namespace halv
