/*
 * streams/socket_tcp.cpp - TCP streams: client connections and listeners.
 */
#include <unistd.h>

#include "streams/socket_internal.h"

namespace {

/* The address to bind or connect to: any local address without a host. */
bool AddressOf(const char *host, uint32_t *address) noexcept {
    if (host == nullptr) {
        *address = 0;
        return true;
    }
    return halv::ResolveIPv4(host, address);
}

} // namespace

extern "C" {

HALV_API HalvIO *HalvIO_TcpSocket(const char *host, uint16_t port, int32_t backlog, int32_t blocking) noexcept {
    bool listening = backlog != 0;
    auto *s = halv::AllocStreamRecord<halv::SocketStream>(halv::SocketSlots(listening));
    if (s == nullptr)
        return nullptr;
    s->listening = listening ? 1 : 0;
    halv::StartSocketLayer();
    int fd = halv::OpenTcpSocket();
    if (fd < 0) {
        halv_internal_free(s);
        return nullptr;
    }
    uint32_t address;
    bool ready = AddressOf(host, &address) &&
                 (listening ? halv::ListenIPv4(fd, address, port, backlog) : halv::ConnectIPv4(fd, address, port));
    if (!ready || (blocking == 0 && !halv::SetNonBlocking(fd))) {
        close(fd);
        halv_internal_free(s);
        return nullptr;
    }
    s->socket = fd;
    return &s->io;
}

} // extern "C"
