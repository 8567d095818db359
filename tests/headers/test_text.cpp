// Header text on streams: reading up to [End] and the two end bytes,
// writing it back, ordering the sections, and the chain from a stream to a
// header through the manager that the ID section names.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "dpk_hvsup.h"
#include "headers/support.h"

using hdr_test::Parse;
using hdr_test::Sections;
using hdr_test::Sink;
using hdr_test::Source;
using hdr_test::TopNames;
using namespace hdr_test::sample;

namespace {

const std::string kMarker = "\f\n";

TEST(HeaderText, ReadStopsAtTheDataAndWriteGivesTheSameBytes) {
    const std::string header = "[ID]\nformat: internal\nversion: 2.1\n\n[Raster]\nwidth: 640\nheight: 480\n"
                               "title: \"a b: c\"\n\n[Extra]\nlist: one\ntwo\n\n[End]";
    Source in(header + kMarker + "\x01\x02\xFF data");
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrRead(in.io(), &tree), 1);
    EXPECT_EQ(in.rest(), "\x01\x02\xFF data"); // nothing read ahead
    EXPECT_EQ(HVHdrGetHeaderParam(tree, "Raster", "height"), std::string("480"));

    Sink out;
    ASSERT_EQ(HVHdrWrite(tree, out.io()), 1);
    EXPECT_EQ(out.text(), header + kMarker);
    EXPECT_EQ(out.flushes(), 1);
    HVHdrFree(tree);
}

TEST(HeaderText, EndMarkersAndWhatIsNoHeader) {
    const std::string x = "[ID]\nformat: x\n";
    const struct {
        std::string text;
        size_t failAt;
        int result;
        const char *names, *rest; // rest null: not checked
    } rows[] = {
        // Text between [End] and the form feed, and between form feed and
        // line feed, is skipped.
        {x + "[End] junk\r\f more\n\nDATA", SIZE_MAX, 1, "ID End", "\nDATA"},
        // A stream that ends right behind [End], or inside the marker, or
        // fails there, still gives 1: the tree is whole.
        {x + "[End]", SIZE_MAX, 1, "ID End", ""},
        {x + "[End]\f", SIZE_MAX, 1, "ID End", ""},
        {x + "[End]\fxyz", SIZE_MAX, 1, "ID End", ""},
        {x + "[End]\f\n", x.size() + 6, 1, "ID End", nullptr},
        // No [End] at all: the reader takes the text to the stream's end.
        {x + "\n[Raster]\nwidth: 3\n", SIZE_MAX, 1, "ID Raster", ""},
        {"[Raster]\nwidth: 3\n[End]\f\n", SIZE_MAX, 0, "", nullptr},
        {"width: 3\n", SIZE_MAX, 0, "", nullptr},
        {"", SIZE_MAX, 0, "", nullptr},
        {"\f\n", SIZE_MAX, 0, "", nullptr},
    };
    for (const auto &r : rows) {
        Source in(r.text, r.failAt);
        HalvUserCMData *tree = nullptr;
        EXPECT_EQ(HVHdrRead(in.io(), &tree), r.result) << r.text;
        EXPECT_EQ(r.result == 1 ? TopNames(tree) : tree == nullptr ? "" : "a tree", r.names) << r.text;
        if (r.rest != nullptr) {
            EXPECT_EQ(in.rest(), r.rest) << r.text;
        }
        HVHdrFree(tree);
    }
    HalvUserCMData *tree = nullptr;
    EXPECT_EQ(HVHdrRead(nullptr, &tree), 0);
    Source in("[ID]\n");
    EXPECT_EQ(HVHdrRead(in.io(), nullptr), 0);
}

