/*
 * Info fields: the text form of one field, field lists made from texts,
 * and the list operations (find, add, remove, total) with their offsets.
 */
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "modules/infofield_support.h"

namespace {

using infotest::List;
using infotest::Parse;

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

struct One {
    int result;
    std::string name;
    char type;
    int32_t count;
};

One ParseOne(const char *text) {
    char *name = nullptr;
    char type = '?';
    int32_t count = -7;
    One one{HalvParseInfoField(text, &name, &type, &count), "", type, count};
    if (name != nullptr)
        one.name = name;
    halv_internal_free(name);
    one.type = type;
    one.count = count;
    return one;
}

} // namespace

TEST(ModulesInfoField, OneTextForm) {
    struct Case {
        const char *text;
        const char *name;
        char type;
        int32_t count;
    } cases[] = {
        {"w:4f", "w", 'f', 4},        // a multiplier
        {"v:iii", "v", 'i', 3},       // a run of letters alone
        {"c:2cc", "c", 'c', 4},       // both: multiplier times run
        {"m:0ii", "m", 'i', 2},       // a multiplier of 0 counts as 1
        {"a:2iixyz", "a", 'i', 4},    // the text behind the run isn't looked at
        {"a:b:4i", "a", 'b', 1},      // the first colon ends the name
        {":3c", "", 'c', 3},          // an empty name is a name
        {"x:007f", "x", 'f', 7},      // leading zeros are digits
        {"q:5q", "q", 'q', 5},        // any letter parses; only its size comes out 0
        {"label:8c", "label", 'c', 8},
        {"x:", "x", '\0', 0},         // ends right behind the colon: no type
        {"x:12", "x", '\0', 0},       // ends behind the multiplier
        {"big:2147483647c", "big", 'c', INT32_MAX},
        {"big:2147483648c", "big", 'c', 0},   // the count doesn't fit
        {"big:99999999999999999999999i", "big", 'i', 0},
        {"run:1073741824ii", "run", 'i', 0},  // multiplier times run doesn't fit
    };
    for (const Case &c : cases) {
        One one = ParseOne(c.text);
        EXPECT_EQ(one.result, 1) << c.text;
        EXPECT_EQ(one.name, c.name) << c.text;
        EXPECT_EQ(one.type, c.type) << c.text;
        EXPECT_EQ(one.count, c.count) << c.text;
    }
    // No colon: -1, and nothing is stored.
    One none = ParseOne("weight2f");
    EXPECT_EQ(none.result, -1);
    EXPECT_EQ(none.type, '?');
    EXPECT_EQ(none.count, -7);

    char *name = nullptr;
    char type;
    int32_t count;
    EXPECT_EQ(HalvParseInfoField(nullptr, &name, &type, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", nullptr, &type, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", &name, nullptr, &count), 0);
    EXPECT_EQ(HalvParseInfoField("x:1i", &name, &type, nullptr), 0);
    EXPECT_EQ(name, nullptr);
}

TEST(ModulesInfoField, ListsFromTextsGetSizesAndPackedOffsets) {
    List example;
    ASSERT_EQ(Parse(example, {"x:1i", "weight:2f"}), 1);
    // The doubles start at 4: packed, not aligned.
    EXPECT_EQ(Describe(example), "x i 1 4 0 | weight f 2 16 4");
    EXPECT_EQ(HalvGetInfoFieldsTotal(example.fields), 20);

    List mixed;
    ASSERT_EQ(Parse(mixed, {"a:1c", "b:3i", "c:c", "d:2f", "e:5c", "f:i", "g:2ff"}), 1);
    EXPECT_EQ(Describe(mixed), "a c 1 1 0 | b i 3 12 1 | c c 1 1 13 | d f 2 16 14 | e c 5 5 30 | f i 1 4 35 | "
                               "g f 4 32 39");
    EXPECT_EQ(HalvGetInfoFieldsTotal(mixed.fields), 71);

    List empty;
    const char *none[] = {nullptr};
    EXPECT_EQ(HalvParseInfoFields(none, &empty.fields), 1);
    ASSERT_NE(empty.fields, nullptr);
    EXPECT_EQ(empty.size(), 0u);
    EXPECT_EQ(HalvGetInfoFieldsTotal(empty.fields), 0);
    EXPECT_EQ(HalvGetInfoFieldsTotal(nullptr), 0);

    List ignored;
    EXPECT_EQ(HalvParseInfoFields(nullptr, &ignored.fields), 0);
    EXPECT_EQ(HalvParseInfoFields(none, nullptr), 0);
}

