/*
 * streams/io_lines.cpp - the two line readers.
 *
 * Both read one line: CR is dropped wherever it stands, LF ends the line.
 * HalvIOReadString limits the bytes it consumes and doesn't keep the LF;
 * HalvIOGets limits the bytes it stores and keeps the LF.  One LineRule
 * expresses both.
 *
 * A line reader must not consume a byte beyond its line, so on an arbitrary
 * stream it asks the read slot for one byte at a time.  On the library's own
 * in-memory streams the unread bytes lie in one buffer, and the line is found
 * there with memchr and copied run by run; the stream then advances by what
 * was consumed, exactly as the byte-by-byte reads would have left it.
 */
#include <cstring>

#include "streams/internal.h"

namespace {

struct LineRule {
    size_t inputLimit; /* most bytes consumed, CR and LF included */
    size_t storeLimit; /* most bytes stored, the NUL not counted */
    bool keepLF;
};

struct LineResult {
    size_t consumed;
    size_t stored;
    int32_t failure; /* the negative read result that ended the line, or 0 */
};

size_t Smallest(size_t a, size_t b, size_t c) noexcept {
    size_t ab = a < b ? a : b;
    return ab < c ? ab : c;
}

LineResult ReadLineBySlot(HalvIO *io, char *out, const LineRule &rule) noexcept {
    LineResult line = {};
    while (line.consumed < rule.inputLimit && line.stored < rule.storeLimit) {
        char byte;
        int32_t got = io->read != nullptr ? io->read(io, &byte, 1) : -1;
        if (got != 1) {
            line.failure = got < 0 ? got : 0;
            break;
        }
        line.consumed++;
        if (byte == '\r')
            continue;
        if (byte == '\n') {
            if (rule.keepLF)
                out[line.stored++] = byte;
            break;
        }
        out[line.stored++] = byte;
    }
    return line;
}

/* Copies in[0, length) to out without its CRs; returns the bytes stored. */
size_t CopyDroppingCR(char *out, const char *in, size_t length) noexcept {
    size_t stored = 0;
    while (length != 0) {
        auto cr = static_cast<const char *>(std::memchr(in, '\r', length));
        size_t run = cr != nullptr ? static_cast<size_t>(cr - in) : length;
        std::memcpy(out + stored, in, run);
        stored += run;
        size_t taken = cr != nullptr ? run + 1 : run;
        in += taken;
        length -= taken;
    }
    return stored;
}

/* The same line taken from an in-memory stream's buffer.  Each window is
 * small enough that neither limit can be passed inside it, even when it
 * holds no CR; windows repeat while CRs left room under the limits. */
LineResult ReadLineFromView(const halv::ReadView &view, char *out, const LineRule &rule) noexcept {
    LineResult line = {};
    while (line.consumed < view.available && line.consumed < rule.inputLimit &&
           line.stored < rule.storeLimit) {
        const char *window = view.bytes + line.consumed;
        size_t length = Smallest(view.available - line.consumed, rule.inputLimit - line.consumed,
                                 rule.storeLimit - line.stored);
        auto lf = static_cast<const char *>(std::memchr(window, '\n', length));
        size_t body = lf != nullptr ? static_cast<size_t>(lf - window) : length;
        line.stored += CopyDroppingCR(out + line.stored, window, body);
        line.consumed += body;
        if (lf != nullptr) {
            line.consumed++;
            if (rule.keepLF)
                out[line.stored++] = '\n';
            break;
        }
    }
    return line;
}

LineResult ReadLine(HalvIO *io, char *out, const LineRule &rule) noexcept {
    halv::ReadView view;
    LineResult line;
    if (halv::PeekReadable(io, &view)) {
        line = ReadLineFromView(view, out, rule);
        view.consume(io, line.consumed);
    } else {
        line = ReadLineBySlot(io, out, rule);
    }
    out[line.stored] = '\0';
    return line;
}

} // namespace

extern "C" {

HALV_API int32_t HalvIOReadString(HalvIO *io, char *buffer, int32_t max) noexcept {
    if (max < 1) {
        buffer[0] = '\0';
        return 0;
    }
    LineResult line = ReadLine(io, buffer, LineRule{static_cast<size_t>(max), SIZE_MAX, false});
    if (line.failure != 0)
        return halv::FailureResult(line.failure);
    return static_cast<int32_t>(line.consumed);
}

HALV_API int32_t HalvIOGets(HalvIO *io, char *buffer, uint32_t max) noexcept {
    if (max == 0) {
        buffer[0] = '\0';
        return 0;
    }
    LineResult line = ReadLine(io, buffer, LineRule{SIZE_MAX, max, true});
    return line.stored != 0 ? 1 : 0;
}

} // extern "C"
