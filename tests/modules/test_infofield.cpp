/*
 * Info fields: the text form of one field, field lists made from texts, the
 * list operations (find, add, remove, total) with their packed offsets, typed
 * values at unaligned offsets, and the list as the keys field-0, field-1, ...
 * of section Info, written and read back through header text.
 */
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

/* A field list the test owns; released through the smart array. */
struct List {
    HalvInfoField **fields = nullptr;
    List() = default;
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { HalvFreeSmartArray(fields); }
    uint32_t size() const { return HalvGetArraySize(fields); }
    HalvInfoField *operator[](uint32_t i) const { return fields[i]; }
};

int Parse(List &list, std::vector<const char *> texts) {
    texts.push_back(nullptr);
    return HalvParseInfoFields(texts.data(), &list.fields);
}

/* "name type count size offset" of every field, for one comparison. */
std::string Describe(const List &list) {
    std::string out;
    for (uint32_t i = 0; i < list.size(); ++i) {
        const HalvInfoField *f = list[i];
        out += std::string(i ? " | " : "") + (f->name ? f->name : "(null)") + " " +
               (f->type ? std::string(1, f->type) : "\\0") + " " + std::to_string(f->count) + " " +
               std::to_string(f->size) + " " + std::to_string(f->offset);
    }
    return out;
}

/* "name:count type" of each field, blank-separated. */
std::string Forms(const List &list) {
    std::string out;
    for (uint32_t i = 0; i < list.size(); ++i)
        out +=
            std::string(i ? " " : "") + list[i]->name + ":" + std::to_string(list[i]->count) + list[i]->type;
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

TEST(ModulesInfoField, OneTextForm) {
    struct Case {
        const char *text, *name;
        char type;
        int32_t count;
    } cases[] = {
        {"w:4f", "w", 'f', 4},     {"v:iii", "v", 'i', 3}, // a multiplier; a run of letters alone
        {"c:2cc", "c", 'c', 4},                            // multiplier times run
        {"m:0ii", "m", 'i', 2},                            // a multiplier of 0 counts as 1
        {"a:2iixyz", "a", 'i', 4},                         // the text behind the run isn't looked at
        {"a:b:4i", "a", 'b', 1},                           // the first colon ends the name
        {":3c", "", 'c', 3},       {"x:007f", "x", 'f', 7}, {"label:8c", "label", 'c', 8},
        {"q:5q", "q", 'q', 5},                             // any letter parses; only its size comes out 0
        {"x:", "x", '\0', 0},      {"x:12", "x", '\0', 0},  // no type behind the colon or the multiplier
        {"big:2147483647c", "big", 'c', INT32_MAX},
        {"big:2147483648c", "big", 'c', 0}, {"big:99999999999999999999999i", "big", 'i', 0}, // doesn't fit
        {"run:1073741824ii", "run", 'i', 0},               // multiplier times run doesn't fit
        {"weight2f", "", '?', -7},                         // no colon: -1, and nothing is stored
    };
    for (const Case &c : cases) {
        char *name = nullptr;
        char type = '?';
        int32_t count = -7;
        EXPECT_EQ(HalvParseInfoField(c.text, &name, &type, &count), c.type == '?' ? -1 : 1) << c.text;
        EXPECT_EQ(std::string(name ? name : ""), c.name) << c.text;
        EXPECT_EQ(type, c.type) << c.text;
        EXPECT_EQ(count, c.count) << c.text;
        halv_internal_free(name);
    }
    char *name = nullptr;
    char type;
    int32_t count;
    EXPECT_EQ(HalvParseInfoField(nullptr, &name, &type, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", nullptr, &type, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", &name, nullptr, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", &name, &type, nullptr), 0);
    EXPECT_EQ(name, nullptr);
}

TEST(ModulesInfoField, ListsGetSizesAndPackedOffsetsAndAFailedOneKeepsWhatWasBuilt) {
    struct Case {
        std::vector<const char *> texts;
        int result;
        std::string fields;
    } cases[] = {
        {{"x:1i", "weight:2f"}, 1, "x i 1 4 0 | weight f 2 16 4"}, // doubles at 4: packed, not aligned
        {{"a:1c", "b:3i", "c:c", "d:2f", "e:5c", "f:i", "g:2ff"}, 1,
         "a c 1 1 0 | b i 3 12 1 | c c 1 1 13 | d f 2 16 14 | e c 5 5 30 | f i 1 4 35 | g f 4 32 39"},
        {{}, 1, ""},
        // A type of none of the three is built with size 0 and ends the list.
        {{"a:1i", "b:2q", "c:1f"}, 0, "a i 1 4 0 | b q 2 0 4"},
        {{"a:1i", "b", "c:1f"}, 0, "a i 1 4 0"}, // no colon builds no field
        {{"x:"}, 0, "x \\0 0 0 0"},
        // A count whose size doesn't fit, and a record that would pass 0x7FFFFFFF bytes.
        {{"x:300000000f"}, 0, "x f 300000000 0 0"},
        {{"a:200000000f", "b:200000000f", "c:1c"}, 0,
         "a f 200000000 1600000000 0 | b f 200000000 0 1600000000 | c c 1 1 1600000000"},
    };
    const int32_t totals[] = {20, 71, 0};
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].fields);
        List list;
        EXPECT_EQ(Parse(list, cases[i].texts), cases[i].result);
        ASSERT_NE(list.fields, nullptr);
        EXPECT_EQ(Describe(list), cases[i].fields);
        if (i < std::size(totals)) {
            EXPECT_EQ(HalvGetInfoFieldsTotal(list.fields), totals[i]);
        }
    }
    List fits;
    EXPECT_EQ(Parse(fits, {"a:2147483646c", "b:1c"}), 1);
    EXPECT_EQ(HalvGetInfoFieldsTotal(fits.fields), INT32_MAX);
    EXPECT_EQ(HalvGetInfoFieldsTotal(nullptr), 0);
    List ignored;
    const char *none[] = {nullptr};
    EXPECT_EQ(HalvParseInfoFields(nullptr, &ignored.fields), 0);
    EXPECT_EQ(HalvParseInfoFields(none, nullptr), 0);
}

