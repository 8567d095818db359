// Argument lists as a host builds them and an init point takes them apart:
// every format item, absent keys and defaults, malformed formats and lists,
// removal, and lists built from binary arguments.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "dpk_hvsup.h"

namespace {

#define W(x) HALV_ARG(x)
constexpr intptr_t kNull = HALV_ARG_NULL;
constexpr intptr_t kEnd = HALV_ARG_END;

std::vector<intptr_t> Words(const intptr_t *list) {
    std::vector<intptr_t> words;
    for (size_t i = 0; i < 1000; ++i) {
        words.push_back(list[i]);
        if (list[i] == kEnd)
            return words;
    }
    ADD_FAILURE() << "list without terminator";
    return words;
}

// A plug-in's init point that reads its parameters by name.
struct ResizeState {
    HalvState base;
    void *input;
    int32_t inputFound, width, height /* preset default 480, kept when absent */, heightFound;
    double gamma;
    char *name;
    int32_t window[4], coefficientCount;
    double *coefficients;
    int32_t labelCount;
    char **labels;
    int32_t verboseFound;
    intptr_t cookie;
};

int ResizeEnd(HalvState *state) {
    auto *self = reinterpret_cast<ResizeState *>(state);
    halv_internal_free(self->name);
    halv_internal_free(self->coefficients);
    if (self->labels != nullptr)
        HalvFreeArray(self->labels);
    return HalvFreeState(state);
}

int ResizeInit(intptr_t *args, HalvState **out) {
    if (HalvAllocState(out, (int32_t)sizeof(ResizeState)) != 1)
        return 0;
    auto *self = reinterpret_cast<ResizeState *>(*out);
    self->base.endPoint = ResizeEnd;
    self->height = 480;
    self->gamma = 1.0;
    int result = HalvParseArgs(args,                                                          //
                               "input:h", &self->inputFound, &self->input,                    //
                               "width:i", nullptr, &self->width,                              //
                               "height:i", &self->heightFound, &self->height,                 //
                               "gamma:d", nullptr, &self->gamma,                              //
                               "name:s", nullptr, &self->name,                                //
                               "window:wi", nullptr, self->window,                            //
                               "coefficients:#f", nullptr, &self->coefficientCount, &self->coefficients, //
                               "labels:#s", nullptr, &self->labelCount, &self->labels,        //
                               "verbose:", &self->verboseFound,                               //
                               "cookie:pi", nullptr, &self->cookie,                           //
                               kEnd);
    if (result != 1)
        return HalvSetError(*out, result, "resize: bad arguments (%d)", result);
    if (self->inputFound != 1)
        return HalvSetError(*out, -1, "resize: no input");
    return 1;
}

} // namespace

TEST(CoreArgs, HostBuildsAndInitPointParses) {
    int32_t width = 640;
    double gamma = 2.2;
    int32_t window[4] = {1, 2, 3, 4};
    double c0 = 0.25, c1 = 0.5, c2 = 0.75;
    intptr_t cookie = (intptr_t)0x1122334455667788LL;
    int header = 0; // stands for a header record
    const char *labels[] = {"red", "green", "blue"};

    intptr_t list[64];
    ASSERT_EQ(HalvBuildArgs(list,                                               //
                            W("INPUT:H"), W(&header), kNull,                    // case differs
                            W("width:i"), W(&width), kNull,                     //
                            W("gamma:d"), W(&gamma), kNull,                     //
                            W("name:s"), W("scaled image"), kNull,              //
                            W("window:wi"), W(window), kNull,                   //
                            W("coefficients:#f"), W(&c0), W(&c1), W(&c2), kNull, kNull, //
                            W("labels:#s"), W(labels[0]), W(labels[1]), W(labels[2]), kNull, kNull, //
                            W("verbose:"), kNull,                               //
                            W("cookie:pi"), W(&cookie), kNull,                  //
                            W("unknown:i"), W(&width), kNull,                   // never asked for
                            kEnd),
              1);

    HalvState *state = nullptr;
    ASSERT_EQ(HalvCallInit(ResizeInit, list, &state), 1) << (state ? HalvGetErrorMsg(state) : "");
    ASSERT_NE(state, nullptr);
    auto *self = reinterpret_cast<ResizeState *>(state);
    // height is absent: its default stays.  The cookie is the whole machine word.
    EXPECT_EQ(std::tuple(self->input, self->inputFound, self->width, self->height, self->heightFound, self->gamma,
                         self->verboseFound, self->cookie, state->status),
              std::tuple((void *)&header, 1, 640, 480, 0, 2.2, 1, cookie, 1));
    ASSERT_NE(self->name, nullptr);
    EXPECT_STREQ(self->name, "scaled image");
    EXPECT_EQ(std::vector<int32_t>(self->window, self->window + 4), (std::vector<int32_t>{1, 2, 3, 4}));
    ASSERT_EQ(self->coefficientCount, 3);
    EXPECT_EQ(std::vector<double>(self->coefficients, self->coefficients + 3),
              (std::vector<double>{0.25, 0.5, 0.75}));
    ASSERT_EQ(self->labelCount, 3);
    EXPECT_STREQ(self->labels[0], "red");
    EXPECT_STREQ(self->labels[2], "blue");
    EXPECT_EQ(self->labels[3], nullptr);
    EXPECT_NE(self->labels[0], labels[0]); // copies, owned by the plug-in
    EXPECT_EQ(HalvCallEnd(state), 1);

    // A missing required argument is the plug-in's error, reported in the state.
    intptr_t empty[1];
    ASSERT_EQ(HalvBuildArgs(empty, kEnd), 1);
    state = nullptr;
    EXPECT_EQ(HalvCallInit(ResizeInit, empty, &state), -1);
    ASSERT_NE(state, nullptr);
    EXPECT_STREQ(HalvGetErrorMsg(state), "resize: no input");
    HalvCallEnd(state);
}