TEST(HeaderText, WriteFailures) {
    HalvUserCMData *tree = Parse("[ID]\nformat: x\n\n[End]");
    Sink small(8);
    EXPECT_EQ(HVHdrWrite(tree, small.io()), -1);
    EXPECT_EQ(small.text(), "[ID]\nfor");
    EXPECT_EQ(small.flushes(), 1); // flushed in every case

    // The marker is written but not checked.
    const std::string whole = "[ID]\nformat: x\n\n[End]";
    Sink exact(whole.size() + 1);
    EXPECT_EQ(HVHdrWrite(tree, exact.io()), 1);
    EXPECT_EQ(exact.text(), whole + "\f");
    EXPECT_EQ(HVHdrWrite(tree, nullptr), 0);

    // A stream without a flush slot is written all the same.
    Sink noFlush;
    noFlush.io()->flush = nullptr;
    EXPECT_EQ(HVHdrWrite(tree, noFlush.io()), 1);
    EXPECT_EQ(noFlush.text(), whole + kMarker);
    HVHdrFree(tree);
}

TEST(HeaderText, ArrangeMovesIdFirstAndEndLast) {
    // Case is ignored and names are matched whole.
    const std::pair<HalvUserCMData *, const char *> rows[] = {
        {Sections({"Raster", "End", "ID", "Encoding"}), "ID Raster Encoding End"},
        {Sections({"A", "B", "C"}), "A B C"},
        {Sections({"end", "IDs", "Ends", "id", "X"}), "id IDs Ends X end"},
        {Sections({"End", "ID"}), "ID End"},
    };
    for (auto [tree, names] : rows) {
        HalvUserCMData *arranged = HVHdrArrange(tree);
        EXPECT_EQ(TopNames(arranged), names);
        HVHdrFree(arranged);
    }
    HalvUserCMData *tree = Sections({"A", "B", "C"});
    EXPECT_EQ(HVHdrArrange(tree), tree) << "nothing to move: the same head";
    HVHdrFree(tree);

    // Two Ends (one list joined from two trees): each goes to the head of
    // the side list, so the later one comes first behind the rest.
    tree = Sections({"End", "A"});
    tree->next->next = Sections({"END", "B"});
    tree = HVHdrArrange(tree);
    EXPECT_EQ(TopNames(tree), "A B END End");
    HVHdrFree(tree);
    EXPECT_EQ(HVHdrArrange(nullptr), nullptr);
}

// ---- from a stream to a header and back ----

TEST(HeaderChain, ReadHeaderThenChunksThenWriteBackByteForByte) {
    SampleFormat sample;
    Source in(kStored + kMarker + kData);
    HVHdrManager m{};
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrRead_Header(in.io(), &m, &h), 1);
    EXPECT_EQ(m.emitChunk, &SampleEmitChunk);
    EXPECT_EQ(h->dims[0], 3u);
    EXPECT_EQ(h->dims[1], 2u);
    EXPECT_EQ(h->fromHeader, &SampleFromHeader);
    EXPECT_EQ(in.rest(), kData);

    HalvChunk chunk{};
    ASSERT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), 1);
    EXPECT_EQ(chunk.bytes, 6u);
    HalvChunk last{};
    ASSERT_EQ(HVHdrToChunk(m, h, in.io(), &last), 1); // the stream has ended
    EXPECT_EQ(last.flags & 1u, 1u);
    EXPECT_EQ(last.bytes, 0u);

    Sink out;
    ASSERT_EQ(HVHdrWrite_Header(h, &m, out.io()), 1);
    ASSERT_EQ(HVHdrFromChunk(m, h, &chunk, out.io()), 1);
    EXPECT_EQ(out.text(), kStored + kMarker + kData);
    halv_internal_free(chunk.data);
    halv_internal_free(last.data);
    h->free(h);
}

