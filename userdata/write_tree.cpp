/*
 * userdata/write_tree.cpp - HalvWriteUserCMData: a tree as text.
 *
 * Each node is printed by its kind, then its children, then its siblings.
 * Texts go out with their stored length and are never escaped or quoted, so
 * which kind reads back the same is the business of whoever made the node.
 * Output is staged in a small buffer so that a stream sees few large writes;
 * only the pieces of a Base64 block go out as writes of their own.
 */
#include "userdata/internal.h"

namespace halv {
namespace {

/* Base64 text leaves in writes of at most this many characters. */
constexpr uint32_t kBase64Piece = 68;

class Emitter {
  public:
    explicit Emitter(HalvIO *out) noexcept : out_(out) {}

    bool Failed() const noexcept { return failed_; }

    void Put(const void *bytes, uint32_t count) noexcept {
        if (failed_ || count == 0)
            return;
        if (count > sizeof staged_ - used_) {
            Flush();
            if (count >= sizeof staged_) {
                WriteThrough(bytes, count);
                return;
            }
        }
        std::memcpy(staged_ + used_, bytes, count);
        used_ += count;
    }
    void Put(const char *text) noexcept { Put(text, (uint32_t)std::strlen(text)); }

    /* Hands on what is staged; later bytes follow in new writes. */
    void Flush() noexcept {
        const uint32_t count = used_;
        used_ = 0;
        WriteThrough(staged_, count);
    }

    /* One write of its own for these bytes (up to 1 GiB). */
    void WriteSeparately(const void *bytes, uint32_t count) noexcept {
        Flush();
        WriteThrough(bytes, count);
    }

  private:
    /* Writes in calls of at most 1 GiB, so a count fits the slot's result;
     * a call that takes fewer bytes than given fails the whole output. */
    void WriteThrough(const void *bytes, uint32_t count) noexcept {
        const auto *from = static_cast<const char *>(bytes);
        while (!failed_ && count != 0) {
            const uint32_t piece = count < (1u << 30) ? count : (1u << 30);
            if (out_->write(out_, from, piece) < (int32_t)piece)
                failed_ = true;
            from += piece;
            count -= piece;
        }
    }

    HalvIO *out_;
    bool failed_ = false;
    uint32_t used_ = 0;
    char staged_[4096];
};

void WriteBase64(Emitter &emit, const unsigned char *bytes, uint32_t length) noexcept {
    constexpr uint32_t kBytesPerPiece = kBase64Piece / 4 * 3;
    char piece[kBase64Piece];
    while (length != 0 && !emit.Failed()) {
        const uint32_t take = length < kBytesPerPiece ? length : kBytesPerPiece;
        uint32_t used = 0;
        for (uint32_t i = 0; i < take; i += 3) {
            const uint32_t left = take - i;
            const uint32_t bits = (uint32_t)bytes[i] << 16 | (left > 1 ? (uint32_t)bytes[i + 1] << 8 : 0) |
                                  (left > 2 ? bytes[i + 2] : 0);
            piece[used++] = kBase64Alphabet[bits >> 18 & 63];
            piece[used++] = kBase64Alphabet[bits >> 12 & 63];
            piece[used++] = left > 1 ? kBase64Alphabet[bits >> 6 & 63] : '=';
            piece[used++] = left > 2 ? kBase64Alphabet[bits & 63] : '=';
        }
        emit.WriteSeparately(piece, used);
        bytes += take;
        length -= take;
    }
}

/* Writes one sibling list with everything below it.  Result: true when the
 * walk is to end, at a top-level End or a failed write. */
bool WriteList(Emitter &emit, const HalvUserCMData *node, int32_t rootKind) noexcept {
    for (bool first = true; node != nullptr; node = node->next, first = false) {
        const char *text = node->text != nullptr ? node->text : "";
        const uint32_t length = node->text != nullptr ? node->length : 0;
        switch (node->kind) {
        case HALV_UCM_ITEM:
        case HALV_UCM_SECTION: {
            const bool isItem = node->kind == HALV_UCM_ITEM;
            if (!first)
                emit.Put("\n", 1);
            emit.Put(isItem ? "<" : "[", 1);
            emit.Put(text, length);
            emit.Put(isItem ? ">" : "]", 1);
            if (node->kind == rootKind && NodeIsEnd(node))
                return true;
            emit.Put("\n", 1);
            break;
        }
        case HALV_UCM_LABEL:
            emit.Put(text, length);
            emit.Put(": ", 2);
            break;
        case HALV_UCM_WORD:
            emit.Put(text, length);
            emit.Put("\n", 1);
            break;
        case HALV_UCM_STRING:
            emit.Put("\"", 1);
            emit.Put(text, length);
            emit.Put("\"\n", 2);
            break;
        case HALV_UCM_DATA:
            emit.Put("\"<<<<Base64Data:");
            WriteBase64(emit, reinterpret_cast<const unsigned char *>(text), length);
            emit.Put(">>>>\"\n");
            break;
        default:
            break; // a kind the language doesn't know prints nothing
        }
        if (emit.Failed())
            return true;
        if (node->children != nullptr && WriteList(emit, node->children, rootKind))
            return true;
    }
    return false;
}

} // namespace
} // namespace halv

extern "C" {

HALV_API int32_t HalvWriteUserCMData(const HalvUserCMData *tree, HalvIO *out) noexcept {
    if (out == nullptr)
        return 0;
    if (tree == nullptr)
        return 1;
    halv::Emitter emit(out);
    halv::WriteList(emit, tree, tree->kind);
    emit.Flush();
    return emit.Failed() ? -1 : 1;
}

} // extern "C"
