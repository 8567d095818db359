/*
 * tests/headers/test_binary.cpp - headers flattened into 'B' 'H' blocks and
 * read back: the stored bytes, both byte orders, borrowed texts, and blocks
 * whose lengths lie.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

using Bytes = std::vector<unsigned char>;

uint32_t WordAt(const Bytes &b, size_t at, bool big = false) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (uint32_t)b[at + (big ? 3 - i : i)] << (8 * i);
    return v;
}

void PutWord(Bytes &b, size_t at, uint32_t v, bool big = false) {
    for (int i = 0; i < 4; ++i)
        b[at + (big ? 3 - i : i)] = (unsigned char)(v >> (8 * i));
}

struct HeaderDeleter {
    void operator()(HalvHeaderStruct *h) const {
        if (h != nullptr)
            h->free(h);
    }
};
using Header = std::unique_ptr<HalvHeaderStruct, HeaderDeleter>;

Header NewHeader() {
    auto *h = static_cast<HalvHeaderStruct *>(halv_internal_calloc(1, sizeof(HalvHeaderStruct)));
    HalvInitGenericHeader(h);
    return Header(h);
}

/* The block of header in order, through an allocated buffer. */
Bytes Flatten(const HalvHeaderStruct *header, int32_t order) {
    void *buffer = nullptr;
    int32_t size = HalvBinHdrFromHdr(header, order, &buffer, 0);
    EXPECT_GT(size, 0);
    Bytes block(static_cast<unsigned char *>(buffer),
                static_cast<unsigned char *>(buffer) + (size > 0 ? size : 0));
    halv_internal_free(buffer);
    return block;
}

Header Read(const Bytes &block, bool borrow = false) {
    return Header(HalvBinHdrToHdr(block.data(), (uint32_t)block.size(), borrow ? 1 : 0));
}

/* The tree as text lines "kind:text" in depth-first order. */
std::string Shape(const HalvUserCMData *node, int depth = 0) {
    std::string out;
    for (; node != nullptr; node = node->next) {
        out += std::string(depth * 2, ' ') + std::to_string(node->kind) + ":" +
               std::string(node->text ? node->text : "", node->length) + "\n";
        out += Shape(node->children, depth + 1);
    }
    return out;
}

/* The fields a block carries, but for colour and compression, which
 * travel in the tree. */
void ExpectSameGeometry(const HalvHeaderStruct *back, const HalvHeaderStruct *h) {
    EXPECT_EQ(back->managerType, h->managerType);
    EXPECT_EQ(back->endian, h->endian);
    EXPECT_EQ(back->dimCount, h->dimCount);
    EXPECT_EQ(back->interleave, h->interleave);
    EXPECT_EQ(back->alignment, h->alignment);
    EXPECT_EQ(back->minimumChunk, h->minimumChunk);
    EXPECT_EQ(back->preferredChunk, h->preferredChunk);
    EXPECT_EQ(0, std::memcmp(back->parts, h->parts, sizeof h->parts));
    EXPECT_EQ(0, std::memcmp(back->dims, h->dims, sizeof h->dims));
    EXPECT_EQ(0, std::memcmp(back->bitsPerSample, h->bitsPerSample, sizeof h->bitsPerSample));
    EXPECT_EQ(0, std::memcmp(back->bytesPerSep, h->bytesPerSep, sizeof h->bytesPerSep));
}

/* A tree read from header text. */
HalvUserCMData *TreeOf(const std::string &text) {
    std::string copy = text;
    HalvIO *in = HalvIO_Str(copy.data(), (uint32_t)copy.size());
    HalvUserCMData *tree = nullptr;
    EXPECT_EQ(HalvReadUserCMData(in, &tree, 0), 1);
    in->close(in);
    return tree;
}

} // namespace

TEST(BinaryHeader, AnEmptyHeaderCarriesItsColourSpaceAndNothingElse) {
    Header h = NewHeader();
    Bytes block = Flatten(h.get(), 0);
    ASSERT_EQ(block.size(), 556u + 40u);
    EXPECT_EQ(std::string(block.begin(), block.begin() + 4), "BHLL");
    EXPECT_EQ(WordAt(block, 552), 40u);
    const unsigned char tree[40] = {36, 0, 0, 0, 10, 'P', 'h', 'o', 't', 'o', 'm', 'e', 't', 'r', 'y', 0,
                                    20, 0, 0, 0, 4, 'n', 'a', 'm', 'e', 0, 0, 0,
                                    7, 0, 0, 0, 'u', 'n', 'k', 'n', 'o', 'w', 'n', 0};
    EXPECT_EQ(0, std::memcmp(block.data() + 556, tree, sizeof tree));
    for (size_t i = 4; i < 552; ++i)
        ASSERT_EQ(block[i], 0) << "fixed byte " << i;

    Header back = Read(block);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->color, 0) << "an unknown colour space stays a word in the tree";
    EXPECT_EQ(Shape(back->userData), "1:Photometry\n  2:name\n    3:unknown\n");
    EXPECT_EQ(back->copy, HalvGenericHeaderCopy);
    EXPECT_EQ(back->toHeader, nullptr);
}

