/*
 * Info fields in records and in headers: typed values at unaligned
 * offsets, the character fields' terminator rules, and the field list as
 * the keys field-0, field-1, ... of section Info, written and read back
 * through header text.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "modules/infofield_support.h"

namespace {

using infotest::List;
using infotest::Parse;

/* "name:count type" of each field, blank-separated. */
std::string Forms(const List &list) {
    std::string out;
    for (uint32_t i = 0; i < list.size(); ++i)
        out += std::string(i ? " " : "") + list[i]->name + ":" + std::to_string(list[i]->count) + list[i]->type;
    return out;
}

/* A generic header whose tree is the header text given. */
struct Header {
    HalvHeaderStruct h{};
    explicit Header(const std::string &text = "") {
        HalvInitGenericHeader(&h);
        if (!text.empty()) {
            std::string bytes = text;
            HalvIO *in = HalvIO_Str(bytes.data(), (uint32_t)bytes.size());
            EXPECT_EQ(HalvReadUserCMData(in, &h.userData, 0), 1) << text;
            in->close(in);
        }
    }
    ~Header() { HalvFreeUserCMData(h.userData); }
    std::string Text() const {
        HalvIO *out = HalvIO_Mem(0);
        HalvWriteUserCMData(h.userData, out);
        std::string text(static_cast<const char *>(HalvIOMemBuffer(out)) ?: "", HalvIOMemLength(out));
        out->close(out);
        return text;
    }
};

std::string FromHeader(const std::string &text, int expected = 1) {
    Header header(text);
    List list;
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(&header.h, &list.fields), expected) << text;
    return Forms(list);
}

} // namespace

TEST(ModulesInfoFieldValues, NumbersAtUnalignedOffsetsAreMovedAsBytes) {
    List list;
    ASSERT_EQ(Parse(list, {"tag:1c", "n:3i", "w:2f", "pad:3c", "z:1f", "k:1i"}), 1);
    int32_t total = HalvGetInfoFieldsTotal(list.fields);
    ASSERT_EQ(total, 1 + 12 + 16 + 3 + 8 + 4);
    // Three records back to back behind one byte, so that no value of any
    // of them is aligned the way its type would like.
    std::vector<unsigned char> buffer(1 + 3 * (size_t)total, 0xEE);
    const double doubles[] = {1.0 / 3.0, -0.0, std::numeric_limits<double>::infinity(), 6.02214076e23,
                              std::numeric_limits<double>::denorm_min(), -1e-300};
    for (int r = 0; r < 3; ++r) {
        unsigned char *record = buffer.data() + 1 + r * total;
        for (int32_t i = 0; i < 3; ++i)
            ASSERT_EQ(HalvSetInfoFieldInt(list[1], record, i, INT32_MIN + r * 1000 + i), 1);
        ASSERT_EQ(HalvSetInfoFieldDouble(list[2], record, 0, doubles[r]), 1);
        ASSERT_EQ(HalvSetInfoFieldDouble(list[2], record, 1, doubles[r + 3]), 1);
        ASSERT_EQ(HalvSetInfoFieldDouble(list[4], record, 0, -r - 0.5), 1);
        ASSERT_EQ(HalvSetInfoFieldInt(list[5], record, 0, 0x7FFFFFFF - r), 1);
    }
    EXPECT_EQ(buffer[0], 0xEE) << "nothing in front of the first record is touched";
    for (int r = 0; r < 3; ++r) {
        const unsigned char *record = buffer.data() + 1 + r * total;
        for (int32_t i = 0; i < 3; ++i) {
            int32_t v = 0;
            ASSERT_EQ(HalvGetInfoFieldInt(list[1], record, i, &v), 1);
            EXPECT_EQ(v, INT32_MIN + r * 1000 + i);
            // The bytes stand at offset + 4 i in this machine's order.
            int32_t raw;
            std::memcpy(&raw, record + 1 + 4 * i, 4);
            EXPECT_EQ(raw, v);
        }
        double d0 = 0, d1 = 0, z = 0;
        ASSERT_EQ(HalvGetInfoFieldDouble(list[2], record, 0, &d0), 1);
        ASSERT_EQ(HalvGetInfoFieldDouble(list[2], record, 1, &d1), 1);
        ASSERT_EQ(HalvGetInfoFieldDouble(list[4], record, 0, &z), 1);
        EXPECT_EQ(std::memcmp(&d0, &doubles[r], 8), 0);
        EXPECT_EQ(std::memcmp(&d1, &doubles[r + 3], 8), 0);
        EXPECT_EQ(std::memcmp(record + 13 + 8, &doubles[r + 3], 8), 0);
        EXPECT_EQ(z, -r - 0.5);
        int32_t k = 0;
        ASSERT_EQ(HalvGetInfoFieldInt(list[5], record, 0, &k), 1);
        EXPECT_EQ(k, 0x7FFFFFFF - r);
        // The character fields were never written.
        EXPECT_EQ(record[0], 0xEE);
        EXPECT_EQ(record[29], 0xEE);
    }
}