TEST(CoreArgs, EmptyListAndAbsentKeysKeepDefaults) {
    EXPECT_EQ(HalvBuildArgs(nullptr, kEnd), 0);
    intptr_t list[4] = {7, 7, 7, 7};
    ASSERT_EQ(HalvBuildArgs(list, kEnd), 1);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{kEnd}));

    // Every output keeps its preset value, and the outputs of each absent
    // item are stepped over correctly: two for #, one for p, w and letters,
    // none for other characters.
    int32_t found[6] = {-1, -1, -1, -1, -1, -1};
    int32_t count = -7;
    double *array = reinterpret_cast<double *>(0x10);
    int32_t window[4] = {9, 9, 9, 9};
    void *pointer = reinterpret_cast<void *>(0x20);
    int32_t a = 5, b = 6;
    char *text = nullptr;
    EXPECT_EQ(HalvParseArgs(list,                                   //
                            "array:#f", &found[0], &count, &array,  //
                            "window:wi", &found[1], window,         //
                            "pointer:ps", &found[2], &pointer,      //
                            "pair:i-+i", &found[3], &a, &b,         //
                            "odd:px#qs", &found[4], &pointer, &count, &array, &text, //
                            "name:s", &found[5], &text,             //
                            kEnd),
              1);
    EXPECT_EQ(std::vector<int32_t>(found, found + 6), std::vector<int32_t>(6, 0));
    EXPECT_EQ(std::tuple(count, array, window[0], pointer, a, b, text),
              std::tuple(-7, reinterpret_cast<double *>(0x10), 9, reinterpret_cast<void *>(0x20), 5, 6,
                         nullptr));

    // A null list reads as an empty one.
    int32_t f = -1;
    EXPECT_EQ(HalvParseArgs(nullptr, "x:i", &f, &a, kEnd), 1);
    EXPECT_EQ(f, 0);
}

TEST(CoreArgs, KeysMatchByNameAndFormatInAnyCase) {
    int32_t value = 42;
    intptr_t list[8];
    ASSERT_EQ(HalvBuildArgs(list, W("Level:I"), W(&value), kNull, kEnd), 1);
    int32_t found = -1, out = 0;
    EXPECT_EQ(HalvParseArgs(list, "level:i", &found, &out, kEnd), 1);
    EXPECT_EQ(std::tuple(found, out), std::tuple(1, 42));

    // Same name, other format letter: a different argument; neither a
    // prefix nor an extension of the key matches.
    double d = -1;
    int32_t other[4] = {-1, -1, -1, -1};
    EXPECT_EQ(HalvParseArgs(list, "level:f", &other[0], &d, "level:", &other[1], "level:ii", &other[2], &out, &out,
                            "lev:i", &other[3], &out, kEnd),
              1);
    EXPECT_EQ(std::vector<int32_t>(other, other + 4), std::vector<int32_t>(4, 0));
    EXPECT_EQ(std::tuple(d, out), std::tuple(-1.0, 42));
    // The first of two equal keys counts.
    int32_t first = 1, second = 2;
    ASSERT_EQ(HalvBuildArgs(list, W("n:i"), W(&first), kNull, W("N:I"), W(&second), kNull, kEnd), 1);
    EXPECT_EQ(HalvParseArgs(list, "n:i", &found, &out, kEnd), 1);
    EXPECT_EQ(out, 1);
}