TEST(HeaderChain, UnknownFormatOrVersionAndBadInput) {
    SampleFormat sample;
    // An unknown version or format, no format, not a header at all, and a
    // header whose dims don't scan (the format refuses).
    HVHdrManager m{};
    HalvHeaderStruct *h = nullptr;
    for (const char *text :
         {"[ID]\nformat: sample\nversion: 3.0\n[End]\f\n", "[ID]\nformat: nosuch\nversion: 1.0\n[End]\f\n",
          "[ID]\nversion: 1.0\n[End]\f\n", "[Raster]\n",
          "[ID]\nformat: sample\nversion: 1.0\n\n[Raster]\ndims: x\n[End]\f\n"}) {
        Source in(text);
        EXPECT_EQ(HVHdrRead_Header(in.io(), &m, &h), 0) << text;
        EXPECT_EQ(h, nullptr);
    }
    Source plain("[Raster]\n");
    EXPECT_EQ(HVHdrRead_Header(nullptr, &m, &h), 0);
    EXPECT_EQ(HVHdrRead_Header(plain.io(), nullptr, &h), 0);
    EXPECT_EQ(HVHdrRead_Header(plain.io(), &m, nullptr), 0);

    Sink out;
    EXPECT_EQ(HVHdrWrite_Header(nullptr, &m, out.io()), 0);
    HalvHeaderStruct generic{};
    HalvInitGenericHeader(&generic);
    HVHdrManager none{};
    EXPECT_EQ(HVHdrWrite_Header(&generic, &none, out.io()), 0); // no fromHeader: nothing written
    EXPECT_EQ(out.text(), "");
}

TEST(HeaderChain, StructuresThroughTheirSlots) {
    static int width;
    HVHdrManager m{};
    m.toStruct = [](HalvUserCMData *tree, void *s) {
        int32_t w = 0;
        uint32_t n = 1;
        HVHdrGetHeaderInts(tree, "Raster", "width", &w, &n);
        *static_cast<int *>(s) = w;
        return 1;
    };
    m.fromStruct = [](void *s, HalvUserCMData **tree) {
        int32_t w = *static_cast<int *>(s);
        *tree = HVHdrSetHeaderParam(*tree, "End", nullptr, nullptr);
        *tree = HVHdrSetHeaderInts(*tree, "Raster", "width", &w, 1, 1);
        *tree = HVHdrSetHeaderParam(*tree, "ID", "format", "plain");
        *tree = HVHdrSetHeaderParam(*tree, "ID", "version", "1");
        return 1;
    };
    HVHdrManagerEntry *entry = nullptr;
    ASSERT_EQ(HVHdrRegisterManager("plain", "1", &m, &entry), 1);

    width = 0;
    Source in("[ID]\nformat: plain\nversion: 1\n\n[Raster]\nwidth: 1234\n\n[End]\f\nrest");
    HVHdrManager found{};
    ASSERT_EQ(HVHdrRead_Struct(in.io(), &found, &width), 1);
    EXPECT_EQ(width, 1234);
    EXPECT_EQ(in.rest(), "rest");

    Sink out;
    width = 99;
    ASSERT_EQ(HVHdrWrite_Struct(&width, &found, out.io()), 1);
    EXPECT_EQ(out.text(), "[ID]\nformat: plain\nversion: 1\n\n[Raster]\nwidth: 99\n\n[End]\f\n");
    EXPECT_EQ(HVHdrWrite_Struct(nullptr, &found, out.io()), 0);
    HVHdrUnregisterManager(entry);
}

// ---- reading while keeping the bytes ----

std::string Bytes(void *bytes, uint32_t count) { return std::string(static_cast<char *>(bytes), count); }

