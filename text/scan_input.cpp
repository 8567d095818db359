/*
 * text/scan_input.cpp - the stream source of the scan engine, the UTF-8
 * sequence test of its format walk, and the fetch of its arguments.
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

int Utf8SequenceLength(const unsigned char *text) noexcept {
    struct Lead {
        unsigned char mask, pattern;
        int length;
        uint32_t minimum; /* smallest value the length may carry */
    };
    static constexpr Lead kLeads[] = {
        {0xE0, 0xC0, 2, 0x80},
        {0xF0, 0xE0, 3, 0x800},
        {0xF8, 0xF0, 4, 0x10000},
    };
    unsigned char lead = text[0];
    for (const Lead &form : kLeads) {
        if ((lead & form.mask) != form.pattern)
            continue;
        uint32_t value = lead & (unsigned char)~form.mask;
        for (int i = 1; i < form.length; ++i) {
            if ((text[i] & 0xC0) != 0x80)
                return 0;
            value = (value << 6) | (text[i] & 0x3F);
        }
        return value >= form.minimum ? form.length : 0;
    }
    return 0;
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