TEST(ModulesInfoFieldValues, WrongTypesIndexesAndNullsAreRefused) {
    List list;
    ASSERT_EQ(Parse(list, {"i:2i", "f:2f", "c:4c"}), 1);
    unsigned char record[28];
    std::memset(record, 0x11, sizeof record);
    int32_t iv = 77;
    double dv = 7.5;
    char *text = reinterpret_cast<char *>(1);
    // A field of another type: -1, and nothing moves.
    EXPECT_EQ(HalvGetInfoFieldInt(list[1], record, 0, &iv), -1);
    EXPECT_EQ(HalvSetInfoFieldInt(list[2], record, 0, 5), -1);
    EXPECT_EQ(HalvGetInfoFieldDouble(list[0], record, 0, &dv), -1);
    EXPECT_EQ(HalvSetInfoFieldDouble(list[2], record, 0, 1.0), -1);
    EXPECT_EQ(HalvGetInfoFieldStr(list[0], record, &text), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(HalvSetInfoFieldStr(list[1], record, "x"), -1);
    // Index count and negative indexes: -1.
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], record, 2, &iv), -1);
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], record, -1, &iv), -1);
    EXPECT_EQ(HalvSetInfoFieldInt(list[0], record, 2, 5), -1);
    EXPECT_EQ(HalvGetInfoFieldDouble(list[1], record, 2, &dv), -1);
    EXPECT_EQ(HalvSetInfoFieldDouble(list[1], record, -1, 1.0), -1);
    EXPECT_EQ(iv, 77);
    EXPECT_EQ(dv, 7.5);
    for (unsigned char b : record)
        EXPECT_EQ(b, 0x11);
    // Null field, record or output: 0.
    EXPECT_EQ(HalvGetInfoFieldInt(nullptr, record, 0, &iv), 0);
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], nullptr, 0, &iv), 0);
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], record, 0, nullptr), 0);
    EXPECT_EQ(HalvSetInfoFieldInt(list[0], nullptr, 0, 1), 0);
    EXPECT_EQ(HalvGetInfoFieldDouble(list[1], record, 0, nullptr), 0);
    EXPECT_EQ(HalvSetInfoFieldDouble(nullptr, record, 0, 1.0), 0);
    EXPECT_EQ(HalvGetInfoFieldStr(list[2], record, nullptr), 0);
    EXPECT_EQ(HalvGetInfoFieldStr(list[2], nullptr, &text), 0);
    EXPECT_EQ(HalvSetInfoFieldStr(list[2], record, nullptr), 0);
    EXPECT_EQ(HalvSetInfoFieldStr(nullptr, record, "x"), 0);
}

