/*
 * headers/formats/pixelstream_data.cpp - the text behind a "pixelstream"
 * header: pixels of valuesPerPixel numbers, read token by token with no
 * regard for lines, written one pixel a line.
 *
 * Reading many values through a read slot call for every byte costs more
 * than the numbers themselves, so on a stream that can seek the loader
 * reads blocks and, when it is done, seeks back over what it didn't use:
 * the stream stands where a reader of single bytes would have left it.  A
 * stream that can't seek (standard input from a pipe, a socket) is read a
 * byte at a time, and never past the last value taken.
 */
#include <cstring>

#include "headers/ascii_token.h"
#include "headers/formats/formats.h"

namespace halv {

namespace {

/* The most one load may allocate: a header can ask for pixels of any
 * size, and a load above this counts as one whose memory can't be had. */
constexpr uint64_t kMaxLoadBytes = 256u << 20;
constexpr uint32_t kBlockBytes = 16384;

HalvPixelStreamHeader *AsPixelStream(HalvHeaderStruct *header) {
    return reinterpret_cast<HalvPixelStreamHeader *>(header);
}

/* Bytes of a stream, in blocks where it can seek and singly where it
 * can't.  ended is set once the bytes ran out or a 0x04 or 0xFF stood for
 * the end: the load stops there, as a stream's end stops it. */
class StreamBytes {
  public:
    explicit StreamBytes(HalvIO *in) : in_(in) {
        seekable_ = in->seek != nullptr && in->seek(in, 0, 1) >= 0;
    }
    StreamBytes(const StreamBytes &) = delete;
    StreamBytes &operator=(const StreamBytes &) = delete;
    /* Gives back the bytes read ahead and not used. */
    ~StreamBytes() {
        if (end_ > next_)
            (void)in_->seek(in_, -(int64_t)(end_ - next_), 1);
    }

    bool Next(unsigned char *byte) {
        if (next_ == end_ && !Fill())
            return false;
        *byte = block_[next_++];
        return true;
    }
    void MarkEnd() { ended_ = true; }
    bool ended() const { return ended_; }

  private:
    bool Fill() {
        int32_t got = in_->read(in_, block_, seekable_ ? kBlockBytes : 1);
        if (got <= 0)
            return false;
        next_ = 0;
        end_ = (uint32_t)got;
        return true;
    }

    HalvIO *in_;
    bool seekable_ = false;
    bool ended_ = false;
    uint32_t next_ = 0;
    uint32_t end_ = 0;
    unsigned char block_[kBlockBytes];
};

/* One sample of width bytes into sample: 0, 1 no number, -1 the end. */
int ReadSample(StreamBytes &source, uint32_t width, unsigned char *sample) {
    uint32_t value = 0;
    int result;
    switch (width) {
    case 1:
        result = ReadUnsigned(source, &value);
        if (result == 0)
            sample[0] = (unsigned char)value;
        return result;
    case 2: {
        result = ReadUnsigned(source, &value);
        uint16_t low = (uint16_t)value;
        if (result == 0)
            std::memcpy(sample, &low, sizeof low);
        return result;
    }
    case 4: {
        float f;
        result = ReadFloat(source, &f);
        if (result == 0)
            std::memcpy(sample, &f, sizeof f);
        return result;
    }
    default: {
        float pair[2];
        result = ReadComplex(source, pair);
        if (result == 0)
            std::memcpy(sample, pair, sizeof pair);
        return result;
    }
    }
}

/* Makes the buffer hold pixels; false when it can't (it then holds none). */
bool ReserveBuffer(HalvPixelStreamHeader *h, uint32_t pixels) {
    if (h->bufferCapacity >= pixels && h->chunkBuffer != nullptr)
        return true;
    halv_internal_free(h->chunkBuffer);
    h->chunkBuffer = nullptr;
    h->bufferCapacity = 0;
    uint64_t size = (uint64_t)h->bytesPerPixel * pixels;
    if (size == 0 || size > kMaxLoadBytes)
        return false;
    h->chunkBuffer = halv_internal_malloc((size_t)size);
    if (h->chunkBuffer != nullptr)
        h->bufferCapacity = pixels;
    return h->chunkBuffer != nullptr;
}

} // namespace

} // namespace halv

extern "C" {

HALV_API int __HVHdrPixelStreamLoadChunk_10_ascii(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk,
                                                  uint32_t pixels) noexcept {
    if (header == nullptr || chunk == nullptr)
        return 0;
    HalvPixelStreamHeader *h = halv::AsPixelStream(header);
    if (h->stdinStream != nullptr)
        in = h->stdinStream;
    if (in == nullptr || in->read == nullptr)
        return 0;
    if (!h->initialised)
        halv::PixelStreamWorkOut(h);
    uint32_t width = halv::TextSampleBytes(header->bitsPerSample[0]);
    uint32_t values = h->valuesPerPixel;
    // A pixel must fit the bytes the record gives it, or the buffer overflows.
    if (values == 0 || (width != 0 && (uint64_t)values * width != h->bytesPerPixel))
        return -1;
    if (pixels == 0)
        pixels = 1;

    uint32_t got = 0;
    if (halv::ReserveBuffer(h, pixels) && width != 0) {
        auto *next = static_cast<unsigned char *>(h->chunkBuffer);
        halv::StreamBytes source(in);
        // Fits: at most pixels x values samples, as many as the buffer holds.
        uint64_t total = (uint64_t)pixels * values;
        for (uint64_t i = 0; i < total && !source.ended(); ++i) {
            if (halv::ReadSample(source, width, next) == 0) {
                next += width;
                ++got;
            }
        }
    }
    if (got % values != 0)
        return -1;
    uint32_t whole = got / values;
    chunk->data = h->chunkBuffer;
    chunk->capacity = h->bufferCapacity * h->bytesPerPixel;
    chunk->bytes = h->bytesPerPixel * whole;
    chunk->lines = whole;
    chunk->auxWord = 0;
    chunk->flags = whole == pixels ? 0 : HALV_CHUNK_END;
    return 1;
}

HALV_API int __HVHdrPixelStreamEmitChunk_10_ascii(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    HalvPixelStreamHeader *h = halv::AsPixelStream(header);
    if (!h->initialised)
        halv::PixelStreamWorkOut(h);
    if (chunk->auxWord != 0 || chunk->lines == 0)
        return 1; // not sample data, or none: nothing of it is stored
    uint32_t values = h->valuesPerPixel;
    if (values > HALV_MAX_SEPARATIONS)
        return 0;
    uint64_t need = (uint64_t)chunk->lines * values * halv::TextSampleBytes(header->bitsPerSample[0]);
    if (need > chunk->bytes || (need != 0 && chunk->data == nullptr))
        return 0;
    uint32_t bits[HALV_MAX_SEPARATIONS];
    for (uint32_t i = 0; i < values; ++i)
        bits[i] = header->bitsPerSample[0];
    void *cursor = chunk->data;
    // One line a pixel: a line feed behind each group of values.
    return __HVHdrWriteAsciiValues(out, bits, chunk->lines, values, &cursor, 0);
}

} // extern "C"
