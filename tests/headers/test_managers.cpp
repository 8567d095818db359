// The generic header record, the manager table and calls through a manager,
// with a small stored format of the test's own.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/support.h"

using hdr_test::Parse;
using hdr_test::Source;
using hdr_test::Sections;
using hdr_test::Sink;
using hdr_test::Text;
using hdr_test::TopNames;
using namespace hdr_test::sample;

namespace {

/* Built-in entries, which stand in the table once their formats exist. */
const char *const kBuiltins[][2] = {
    {"internal", "2.1"}, {"internal", "2.0"}, {"pixelstream", "1.0-ascii"}, {"info", "1.0"},
    {"image-ext", "1.0"}, {"pixr", "1.0"},    {"spectral", "1.0-ascii"},    {"spectral", "1.0-binary"},
};

int BuiltinCount() {
    int found = 0;
    HVHdrManager m;
    for (const auto &entry : kBuiltins)
        found += HVHdrGetManager_Str(entry[0], entry[1], &m);
    return found;
}

// ---- the generic record ----

TEST(HeaderRecord, InitTouchesOnlyCopyFreeAndEndian) {
    HalvHeaderStruct h;
    std::memset(&h, 0x5A, sizeof h);
    EXPECT_EQ(HalvInitGenericHeader(nullptr), 0);
    ASSERT_EQ(HalvInitGenericHeader(&h), 1);
    EXPECT_EQ(h.copy, &HalvGenericHeaderCopy);
    EXPECT_EQ(h.free, &HalvGenericHeaderFree);
    EXPECT_EQ(h.endian, HalvIdentifyEndian());
    EXPECT_EQ(h.managerType, 0x5A5A5A5A);
    EXPECT_EQ(h.reservedWord, (uintptr_t)0x5A5A5A5A5A5A5A5AULL);
}

TEST(HeaderRecord, CopyDuplicatesTheTreeAndFreeReleasesIt) {
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(SampleCreateHeader(&h), 1);
    h->dims[0] = 640;
    h->bitsPerSample[35] = 16;
    h->loadChunk = SampleLoadChunk; // slots are copied as they stand
    h->userData = Parse(kStored);
    ASSERT_NE(h->userData, nullptr);

    HalvHeaderStruct *c = h->copy(h);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->dims[0], 640u);
    EXPECT_EQ(c->bitsPerSample[35], 16u);
    EXPECT_EQ(c->loadChunk, &SampleLoadChunk);
    EXPECT_EQ(c->managerType, 77);
    EXPECT_NE(c->userData, h->userData);
    EXPECT_EQ(Text(c->userData), Text(h->userData));
    h->free(h); // the copy owns its own tree
    EXPECT_EQ(HVHdrGetHeaderParam(c->userData, "Notes", "by"), std::string("hand"));
    c->free(c);

    HalvHeaderStruct bare{};
    HalvInitGenericHeader(&bare);
    HalvHeaderStruct *d = HalvGenericHeaderCopy(&bare);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(d->userData, nullptr);
    d->free(d);
    EXPECT_EQ(HalvGenericHeaderCopy(nullptr), nullptr);
    HalvGenericHeaderFree(nullptr);
}

TEST(HeaderRecord, AllocHeadersPreparesEveryItem) {
    HalvHeaderStruct **array = nullptr;
    ASSERT_EQ(HalvAllocHeaders(&array, 3, sizeof(HalvHeaderStruct) + 16), 1);
    ASSERT_EQ(HalvGetArraySize(array), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(array[i]->copy, &HalvGenericHeaderCopy);
        EXPECT_EQ(array[i]->free, &HalvGenericHeaderFree);
        EXPECT_EQ(array[i]->endian, HalvIdentifyEndian());
        EXPECT_EQ(array[i]->userData, nullptr);
    }
    array[1]->userData = Parse(kStored); // released by the item's free slot
    EXPECT_EQ(HalvFreeSmartArray(array), 1);

    ASSERT_EQ(HalvAllocHeaders(&array, 0, sizeof(HalvHeaderStruct)), 1);
    EXPECT_EQ(HalvGetArraySize(array), 0u);
    HalvFreeArray(array);
    ASSERT_EQ(HalvAllocHeaders(&array, 2, 0), 1); // reserved slots, nothing to prepare
    EXPECT_EQ(array[0], HalvArrayEmptySlot());
    HalvFreeArray(array);
    EXPECT_EQ(HalvAllocHeaders(&array, -1, sizeof(HalvHeaderStruct)), 0);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(HalvAllocHeaders(nullptr, 1, sizeof(HalvHeaderStruct)), 0);
}