TEST(ModulesInfoFieldValues, CharacterFieldsTerminateOnlyWhenThereIsRoom) {
    List list;
    ASSERT_EQ(Parse(list, {"head:1i", "label:4c", "tail:1c"}), 1);
    unsigned char record[9];
    std::memset(record, '#', sizeof record);

    // As long as the field: no NUL written, the next field untouched.
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "abcd"), 1);
    EXPECT_EQ(std::string((char *)record + 4, 5), "abcd#");
    char *text = nullptr;
    ASSERT_EQ(HalvGetInfoFieldStr(list[1], record, &text), 1);
    EXPECT_EQ(std::string(text, 5), std::string("abcd\0", 5)) << "terminated all the same";
    halv_internal_free(text);

    // Longer: cut at the field's end.
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "wxyz-and-more"), 1);
    EXPECT_EQ(std::string((char *)record + 4, 5), "wxyz#");

    // Shorter: a NUL behind it, the bytes behind that stay as they were.
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "q"), 1);
    EXPECT_EQ(std::string((char *)record + 4, 5), std::string("q\0yz#", 5));
    // The string given back holds exactly count bytes, NUL among them.
    ASSERT_EQ(HalvGetInfoFieldStr(list[1], record, &text), 1);
    EXPECT_EQ(std::string(text, 5), std::string("q\0yz\0", 5));
    halv_internal_free(text);

    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "ab"), 1);
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, ""), 1);
    EXPECT_EQ(std::string((char *)record + 4, 5), std::string("\0b\0z#", 5));
    EXPECT_EQ(std::string((char *)record, 4), "####") << "the field in front is untouched";
}

TEST(ModulesInfoFieldValues, HeaderKeysRoundTripInOrder) {
    List list;
    ASSERT_EQ(Parse(list, {"x:1i", "Weight:2f", "label:8c", "three:iii", "many:1000c"}), 1);
    Header header("[ID]\nformat: info\nversion: 1.0\n\n[Info]\nentries: 4\nfield-7: \"old:1i\"\n\n[Notes]\nby: hand\n");
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&header.h, list.fields), 1);
    std::string text = header.Text();
    // The section is written anew: the old keys went with it.
    EXPECT_EQ(text.find("entries"), std::string::npos) << text;
    EXPECT_EQ(text.find("old:1i"), std::string::npos) << text;
    EXPECT_NE(text.find("field-0: \"x:1i\"\nfield-1: \"Weight:2f\"\nfield-2: \"label:8c\"\nfield-3: \"three:3i\"\n"
                        "field-4: \"many:1000c\""),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("[Notes]\nby: hand"), std::string::npos) << text;

    // Through the header text and back: the same names, types, counts.
    Header again(text);
    List back;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&again.h, &back.fields), 1);
    EXPECT_EQ(Forms(back), "x:1i Weight:2f label:8c three:3i many:1000c");
    for (uint32_t i = 0; i < back.size(); ++i) {
        EXPECT_EQ(back[i]->size, list[i]->size);
        EXPECT_EQ(back[i]->offset, list[i]->offset);
    }

    // An empty list leaves the header without the section.
    List empty;
    const char *none[] = {nullptr};
    ASSERT_EQ(HalvParseInfoFields(none, &empty.fields), 1);
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&header.h, empty.fields), 1);
    EXPECT_EQ(header.Text().find("[Info]"), std::string::npos) << header.Text();
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(nullptr, empty.fields), 0);
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(&header.h, nullptr), 0);

    // A header with no tree at all gains one.
    Header bare;
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&bare.h, list.fields), 1);
    List fromBare;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&bare.h, &fromBare.fields), 1);
    EXPECT_EQ(fromBare.size(), 5u);
}