TEST(ModulesInfoField, FieldsAreSmartRecordsFoundByNameIgnoringCase) {
    List list;
    ASSERT_EQ(Parse(list, {"Alpha:3i", "second:2f", "ALPHA:2c"}), 1);
    HalvInfoField *field = list[1];
    auto *copy = static_cast<HalvInfoField *>(field->copy(field));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->name, field->name);
    EXPECT_STREQ(copy->name, "second");
    EXPECT_EQ(std::string(1, copy->type) + " " + std::to_string(copy->count) + " " +
                  std::to_string(copy->size) + " " + std::to_string(copy->offset),
              "f 2 16 12");
    EXPECT_EQ(copy->copy, field->copy);
    EXPECT_EQ(copy->free, field->free);
    copy->free(copy);
    // The record's slots sit where every smart record has them.
    EXPECT_EQ((void *)list[0], (void *)&list[0]->copy);
    EXPECT_EQ(offsetof(HalvInfoField, free), 2 * sizeof(void *));

    EXPECT_EQ(HalvFindInfoField(list.fields, "alpha"), 0) << "the first of the name";
    EXPECT_EQ(HalvFindInfoField(list.fields, "SECOND"), 1);
    for (const char *absent : {"gamma", "alph", (const char *)nullptr})
        EXPECT_EQ(HalvFindInfoField(list.fields, absent), -1);
    EXPECT_EQ(HalvFindInfoField(nullptr, "alpha"), -1);
    List empty;
    ASSERT_EQ(Parse(empty, {}), 1);
    EXPECT_EQ(HalvFindInfoField(empty.fields, "alpha"), -1);
}