TEST(ModulesInfoField, AFailedListKeepsThePartBuiltForTheCaller) {
    // A type letter of none of the three: the field is built with size 0,
    // the list stops there.
    List badType;
    EXPECT_EQ(Parse(badType, {"a:1i", "b:2q", "c:1f"}), 0);
    EXPECT_EQ(Describe(badType), "a i 1 4 0 | b q 2 0 4");

    // A text without a colon builds no field.
    List noColon;
    EXPECT_EQ(Parse(noColon, {"a:1i", "b", "c:1f"}), 0);
    EXPECT_EQ(Describe(noColon), "a i 1 4 0");

    // A text that ends behind the colon has no type.
    List noType;
    EXPECT_EQ(Parse(noType, {"x:"}), 0);
    EXPECT_EQ(Describe(noType), "x \\0 0 0 0");

    // A count whose size doesn't fit, and a record that would pass
    // 0x7FFFFFFF bytes: the field that doesn't fit gets size 0.
    List tooLarge;
    EXPECT_EQ(Parse(tooLarge, {"x:300000000f"}), 0);
    EXPECT_EQ(Describe(tooLarge), "x f 300000000 0 0");
    List tooLong;
    EXPECT_EQ(Parse(tooLong, {"a:200000000f", "b:200000000f", "c:1c"}), 0);
    EXPECT_EQ(tooLong[0]->size, 1600000000);
    EXPECT_EQ(tooLong[1]->size, 0);
    List fits;
    EXPECT_EQ(Parse(fits, {"a:2147483646c", "b:1c"}), 1);
    EXPECT_EQ(HalvGetInfoFieldsTotal(fits.fields), INT32_MAX);
}

TEST(ModulesInfoField, FieldsAreSmartRecords) {
    List list;
    ASSERT_EQ(Parse(list, {"first:3i", "second:2f"}), 1);
    HalvInfoField *field = list[1];
    auto *copy = static_cast<HalvInfoField *>(field->copy(field));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->name, field->name);
    EXPECT_STREQ(copy->name, "second");
    EXPECT_EQ(copy->type, 'f');
    EXPECT_EQ(copy->count, 2);
    EXPECT_EQ(copy->size, 16);
    EXPECT_EQ(copy->offset, 12);
    EXPECT_EQ(copy->copy, field->copy);
    EXPECT_EQ(copy->free, field->free);
    copy->free(copy);
    // The record's slots sit where every smart record has them.
    EXPECT_EQ((void *)list[0], (void *)&list[0]->copy);
    EXPECT_EQ(offsetof(HalvInfoField, free), 2 * sizeof(void *));
}

TEST(ModulesInfoField, FindIgnoresCaseAndTakesTheFirst) {
    List list;
    ASSERT_EQ(Parse(list, {"Alpha:1i", "beta:1f", "ALPHA:2c"}), 1);
    EXPECT_EQ(HalvFindInfoField(list.fields, "alpha"), 0);
    EXPECT_EQ(HalvFindInfoField(list.fields, "BETA"), 1);
    EXPECT_EQ(HalvFindInfoField(list.fields, "gamma"), -1);
    EXPECT_EQ(HalvFindInfoField(list.fields, "alph"), -1);
    EXPECT_EQ(HalvFindInfoField(list.fields, nullptr), -1);
    EXPECT_EQ(HalvFindInfoField(nullptr, "alpha"), -1);
    List empty;
    const char *none[] = {nullptr};
    ASSERT_EQ(HalvParseInfoFields(none, &empty.fields), 1);
    EXPECT_EQ(HalvFindInfoField(empty.fields, "alpha"), -1);
}

