/*
 * userdata/byte_source.cpp - the token reader's input: a library memory
 * stream's bytes in place, any other stream one read call per byte.
 */
#include "userdata/internal.h"

#include "streams/internal.h"

namespace halv {

ByteSource::ByteSource(HalvIO *stream, bool inPlace) noexcept : in_(stream), read_(stream->read) {
    ReadView view;
    if (!inPlace || !PeekReadable(stream, &view))
        return;
    windowed_ = true;
    start_ = cursor_ = reinterpret_cast<const unsigned char *>(view.bytes);
    end_ = cursor_ + view.available;
    consume_ = view.consume;
}

void ByteSource::Finish() noexcept {
    if (windowed_ && cursor_ != start_)
        consume_(in_, (size_t)(cursor_ - start_));
    start_ = cursor_;
}

} // namespace halv