TEST(BinaryHeader, SizeQueriesBuffersAndCapacity) {
    Header h = NewHeader();
    h->color = 2;
    h->userData = TreeOf("[Origin]\nsite: bench\n[Photometry]\ngamma: 2.2\n");
    int32_t bound = HalvBinHdrFromHdr(h.get(), 0, nullptr, 0);
    ASSERT_GT(bound, 556);
    std::vector<unsigned char> buffer(bound, 0xEE);
    void *pointer = buffer.data();
    EXPECT_EQ(HalvBinHdrFromHdr(h.get(), 0, &pointer, (uint32_t)bound - 1), -1);
    EXPECT_EQ(buffer[0], 0xEE) << "a buffer too small stays untouched";
    int32_t size = HalvBinHdrFromHdr(h.get(), 0, &pointer, (uint32_t)bound);
    ASSERT_GT(size, 556);
    EXPECT_LE(size, bound);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + size), Flatten(h.get(), 0));
    for (int32_t i = size; i < bound; ++i)
        ASSERT_EQ(buffer[i], 0) << "the whole needed size is zeroed";
    EXPECT_EQ(HalvBinHdrFromHdr(nullptr, 0, nullptr, 0), -1);

    Header back = Read(Bytes(buffer.begin(), buffer.begin() + size));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->color, 2);
    EXPECT_EQ(Shape(back->userData), "1:Origin\n  2:site\n    3:bench\n1:Photometry\n  2:gamma\n    3:2.2\n")
        << "the name key added on the way out goes back into color";
}

TEST(BinaryHeader, FieldsAndTreeRoundTripInBothByteOrders) {
    Header h = NewHeader();
    h->managerType = HALV_HDR_IMAGE_EXT;
    h->endian = 1;
    h->parts[0] = 3;
    h->parts[1] = 1;
    h->dimCount = 2;
    h->dims[0] = 640;
    h->dims[1] = 480;
    for (int i = 0; i < 4; ++i) {
        h->bitsPerSample[i] = i == 3 ? 32 : 16;
        h->bytesPerSep[i] = 640 * (i == 3 ? 4 : 2);
    }
    h->interleave = 0;
    h->alignment = 4;
    h->minimumChunk = 7680;
    h->preferredChunk = 7680 * 32;
    h->color = 0;
    h->userData = TreeOf("[Raster]\npixels: 640\nlist: one two\nlist: again\n"
                         "[Compression]\ncompressors: lzw (a comment)\n[Notes]\ncolon: \"a: b\"\n"
                         "tab: \"a\tb\"\nbracket: \"[x]\"\n[Photometry]\nname: rgbLinear\n");
    for (int32_t order : {0, 1}) {
        SCOPED_TRACE(order ? "big-endian block" : "little-endian block");
        Bytes block = Flatten(h.get(), order);
        EXPECT_EQ(block[2], order ? 'B' : 'L');
        EXPECT_EQ(block[3], 'B') << "the pixel order is the header's, not the block's";
        EXPECT_EQ(WordAt(block, 4, order), (uint32_t)HALV_HDR_IMAGE_EXT);
        EXPECT_EQ(WordAt(block, 408 + 12, order), 2u) << "the sample kind of a 32-bit separation";
        EXPECT_EQ(WordAt(block, 408, order), 0u);
        for (bool borrow : {false, true}) {
            Header back = Read(block, borrow);
            ASSERT_NE(back, nullptr);
            ExpectSameGeometry(back.get(), h.get());
            EXPECT_EQ(back->color, 2) << "rgbLinear";
            EXPECT_EQ(back->compression, HalvStr2Comp("lzw"));
            /* value kinds come from their bytes */
            EXPECT_EQ(Shape(back->userData), "1:Raster\n  2:pixels\n    3:640\n  2:list\n    3:one two\n"
                                             "  2:list\n    3:again\n1:Compression\n  2:compressors\n"
                                             "    3:lzw (a comment)\n1:Notes\n  2:colon\n    4:a: b\n"
                                             "  2:tab\n    5:a\tb\n  2:bracket\n    4:[x]\n1:Photometry\n");
        }
    }
}