TEST(CoreArgs, PlainPointerAndWindowItemsReadTheirValues) {
    int32_t i = -12, b = 1;
    double f = 3.5, d = -0.125;
    int marker = 0;
    intptr_t list[16];
    ASSERT_EQ(HalvBuildArgs(list, W("all:iBfdsHv"), W(&i), W(&b), W(&f), W(&d), W("text"), W(&marker), W(&list),
                            kNull, kEnd),
              1);
    int32_t oi = 0, ob = 0;
    double of = 0, od = 0;
    char *os = nullptr;
    void *oh = nullptr, *ov = nullptr;
    int32_t found = -1;
    ASSERT_EQ(HalvParseArgs(list, "ALL:IbFdSHV", &found, &oi, &ob, &of, &od, &os, &oh, &ov, kEnd), 1);
    EXPECT_EQ(std::tuple(found, oi, ob, of, od, oh, ov),
              std::tuple(1, -12, 1, 3.5, -0.125, (void *)&marker, static_cast<void *>(&list)));
    EXPECT_STREQ(os, "text");
    halv_internal_free(os);

    // d has no upper-case form: D is no item and takes nothing.
    ASSERT_EQ(HalvBuildArgs(list, W("u:Di"), W(&i), kNull, kEnd), 1);
    int32_t afterD = 0;
    EXPECT_EQ(HalvParseArgs(list, "u:Di", nullptr, &afterD, kEnd), 1);
    EXPECT_EQ(afterD, -12);

    // Characters that are no items take nothing: "i-i" reads two values.
    int32_t second = 77;
    ASSERT_EQ(HalvBuildArgs(list, W("pair:i-i"), W(&i), W(&second), kNull, kEnd), 1);
    int32_t x = 0, y = 0;
    EXPECT_EQ(HalvParseArgs(list, "pair:i-i", nullptr, &x, &y, kEnd), 1);
    EXPECT_EQ(std::tuple(x, y), std::tuple(-12, 77));

    // Surplus value words are left unread, and the next key is still found.
    ASSERT_EQ(HalvBuildArgs(list, W("one:i"), W(&i), W(&second), W(&second), kNull, W("two:i"), W(&second), kNull,
                            kEnd),
              1);
    x = y = 0;
    EXPECT_EQ(HalvParseArgs(list, "one:i", nullptr, &x, "two:i", nullptr, &y, kEnd), 1);
    EXPECT_EQ(std::tuple(x, y), std::tuple(-12, 77));

    // Pointer items.
    intptr_t word = (intptr_t)0x0102030405060708LL;
    double number = 9.75;
    const char *borrowed = "borrowed";
    ASSERT_EQ(HalvBuildArgs(list, W("p:pIpdPsPv"), W(&word), W(&number), W(borrowed), W(&word), kNull, kEnd), 1);
    intptr_t pa = 0, pb = 0;
    const char *s = nullptr;
    void *v = nullptr;
    ASSERT_EQ(HalvParseArgs(list, "p:pIpdPsPv", nullptr, &pa, &pb, &s, &v, kEnd), 1);
    EXPECT_EQ(pa, word); // all 8 bytes of the word pointed to
    double asDouble;
    std::memcpy(&asDouble, &pb, sizeof asDouble);
    EXPECT_EQ(asDouble, 9.75); // the bits of the word pointed to
    EXPECT_EQ(s, borrowed);    // no copy
    EXPECT_EQ(v, static_cast<void *>(&word));

    // p with a letter that isn't one of its own takes nothing when found.
    ASSERT_EQ(HalvBuildArgs(list, W("q:phi"), W(&word), kNull, kEnd), 1);
    int32_t low = 0;
    EXPECT_EQ(HalvParseArgs(list, "q:phi", nullptr, &low, kEnd), 1);
    EXPECT_EQ(low, (int32_t)0x05060708);

    // Windows copy exactly four values.
    int32_t ints[5] = {10, 20, 30, 40, 50};
    double doubles[5] = {0.5, 1.5, 2.5, 3.5, 4.5};
    ASSERT_EQ(HalvBuildArgs(list, W("box:wIwd"), W(ints), W(doubles), kNull, kEnd), 1);
    int32_t outInts[6] = {-1, -1, -1, -1, -1, -1};
    double outDoubles[6] = {-1, -1, -1, -1, -1, -1};
    ASSERT_EQ(HalvParseArgs(list, "box:wIwd", nullptr, outInts, outDoubles, kEnd), 1);
    EXPECT_EQ(std::vector<int32_t>(outInts, outInts + 6), (std::vector<int32_t>{10, 20, 30, 40, -1, -1}));
    EXPECT_EQ(std::vector<double>(outDoubles, outDoubles + 6),
              (std::vector<double>{0.5, 1.5, 2.5, 3.5, -1, -1}));
}

