/*
 * streams/io_bytes.cpp - whole transfers over the read and write slots.
 *
 * Slots may move fewer bytes than asked; these loops ask again for the rest.
 * A negative answer ends the transfer at once and is the result as it is:
 * the caller learns of the failure, not of the bytes that went before.
 */
#include <cstring>

#include "streams/internal.h"

namespace {

template <typename Slot, typename Byte>
int32_t Transfer(HalvIO *io, Slot slot, Byte *bytes, uint32_t count) noexcept {
    if (slot == nullptr)
        return count != 0 ? -1 : 0;
    uint32_t total = 0;
    while (total < count) {
        uint32_t wanted = count - total;
        int32_t moved = slot(io, bytes + total, wanted);
        if (moved < 0)
            return moved;
        if (moved == 0)
            break;
        /* A slot that claims more than it was offered moved at most that. */
        total += static_cast<uint32_t>(moved) < wanted ? static_cast<uint32_t>(moved) : wanted;
    }
    /* Counts are 32-bit unsigned at the interface; the result wraps. */
    return static_cast<int32_t>(total);
}

} // namespace

extern "C" {

HALV_API int32_t HalvIOReadBytes(HalvIO *io, void *buffer, uint32_t count) noexcept {
    return Transfer(io, io->read, static_cast<char *>(buffer), count);
}

HALV_API int32_t HalvIOWriteBytes(HalvIO *io, const void *bytes, uint32_t count) noexcept {
    return Transfer(io, io->write, static_cast<const char *>(bytes), count);
}

HALV_API int32_t HalvIOWriteString(HalvIO *io, const char *text) noexcept {
    if (text == nullptr)
        return 0;
    if (io->write == nullptr)
        return -1;
    return io->write(io, text, static_cast<uint32_t>(std::strlen(text)));
}

} // extern "C"
