/*
 * headers/binary_read.cpp - a generic header back from a 'B' 'H' block.
 *
 * The tree is read in three nested loops, sections, keys and values, and
 * every length is checked against the one around it before anything is
 * taken from it, so that a block whose lengths lie fails instead of
 * reading beyond itself.  The block doesn't say what kind of value a text
 * was; its bytes tell (control bytes: data, one of "<>[]:": a string,
 * else a word).
 *
 * Borrowing: each node's text points into the block, which the node is
 * flagged not to free.  A borrowed text is used as a C string, so it must
 * be followed by one of its zero bytes; a block without it is refused.
 */
#include <cstring>

#include "halv_headers.h"
#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/binary_layout.h"
#include "headers/internal.h"

namespace {

using namespace halv::binary;

constexpr int32_t kSectionKind = 1;
constexpr int32_t kKeyKind = 2;
constexpr int32_t kWordKind = 3;
constexpr int32_t kStringKind = 4;
constexpr int32_t kDataKind = 5;

/* What a byte says of the value it is in: nothing, that the value must be
 * quoted as a string, or that it is binary data (a byte below 0x20 taken
 * as signed, so 0x80 and up count too). */
enum ByteClass : unsigned char { kPlain, kMarker, kControl };

constexpr struct ByteClasses {
    ByteClass of[256];
    constexpr ByteClasses() : of() {
        for (int c = 0; c < 256; ++c)
            of[c] = c < 0x20 || c >= 0x80 ? kControl : kPlain;
        for (const char *m = "<>[]:"; *m != '\0'; ++m)
            of[(unsigned char)*m] = kMarker;
    }
} kByteClasses;

/* Eight bytes at a time: a lane below 0x20 or from 0x80 up is a control
 * byte, a lane equal to one of the markers a marker.  (The borrow out of a
 * lane in the subtraction can only flag a lane above one that is already
 * flagged, so "any" stays exact.) */
constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;

constexpr uint64_t LanesBelow(uint64_t w, unsigned char n) { return (w - kOnes * n) & ~w & kHighs; }
constexpr uint64_t LanesEqual(uint64_t w, unsigned char c) { return LanesBelow(w ^ (kOnes * c), 1); }

int32_t ValueKind(const unsigned char *text, uint32_t length) noexcept {
    bool marked = false;
    uint32_t i = 0;
    for (; i + 8 <= length; i += 8) {
        uint64_t w;
        std::memcpy(&w, text + i, 8);
        if (((w & kHighs) | LanesBelow(w, 0x20)) != 0)
            return kDataKind;
        marked = marked || (LanesEqual(w, '<') | LanesEqual(w, '>') | LanesEqual(w, '[') | LanesEqual(w, ']') |
                            LanesEqual(w, ':')) != 0;
    }
    for (; i < length; ++i) {
        ByteClass c = kByteClasses.of[text[i]];
        if (c == kControl)
            return kDataKind;
        marked = marked || c == kMarker;
    }
    return marked ? kStringKind : kWordKind;
}

class BlockReader {
  public:
    BlockReader(const unsigned char *block, bool reverse, bool borrow) noexcept
        : block_(block), reverse_(reverse), borrow_(borrow) {}

    uint32_t Word(uint32_t offset) const noexcept {
        uint32_t value;
        std::memcpy(&value, block_ + offset, 4);
        return reverse_ ? __builtin_bswap32(value) : value;
    }

    void Words(uint32_t offset, uint32_t *values, uint32_t count) const noexcept {
        for (uint32_t i = 0; i < count; ++i)
            values[i] = Word(offset + 4 * i);
    }

    /* The tree of length bytes from the fixed part on into *tree; false
     * when a length runs past the one around it or memory runs out (what
     * was built is in *tree all the same, for the caller to free). */
    bool Tree(uint32_t length, HalvUserCMData **tree) noexcept {
        uint32_t at = kFixedBytes;
        HalvUserCMData **nextSection = tree;
        while (length > 0) {
            uint32_t sectionLength;
            if (!Element(at, length, kSectionKind, nextSection, &sectionLength))
                return false;
            HalvUserCMData *section = *nextSection;
            nextSection = &section->next;
            HalvUserCMData **nextKey = &section->children;
            while (sectionLength > 0) {
                uint32_t keyLength;
                if (!Element(at, sectionLength, kKeyKind, nextKey, &keyLength))
                    return false;
                HalvUserCMData *key = *nextKey;
                nextKey = &key->next;
                HalvUserCMData **nextValue = &key->children;
                while (keyLength > 0) {
                    if (!Value(at, keyLength, nextValue))
                        return false;
                    nextValue = &(*nextValue)->next;
                }
            }
        }
        return true;
    }

  private:
    /* Takes 4 + n from *left when it holds that much. */
    static bool Take(uint32_t *left, uint64_t n) noexcept {
        if (n > *left)
            return false;
        *left -= (uint32_t)n;
        return true;
    }