TEST(HeaderCapture, KeepsExactlyTheBytesTakenAndHandsThemOn) {
    // That the tree and the bytes taken match HVHdrRead's, the header text fuzz target checks.
    Source in(kStored + " tail\f junk\n" + kData);
    HalvUserCMData *tree = nullptr;
    void *bytes = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(HVHdrNonDestructiveRead(in.io(), &tree, &bytes, &count), 1);
    EXPECT_EQ(Bytes(bytes, count), kStored + " tail\f junk\n");
    EXPECT_EQ(in.rest(), kData);

    // The kept bytes in front of the rest of the stream read as the whole.
    SampleFormat sample;
    HalvIO *kept = HalvIO_Str(bytes, count);
    ASSERT_NE(kept, nullptr);
    HalvIO *parts[] = {kept, in.io()};
    HalvIO *whole = HalvIO_Multiplex(parts, 2);
    ASSERT_NE(whole, nullptr);
    HVHdrManager m{};
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrRead_Header(whole, &m, &h), 1);
    HalvChunk chunk{};
    ASSERT_EQ(HVHdrToChunk(m, h, whole, &chunk), 1);
    EXPECT_EQ(static_cast<unsigned char *>(chunk.data)[5], 250);
    halv_internal_free(chunk.data);
    h->free(h);
    whole->close(whole);
    kept->close(kept);
    halv_internal_free(bytes);
    HVHdrFree(tree);
}

TEST(HeaderCapture, FailuresStillHandOverWhatWasTaken) {
    // Not a header: the reader's 0, and the bytes it took.
    Source notHeader("[Raster]\nwidth: 1\n");
    HalvUserCMData *tree = nullptr;
    void *bytes = reinterpret_cast<void *>(&tree);
    uint32_t count = 99;
    EXPECT_EQ(HVHdrNonDestructiveRead(notHeader.io(), &tree, &bytes, &count), 0);
    EXPECT_EQ(tree, nullptr);
    ASSERT_NE(bytes, nullptr);
    EXPECT_GT(count, 0u);
    EXPECT_EQ(Bytes(bytes, count), std::string("[Raster]\nwidth: 1\n").substr(0, count));
    halv_internal_free(bytes);

    // A stream that gives nothing at all: -1, no bytes.
    Source empty("");
    EXPECT_EQ(HVHdrNonDestructiveRead(empty.io(), &tree, &bytes, &count), -1);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(count, 0u);
    HVHdrFree(tree);
    tree = nullptr;
    EXPECT_EQ(HVHdrNonDestructiveRead(nullptr, &tree, &bytes, &count), 0);
    EXPECT_EQ(HVHdrNonDestructiveRead(empty.io(), &tree, nullptr, &count), 0);
    EXPECT_EQ(HVHdrNonDestructiveRead(empty.io(), &tree, &bytes, nullptr), 0);
}

TEST(HeaderCapture, HeaderAndStructForms) {
    SampleFormat sample;
    Source in(kStored + kMarker + kData);
    void *bytes = nullptr;
    uint32_t count = 0;
    HVHdrManager m{};
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrNonDestructivRead_Header(in.io(), &bytes, &count, &m, &h), 1);
    EXPECT_EQ(Bytes(bytes, count), kStored + kMarker);
    EXPECT_EQ(h->dims[1], 2u);
    EXPECT_EQ(m.loadChunk, &SampleLoadChunk);
    h->free(h);
    halv_internal_free(bytes);

    // Bytes and count are cleared before the arguments are checked.
    bytes = &count;
    count = 5;
    EXPECT_EQ(HVHdrNonDestructivRead_Header(in.io(), &bytes, &count, nullptr, &h), 0);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(count, 0u);

    // An unknown version: the manager lookup's 0, the bytes still handed over.
    Source unknown("[ID]\nformat: sample\nversion: 9\n[End]\f\n");
    h = nullptr;
    EXPECT_EQ(HVHdrNonDestructivRead_Header(unknown.io(), &bytes, &count, &m, &h), 0);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(Bytes(bytes, count), "[ID]\nformat: sample\nversion: 9\n[End]\f\n");
    halv_internal_free(bytes);

    // The structure form reaches toStruct, which this format lacks.
    Source again(kStored + kMarker);
    int structure = 0;
    EXPECT_EQ(HVHdrNonDestructivRead_Struct(again.io(), &bytes, &count, &m, &structure), 0);
    EXPECT_EQ(count, (uint32_t)(kStored.size() + 2));
    halv_internal_free(bytes);
}

} // namespace