TEST(ModulesInfoField, AddAppendsAndRemoveClosesTheGap) {
    List list;
    EXPECT_EQ(HalvAddInfoField(&list.fields, "x", 'i', 1), 0); // a null list is the empty one
    EXPECT_EQ(HalvAddInfoField(&list.fields, "weight", 'f', 2), 1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "label", 'c', 8), 2);
    EXPECT_EQ(HalvGetInfoFieldsTotal(list.fields), 28);
    // A bad type or count, or a record grown too long: in the list with size 0, and -1.
    EXPECT_EQ(HalvAddInfoField(&list.fields, "odd", 'd', 3), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "none", 'i', 0), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "less", 'f', -2), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "huge", 'c', INT32_MAX - 10), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "after", 'i', 1), 7);
    EXPECT_EQ(HalvAddInfoField(nullptr, "x", 'i', 1), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, nullptr, 'i', 1), -1);
    EXPECT_EQ(Describe(list), "x i 1 4 0 | weight f 2 16 4 | label c 8 8 20 | odd d 3 0 28 | none i 0 0 28 | "
                              "less f -2 0 28 | huge c 2147483637 0 28 | after i 1 4 28");
    char name[] = "temporary";
    List own;
    ASSERT_EQ(HalvAddInfoField(&own.fields, name, 'c', 1), 0);
    name[0] = 'X';
    EXPECT_STREQ(own[0]->name, "temporary") << "the name is the field's own copy";

    List gaps;
    ASSERT_EQ(Parse(gaps, {"a:1i", "b:2f", "c:3c", "d:1i"}), 1);
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, 1), 1);
    EXPECT_EQ(Describe(gaps), "a i 1 4 0 | c c 3 3 4 | d i 1 4 7");
    EXPECT_EQ(gaps.fields[3], nullptr);
    // The result of a failed find passes straight through.
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, HalvFindInfoField(gaps.fields, "b")), 0);
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, 3), 0);
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, -5), 0);
    EXPECT_EQ(HalvRemoveInfoField(nullptr, 0), 0);
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, HalvFindInfoField(gaps.fields, "D")), 1);
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, 0), 1);
    EXPECT_EQ(Describe(gaps), "c c 3 3 0");
    EXPECT_EQ(HalvRemoveInfoField(gaps.fields, 0), 1);
    EXPECT_EQ(gaps.size(), 0u);
    EXPECT_EQ(HalvGetInfoFieldsTotal(gaps.fields), 0);
    EXPECT_EQ(HalvAddInfoField(&gaps.fields, "again", 'f', 1), 0);
    EXPECT_EQ(Describe(gaps), "again f 1 8 0") << "an emptied list takes new fields";
}

TEST(ModulesInfoField, NumbersAtUnalignedOffsetsAreMovedAsBytes) {
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
            int32_t v = 0, raw;
            ASSERT_EQ(HalvGetInfoFieldInt(list[1], record, i, &v), 1);
            EXPECT_EQ(v, INT32_MIN + r * 1000 + i);
            std::memcpy(&raw, record + 1 + 4 * i, 4); // at offset + 4 i in this machine's order
            EXPECT_EQ(raw, v);
        }
        double d0 = 0, d1 = 0, z = 0;
        int32_t k = 0;
        ASSERT_EQ(HalvGetInfoFieldDouble(list[2], record, 0, &d0), 1);
        ASSERT_EQ(HalvGetInfoFieldDouble(list[2], record, 1, &d1), 1);
        ASSERT_EQ(HalvGetInfoFieldDouble(list[4], record, 0, &z), 1);
        ASSERT_EQ(HalvGetInfoFieldInt(list[5], record, 0, &k), 1);
        EXPECT_EQ(std::memcmp(&d0, &doubles[r], 8), 0);
        EXPECT_EQ(std::memcmp(&d1, &doubles[r + 3], 8), 0);
        EXPECT_EQ(std::memcmp(record + 13 + 8, &doubles[r + 3], 8), 0);
        EXPECT_EQ(z, -r - 0.5);
        EXPECT_EQ(k, 0x7FFFFFFF - r);
        EXPECT_EQ(record[0], 0xEE) << "the character fields were never written";
        EXPECT_EQ(record[29], 0xEE);
    }
}

