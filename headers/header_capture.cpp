/*
 * headers/header_capture.cpp - reading a header's text while keeping a
 * copy of every byte taken from the stream, so that the caller can hand
 * the bytes on (through a multiplex stream, for instance) to a reader that
 * wants the whole stream.
 *
 * The read goes through a stream record on the stack whose read slot
 * passes each call on to the real stream and appends what came back.
 */
#include <cstring>

#include "halv_userdata.h"
#include "headers/internal.h"

namespace {

/* The bytes taken so far, in a buffer that doubles as it fills. */
struct Capture {
    unsigned char *bytes = nullptr;
    uint32_t length = 0;
    uint32_t capacity = 0;
    bool failed = false;

    void Append(const void *data, uint32_t count) {
        if (failed)
            return;
        if (count > capacity - length) {
            uint64_t wanted = (uint64_t)length + count;
            uint64_t grown = capacity < 256 ? 256 : (uint64_t)capacity * 2;
            while (grown < wanted)
                grown *= 2;
            if (grown > UINT32_MAX)
                grown = UINT32_MAX;
            auto *moved = static_cast<unsigned char *>(halv_internal_realloc(bytes, (size_t)grown));
            if (moved == nullptr || grown < wanted) {
                failed = true;
                if (moved != nullptr)
                    bytes = moved;
                return;
            }
            bytes = moved;
            capacity = (uint32_t)grown;
        }
        std::memcpy(bytes + length, data, count);
        length += count;
    }
};

struct CapturingStream {
    HalvIO io;
    HalvIO *source;
    Capture *capture;
};

int32_t CapturingRead(HalvIO *io, void *buffer, uint32_t count) {
    auto *self = reinterpret_cast<CapturingStream *>(io);
    int32_t got = self->source->read(self->source, buffer, count);
    if (got < 1)
        return got;
    self->capture->Append(buffer, (uint32_t)got);
    return got;
}

} // namespace

extern "C" {

HALV_API int HVHdrNonDestructiveRead(HalvIO *in, HalvUserCMData **tree, void **bytes, uint32_t *count) noexcept {
    if (in == nullptr || tree == nullptr || bytes == nullptr || count == nullptr)
        return 0;
    *bytes = nullptr;
    Capture capture;
    CapturingStream stream{};
    stream.io.read = CapturingRead;
    stream.source = in;
    stream.capture = &capture;
    int result = HVHdrRead(&stream.io, tree);
    if (capture.length > 0 && !capture.failed) {
        *bytes = capture.bytes;
        *count = capture.length;
    } else {
        halv_internal_free(capture.bytes);
        *count = 0;
        result = -1;
    }
    return result;
}

} // extern "C"
