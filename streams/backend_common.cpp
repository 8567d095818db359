/*
 * streams/backend_common.cpp - pieces every back end shares, and the lookup
 * of the in-memory back ends whose bytes the generic operations may reach
 * without a slot call.
 */
#include "streams/internal.h"

namespace halv {

void FlushNothing(HalvIO *) noexcept {}

int64_t SeekReference(int32_t whence, int64_t current, int64_t end) noexcept {
    switch (whence) {
    case 0: return 0;
    case 1: return current;
    case 2: return end;
    default: return -1;
    }
}

namespace {

using ViewPeek = bool (*)(HalvIO *, ReadView *);
using ViewWriterTest = bool (*)(const HalvIO *, const ReadView *);

/* Each entry recognises its own back end by the slots it installed. */
constexpr ViewPeek kReadViews[] = {MemPeekReadable, StrPeekReadable};
constexpr ViewWriterTest kViewWriters[] = {MemCanWriteFromView, StrCanWriteFromView};

} // namespace

bool PeekReadable(HalvIO *io, ReadView *view) noexcept {
    for (auto peek : kReadViews)
        if (peek(io, view))
            return true;
    return false;
}

bool CanWriteFromView(const HalvIO *dst, const ReadView *view) noexcept {
    for (auto canWrite : kViewWriters)
        if (canWrite(dst, view))
            return true;
    return false;
}

} // namespace halv