TEST(CoreArgs, ArrayItems) {
    int32_t v1 = 1, v2 = 2, v3 = 3, after = 99;
    intptr_t list[32];
    ASSERT_EQ(HalvBuildArgs(list, W("n:#i"), W(&v1), W(&v2), W(&v3), kNull, kNull, W("after:i"), W(&after), kNull,
                            kEnd),
              1);
    int32_t count = 0, next = 0, found = -1;
    int32_t *numbers = nullptr;
    ASSERT_EQ(HalvParseArgs(list, "n:#i", nullptr, &count, &numbers, "after:i", &found, &next, kEnd), 1);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(std::vector<int32_t>(numbers, numbers + 3), (std::vector<int32_t>{1, 2, 3}));
    EXPECT_EQ(std::tuple(found, next), std::tuple(1, 99));
    halv_internal_free(numbers);

    // An array item followed by a plain item in the same entry: the null
    // behind the run is stepped over.
    ASSERT_EQ(HalvBuildArgs(list, W("mix:#Bi"), W(&v1), W(&v2), kNull, W(&v3), kNull, kNull, kEnd), 1);
    int32_t tail = 0;
    ASSERT_EQ(HalvParseArgs(list, "mix:#Bi", nullptr, &count, &numbers, &tail, kEnd), 1);
    EXPECT_EQ(std::tuple(count, tail), std::tuple(2, 3));
    halv_internal_free(numbers);

    // Word arrays: n + 1 words, the last one null; a run of 0 is valid.
    ASSERT_EQ(HalvBuildArgs(list, W("w:#v"), W(&v1), W(&v2), kNull, kNull, W("e:#V"), kNull, kNull, W("s:#S"),
                            kNull, kNull, kEnd),
              1);
    intptr_t *words = nullptr, *none = nullptr;
    char **strings = nullptr;
    int32_t wordCount = -1, noneCount = -1, stringCount = -1;
    ASSERT_EQ(HalvParseArgs(list, "w:#v", nullptr, &wordCount, &words, "e:#V", nullptr, &noneCount, &none, "s:#S",
                            nullptr, &stringCount, &strings, kEnd),
              1);
    ASSERT_EQ(std::tuple(wordCount, noneCount, stringCount), std::tuple(2, 0, 0));
    ASSERT_TRUE(none != nullptr && strings != nullptr);
    EXPECT_EQ(std::vector<intptr_t>(words, words + 3), (std::vector<intptr_t>{W(&v1), W(&v2), 0}));
    EXPECT_EQ(std::tuple(none[0], strings[0]), std::tuple(0, nullptr));
    halv_internal_free(words);
    halv_internal_free(none);
    HalvFreeArray(strings);

    // Integer and double runs of 0 have nothing to allocate: refused.
    ASSERT_EQ(HalvBuildArgs(list, W("z:#d"), kNull, kNull, kEnd), 1);
    double *doubles = reinterpret_cast<double *>(0x30);
    EXPECT_EQ(HalvParseArgs(list, "z:#d", nullptr, &count, &doubles, kEnd), 0);
    EXPECT_EQ(doubles, reinterpret_cast<double *>(0x30));
    ASSERT_EQ(HalvBuildArgs(list, W("z:#i"), kNull, kNull, kEnd), 1);
    EXPECT_EQ(HalvParseArgs(list, "z:#i", nullptr, &count, &numbers, kEnd), 0);

    // # with a letter that isn't its own takes nothing.
    ASSERT_EQ(HalvBuildArgs(list, W("h:#hi"), W(&v3), kNull, kEnd), 1);
    int32_t plain = 0;
    EXPECT_EQ(HalvParseArgs(list, "h:#hi", nullptr, &plain, kEnd), 1);
    EXPECT_EQ(plain, 3);

    // Hand-made: the run of the last entry has no null before the end.
    intptr_t cut[] = {W("v:#i"), W(&v1), W(&v2), kEnd};
    count = -1, numbers = nullptr, found = -1;
    EXPECT_EQ(HalvParseArgs(cut, "v:#i", nullptr, &count, &numbers, "w:i", &found, &next, kEnd), -1);
    EXPECT_EQ(count, 2); // the count so far is stored
    EXPECT_EQ(numbers, nullptr);
    EXPECT_EQ(found, -1); // parsing stopped before the next key
}

