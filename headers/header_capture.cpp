/*
 * headers/header_capture.cpp - reading a header's text while keeping a
 * copy of every byte taken from the stream, so that the caller can hand
 * the bytes on (through a multiplex stream, for instance) to a reader that
 * wants the whole stream.
 *
 * The read goes through a stream record on the stack whose read slot
 * passes each call on to the real stream and appends what came back to a
 * memory-only smart buffer.  The stream's position does move; what isn't
 * lost is the bytes.
 */
#include <cstring>

#include "halv_userdata.h"
#include "headers/internal.h"

namespace {

struct CapturingStream {
    HalvIO io;
    HalvIO *source;
    HalvSmartBuffer *copy;
    bool incomplete;
};

int32_t CapturingRead(HalvIO *io, void *buffer, uint32_t count) {
    auto *self = reinterpret_cast<CapturingStream *>(io);
    int32_t got = self->source->read(self->source, buffer, count);
    if (got < 1)
        return got;
    if (HalvSBAppend(self->copy, buffer, (uint32_t)got) != got)
        self->incomplete = true;
    return got;
}

/* The buffer's bytes in one new block; null when there are none, they
 * don't fit a 32-bit count, or memory runs out. */
void *TakeAll(HalvSmartBuffer *copy, uint32_t *count) {
    int64_t available = HalvSBBytesAvailable(copy);
    if (available <= 0 || available > (int64_t)UINT32_MAX)
        return nullptr;
    void *bytes = halv_internal_calloc((size_t)available, 1);
    if (bytes == nullptr)
        return nullptr;
    if (HalvSBRead(copy, bytes, (uint32_t)available) != (uint32_t)available) {
        halv_internal_free(bytes);
        return nullptr;
    }
    *count = (uint32_t)available;
    return bytes;
}

} // namespace

extern "C" {

HALV_API int HVHdrNonDestructiveRead(HalvIO *in, HalvUserCMData **tree, void **bytes, uint32_t *count) noexcept {
    if (in == nullptr || tree == nullptr || bytes == nullptr || count == nullptr)
        return 0;
    *bytes = nullptr;
    CapturingStream stream{};
    stream.copy = HalvSBInit(1, 256);
    if (stream.copy == nullptr) {
        *count = 0;
        return 0;
    }
    stream.io.read = CapturingRead;
    stream.source = in;
    int result = HVHdrRead(&stream.io, tree);
    *count = 0;
    *bytes = stream.incomplete ? nullptr : TakeAll(stream.copy, count);
    if (*bytes == nullptr) {
        *count = 0;
        result = -1;
    }
    HalvSBFree(stream.copy);
    return result;
}

} // extern "C"