TEST(ModulesInfoField, AddAppendsAndLaysTheListOutAgain) {
    List list;
    EXPECT_EQ(HalvAddInfoField(&list.fields, "x", 'i', 1), 0); // a null list is the empty one
    EXPECT_EQ(HalvAddInfoField(&list.fields, "weight", 'f', 2), 1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "label", 'c', 8), 2);
    EXPECT_EQ(Describe(list), "x i 1 4 0 | weight f 2 16 4 | label c 8 8 20");
    EXPECT_EQ(HalvGetInfoFieldsTotal(list.fields), 28);

    // A bad type or count stays in the list with size 0, and gives -1.
    EXPECT_EQ(HalvAddInfoField(&list.fields, "odd", 'd', 3), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "none", 'i', 0), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "less", 'f', -2), -1);
    EXPECT_EQ(list.size(), 6u);
    EXPECT_EQ(Describe(list), "x i 1 4 0 | weight f 2 16 4 | label c 8 8 20 | odd d 3 0 28 | none i 0 0 28 | "
                              "less f -2 0 28");
    // So does one that would make the record too long.
    EXPECT_EQ(HalvAddInfoField(&list.fields, "huge", 'c', INT32_MAX - 10), -1);
    EXPECT_EQ(list[6]->size, 0);
    EXPECT_EQ(HalvAddInfoField(&list.fields, "after", 'i', 1), 7);
    EXPECT_EQ(list[7]->offset, 28);

    EXPECT_EQ(HalvAddInfoField(nullptr, "x", 'i', 1), -1);
    EXPECT_EQ(HalvAddInfoField(&list.fields, nullptr, 'i', 1), -1);
    EXPECT_EQ(list.size(), 8u);

    // The name is the field's own copy.
    char name[] = "temporary";
    List own;
    ASSERT_EQ(HalvAddInfoField(&own.fields, name, 'c', 1), 0);
    name[0] = 'X';
    EXPECT_STREQ(own[0]->name, "temporary");
}

TEST(ModulesInfoField, RemoveClosesTheGapAndMovesOffsetsDown) {
    List list;
    ASSERT_EQ(Parse(list, {"a:1i", "b:2f", "c:3c", "d:1i"}), 1);
    EXPECT_EQ(list[3]->offset, 23);
    EXPECT_EQ(HalvRemoveInfoField(list.fields, 1), 1);
    EXPECT_EQ(Describe(list), "a i 1 4 0 | c c 3 3 4 | d i 1 4 7");
    EXPECT_EQ(list.fields[3], nullptr);

    // The result of a failed find passes straight through.
    EXPECT_EQ(HalvRemoveInfoField(list.fields, HalvFindInfoField(list.fields, "b")), 0);
    EXPECT_EQ(HalvRemoveInfoField(list.fields, 3), 0);
    EXPECT_EQ(HalvRemoveInfoField(list.fields, -5), 0);
    EXPECT_EQ(HalvRemoveInfoField(nullptr, 0), 0);
    EXPECT_EQ(list.size(), 3u);

    EXPECT_EQ(HalvRemoveInfoField(list.fields, HalvFindInfoField(list.fields, "D")), 1);
    EXPECT_EQ(HalvRemoveInfoField(list.fields, 0), 1);
    EXPECT_EQ(Describe(list), "c c 3 3 0");
    EXPECT_EQ(HalvRemoveInfoField(list.fields, 0), 1);
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(HalvGetInfoFieldsTotal(list.fields), 0);
    // An emptied list takes new fields.
    EXPECT_EQ(HalvAddInfoField(&list.fields, "again", 'f', 1), 0);
    EXPECT_EQ(Describe(list), "again f 1 8 0");
}