TEST(CoreArgs, MalformedKeysAndFormats) {
    int32_t a = 1, b = 2;
    intptr_t list[32];
    ASSERT_EQ(HalvBuildArgs(list, W("a:i"), W(&a), kNull, W("b:i"), W(&b), kNull, W("short:ii"), W(&a), kNull,
                            W("cut:w"), W(&a), kNull, kEnd),
              1);

    // A key without a colon stops at once; what came before stays stored.
    int32_t outA = 0, outB = 0, found = -5, foundB = -5;
    EXPECT_EQ(HalvParseArgs(list, "a:i", nullptr, &outA, "nocolon", &found, &outB, "b:i", &foundB, &outB, kEnd), 0);
    EXPECT_EQ(std::tuple(outA, found, foundB, outB), std::tuple(1, -5, -5, 0));
    EXPECT_EQ(HalvParseArgs(list, nullptr, &found, kEnd), 0);

    // Formats cut short or with a bad window letter, found or not.
    for (const char *key : {"cut:w", "gone:w", "gone:p", "gone:#", "gone:wq", "gone:wb", "a:ip", "a:i#", "a:iwx"}) {
        void *sink[4] = {};
        found = -5;
        EXPECT_EQ(HalvParseArgs(list, key, &found, &sink[0], &sink[1], &sink[2], kEnd), 0) << key;
    }

    // An entry with fewer value words than its format: refused, not read.
    int32_t x = 0, y = -3;
    EXPECT_EQ(HalvParseArgs(list, "short:ii", nullptr, &x, &y, kEnd), 0);
    EXPECT_EQ(std::tuple(x, y), std::tuple(1, -3));
}

TEST(CoreArgs, AppendExtendsAndRemoveTakesWholeEntries) {
    int32_t a = 1, b = 2, c = 3;
    const char *keyA = "a:i", *keyB = "b:#i", *keyC = "c:";
    intptr_t list[32];
    ASSERT_EQ(HalvBuildArgs(list, W("a:i"), W(&a), kNull, kEnd), 1);
    ASSERT_EQ(HalvAppendArgs(list, W("b:i"), W(&b), kNull, kEnd), 1);
    ASSERT_EQ(HalvAppendArgs(list, kEnd), 1);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{W("a:i"), W(&a), kNull, W("b:i"), W(&b), kNull, kEnd}));
    EXPECT_EQ(HalvAppendArgs(nullptr, kEnd), 0);

    ASSERT_EQ(HalvBuildArgs(list, W(keyA), W(&a), kNull, W(keyB), W(&b), W(&c), kNull, kNull, W(keyC), kNull, W(keyA),
                            W(&c), kNull, kEnd),
              1);
    const std::vector<intptr_t> original = Words(list);

    // A key that is not there, or that matches only in part: unchanged.
    EXPECT_EQ(HalvRemoveArgs(list, W("x:i"), W("a"), W("a:"), W("a:ii"), kEnd), 1);
    EXPECT_EQ(Words(list), original);

    // Every entry with the key goes, compared whole and ignoring case; the
    // next entry keeps both of its null words.
    EXPECT_EQ(HalvRemoveArgs(list, W("A:I"), kEnd), 1);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{W(keyB), W(&b), W(&c), kNull, kNull, W(keyC), kNull, kEnd}));

    // Several keys in one call; the list ends with the terminator.
    EXPECT_EQ(HalvRemoveArgs(list, W("c:"), W("b:#i"), kEnd), 1);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{kEnd}));
    EXPECT_EQ(HalvRemoveArgs(list, W("c:"), kEnd), 1);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{kEnd}));

    // Removing an array entry keeps the following entry readable.
    ASSERT_EQ(HalvBuildArgs(list, W(keyB), W(&b), kNull, kNull, W(keyA), W(&a), kNull, kEnd), 1);
    EXPECT_EQ(HalvRemoveArgs(list, W(keyB), kEnd), 1);
    int32_t out = 0, found = -1;
    EXPECT_EQ(HalvParseArgs(list, "a:i", &found, &out, kEnd), 1);
    EXPECT_EQ(std::tuple(found, out), std::tuple(1, 1));
}