// ---- the table ----

TEST(ManagerTable, RegisterFindsByNameIgnoringCaseNotByType) {
    SampleFormat sample;
    HVHdrManager m{};
    ASSERT_EQ(HVHdrGetManager_Str("SAMPLE", "1.0", &m), 1);
    EXPECT_EQ(m.toHeader, &SampleToHeader);
    EXPECT_EQ(m.createHeader, &SampleCreateHeader);
    EXPECT_EQ(m.toStruct, nullptr);
    // No fallback to another version, no near names.
    for (auto [name, version] : {std::pair<const char *, const char *>{"sample", "1.1"}, {"sample", "1.0 "},
                                 {"sampl", "1.0"}, {nullptr, "1.0"}})
        EXPECT_EQ(HVHdrGetManager_Str(name, version, &m), 0) << (name ? name : "null") << " " << version;
    EXPECT_EQ(HVHdrGetManager_Type(-1, &m), 0); // a registered manager is found by name only

    // From a header tree: ID/format and ID/version, both needed.
    for (auto [text, found] : {std::pair<const char *, int>{"[ID]\nformat: Sample\nversion: 1.0\n[End]", 1},
                               {"[ID]\nformat: sample\n[End]", 0}, {"[ID]\nversion: 1.0\n[End]", 0}}) {
        HalvUserCMData *tree = Parse(text);
        m = HVHdrManager{};
        EXPECT_EQ(HVHdrGetManager(tree, &m), found) << text;
        EXPECT_EQ(m.loadChunk, found ? &SampleLoadChunk : nullptr);
        HVHdrFree(tree);
    }
    EXPECT_EQ(HVHdrGetManager(nullptr, &m), 0);
}

TEST(ManagerTable, SecondRegistrationReplacesAndTheTableFills) {
    HVHdrManagerEntry *first = nullptr, *again = nullptr;
    HVHdrManager other = kSample;
    other.toHeader = nullptr;
    ASSERT_EQ(HVHdrRegisterManager("twice", "1", &kSample, &first), 1);
    ASSERT_EQ(HVHdrRegisterManager("TWICE", "1", &other, &again), 1);
    EXPECT_EQ(first, again);
    HVHdrManager m{};
    ASSERT_EQ(HVHdrGetManager_Str("twice", "1", &m), 1);
    EXPECT_EQ(m.toHeader, nullptr);
    EXPECT_EQ(HVHdrUnregisterManager(first), 1);
    EXPECT_EQ(HVHdrGetManager_Str("twice", "1", &m), 0);
    EXPECT_EQ(HVHdrUnregisterManager(nullptr), 0);

    // Fill the table: the free entries are twelve less the built-in ones.
    std::vector<HVHdrManagerEntry *> taken;
    for (int i = 0; i < 20; ++i) {
        HVHdrManagerEntry *entry = reinterpret_cast<HVHdrManagerEntry *>(&taken);
        std::string name = "fmt" + std::to_string(i);
        if (HVHdrRegisterManager(name.c_str(), "1", &kSample, &entry) != 1) {
            EXPECT_EQ(entry, reinterpret_cast<HVHdrManagerEntry *>(&taken)) << "handle untouched when full";
            break;
        }
        taken.push_back(entry);
    }
    EXPECT_EQ((int)taken.size(), HVHDR_MANAGER_ENTRIES - BuiltinCount());
    // A name already there is still replaced in a full table.
    HVHdrManagerEntry *replaced = nullptr;
    EXPECT_EQ(HVHdrRegisterManager("FMT0", "1", &other, &replaced), 1);
    EXPECT_EQ(replaced, taken[0]);
    // One entry given back makes room for one more.
    HVHdrUnregisterManager(taken[2]);
    HVHdrManagerEntry *late = nullptr;
    EXPECT_EQ(HVHdrRegisterManager("late", "1", &kSample, &late), 1);
    EXPECT_EQ(late, taken[2]);
    for (HVHdrManagerEntry *entry : taken)
        HVHdrUnregisterManager(entry);

    EXPECT_EQ(HVHdrRegisterManager(nullptr, "1", &kSample, &late), 0);
    EXPECT_EQ(HVHdrRegisterManager("x", "1", nullptr, &late), 0);
    EXPECT_EQ(HVHdrRegisterManager("x", "1", &kSample, nullptr), 0);

    // Long names are cut at 32 bytes and compared over the 32 stored.
    const std::string longName(40, 'q');
    ASSERT_EQ(HVHdrRegisterManager(longName.c_str(), "v", &kSample, &late), 1);
    EXPECT_EQ(HVHdrGetManager_Str(longName.substr(0, 32).c_str(), "v", &m), 1);
    EXPECT_EQ(HVHdrGetManager_Str(longName.c_str(), "v", &m), 1);
    EXPECT_EQ(HVHdrGetManager_Str(longName.substr(0, 31).c_str(), "v", &m), 0);
    HVHdrUnregisterManager(late);
}