TEST(BinaryHeader, AKeyWithSeveralValuesAndNodesThatDoNotTravel) {
    Header h = NewHeader();
    /* a top-level key, a section, and an item with a section of its own */
    HalvUserCMData *loose = TreeOf("loose: word\n");
    HalvUserCMData *data = TreeOf("[Data]\nsize: 1\n");
    ASSERT_NE(loose, nullptr);
    ASSERT_NE(data, nullptr);
    loose->next = data;
    data->next = TreeOf("<item>\n[Inside]\nk: v\n");
    h->userData = loose;
    HalvUserCMData *size = HalvGetUserCMData(data, nullptr, "Data", "size");
    ASSERT_NE(size, nullptr);
    /* a second value, and a value-level node under the section that isn't a key */
    HalvUserCMData *second = TreeOf("two\n");
    ASSERT_NE(second, nullptr);
    size->children->next = second;
    Bytes block = Flatten(h.get(), 0);
    Header back = Read(block);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(Shape(back->userData),
              "1:Data\n  2:size\n    3:1\n    3:two\n1:Photometry\n  2:name\n    3:unknown\n");
}

TEST(BinaryHeader, ValueKindsComeFromEveryByteOfLongValues) {
    /* long values are looked at eight bytes at a time: put the telling
     * byte in every position of a 24-byte value */
    for (size_t at = 0; at < 24; ++at) {
        for (auto [byte, kind] : {std::pair<char, int32_t>{':', 4},
                                  {']', 4},
                                  {'\x1f', 5},
                                  {'\x80', 5},
                                  {'\xff', 5},
                                  {' ', 3},
                                  {'~', 3},
                                  {';', 3},
                                  {'\\', 3}}) {
            std::string value(24, 'v');
            value[at] = byte;
            HalvUserCMData *tree = HVHdrSetHeaderParam(nullptr, "S", "k", "x");
            HalvUserCMData *node = HalvGetUserCMData(tree, nullptr, "S", "k")->children;
            halv_internal_free(node->text);
            node->text = static_cast<char *>(halv_internal_malloc(value.size() + 1));
            std::memcpy(node->text, value.c_str(), value.size() + 1);
            node->length = (uint32_t)value.size();
            Header h = NewHeader();
            h->userData = tree;
            Bytes block = Flatten(h.get(), 0);
            Header back = Read(block, true); /* borrows from block */
            ASSERT_NE(back, nullptr);
            const HalvUserCMData *k = HalvGetUserCMData(back->userData, nullptr, "S", "k");
            ASSERT_NE(k, nullptr);
            EXPECT_EQ(k->children->kind, kind) << "byte " << (int)(unsigned char)byte << " at " << at;
            EXPECT_EQ(std::string(k->children->text, k->children->length), value);
        }
    }
}

TEST(BinaryHeader, InfoHeadersHaveOneTableEntry) {
    Header h = NewHeader();
    h->managerType = HALV_HDR_INFO;
    h->parts[0] = 5;
    h->bitsPerSample[0] = 8;
    h->bytesPerSep[0] = 20;
    h->bitsPerSample[1] = 99;
    Bytes block = Flatten(h.get(), 0);
    EXPECT_EQ(WordAt(block, 152), 8u);
    EXPECT_EQ(WordAt(block, 156), 0u) << "only one entry goes out";
    PutWord(block, 156, 77);
    Header back = Read(block);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->bytesPerSep[0], 20u);
    EXPECT_EQ(back->bitsPerSample[1], 0u) << "and only one comes back";
}

TEST(BinaryHeader, BorrowedTextsPointIntoTheBlockWhichFreeingLeavesAlone) {
    Header h = NewHeader();
    h->userData = TreeOf("[Origin]\nsite: far away\n");
    Bytes block = Flatten(h.get(), 0);
    auto *copy = static_cast<unsigned char *>(halv_internal_malloc(block.size()));
    std::memcpy(copy, block.data(), block.size());
    HalvHeaderStruct *borrowed = HalvBinHdrToHdr(copy, 0, 1);
    ASSERT_NE(borrowed, nullptr);
    const HalvUserCMData *site = HalvGetUserCMData(borrowed->userData, nullptr, "Origin", "site");
    ASSERT_NE(site, nullptr);
    ASSERT_NE(site->children, nullptr);
    EXPECT_GE((const unsigned char *)site->children->text, copy);
    EXPECT_LT((const unsigned char *)site->children->text, copy + block.size());
    EXPECT_STREQ(site->children->text, "far away");
    /* a copy owns its texts, so it outlives the block */
    HalvHeaderStruct *owned = borrowed->copy(borrowed);
    borrowed->free(borrowed);
    EXPECT_EQ(0, std::memcmp(copy, block.data(), block.size())) << "the block stays as it was";
    halv_internal_free(copy); /* any later use of it would be a use after free */
    ASSERT_NE(owned, nullptr);
    EXPECT_STREQ(HVHdrGetHeaderParam(owned->userData, "Origin", "site"), "far away");
    owned->free(owned);
}