TEST(CoreArgs, BinaryArgumentsBuildLists) {
    // No arguments and 8 extra words: just the terminator, and room behind it.
    intptr_t *list = HalvBinArgToArgs(0, nullptr, 8);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(Words(list), (std::vector<intptr_t>{kEnd}));
    int32_t v = 4;
    ASSERT_EQ(HalvAppendArgs(list, W("a:i"), W(&v), kNull, W("b:i"), W(&v), kNull, W("c:"), kNull, kEnd), 1);
    EXPECT_EQ(Words(list).size(), 9u); // filled to the last word of its room
    halv_internal_free(list);

    EXPECT_EQ(HalvBinArgToArgs(-1, nullptr, 0), nullptr);
    EXPECT_EQ(HalvBinArgToArgs(1, nullptr, 0), nullptr);

    int32_t ints[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    double doubles[3] = {0.5, 1.5, 2.5};
    const char *names[2] = {"left", "right"};
    int marker = 0;
    void *pointers[2] = {&marker, ints};
    int32_t on = 1, off = 0;
    int32_t switches[2] = {0, 1};
    HalvBinArg args[] = {
        {"size:ii", 0, 2, ints},          // one pointer to each integer
        {"box:wi", 0, 7, ints},           // a window: one complete group of 4
        {"list:#i", 0, 3, ints},          // an array: two nulls
        {"boxes:#wi", 0, 8, ints},        // array of windows: two groups
        {"names:#s", 1, 2, names},        // strings as they stand
        {"nothing:v", 2, 5, ints},        // type 2 places no values
        {"gains:#d", 3, 3, doubles},      // a pointer to each double
        {"refs:#v", 4, 2, pointers},      // pointers as they stand
        {"on:", 5, 1, &on},               // a set switch: the key alone
        {"off:", 5, 1, &off},             // a clear switch: left out entirely
        {"bits:ii", 5, 2, switches},      // switches with letters: pointers
        {"strange:i", 9, 2, ints},        // unknown type: no values
        {"nocolon", 0, 4, ints},          // no colon: neither array nor window
    };
    const int32_t count = (int32_t)(sizeof args / sizeof args[0]);
    list = HalvBinArgToArgs(count, args, 0);
    ASSERT_NE(list, nullptr);
    std::vector<intptr_t> expected = {
        W(args[0].key), W(&ints[0]), W(&ints[1]), kNull,                          //
        W(args[1].key), W(&ints[0]), kNull,                                       //
        W(args[2].key), W(&ints[0]), W(&ints[1]), W(&ints[2]), kNull, kNull,      //
        W(args[3].key), W(&ints[0]), W(&ints[4]), kNull, kNull,                   //
        W(args[4].key), W(names[0]), W(names[1]), kNull, kNull,                   //
        W(args[5].key), kNull,                                                    //
        W(args[6].key), W(&doubles[0]), W(&doubles[1]), W(&doubles[2]), kNull, kNull, //
        W(args[7].key), W(&marker), W(ints), kNull, kNull,                        //
        W(args[8].key), kNull,                                                    //
        W(args[10].key), W(&switches[0]), W(&switches[1]), kNull,                 //
        W(args[11].key), kNull,                                                   //
        W(args[12].key), W(&ints[0]), W(&ints[1]), W(&ints[2]), W(&ints[3]), kNull, //
        kEnd};
    // These are the words of any list, whose parsing the tests above drive.
    EXPECT_EQ(Words(list), expected);
    halv_internal_free(list);

    // There is no way back.
    int32_t backCount = -2;
    HalvBinArg *back = nullptr;
    EXPECT_EQ(HalvBinArgFromArgs(expected.data(), &backCount, &back), -1);
    EXPECT_EQ(std::tuple(backCount, back), std::tuple(-2, nullptr));
}