TEST(ModulesInfoField, WrongTypesIndexesAndNullsAreRefused) {
    List list;
    ASSERT_EQ(Parse(list, {"i:2i", "f:2f", "c:4c"}), 1);
    unsigned char record[28];
    std::memset(record, 0x11, sizeof record);
    int32_t iv = 77;
    double dv = 7.5;
    char *text = reinterpret_cast<char *>(1);
    // A field of another type, an index at the count or below 0: -1, and nothing moves.
    EXPECT_EQ(HalvGetInfoFieldInt(list[1], record, 0, &iv), -1);
    EXPECT_EQ(HalvSetInfoFieldInt(list[2], record, 0, 5), -1);
    EXPECT_EQ(HalvGetInfoFieldDouble(list[0], record, 0, &dv), -1);
    EXPECT_EQ(HalvSetInfoFieldDouble(list[2], record, 0, 1.0), -1);
    EXPECT_EQ(HalvGetInfoFieldStr(list[0], record, &text), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(HalvSetInfoFieldStr(list[1], record, "x"), -1);
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], record, 2, &iv), -1);
    EXPECT_EQ(HalvGetInfoFieldInt(list[0], record, -1, &iv), -1);
    EXPECT_EQ(HalvSetInfoFieldInt(list[0], record, 2, 5), -1);
    EXPECT_EQ(HalvGetInfoFieldDouble(list[1], record, 2, &dv), -1);
    EXPECT_EQ(HalvSetInfoFieldDouble(list[1], record, -1, 1.0), -1);
    EXPECT_EQ(iv, 77);
    EXPECT_EQ(dv, 7.5);
    EXPECT_EQ(std::string((char *)record, sizeof record), std::string(sizeof record, 0x11));
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

TEST(ModulesInfoField, CharacterFieldsTerminateOnlyWhenThereIsRoom) {
    List list;
    ASSERT_EQ(Parse(list, {"head:1i", "label:4c", "tail:1c"}), 1);
    unsigned char record[9];
    std::memset(record, '#', sizeof record);
    auto label = [&] { return std::string((char *)record + 4, 5); };
    auto got = [&] {
        char *text = nullptr;
        EXPECT_EQ(HalvGetInfoFieldStr(list[1], record, &text), 1);
        std::string value(text ? text : "", text ? 5 : 0); // count bytes and a NUL
        halv_internal_free(text);
        return value;
    };
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "abcd"), 1);
    EXPECT_EQ(label(), "abcd#") << "as long as the field: no NUL, the next field untouched";
    EXPECT_EQ(got(), std::string("abcd\0", 5)) << "terminated all the same";
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "wxyz-and-more"), 1);
    EXPECT_EQ(label(), "wxyz#") << "cut at the field's end";
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "q"), 1);
    EXPECT_EQ(label(), std::string("q\0yz#", 5)) << "a NUL behind, the bytes behind that kept";
    EXPECT_EQ(got(), std::string("q\0yz\0", 5));
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, "ab"), 1);
    ASSERT_EQ(HalvSetInfoFieldStr(list[1], record, ""), 1);
    EXPECT_EQ(label(), std::string("\0b\0z#", 5));
    EXPECT_EQ(std::string((char *)record, 4), "####") << "the field in front is untouched";
}

