/*
 * streams/wait.cpp - waiting for a stream that answered would-block.
 *
 * Socket streams wait in HalvIOSelect.  Any other stream that answers -2
 * is one over a descriptor in non-blocking mode, and every back end keeps
 * its main handle as the first field behind the slots.  The descriptor is
 * read as a 32-bit int from there, which is right whether the back end
 * stores it as an int or as a machine word (little-endian).
 */
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "streams/socket_internal.h"

namespace halv {

int32_t WaitStreamReady(HalvIO *io, int forWrite) noexcept {
    if (IsSocketStream(io)) {
        HalvIO *const list[1] = {io};
        int32_t ready = forWrite ? HalvIOSelect(nullptr, 0, list, 1, -1) : HalvIOSelect(list, 1, nullptr, 0, -1);
        return ready == 1 ? 1 : -1;
    }
    int32_t fd;
    std::memcpy(&fd, reinterpret_cast<const char *>(io) + sizeof(HalvIO), sizeof fd);
    if (fd < 0)
        return -1;
    struct pollfd entry = {fd, static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
    int ready;
    do
        ready = poll(&entry, 1, -1);
    while (ready < 0 && errno == EINTR);
    /* A hung-up or failed descriptor is ready: the next call reports it. */
    if (ready <= 0 || (entry.revents & POLLNVAL) != 0)
        return -1;
    return 1;
}

} // namespace halv
