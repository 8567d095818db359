/*
 * text/scan_input.cpp - the stream source of the scan engine and the fetch
 * of its arguments.
 *
 * A stream has no push-back: every byte the engine looks at is taken from
 * the stream for good, the look-ahead behind the last field included.
 */
#include "text/scan_internal.h"

namespace halv {
namespace {

constexpr int32_t kStreamFailed = -8;
constexpr int32_t kStreamEndByte = 0xFF; /* reads like the end of input */

} // namespace

int32_t ScanInput::AdvanceStream() noexcept {
    if (current == -1)
        return current;
    unsigned char byte = 0;
    int32_t got = (io != nullptr && io->read != nullptr) ? io->read(io, &byte, 1) : 0;
    if (got > 0 && byte != kStreamEndByte) {
        ++committed;
        current = byte;
        return current;
    }
    /* Only a failed read is an error; a stream that would block has
     * nothing to give now, which to a scan is the end of its input. */
    if (got == -1)
        error = kStreamFailed;
    current = -1;
    return current;
}

void FetchScanArguments(ScanDirective *table, int entries, ScanArguments args) noexcept {
    int next = 0;
    for (int i = 0; i < entries; ++i) {
        ScanDirective &d = table[i];
        if (d.type == kScanArgument) {
            if (args.list != nullptr) {
                d.value = va_arg(*args.list, int);
            } else {
                const int *source = args.array != nullptr ? (const int *)args.array[next++] : nullptr;
                d.value = source != nullptr ? *source : 0;
            }
            continue;
        }
        if (!(d.flags & kFlagSuppress)) {
            if (args.list != nullptr)
                d.target = va_arg(*args.list, void *);
            else
                d.target = args.array != nullptr ? args.array[next++] : nullptr;
        }
        if (d.flags & kFlagBaseArgument)
            d.base = table[d.base].value;
    }
}

} // namespace halv
