/*
 * userdata/internal.h - pieces the user data files share: name comparison,
 * node making, the byte source and sinks of the token reader, and the
 * growing text buffer that collects token text.
 */
#ifndef HALV_USERDATA_INTERNAL_H
#define HALV_USERDATA_INTERNAL_H

#include <cstdint>
#include <cstring>

#include "halv_core.h"
#include "halv_userdata.h"

namespace halv {

/* ---- Names ------------------------------------------------------------ */

/* Folds the 26 ASCII capitals; every other byte stays as it is. */
inline unsigned char FoldAscii(unsigned char c) noexcept {
    return (c >= 'A' && c <= 'Z') ? (unsigned char)(c + ('a' - 'A')) : c;
}

/* Equal over n bytes ignoring ASCII case. */
bool SameFolded(const char *a, const char *b, uint32_t n) noexcept;

/* The node's name is text[0..length) by length first, then ignoring case. */
inline bool NodeNamed(const HalvUserCMData *node, const char *text, uint32_t length) noexcept {
    return node->length == length && (length == 0 || SameFolded(node->text, text, length));
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

/* Where the token reader takes its bytes: the stream's read slot, one byte
 * per call.  It holds no state of its own, so it is passed by value.  Next gives a byte 0..255 except 0xFF, or kEndOfInput for the
 * end of the stream, a failed read or a 0xFF; a CR is dropped. */
constexpr int kEndOfInput = -1;

struct ByteSource {
    explicit ByteSource(HalvIO *stream) noexcept : in(stream), read(stream->read) {}

    HalvIO *in;
    int32_t (*read)(HalvIO *, void *, uint32_t); // fetched once: it is called for every byte

    int Next() const noexcept {
        for (;;) {
            unsigned char byte;
            if (read(in, &byte, 1) < 1)
                return kEndOfInput;
            if (byte == 13)
                continue;
            return byte == 0xFF ? kEndOfInput : byte;
        }
    }

    /* One raw read call, no CR dropping: the Base64 block. */
    int32_t ReadRaw(void *buffer, uint32_t count) const noexcept { return read(in, buffer, count); }
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

/* A growing byte buffer in memory, without limit but the 32-bit length. */
class TextBuffer {
  public:
    static constexpr bool kCollectsOnly = true;
    TextBuffer() noexcept = default;
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;
    ~TextBuffer() { halv_internal_free(bytes_); }

    bool Put(int c) noexcept {
        if (length_ == capacity_ && !Grow(1))
            return false;
        bytes_[length_++] = (char)c;
        return true;
    }
    bool PutBlock(const unsigned char *bytes, uint32_t count) noexcept {
        if (capacity_ - length_ < count && !Grow(count))
            return false;
        std::memcpy(bytes_ + length_, bytes, count);
        length_ += count;
        return true;
    }
    const char *Bytes() const noexcept { return bytes_ != nullptr ? bytes_ : ""; }
    uint32_t Length() const noexcept { return length_; }
    void Clear() noexcept { length_ = 0; }

  private:
    bool Grow(uint32_t more) noexcept;

    char *bytes_ = nullptr;
    uint32_t length_ = 0;
    uint32_t capacity_ = 0;
};

enum class Dialect { Current, Old };

/* Reads one token as HalvReadUserCM (or HalvReadOldUserCM) does, with the
 * token text going to sink.  Instantiated for StreamSink and TextBuffer. */
template <class Sink> int32_t ReadToken(ByteSource source, Sink &sink, Dialect dialect) noexcept;

/* ---- Private memory stream -------------------------------------------- */

/* A read-only stream over caller-owned bytes, living on the caller's stack:
 * close does nothing.  Reads run to the end of the given length. */
struct MemoryReader {
    HalvIO io;
    const unsigned char *bytes;
    uint32_t length;
    uint32_t position;
};
void OpenMemoryReader(MemoryReader *reader, const void *bytes, uint32_t length) noexcept;

} // namespace halv

#endif