// ---- calls through a manager ----

TEST(ManagerCalls, CreateHeaderTestsAndMessages) {
    SampleFormat sample;
    HVHdrManager none{};
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(HVHdrCreateHeader(none, nullptr), 0);
    EXPECT_EQ(HVHdrCreateHeader(none, &h), 0);
    EXPECT_EQ(HVHdrCreateHeader(kSample, nullptr), 0);
    EXPECT_EQ(calls[8], 0);
    HVHdrManager failing = kSample;
    failing.createHeader = [](HalvHeaderStruct **) { return -1; };
    EXPECT_EQ(HVHdrCreateHeader(failing, &h), -1);

    ASSERT_EQ(HVHdrCreateHeader(kSample, &h), 1);
    EXPECT_EQ(h->toHeader, &SampleToHeader);
    EXPECT_EQ(h->emitChunk, &SampleEmitChunk);
    EXPECT_EQ(h->createHeader, &SampleCreateHeader);
    h->free(h);
}

TEST(ManagerCalls, HeaderSlotsGoBeforeThePassedManager) {
    SampleFormat sample;
    HalvUserCMData *tree = Parse(kStored);
    HalvHeaderStruct *h = nullptr;
    HVHdrManager none{};
    EXPECT_EQ(HVHdrToHeader(none, tree, &h), 0);
    EXPECT_EQ(HVHdrToHeader(kSample, nullptr, &h), 0);
    EXPECT_EQ(HVHdrToHeader(kSample, tree, nullptr), 0);
    ASSERT_EQ(HVHdrToHeader(kSample, tree, &h), 1);
    HVHdrFree(tree);
    EXPECT_EQ(h->dims[0], 3u);
    EXPECT_EQ(h->loadChunk, &SampleLoadChunk);

    // An empty manager passed: the header's own slots still work.
    Source in(kData);
    HalvChunk chunk{};
    EXPECT_EQ(HVHdrToChunk(none, h, in.io(), &chunk), 1);
    EXPECT_EQ(chunk.bytes, 6u);
    EXPECT_EQ(static_cast<unsigned char *>(chunk.data)[5], 250);
    Sink out;
    EXPECT_EQ(HVHdrFromChunk(none, h, &chunk, out.io()), 1);
    EXPECT_EQ(out.text(), kData);
    HalvUserCMData *written = nullptr;
    EXPECT_EQ(HVHdrFromHeader(none, h, &written), 1);
    EXPECT_EQ(TopNames(written), "ID Raster Notes End");
    HVHdrFree(written);

    // A generic header has no slots and takes the manager passed; without
    // one there is nothing to call.
    HalvHeaderStruct generic{};
    HalvInitGenericHeader(&generic);
    generic.dims[0] = 2;
    generic.dims[1] = 1;
    Source in2(" 7 8");
    EXPECT_EQ(HVHdrToChunkLines(none, &generic, in2.io(), &chunk, 1), 0);
    EXPECT_EQ(HVHdrToChunkLines(kSample, &generic, in2.io(), &chunk, 1), 1);
    EXPECT_EQ(static_cast<unsigned char *>(chunk.data)[1], 8);
    EXPECT_EQ(HVHdrFromChunk(none, &generic, &chunk, out.io()), 0);
    EXPECT_EQ(HVHdrToChunk(kSample, &generic, in2.io(), nullptr), 0);
    EXPECT_EQ(HVHdrToChunk(kSample, nullptr, in2.io(), &chunk), 0);
    EXPECT_EQ(HVHdrFromChunk(kSample, &generic, nullptr, out.io()), 0);
    EXPECT_EQ(HVHdrFromHeader(kSample, nullptr, &written), 0);
    EXPECT_EQ(HVHdrFromHeader(kSample, &generic, nullptr), 0);

    // No fromHeader anywhere: 0, yet the tree is the arranged duplicate.
    generic.userData = Sections({"End", "ID", "Keep"});
    EXPECT_EQ(HVHdrFromHeader(none, &generic, &written), 0);
    EXPECT_EQ(TopNames(written), "ID Keep End");
    HVHdrFree(written);
    HVHdrFree(generic.userData);
    halv_internal_free(chunk.data);
    h->free(h);
}

