/*
 * userdata/internal.h - pieces the user data files share: name comparison,
 * node making, and the byte source and sinks of the token reader.
 */
#ifndef HALV_USERDATA_INTERNAL_H
#define HALV_USERDATA_INTERNAL_H

#include <cstdint>
#include <cstring>
#include <string>

#include "halv_core.h"
#include "halv_streams.h"
#include "halv_userdata.h"
#include "halv_util.h"

namespace halv {

/* ---- Names ------------------------------------------------------------ */

/* The node's name is text[0..length): equal length first, then the texts
 * ignoring ASCII case as the library's string compare sees them. */
inline bool NodeNamed(const HalvUserCMData *node, const char *text, uint32_t length) noexcept {
    return node->length == length && (length == 0 || HalvStrNCaseCmp(node->text, text, length) == 0);
}

/* Item or section End, whose bracket ends reading and writing at the top. */
inline bool NodeIsEnd(const HalvUserCMData *node) noexcept { return NodeNamed(node, "End", 3); }

/* Whitespace of the default C locale: 9 to 13 and 32. */
inline bool IsBlank(int c) noexcept { return c == ' ' || (c >= 9 && c <= 13); }

/* The Base64 alphabet of RFC 4648 that data blocks use. */
inline constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* ---- Nodes ------------------------------------------------------------ */

/* A new node of kind owning a copy of length bytes with a NUL behind them;
 * null when memory runs out. */
HalvUserCMData *NewNode(int32_t kind, const void *bytes, uint32_t length) noexcept;

/* Links node at the end of the list at *head.  A node that already has a
 * next sibling, or that the walk meets in the list, isn't linked.  Result:
 * whether it was linked. */
bool AppendToList(HalvUserCMData **head, HalvUserCMData *node) noexcept;

/* ---- The token reader ------------------------------------------------- */

/* Next gives a byte 0..255 except 0xFF, or kEndOfInput for the end of the
 * stream, a failed read or a 0xFF; a CR is dropped. */
constexpr int kEndOfInput = -1;

/* Where the token reader takes its bytes.  The reader may consume nothing
 * behind the byte that ends a token, so a stream is read one byte per read
 * call, except a library memory stream: that one is read in place through
 * its read view (window_ .. end_), and what was taken is consumed from it
 * when the source is finished, which leaves the stream exactly where byte
 * reads would have.  The window is the stream's own memory, so nothing may
 * write to that stream while the source is open. */
class ByteSource {
  public:
    /* inPlace false keeps to read calls whatever the stream is. */
    ByteSource(HalvIO *stream, bool inPlace) noexcept;
    ~ByteSource() { Finish(); }
    ByteSource(const ByteSource &) = delete;
    ByteSource &operator=(const ByteSource &) = delete;

    int Next() noexcept {
        while (cursor_ < end_) {
            const unsigned char byte = *cursor_++;
            if (byte != 13)
                return byte == 0xFF ? kEndOfInput : byte;
        }
        return windowed_ ? kEndOfInput : NextByReading();
    }

    /* One raw read of up to count bytes, no CR dropping: the Base64 block.
     * The result is the read slot's, or what the window holds up to count,
     * as the memory streams' read slots give. */
    int32_t ReadRaw(void *buffer, uint32_t count) noexcept {
        if (!windowed_)
            return read_(in_, buffer, count);
        const auto take = (uint32_t)(end_ - cursor_) < count ? (uint32_t)(end_ - cursor_) : count;
        if (take != 0)
            std::memcpy(buffer, cursor_, take);
        cursor_ += take;
        return (int32_t)take;
    }

    /* Windowed only, right after Next gave an ordinary byte: that byte and
     * the bytes behind it that stop[] doesn't mark, taken as one run in the
     * window.  The scan ends before a marked byte; stop[] marks CR and 0xFF,
     * which Next must see. */
    template <class Marks> uint32_t TakeRunFromLast(const Marks &stop, const unsigned char **run) noexcept {
        const unsigned char *p = cursor_;
        while (p < end_ && !stop[*p])
            ++p;
        *run = cursor_ - 1;
        const auto length = (uint32_t)(p - *run);
        cursor_ = p;
        return length;
    }

