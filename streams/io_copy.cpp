/*
 * streams/io_copy.cpp - copying between streams, and skipping forward.
 *
 * The copy moves at most 4096 bytes per pass: one read of src, then writes
 * of dst until the pass is taken.  A back end of the caller's sees exactly
 * these calls.  When src is one of the library's in-memory streams and dst
 * one whose write can't disturb src's buffer, the pass is written straight
 * from src's buffer: src's read slot call is replaced by advancing its
 * position, which is all that call would do, and the bounce copy is saved.
 * Into a growing memory stream no caller's code sees the passes either:
 * once it has the capacity the passes would give it, one write, which is
 * one memmove, leaves everything as the passes would.
 *
 * From the library's own socket streams the passes are read kSocketPass
 * bytes at a time, each handed on in writes of at most kCopyPass: one
 * receive call then moves four passes, and dst sees the writes that
 * 4096-byte reads could have given, since a socket may always answer a read
 * with fewer bytes than asked.  Only that path has the larger buffer, which
 * stays well inside the smallest stack a coroutine gets (64 KiB).
 *
 * A would-block answer waits until the stream is ready and asks again.  A
 * back end that keeps saying would-block while its descriptor is ready is
 * given up after kWouldBlockLimit answers in a row.
 */
#include "streams/internal.h"
#include "streams/socket_internal.h"

namespace {

constexpr uint32_t kCopyPass = 4096;
constexpr uint32_t kSocketPass = 4 * kCopyPass;
/* The longest pass from a view: what a write slot's result can count. */
constexpr int64_t kViewPass = 0x7FFFF000;
constexpr uint32_t kSkipPass = 1024;
constexpr int kWouldBlockLimit = 10000;

/* One read of src's slot for up to request bytes into buffer, waiting
 * while it would block.  Result: bytes read, 0 at the end, -1 on failure. */
int32_t ReadSlot(HalvIO *src, char *buffer, uint32_t request) noexcept {
    for (int blocked = 0; blocked < kWouldBlockLimit; blocked++) {
        int32_t got = src->read(src, buffer, request);
        if (got != -2)
            return got <= static_cast<int32_t>(request) && got >= 0 ? got : -1;
        if (halv::WaitStreamReady(src, 0) != 1)
            break;
    }
    return -1;
}

/* One read of up to wanted bytes (0: as many as there are), at most
 * kCopyPass through the slots; *bytes is where they are.  Result: bytes
 * read, 0 at the end of src, -1 on failure. */
int32_t ReadPass(HalvIO *dst, HalvIO *src, char *buffer, int64_t wanted, const char **bytes) noexcept {
    halv::ReadView view;
    if (halv::PeekReadable(src, &view) && halv::CanWriteFromView(dst, &view)) {
        int64_t limit = wanted == 0 || wanted > kViewPass ? kViewPass : wanted;
        size_t all = view.available < (uint64_t)limit ? view.available : (size_t)limit;
        bool onePass = halv::MemReserveForPasses(dst, all, kCopyPass);
        size_t n = onePass || all < kCopyPass ? all : kCopyPass;
        view.consume(src, n);
        *bytes = view.bytes;
        return static_cast<int32_t>(n);
    }
    *bytes = buffer;
    return ReadSlot(src, buffer, wanted == 0 || wanted > kCopyPass ? kCopyPass : static_cast<uint32_t>(wanted));
}

/* Writes length bytes with as many write calls as dst needs.  Result 1, or
 * -1 when dst fails or accepts nothing. */
int32_t WritePass(HalvIO *dst, const char *bytes, uint32_t length) noexcept {
    uint32_t taken = 0;
    int blocked = 0;
    while (taken < length) {
        int32_t put = dst->write(dst, bytes + taken, length - taken);
        if (put == -2) {
            if (++blocked == kWouldBlockLimit || halv::WaitStreamReady(dst, 1) != 1)
                return -1;
            continue;
        }
        if (put <= 0 || static_cast<uint32_t>(put) > length - taken)
            return -1;
        taken += static_cast<uint32_t>(put);
        blocked = 0;
    }
    return 1;
}

/* The copy from one of the library's socket streams.  Where the body's
 * length is known, and so more bytes are sure to come, a receive waits for
 * a whole pass instead of waking for every few segments the peer sends;
 * the socket's usual setting is back before the copy returns. */
[[gnu::noinline]] int64_t CopyFromSocket(HalvIO *dst, HalvIO *src, int64_t count) noexcept {
    halv::SocketStream *socket = halv::AsSocket(src);
    char buffer[kSocketPass];
    int lowWater = 1;
    int64_t total = 0;
    int64_t result;
    for (;;) {
        const int64_t remaining = count - total;
        const uint32_t request =
            count == 0 || remaining > kSocketPass ? kSocketPass : static_cast<uint32_t>(remaining);
        if (socket->lengthKnown && !socket->chunked) {
            const int32_t wait = socket->remaining < static_cast<int32_t>(request) ? socket->remaining
                                                                                   : static_cast<int32_t>(request);
            if (wait > 0 && wait != lowWater)
                halv::SetReceiveLowWater(halv::SocketOf(socket), lowWater = wait);
        }
        int32_t got = ReadSlot(src, buffer, request);
        if (got <= 0) {
            result = got == 0 ? total : -1;
            break;
        }
        int32_t at = 0;
        for (; at < got; at += kCopyPass) {
            const auto pass = static_cast<uint32_t>(got - at) < kCopyPass ? static_cast<uint32_t>(got - at) : kCopyPass;
            if (WritePass(dst, buffer + at, pass) < 0)
                break;
        }
        if (at < got) {
            result = -1;
            break;
        }
        total += got;
        if (count != 0 && total == count) {
            result = total;
            break;
        }
    }
    if (lowWater != 1)
        halv::SetReceiveLowWater(halv::SocketOf(socket), 1);
    return result;
}

} // namespace

extern "C" {

HALV_API int64_t HalvIOCopyBytes(HalvIO *dst, HalvIO *src, int64_t count) noexcept {
    if (count < 0 || src->read == nullptr || dst->write == nullptr)
        return -1;
    if (halv::IsSocketStream(src) && src->read == halv::SocketRead)
        return CopyFromSocket(dst, src, count);
    char buffer[kCopyPass];
    int64_t total = 0;
    int64_t remaining = count;
    for (;;) {
        const char *bytes;
        int32_t got = ReadPass(dst, src, buffer, remaining, &bytes);
        if (got == 0)
            return total;
        if (got < 0 || WritePass(dst, bytes, static_cast<uint32_t>(got)) < 0)
            return -1;
        total += got;
        if (count != 0 && (remaining -= got) == 0)
            return total;
    }
}

HALV_API int64_t HalvIOSkipBytes(HalvIO *io, int64_t count) noexcept {
    /* A seek that works settles it, whatever position it reports. */
    if (io->seek != nullptr && io->seek(io, count, 1) != -1)
        return count;
    if (count <= 0)
        return 0;
    char scratch[kSkipPass];
    int64_t skipped = 0;
    while (skipped < count) {
        uint32_t pass = count - skipped > kSkipPass ? kSkipPass : static_cast<uint32_t>(count - skipped);
        int32_t got = HalvIOReadBytes(io, scratch, pass);
        if (got < 0)
            return halv::FailureResult(got);
        skipped += got;
        if (static_cast<uint32_t>(got) < pass)
            break;
    }
    return skipped;
}

} // extern "C"