TEST(ManagerCalls, FromHeaderWithoutTreeLetsTheFormatBuildOne) {
    SampleFormat sample;
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(kSample, &h), 1);
    h->dims[0] = 4;
    h->dims[1] = 9;
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(kSample, h, &tree), 1);
    EXPECT_EQ(Text(tree), "[ID]\nformat: sample\nversion: 1.0\n\n[Raster]\ndims: 4 9\n\n[End]");
    HVHdrFree(tree);
    h->free(h);
}

TEST(ManagerCalls, StructureSlotsPassArgumentsThrough) {
    static void *seen[2];
    HVHdrManager m{};
    int structure = 5;
    HalvUserCMData *tree = Sections({"End", "ID"});
    EXPECT_EQ(HVHdrToStruct(m, tree, &structure), 0);
    EXPECT_EQ(HVHdrLoadAll(m, &structure, &structure), 0);
    EXPECT_EQ(HVHdrEmitAll(m, &structure, &structure), 0);
    EXPECT_EQ(HVHdrFromStruct(m, &structure, &tree), 0);
    m.toStruct = [](HalvUserCMData *t, void *s) { seen[0] = t; seen[1] = s; return 7; };
    m.loadAll = [](void *a, void *b) { seen[0] = a; seen[1] = b; return 8; };
    m.emitAll = [](void *a, void *b) { seen[0] = b; seen[1] = a; return 9; };
    m.fromStruct = [](void *, HalvUserCMData **t) {
        *t = HVHdrSetHeaderParam(*t, "Added", "k", "v");
        return 3;
    };
    EXPECT_EQ(HVHdrToStruct(m, tree, &structure), 7);
    EXPECT_EQ(seen[0], tree);
    EXPECT_EQ(seen[1], &structure);
    EXPECT_EQ(HVHdrToStruct(m, tree, nullptr), 0);
    EXPECT_EQ(HVHdrLoadAll(m, &structure, &seen), 8);
    EXPECT_EQ(seen[1], &seen);
    EXPECT_EQ(HVHdrLoadAll(m, nullptr, &seen), 0);
    EXPECT_EQ(HVHdrEmitAll(m, &structure, &seen), 9);
    EXPECT_EQ(seen[0], &seen);
    EXPECT_EQ(HVHdrFromStruct(m, &structure, &tree), 3);
    EXPECT_EQ(TopNames(tree), "ID Added End"); // arranged after the method
    HVHdrFree(tree);
}

} // namespace