    bool Windowed() const noexcept { return windowed_; }
    /* Windowed only: where the byte Next just gave lies. */
    const unsigned char *LastTaken() const noexcept { return cursor_ - 1; }

    /* Consumes from the stream what the window handed out; further reads go
     * on behind it. */
    void Finish() noexcept;

  private:
    int NextByReading() noexcept {
        for (;;) {
            unsigned char byte;
            if (read_(in_, &byte, 1) < 1)
                return kEndOfInput;
            if (byte != 13)
                return byte == 0xFF ? kEndOfInput : byte;
        }
    }

    HalvIO *in_;
    int32_t (*read_)(HalvIO *, void *, uint32_t); // fetched once: it is called for every byte
    const unsigned char *cursor_ = nullptr;
    const unsigned char *end_ = nullptr;
    const unsigned char *start_ = nullptr;
    void (*consume_)(HalvIO *, size_t) = nullptr;
    bool windowed_ = false;
};

/* Token text to an outside stream: one write call per byte, and a decoded
 * Base64 group in one call. */
struct StreamSink {
    static constexpr bool kCollectsOnly = false;
    HalvIO *out;

    bool Put(int c) noexcept {
        unsigned char byte = (unsigned char)c;
        return out->write(out, &byte, 1) >= 1;
    }
    bool PutBlock(const unsigned char *bytes, uint32_t count) noexcept {
        return out->write(out, bytes, count) == (int32_t)count;
    }
};

/* Token text collected in memory, up to the 32-bit length of a node.  A
 * failed allocation is a refused byte, as a full stream's would be.  Text
 * that lies in one piece in the source's window is only pointed at until
 * the node copies it, or until other bytes join it. */
class TextBuffer {
  public:
    static constexpr bool kCollectsOnly = true;

    /* Bytes that stay where they are while the text is collected. */
    bool PutInPlace(const unsigned char *bytes, uint32_t count) noexcept {
        if (!bytes_.empty() || (span_ != nullptr && span_ + spanLength_ != bytes))
            return PutBlock(bytes, count);
        if (UINT32_MAX - spanLength_ < count)
            return false;
        if (span_ == nullptr)
            span_ = bytes;
        spanLength_ += count;
        return true;
    }
    bool Put(int c) noexcept {
        if (span_ != nullptr && !Spill())
            return false;
        if (bytes_.size() == UINT32_MAX)
            return false;
        try {
            bytes_.push_back((char)c);
        } catch (...) {
            return false;
        }
        return true;
    }
    bool PutBlock(const unsigned char *bytes, uint32_t count) noexcept {
        if (span_ != nullptr && !Spill())
            return false;
        if (UINT32_MAX - bytes_.size() < count)
            return false;
        try {
            bytes_.append(reinterpret_cast<const char *>(bytes), count);
        } catch (...) {
            return false;
        }
        return true;
    }
    const char *Bytes() const noexcept { return span_ != nullptr ? (const char *)span_ : bytes_.data(); }
    uint32_t Length() const noexcept { return span_ != nullptr ? spanLength_ : (uint32_t)bytes_.size(); }
    void Clear() noexcept {
        bytes_.clear();
        span_ = nullptr;
        spanLength_ = 0;
    }

  private:
    /* Copies the text pointed at into the string, which is empty then. */
    bool Spill() noexcept {
        const unsigned char *span = span_;
        span_ = nullptr;
        const bool copied = PutBlock(span, spanLength_);
        spanLength_ = 0;
        return copied;
    }

    std::string bytes_;
    const unsigned char *span_ = nullptr;
    uint32_t spanLength_ = 0;
};

enum class Dialect { Current, Old };

/* Reads one token as HalvReadUserCM (or HalvReadOldUserCM) does, with the
 * token text going to sink.  Instantiated for StreamSink and TextBuffer. */
template <class Sink> int32_t ReadToken(ByteSource &source, Sink &sink, Dialect dialect) noexcept;

} // namespace halv

#endif