TEST(BinaryHeader, BlocksThatAreTooSmallOrNotBlocks) {
    Bytes minimal(556, 0);
    minimal[0] = 'B';
    minimal[1] = 'H';
    minimal[2] = minimal[3] = 'L';
    Header empty = Read(minimal);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->userData, nullptr);
    EXPECT_EQ(empty->color, 0);
    EXPECT_EQ(empty->compression, 0);
    EXPECT_EQ(HalvBinHdrToHdr(minimal.data(), 555, 0), nullptr);
    EXPECT_EQ(HalvBinHdrToHdr(minimal.data(), 1, 0), nullptr);
    EXPECT_EQ(HalvBinHdrToHdr(nullptr, 0, 0), nullptr);
    // The tree length runs past the size, too many parts or dimensions.
    for (auto [at, value] : {std::pair<size_t, uint32_t>{552, 4}, {140, 33}, {8, 11}}) {
        Bytes wrong = minimal;
        PutWord(wrong, at, value);
        EXPECT_EQ(Read(wrong), nullptr) << at;
    }
    for (size_t at : {0, 1, 2, 3}) {
        Bytes wrong = minimal;
        wrong[at] = 'X';
        EXPECT_EQ(Read(wrong), nullptr) << "byte " << at;
    }
    Header wide = NewHeader();
    wide->parts[0] = 33;
    EXPECT_EQ(HalvBinHdrFromHdr(wide.get(), 0, nullptr, 0), -1) << "a header the block's tables can't hold";
}

TEST(BinaryHeader, LengthsThatLieAtEveryLevelFailWithoutReadingPastTheBlock) {
    Header h = NewHeader();
    h->userData = TreeOf("[S]\nkey: value\n");
    const Bytes good = Flatten(h.get(), 0);
    /* offsets: section word 556, its name field "S" 560 (4 bytes), key word
     * 564, key name "key" 568 (8 bytes), value word 576, text 580 */
    ASSERT_EQ(WordAt(good, 576), 5u);
    struct Lie {
        const char *what;
        size_t at;
        uint32_t value;
    } lies[] = {
        {"section longer than the tree", 556, WordAt(good, 556) + 1},
        {"section too short for its name", 556, 3},
        {"key longer than its section", 564, WordAt(good, 564) + 1},
        {"key too short for its name", 564, 7},
        {"value longer than its key", 576, WordAt(good, 576) + 4},
        {"value whose padding runs past its key", 576, 9},
        {"tree length in the billions", 552, 0xFFFFFFF0},
        {"section length that wraps", 556, 0xFFFFFFFC},
    };
    for (const Lie &lie : lies) {
        for (bool vouched : {false, true}) {
            SCOPED_TRACE(std::string(lie.what) + (vouched ? ", size 0" : ", size given"));
            if (vouched && lie.at == 552)
                continue; /* size 0 trusts the tree length itself */
            Bytes bad = good;
            PutWord(bad, lie.at, lie.value);
            /* exactly the block's bytes, so that a read past them is caught */
            std::unique_ptr<unsigned char[]> exact(new unsigned char[bad.size()]);
            std::memcpy(exact.get(), bad.data(), bad.size());
            for (int32_t borrow : {0, 1})
                EXPECT_EQ(HalvBinHdrToHdr(exact.get(), vouched ? 0 : (uint32_t)bad.size(), borrow), nullptr);
        }
    }
    Bytes unterminated = good;
    unterminated[580 + 5] = 'x'; /* the value's zero byte */
    EXPECT_EQ(HalvBinHdrToHdr(unterminated.data(), (uint32_t)unterminated.size(), 1), nullptr)
        << "a borrowed text must end in the block";
    Header copied = Read(unterminated);
    ASSERT_NE(copied, nullptr) << "a copied text gets its own end";
    EXPECT_STREQ(HVHdrGetHeaderParam(copied->userData, "S", "key"), "value");
}

TEST(BinaryHeader, AMillionSectionsReadAndFreeWithoutRecursion) {
    const uint32_t sections = 1000000;
    Bytes block(556 + (size_t)sections * 8, 0);
    block[0] = 'B';
    block[1] = 'H';
    block[2] = block[3] = 'L';
    PutWord(block, 552, sections * 8);
    for (uint32_t i = 0; i < sections; ++i)
        PutWord(block, 556 + (size_t)i * 8, 4); /* an empty name field, no keys */
    Header back = Read(block, true);
    ASSERT_NE(back, nullptr);
    uint32_t count = 0;
    for (const HalvUserCMData *node = back->userData; node != nullptr; node = node->next)
        ++count;
    EXPECT_EQ(count, sections);
}