TEST(ModulesInfoFieldValues, LongNamesAreCutBeforeTheCountAndType) {
    std::string name(300, 'n');
    List list;
    ASSERT_EQ(HalvAddInfoField(&list.fields, name.c_str(), 'f', 12345), 0);
    Header header;
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&header.h, list.fields), 1);
    const char *value = HVHdrGetHeaderParam(header.h.userData, "Info", "field-0");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::strlen(value), 255u);
    EXPECT_EQ(std::string(value), std::string(248, 'n') + ":12345f");
    List back;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&header.h, &back.fields), 1);
    EXPECT_EQ(back[0]->count, 12345);
}

TEST(ModulesInfoFieldValues, TheListEndsAtTheFirstMissingNumber) {
    const std::string id = "[ID]\nformat: info\n\n";
    // No section, an empty section: an empty list and 1.
    EXPECT_EQ(FromHeader(id + "[Encoding]\nname: packed\n"), "");
    EXPECT_EQ(FromHeader(id + "[Info]\n"), "");
    EXPECT_EQ(FromHeader(id + "[Info]\nentries: 3\n"), "");
    // A gap ends the list; keys out of order are still taken by number.
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"a:1i\"\nfield-1: \"b:1f\"\nfield-3: \"d:1c\"\n"), "a:1i b:1f");
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-2: \"c:2c\"\nfield-1: \"b:1f\"\nblobs: 2\nfield-0: \"a:1i\"\n"),
              "a:1i b:1f c:2c");
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-1: \"b:1f\"\n"), "") << "no field-0";
    // Names fold case as every key does; "field-01" is no "field-%d".
    EXPECT_EQ(FromHeader(id + "[Info]\nFIELD-0: \"a:1i\"\nField-1: \"b:1f\"\n"), "a:1i b:1f");
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"a:1i\"\nfield-01: \"b:1f\"\nfield-+1: \"b:1f\"\n"), "a:1i");
    // The first key of a name is the one that counts, as in any lookup.
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"a:1i\"\nfield-0: \"z:9f\"\nfield-1: \"b:2c\"\n"), "a:1i b:2c");
    // A key without a value ends the list.  (Unquoted, "a:1i" would read
    // as a label of its own, leaving field-0 without a value.)
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"a:1i\"\nfield-1:\nfield-2: \"c:1c\"\n"), "a:1i");
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: a:1i\n"), "");
    // Keys of another section don't count.
    EXPECT_EQ(FromHeader(id + "[Other]\nfield-0: \"a:1i\"\n"), "");
    // A field that doesn't parse makes the list fail, with what was built.
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"a:1i\"\nfield-1: \"b:1x\"\n", 0), "a:1i b:1x");
    EXPECT_EQ(FromHeader(id + "[Info]\nfield-0: \"nocolon\"\n", 0), "");

    List ignored;
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(nullptr, &ignored.fields), 0);
    Header header;
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(&header.h, nullptr), 0);
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(&header.h, &ignored.fields), 1) << "no tree: an empty list";
    EXPECT_EQ(ignored.size(), 0u);
}

TEST(ModulesInfoFieldValues, ManyFieldsAreReadInOnePass) {
    // Keys in reverse order, each still taken by its number.
    std::string text = "[ID]\nformat: info\n\n[Info]\n";
    for (int i = 4999; i >= 0; --i)
        text += "field-" + std::to_string(i) + ": \"v" + std::to_string(i) + ":" + std::to_string(i % 7 + 1) +
                "cif"[i % 3] + "\"\n";
    Header header(text);
    List list;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&header.h, &list.fields), 1);
    ASSERT_EQ(list.size(), 5000u);
    int64_t offset = 0;
    for (uint32_t i = 0; i < list.size(); ++i) {
        ASSERT_EQ(std::string(list[i]->name), "v" + std::to_string(i));
        ASSERT_EQ(list[i]->count, (int32_t)(i % 7 + 1));
        ASSERT_EQ(list[i]->offset, offset);
        offset += list[i]->size;
    }
    EXPECT_EQ(HalvGetInfoFieldsTotal(list.fields), offset);
}