TEST(ModulesInfoField, HeaderKeysRoundTripInOrder) {
    List list;
    ASSERT_EQ(Parse(list, {"x:1i", "Weight:2f", "label:8c", "three:iii", "many:1000c"}), 1);
    Header header(
        "[ID]\nformat: info\nversion: 1.0\n\n[Info]\nentries: 4\nfield-7: \"old:1i\"\n\n[Notes]\nby: hand\n");
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&header.h, list.fields), 1);
    std::string text = header.Text();
    // The section is written anew: the old keys went with it.
    EXPECT_EQ(text.find("entries"), std::string::npos) << text;
    EXPECT_EQ(text.find("old:1i"), std::string::npos) << text;
    EXPECT_NE(
        text.find("field-0: \"x:1i\"\nfield-1: \"Weight:2f\"\nfield-2: \"label:8c\"\nfield-3: \"three:3i\"\n"
                  "field-4: \"many:1000c\""),
        std::string::npos)
        << text;
    EXPECT_NE(text.find("[Notes]\nby: hand"), std::string::npos) << text;
    // Written lists read back the same: the info fuzz target, on every input.

    List empty;
    ASSERT_EQ(Parse(empty, {}), 1);
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&header.h, empty.fields), 1);
    EXPECT_EQ(header.Text().find("[Info]"), std::string::npos) << "an empty list leaves no section";
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(nullptr, empty.fields), 0);
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(&header.h, nullptr), 0);
    Header bare; // no tree at all: it gains one
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&bare.h, list.fields), 1);
    List fromBare;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&bare.h, &fromBare.fields), 1);
    EXPECT_EQ(fromBare.size(), 5u);

    // A long name is cut before the count and type.
    List longName;
    ASSERT_EQ(HalvAddInfoField(&longName.fields, std::string(300, 'n').c_str(), 'f', 12345), 0);
    Header cut;
    ASSERT_EQ(HalvWriteInfoFieldsToHdr(&cut.h, longName.fields), 1);
    const char *value = HVHdrGetHeaderParam(cut.h.userData, "Info", "field-0");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(value), std::string(248, 'n') + ":12345f");
    List cutBack;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&cut.h, &cutBack.fields), 1);
    EXPECT_EQ(cutBack[0]->count, 12345);
}

TEST(ModulesInfoField, TheListFromAHeaderEndsAtTheFirstMissingNumber) {
    const std::string info = "[ID]\nformat: info\n\n[Info]\n";
    struct Case {
        std::string text, forms;
        int result = 1;
    } cases[] = {
        {"[ID]\nformat: info\n\n[Encoding]\nname: packed\n", ""}, // no section, an empty one
        {info, ""},
        {info + "entries: 3\n", ""},
        {info + "field-0: \"a:1i\"\nfield-1: \"b:1f\"\nfield-3: \"d:1c\"\n", "a:1i b:1f"}, // a gap ends it
        {info + "field-2: \"c:2c\"\nfield-1: \"b:1f\"\nblobs: 2\nfield-0: \"a:1i\"\n", "a:1i b:1f c:2c"},
        {info + "field-1: \"b:1f\"\n", ""}, // no field-0
        {info + "FIELD-0: \"a:1i\"\nField-1: \"b:1f\"\n", "a:1i b:1f"},
        {info + "field-0: \"a:1i\"\nfield-01: \"b:1f\"\nfield-+1: \"b:1f\"\n", "a:1i"}, // no "field-%d"
        {info + "field-0: \"a:1i\"\nfield-0: \"z:9f\"\nfield-1: \"b:2c\"\n", "a:1i b:2c"}, // the first counts
        {info + "field-0: \"a:1i\"\nfield-1:\nfield-2: \"c:1c\"\n", "a:1i"}, // no value ends it
        {info + "field-0: a:1i\n", ""}, // unquoted, "a:1i" is a label of its own
        {"[ID]\nformat: info\n\n[Other]\nfield-0: \"a:1i\"\n", ""},
        {info + "field-0: \"a:1i\"\nfield-1: \"b:1x\"\n", "a:1i b:1x", 0}, // fails with what was built
        {info + "field-0: \"nocolon\"\n", "", 0},
    };
    for (const Case &c : cases)
        EXPECT_EQ(FromHeader(c.text, c.result), c.forms) << c.text;
    List ignored;
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(nullptr, &ignored.fields), 0);
    Header header;
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(&header.h, nullptr), 0);
    EXPECT_EQ(HalvParseInfoFieldsFromHdr(&header.h, &ignored.fields), 1) << "no tree: an empty list";
    EXPECT_EQ(ignored.size(), 0u);

    // Many keys in reverse order, each still taken by its number.
    std::string text = info;
    for (int i = 4999; i >= 0; --i)
        text += "field-" + std::to_string(i) + ": \"v" + std::to_string(i) + ":" + std::to_string(i % 7 + 1) +
                "cif"[i % 3] + "\"\n";
    Header many(text);
    List list;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(&many.h, &list.fields), 1);
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
