/*
 * headers/binary_write.cpp - a header flattened into one 'B' 'H' block.
 *
 * The size is worked out first as an upper bound (every node of the tree
 * counted as a name field, plus room for a colour-space name that may have
 * to be added), so that the caller's buffer is tested once and the block is
 * then written straight through.  Only the section - key - value levels of
 * the tree travel; anything else is passed over with what hangs below it.
 */
#include <cstring>

#include "halv_headers.h"
#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/binary_layout.h"

namespace {

using namespace halv::binary;

/* Node kinds of the levels that travel. */
constexpr int32_t kSectionKind = 1;
constexpr int32_t kKeyKind = 2;
/* Names longer than their length byte are cut to it. */
constexpr uint32_t kMaxNameLength = 255;

uint64_t TreeBound(const HalvUserCMData *node) noexcept {
    uint64_t bytes = 0;
    for (; node != nullptr; node = node->next)
        bytes += 4 + NameFieldBytes(node->length) + TreeBound(node->children);
    return bytes;
}

/* The bytes a buffer needs for header: an upper bound of the block. */
uint64_t BlockBound(const HalvHeaderStruct *header) noexcept {
    uint64_t colorName = std::strlen(HalvClr2Str(header->color));
    return kFixedBytes + TreeBound(header->userData) + ((colorName + 8) & ~3ull) + 32;
}

/* Writes the fixed part and the tree into a zeroed block. */
class BlockWriter {
  public:
    BlockWriter(unsigned char *block, bool reverse) noexcept : block_(block), reverse_(reverse) {}

    void Word(uint32_t offset, uint32_t value) noexcept {
        if (reverse_)
            value = __builtin_bswap32(value);
        std::memcpy(block_ + offset, &value, 4);
    }

    void Words(uint32_t offset, const uint32_t *values, uint32_t count) noexcept {
        for (uint32_t i = 0; i < count; ++i)
            Word(offset + 4 * i, values[i]);
    }

    /* The tree from the fixed part on; its length. */
    uint32_t Tree(const HalvUserCMData *tree, const char *colorName) noexcept {
        cursor_ = kFixedBytes;
        bool photometrySeen = false;
        for (const HalvUserCMData *section = tree; section != nullptr; section = section->next) {
            if (section->kind != kSectionKind)
                continue;
            uint32_t start = OpenElement(section->text, section->length);
            bool photometry = Named(section, "Photometry");
            bool nameSeen = false;
            for (const HalvUserCMData *key = section->children; key != nullptr; key = key->next) {
                if (key->kind != kKeyKind)
                    continue;
                nameSeen = nameSeen || (photometry && Named(key, "name"));
                uint32_t keyStart = OpenElement(key->text, key->length);
                for (const HalvUserCMData *value = key->children; value != nullptr; value = value->next)
                    Value(value->text, value->length);
                CloseElement(keyStart);
            }
            if (photometry && !nameSeen)
                ColorKey(colorName);
            photometrySeen = photometrySeen || photometry;
            CloseElement(start);
        }
        if (!photometrySeen) {
            uint32_t start = OpenElement("Photometry", 10);
            ColorKey(colorName);
            CloseElement(start);
        }
        return cursor_ - kFixedBytes;
    }

  private:
    static bool Named(const HalvUserCMData *node, const char *name) noexcept {
        return node->text != nullptr && HalvStrCaseCmp(node->text, name) == 0;
    }

    /* The length word (filled in by CloseElement) and the name field; the
     * element's start. */
    uint32_t OpenElement(const char *name, uint32_t length) noexcept {
        uint32_t start = cursor_;
        if (length > kMaxNameLength)
            length = kMaxNameLength;
        block_[start + 4] = (unsigned char)length;
        if (length > 0)
            std::memcpy(block_ + start + 5, name, length);
        cursor_ = start + 4 + NameFieldBytes(length);
        return start;
    }

    void CloseElement(uint32_t start) noexcept { Word(start, cursor_ - start - 4); }

    void Value(const char *text, uint32_t length) noexcept {
        Word(cursor_, length);
        if (length > 0)
            std::memcpy(block_ + cursor_ + 4, text, length);
        cursor_ += 4 + ValueTextBytes(length);
    }

    void ColorKey(const char *colorName) noexcept {
        uint32_t start = OpenElement("name", 4);
        Value(colorName, (uint32_t)std::strlen(colorName));
        CloseElement(start);
    }

    unsigned char *block_;
    bool reverse_;
    uint32_t cursor_ = kFixedBytes;
};

char OrderByte(bool big) noexcept { return big ? kBig : kLittle; }

void WriteBlock(const HalvHeaderStruct *header, bool big, unsigned char *block, uint32_t entries) noexcept {
    bool machineBig = HalvIdentifyEndian() != 0;
    BlockWriter writer(block, big != machineBig);
    block[kMagicOffset] = 'B';
    block[kMagicOffset + 1] = 'H';
    block[kBlockOrderOffset] = (unsigned char)OrderByte(big);
    int32_t endian = header->endian == -1 ? HalvIdentifyEndian() : header->endian;
    block[kPixelOrderOffset] = (unsigned char)OrderByte(endian != 0);
    writer.Word(kManagerTypeOffset, (uint32_t)header->managerType);
    writer.Word(kInterleaveOffset, header->interleave);
    writer.Word(kDimCountOffset, header->dimCount);
    writer.Words(kDimsOffset, header->dims, header->dimCount);
    writer.Words(kPartsOffset, header->parts, 3);
    writer.Words(kBitsOffset, header->bitsPerSample, entries);
    writer.Words(kBytesOffset, header->bytesPerSep, entries);
    for (uint32_t i = 0; i < entries; ++i)
        writer.Word(kKindOffset + 4 * i, header->bitsPerSample[i] == 32 ? kKind32Bit : 0);
    writer.Word(kAlignmentOffset, header->alignment);
    writer.Word(kMinimumChunkOffset, header->minimumChunk);
    writer.Word(kPreferredChunkOffset, header->preferredChunk);
    writer.Word(kTreeLengthOffset, writer.Tree(header->userData, HalvClr2Str(header->color)));
}

} // namespace

extern "C" {

HALV_API int32_t HalvBinHdrFromHdr(const HalvHeaderStruct *header, int32_t order, void **buffer,
                                   uint32_t capacity) noexcept {
    if (header == nullptr)
        return -1;
    uint64_t entries = TableEntries(header->managerType, header->parts);
    uint64_t bound = BlockBound(header);
    if (entries > kTablePlaces || header->dimCount > kMaxDims || bound > INT32_MAX)
        return -1; /* beyond what the block's tables or a result can hold */
    if (buffer == nullptr)
        return (int32_t)bound;
    unsigned char *block = static_cast<unsigned char *>(*buffer);
    if (block == nullptr) {
        block = static_cast<unsigned char *>(halv_internal_malloc((size_t)bound));
        if (block == nullptr)
            return -1;
        *buffer = block;
    } else if (capacity < bound) {
        return -1;
    }
    std::memset(block, 0, (size_t)bound);
    WriteBlock(header, order != 0, block, (uint32_t)entries);
    uint32_t tree;
    std::memcpy(&tree, block + kTreeLengthOffset, 4);
    if ((order != 0) != (HalvIdentifyEndian() != 0))
        tree = __builtin_bswap32(tree);
    return (int32_t)(kFixedBytes + tree);
}

} // extern "C"