    /* A section or key at *at: its length word, taken from *outer, and its
     * name field, taken from its own length, which is left in *inner. */
    bool Element(uint32_t &at, uint32_t &outer, int32_t kind, HalvUserCMData **link, uint32_t *inner) noexcept {
        if (outer < 4)
            return false;
        uint32_t length = Word(at);
        if (!Take(&outer, (uint64_t)length + 4) || length < 1)
            return false;
        uint32_t nameLength = block_[at + 4];
        uint32_t field = NameFieldBytes(nameLength);
        if (!Take(&length, field))
            return false;
        if (!Link(link, kind, at + 5, nameLength))
            return false;
        at += 4 + field;
        *inner = length;
        return true;
    }

    bool Value(uint32_t &at, uint32_t &outer, HalvUserCMData **link) noexcept {
        if (outer < 4)
            return false;
        uint32_t length = Word(at);
        if ((uint64_t)length + 4 > outer || !Take(&outer, 4 + (uint64_t)ValueTextBytes(length)))
            return false;
        if (!Link(link, ValueKind(block_ + at + 4, length), at + 4, length))
            return false;
        at += 4 + ValueTextBytes(length);
        return true;
    }

    /* A new node of text at offset, linked at *link. */
    bool Link(HalvUserCMData **link, int32_t kind, uint32_t offset, uint32_t length) noexcept {
        const char *text = reinterpret_cast<const char *>(block_ + offset);
        if (borrow_ && text[length] != '\0')
            return false;
        auto *node = static_cast<HalvUserCMData *>(halv_internal_malloc(sizeof(HalvUserCMData)));
        if (node == nullptr)
            return false;
        *node = HalvUserCMData{const_cast<char *>(text), length, borrow_ ? 1 : 0, kind, nullptr, nullptr};
        if (!borrow_) {
            node->text = static_cast<char *>(halv_internal_malloc((size_t)length + 1));
            if (node->text == nullptr) {
                halv_internal_free(node);
                return false;
            }
            std::memcpy(node->text, text, length);
            node->text[length] = '\0';
        }
        *link = node;
        return true;
    }

    const unsigned char *block_;
    bool reverse_;
    bool borrow_;
};

bool IsOrderByte(unsigned char c) noexcept { return c == kLittle || c == kBig; }

} // namespace

extern "C" {

HALV_API HalvHeaderStruct *HalvBinHdrToHdr(const void *block, uint32_t size, int32_t borrow) noexcept {
    const auto *bytes = static_cast<const unsigned char *>(block);
    if (bytes == nullptr || (size > 0 && size < kFixedBytes))
        return nullptr;
    if (bytes[0] != 'B' || bytes[1] != 'H' || !IsOrderByte(bytes[kBlockOrderOffset]) ||
        !IsOrderByte(bytes[kPixelOrderOffset]))
        return nullptr;
    bool blockBig = bytes[kBlockOrderOffset] == kBig;
    BlockReader reader(bytes, blockBig != (HalvIdentifyEndian() != 0), borrow != 0);
    uint32_t treeLength = reader.Word(kTreeLengthOffset);
    if (size > 0 && size < (uint64_t)kFixedBytes + treeLength)
        return nullptr;
    uint32_t parts[3];
    reader.Words(kPartsOffset, parts, 3);
    int32_t managerType = (int32_t)reader.Word(kManagerTypeOffset);
    uint64_t entries = TableEntries(managerType, parts);
    uint32_t dimCount = reader.Word(kDimCountOffset);
    if (entries > kTablePlaces || dimCount > kMaxDims)
        return nullptr; /* more than the record's tables hold */

    auto *header = static_cast<HalvHeaderStruct *>(halv_internal_calloc(1, sizeof(HalvHeaderStruct)));
    if (header == nullptr)
        return nullptr;
    header->copy = HalvGenericHeaderCopy;
    header->free = HalvGenericHeaderFree;
    header->endian = bytes[kPixelOrderOffset] != kLittle ? 1 : 0;
    header->managerType = managerType;
    header->interleave = reader.Word(kInterleaveOffset);
    header->dimCount = dimCount;
    reader.Words(kDimsOffset, header->dims, dimCount);
    std::memcpy(header->parts, parts, sizeof parts);
    reader.Words(kBitsOffset, header->bitsPerSample, (uint32_t)entries);
    reader.Words(kBytesOffset, header->bytesPerSep, (uint32_t)entries);
    header->alignment = reader.Word(kAlignmentOffset);
    header->minimumChunk = reader.Word(kMinimumChunkOffset);
    header->preferredChunk = reader.Word(kPreferredChunkOffset);
    if (!reader.Tree(treeLength, &header->userData)) {
        header->free(header);
        return nullptr;
    }
    header->color = halv::ColorFromTree(&header->userData);
    header->compression = halv::CompressionFromTree(header->userData);
    return header;
}

} // extern "C"
