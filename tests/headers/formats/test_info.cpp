// The "info" table format at the C interface: tables written here and
// read back in this machine's order and, with their bytes reversed by the
// test, in the other one; the keys it reads and writes; the swap table
// drawn from the field list; field lists that don't parse; hostile
// headers and chunk records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/raster_support.h"

using namespace raster_test;

namespace {

HVHdrManager Info() {
    HVHdrManager m{};
    EXPECT_EQ(HVHdrGetManager_Str("info", "1.0", &m), 1);
    return m;
}

/* A stored info header's text, section by section. */
struct TableText {
    std::string architecture = "type 2"; // empty: no key
    std::vector<std::string> encoding = {"name: packed", "bytes/entry: 20"};
    std::vector<std::string> info = {"entries: 3", "field-0: \"x:1i\"", "field-1: \"weight:2f\""};
    std::vector<std::string> extra; // whole sections, before End

    std::string Text() const {
        std::string s = "[ID]\nformat: info\n" + kBinary + "version: 1.0\n";
        if (!architecture.empty())
            s += "architecture: " + architecture + "\n";
        s += HeaderText::Section("Encoding", encoding) + HeaderText::Section("Info", info);
        for (const std::string &e : extra)
            s += "\n" + e;
        return s + "\n" + kEndMarker;
    }
};

// ---- the test's own table: every type, counts above 1, unaligned values ----

const std::vector<const char *> kFields = {"id:1i", "tag:3c", "w:2f", "n:3i", "z:1f", "s:1c"};
constexpr uint32_t kEntryBytes = 4 + 3 + 16 + 12 + 8 + 1;

/* Where the numbers of an entry stand, and how wide each is. */
struct Value {
    uint32_t offset, width;
};
const std::vector<Value> kNumbers = {{0, 4}, {7, 8}, {15, 8}, {23, 4}, {27, 4}, {31, 4}, {35, 8}};

/* Entry k in this machine's order. */
std::string Entry(uint32_t k) {
    std::string e(kEntryBytes, '\0');
    auto put = [&e](uint32_t at, const void *v, size_t n) { std::memcpy(&e[at], v, n); };
    int32_t id = (int32_t)(k * 2654435761u);
    double w0 = k + 0.1, w1 = -1.0 / (k + 3), z = std::ldexp(1.0, (int)k - 40);
    int32_t n[3] = {(int32_t)k, -(int32_t)k - 1, INT32_MIN + (int32_t)k};
    put(0, &id, 4);
    put(4, "ab", 3);
    e[5] = (char)('a' + k % 26);
    put(7, &w0, 8);
    put(15, &w1, 8);
    put(23, n, 12);
    put(35, &z, 8);
    e[43] = (char)(0x80 + k);
    return e;
}

std::string Entries(uint32_t first, uint32_t count) {
    std::string s;
    for (uint32_t k = first; k < first + count; ++k)
        s += Entry(k);
    return s;
}

/* The same entries with every number reversed, as the other byte order
 * stores them; characters stay. */
std::string Reversed(std::string entries) {
    for (size_t base = 0; base + kEntryBytes <= entries.size(); base += kEntryBytes)
        for (const Value &v : kNumbers)
            std::reverse(entries.begin() + (long)(base + v.offset), entries.begin() + (long)(base + v.offset + v.width));
    return entries;
}

/* The field list of the test's table, owned. */
struct Fields {
    HalvInfoField **list = nullptr;
    explicit Fields(const std::vector<const char *> &texts = kFields) {
        std::vector<const char *> strings(texts);
        strings.push_back(nullptr);
        EXPECT_EQ(HalvParseInfoFields(strings.data(), &list), 1);
    }
    ~Fields() { HalvFreeSmartArray(list); }
    Fields(const Fields &) = delete;
    Fields &operator=(const Fields &) = delete;
};

/* A new info header made through the manager, with the test's fields. */
HalvHeaderStruct *NewTable(HVHdrManager &m, uint32_t entries) {
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(HVHdrCreateHeader(m, &h), 1);
    Fields fields;
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(h, fields.list), 1);
    h->bytesPerSep[0] = kEntryBytes;
    h->dimCount = 2;
    h->dims[1] = entries;
    return h;
}

/* Writes header h and one chunk for each payload (lines by the entry
 * size); the stored bytes. */
std::string Store(HVHdrManager &m, HalvHeaderStruct *h, const std::vector<std::string> &payloads,
                  uint32_t lastFlags = 0) {
    HalvIO *out = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    for (size_t i = 0; i < payloads.size(); ++i) {
        std::string p = payloads[i];
        HalvChunk c{i + 1 == payloads.size() ? lastFlags : 0, (uint32_t)i + 5, (uint32_t)(p.size() / kEntryBytes),
                    (uint32_t)p.size(), (uint32_t)p.size(), 0, p.data()};
        EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    }
    std::string bytes = Contents(out);
    out->close(out);
    return bytes;
}

uint32_t GetWord(const std::string &s, size_t at, bool big) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (uint32_t)(unsigned char)s[at + i] << (big ? 24 - 8 * i : 8 * i);
    return v;
}

/* A stored table of this machine's order turned into the other order, as
 * a big-endian machine would have written it: the architecture key, the
 * record words and every number of every entry reversed. */
std::string IntoOtherOrder(const std::string &stored) {
    size_t data = stored.find(kEndMarker);
    EXPECT_NE(data, std::string::npos);
    data += kEndMarker.size();
    std::string header = stored.substr(0, data);
    size_t key = header.find("architecture: type 2");
    EXPECT_NE(key, std::string::npos);
    header.replace(key, 20, "architecture: type 1");
    std::string out = header;
    for (size_t at = data; at < stored.size();) {
        uint32_t bytes = GetWord(stored, at, false);
        for (int w = 0; w < 4; ++w)
            PutWord(out, GetWord(stored, at + 4 * w, false), true);
        out += Reversed(stored.substr(at + 16, bytes));
        at += 16 + bytes;
    }
    return out;
}

std::string Swaps(const HalvHeaderStruct *h) {
    const auto *info = reinterpret_cast<const HalvInfoHeader *>(h);
    std::string out;
    for (uint32_t r = 0; r < info->swapCount; ++r)
        out += (r ? " " : "") + std::to_string(info->swapTable[r].width) + "x" +
               std::to_string(info->swapTable[r].count) + "@" + std::to_string(info->swapTable[r].offset);
    return out;
}

HalvInfoHeader *AsInfo(HalvHeaderStruct *h) { return reinterpret_cast<HalvInfoHeader *>(h); }

/* The header text HVHdrWrite_Header gives for h. */
std::string HeaderOf(HVHdrManager &m, HalvHeaderStruct *h) {
    HalvIO *out = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    std::string text = Contents(out);
    out->close(out);
    return text;
}

} // namespace

TEST(InfoFormat, ATableReadsBackInBothByteOrders) {
    HVHdrManager m = Info();
    HalvHeaderStruct *made = NewTable(m, 5);
    std::string first = Entries(0, 3), second = Entries(3, 2);
    std::string stored = Store(m, made, {first, second}, HALV_CHUNK_END);
    made->free(made);

    // In this machine's order: no swap table, the entries as written.
    {
        Opened o(stored);
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(AsInfo(o.header)->swapBytes, 0u);
        EXPECT_EQ(AsInfo(o.header)->swapTable, nullptr);
        EXPECT_EQ(LoadOne(o.manager, o.header, o.input.io()).data, first);
        EXPECT_EQ(LoadOne(o.manager, o.header, o.input.io()).data, second);
    }

    // In the other order: numbers come back as they were, characters
    // were never touched.
    std::string other = IntoOtherOrder(stored);
    ASSERT_NE(other.substr(other.size() - 20), stored.substr(stored.size() - 20));
    Opened o(other);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->managerType, HALV_HDR_INFO);
    EXPECT_EQ(o.header->endian, HalvIdentifyEndian()) << "the loader turns the data around";
    EXPECT_EQ(AsInfo(o.header)->swapBytes, 1u);
    EXPECT_EQ(Swaps(o.header), "4x1@0 8x2@7 4x3@23 8x1@35");
    Load a = LoadOne(o.manager, o.header, o.input.io(), 1);
    Load b = LoadOne(o.manager, o.header, o.input.io());
    EXPECT_EQ(a.result, 1);
    EXPECT_EQ(a.data, first);
    EXPECT_EQ(a.lines, 3u);
    EXPECT_EQ(a.auxWord, 5u);
    EXPECT_EQ(a.flags, 0u);
    EXPECT_EQ(b.data, second);
    EXPECT_EQ(b.lines, 2u);
    EXPECT_EQ(b.auxWord, 6u);
    EXPECT_EQ(b.flags, HALV_CHUNK_END);
    Load end = LoadOne(o.manager, o.header, o.input.io());
    EXPECT_EQ(end.result, 1);
    EXPECT_EQ(end.flags, HALV_CHUNK_END);
    EXPECT_EQ(end.bytes, 0u);

    // The values by field, out of the loaded bytes.
    HalvInfoField **fields = nullptr;
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(o.header, &fields), 1);
    for (uint32_t k = 0; k < 2; ++k) {
        const char *entry = b.data.data() + k * kEntryBytes;
        int32_t id = 0, n2 = 0;
        double w1 = 0;
        char *tag = nullptr;
        EXPECT_EQ(HalvGetInfoFieldInt(fields[0], entry, 0, &id), 1);
        EXPECT_EQ(id, (int32_t)((k + 3) * 2654435761u));
        EXPECT_EQ(HalvGetInfoFieldDouble(fields[2], entry, 1, &w1), 1);
        EXPECT_EQ(w1, -1.0 / (k + 6));
        EXPECT_EQ(HalvGetInfoFieldInt(fields[3], entry, 2, &n2), 1);
        EXPECT_EQ(n2, INT32_MIN + (int32_t)(k + 3));
        EXPECT_EQ(HalvGetInfoFieldStr(fields[1], entry, &tag), 1);
        EXPECT_EQ(std::string(tag, 4), std::string("a") + (char)('a' + k + 3) + std::string("\0\0", 2));
        halv_internal_free(tag);
    }
    HalvFreeSmartArray(fields);

    // Written again it is the table this machine wrote in the first place.
    std::vector<Load> loads = {a, b};
    HalvIO *out = HalvIO_Mem(0);
    ASSERT_EQ(HVHdrWrite_Header(o.header, &o.manager, out), 1);
    for (Load &l : loads) {
        HalvChunk c{l.flags, l.auxWord, l.lines, l.bytes, l.bytes, 0, l.data.data()};
        ASSERT_EQ(HVHdrFromChunk(o.manager, o.header, &c, out), 1);
    }
    EXPECT_EQ(Contents(out), stored);
    out->close(out);
}

TEST(InfoFormat, KeysReadAndWritten) {
    TableText t;
    t.encoding = {"name: packed", "bytes/entry: 20", "alignment: 8", "minimumChunk: 20", "preferredChunk: 640"};
    t.info = {"entries: 100", "blobs: 2", "field-0: \"x:1i\"", "field-1: \"weight:2f\""};
    t.extra = {"[Photometry]\nname: rgbLinear\n", "[Origin]\nsite: bench\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    HalvHeaderStruct *h = o.header;
    EXPECT_EQ(h->managerType, 10);
    EXPECT_EQ(h->dimCount, 3u);
    EXPECT_EQ(h->dims[0], 1u);
    EXPECT_EQ(h->dims[1], 100u);
    EXPECT_EQ(h->dims[2], 2u);
    EXPECT_EQ(h->bytesPerSep[0], 20u);
    EXPECT_EQ(h->alignment, 8u);
    EXPECT_EQ(h->minimumChunk, 20u);
    EXPECT_EQ(h->preferredChunk, 640u);
    EXPECT_EQ(h->color, 0) << "colour is no business of a table";
    EXPECT_EQ(h->parts[0] + h->parts[1] + h->parts[2], 0u);
    EXPECT_EQ(HalvHeaderGetTotalBytes(h), 20u);
    // What was read left the tree; the field list and all else stay.
    EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "ID", "format"), nullptr);
    EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "Info", "entries"), nullptr);
    EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "Encoding", "bytes/entry"), nullptr);
    EXPECT_EQ(HVHdrGetHeaderParam(h->userData, "Encoding", "name"), nullptr);
    EXPECT_STREQ(HVHdrGetHeaderParam(h->userData, "Info", "field-1"), "weight:2f");
    EXPECT_STREQ(HVHdrGetHeaderParam(h->userData, "Photometry", "name"), "rgbLinear");

    // Written back: the same keys, in the writer's order.
    EXPECT_EQ(HeaderOf(o.manager, h),
              "[ID]\nformat: info\n" + kBinary +
                  "version: 1.0\narchitecture: type 2\n\n[Encoding]\nname: packed\nbytes/entry: 20\nalignment: 8\n"
                  "minimumChunk: 20\npreferredChunk: 640\n\n[Info]\nfield-0: \"x:1i\"\nfield-1: \"weight:2f\"\n"
                  "entries: 100\nblobs: 2\n\n[Photometry]\nname: rgbLinear\n\n[Origin]\nsite: bench\n\n" +
                  kEndMarker);

    // entries absent: one dimension, and none written.
    TableText noEntries;
    noEntries.info = {"field-0: \"x:1i\""};
    Opened a(noEntries.Text());
    ASSERT_EQ(a.result, 1);
    EXPECT_EQ(a.header->dimCount, 1u);
    EXPECT_EQ(a.header->dims[1], 0u);
    std::string written = HeaderOf(a.manager, a.header);
    EXPECT_EQ(written.find("entries"), std::string::npos) << written;
    EXPECT_EQ(written.find("alignment"), std::string::npos) << written;
    EXPECT_NE(written.find("bytes/entry: 20\n"), std::string::npos) << written;

    // blobs without entries: three dimensions, and only blobs written.
    TableText blobsOnly;
    blobsOnly.info = {"blobs: 7"};
    Opened b(blobsOnly.Text());
    ASSERT_EQ(b.result, 1);
    EXPECT_EQ(b.header->dimCount, 3u);
    EXPECT_EQ(b.header->dims[1], 0u);
    EXPECT_EQ(b.header->dims[2], 7u);
    written = HeaderOf(b.manager, b.header);
    EXPECT_EQ(written.find("entries"), std::string::npos) << written;
    EXPECT_NE(written.find("[Info]\nblobs: 7\n"), std::string::npos) << written;

    // No architecture: byte order unknown, written as this machine's.
    TableText unknown;
    unknown.architecture = "";
    Opened u(unknown.Text());
    ASSERT_EQ(u.result, 1);
    EXPECT_EQ(u.header->endian, -1);
    EXPECT_EQ(AsInfo(u.header)->swapBytes, 0u);
    EXPECT_NE(HeaderOf(u.manager, u.header).find("architecture: type 2"), std::string::npos);
}

TEST(InfoFormat, OnlyTheOtherOrderGetsASwapTable) {
    TableText same;
    same.info = {"field-0: \"a:2c\"", "field-1: \"b:3i\"", "field-2: \"c:2f\"", "field-3: \"d:1c\""};
    same.encoding = {"bytes/entry: 31"};
    Opened s(same.Text());
    ASSERT_EQ(s.result, 1);
    EXPECT_EQ(AsInfo(s.header)->swapTable, nullptr);
    EXPECT_EQ(AsInfo(s.header)->swapCount, 0u);

    TableText other = same;
    other.architecture = "big";
    Opened o(other.Text());
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(Swaps(o.header), "4x3@2 8x2@14") << "no row for the character fields";

    // Characters only: the other order needs nothing reversed.
    TableText text = other;
    text.info = {"field-0: \"name:16c\""};
    Opened t(text.Text());
    ASSERT_EQ(t.result, 1);
    EXPECT_EQ(AsInfo(t.header)->swapBytes, 1u);
    EXPECT_EQ(AsInfo(t.header)->swapCount, 0u);
    EXPECT_EQ(AsInfo(t.header)->swapTable, nullptr);
}

TEST(InfoFormat, EachEntryOfAChunkIsReversed) {
    // The example entry, three of them: 60 bytes of payload.
    TableText t;
    t.architecture = "type 1";
    std::string payload;
    for (uint32_t k = 0; k < 3; ++k) {
        PutWord(payload, 0x01020304u + k, true);
        for (int d = 0; d < 2; ++d) {
            double v = k * 10 + d + 0.25;
            unsigned char b[8];
            std::memcpy(b, &v, 8);
            for (int i = 7; i >= 0; --i)
                payload.push_back((char)b[i]);
        }
    }
    ASSERT_EQ(payload.size(), 60u);
    Opened o(t.Text() + ExtChunk(payload, 3, 0, 0, true));
    ASSERT_EQ(o.result, 1);
    Load l = LoadOne(o.manager, o.header, o.input.io());
    ASSERT_EQ(l.result, 1);
    ASSERT_EQ(l.bytes, 60u);
    for (uint32_t k = 0; k < 3; ++k) {
        int32_t x;
        double w[2];
        std::memcpy(&x, l.data.data() + 20 * k, 4);
        std::memcpy(w, l.data.data() + 20 * k + 4, 16);
        EXPECT_EQ(x, (int32_t)(0x01020304u + k));
        EXPECT_EQ(w[0], k * 10 + 0.25);
        EXPECT_EQ(w[1], k * 10 + 1.25);
    }
}

TEST(InfoFormat, AFieldListThatDoesNotParseLeavesTheDataAsStored) {
    for (const std::vector<std::string> &info :
         {std::vector<std::string>{"field-0: \"x:1i\"", "field-1: \"weight:2q\""},
          std::vector<std::string>{"field-0: \"x1i\""}, std::vector<std::string>{"field-0: \"x:\""},
          std::vector<std::string>{"field-0: \"x:1i\"", "field-1: \"y:300000000f\""}}) {
        TableText t;
        t.architecture = "type 1";
        t.info = info;
        std::string payload = Samples(5, 4, true);
        Opened o(t.Text() + ExtChunk(payload, 1, 9, 0, true));
        ASSERT_EQ(o.result, 1) << "the header stands: " << info.back();
        EXPECT_EQ(AsInfo(o.header)->swapBytes, 1u);
        EXPECT_EQ(AsInfo(o.header)->swapTable, nullptr) << info.back();
        EXPECT_EQ(o.header->bytesPerSep[0], 20u);
        Load l = LoadOne(o.manager, o.header, o.input.io());
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.data, payload) << "no reversal";
        EXPECT_EQ(l.lines, 1u) << "the record's words are still reversed";
        EXPECT_EQ(l.auxWord, 9u);
        EXPECT_STREQ(HVHdrGetHeaderParam(o.header->userData, "Info", "field-0"), info[0].substr(10, info[0].size() - 11).c_str());
    }
}

TEST(InfoFormat, HostileEntrySizesAndRecordsStayWithinTheChunk) {
    // Integers and doubles of the example entry; the payload is 8 values
    // 0x01020304 + i * 0x01010101 stored big-endian.
    const std::string payload = Samples(8, 4, true);
    struct Case {
        std::string bytesPerEntry;
        uint32_t lines;
        std::string expected;
    };
    // The payload with the word at index i, or the double at byte at,
    // reversed.
    auto word = [](size_t i) { return Samples(1, 4, false, 0x01020304 + (uint32_t)i * 0x01010101); };
    auto dbl = [&payload](size_t at) {
        std::string d = payload.substr(at, 8);
        std::reverse(d.begin(), d.end());
        return d;
    };
    const Case cases[] = {
        // Stride 0: entries of no bytes hold nothing to reverse.
        {"0", 3, payload},
        // Stride in the billions: one entry, as far as the bytes reach.
        {"4000000000", 1, word(0) + dbl(4) + dbl(12) + payload.substr(20)},
        {"-1", 5, word(0) + dbl(4) + dbl(12) + payload.substr(20)},
        // Stride 16 against fields of 20 bytes: the second double of each
        // entry reaches past it and stays.
        {"16", 2, word(0) + dbl(4) + payload.substr(12, 4) + word(4) + dbl(20) + payload.substr(28)},
        // The record claims lines the bytes don't hold: entries within
        // them only; the second entry's second double would end past the
        // bytes and isn't there to reverse.
        {"20", 1000, word(0) + dbl(4) + dbl(12) + word(5) + dbl(24)},
        // Fewer lines than the bytes hold: only those.
        {"20", 1, word(0) + dbl(4) + dbl(12) + payload.substr(20)},
    };
    for (const Case &c : cases) {
        TableText t;
        t.architecture = "type 1";
        t.encoding = {"bytes/entry: " + c.bytesPerEntry};
        Opened o(t.Text() + ExtChunk(payload, c.lines, 0, 0, true));
        ASSERT_EQ(o.result, 1) << c.bytesPerEntry;
        Load l = LoadOne(o.manager, o.header, o.input.io());
        EXPECT_EQ(l.result, 1) << c.bytesPerEntry;
        EXPECT_EQ(l.lines, c.lines);
        EXPECT_EQ(l.data, c.expected) << "bytes/entry " << c.bytesPerEntry << ", lines " << c.lines;
        EXPECT_EQ(LoadOne(o.manager, o.header, o.input.io()).flags, HALV_CHUNK_END);
    }
}

TEST(InfoFormat, StreamsThatEndInsideARecordOrPayloadFail) {
    TableText t;
    t.architecture = "type 1";
    std::string chunk = ExtChunk(Samples(10, 4, true), 2, 0, 0, true);
    struct Case {
        std::string data;
        std::vector<int> results;
    } cases[] = {
        {"", {1}},                                             // no chunk at all: the end at once
        {chunk.substr(0, 9), {0}},                             // inside a record
        {chunk + chunk.substr(0, 30), {1, 0}},                 // inside a payload
        {ExtChunk("", 0, 0, 0, true, 0x7FFFFFF0), {0}},        // a payload of gigabytes that isn't there
        {chunk + chunk, {1, 1, 1}},                            // exactly behind a payload: the end
    };
    for (const Case &c : cases) {
        Opened o(t.Text() + c.data);
        ASSERT_EQ(o.result, 1);
        std::vector<int> results;
        for (Load &l : LoadAll(o.manager, o.header, o.input.io(), 0, 5))
            results.push_back(l.result);
        EXPECT_EQ(results, c.results) << c.data.size();
    }
    // The header's entries aren't the loader's business: a table that
    // promises 3 entries and holds 1 ends quietly after it.
    t.info = {"entries: 3", "field-0: \"x:1i\"", "field-1: \"weight:2f\""};
    Opened o(t.Text() + ExtChunk(Samples(5, 4, true), 1, 0, 0, true));
    std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io());
    ASSERT_EQ(loads.size(), 2u);
    EXPECT_EQ(loads[0].lines, 1u);
    EXPECT_EQ(loads[1].flags, HALV_CHUNK_END);
}

TEST(InfoFormat, RowsOfTwoBytesAreReversedToo) {
    TableText t;
    t.architecture = "type 1";
    t.encoding = {"bytes/entry: 6"};
    t.info = {"field-0: \"a:1i\"", "field-1: \"b:2c\""};
    Opened o(t.Text() + ExtChunk("\x01\x02\x03\x04\x05\x06\x11\x12\x13\x14\x15\x16", 2, 0, 0, true));
    ASSERT_EQ(o.result, 1);
    // The table only ever holds 4 and 8; a plug-in may put a 2 there.
    HalvInfoHeader *h = AsInfo(o.header);
    halv_internal_free(h->swapTable);
    h->swapTable = static_cast<HalvInfoSwapEntry *>(halv_internal_malloc(2 * sizeof(HalvInfoSwapEntry)));
    h->swapTable[0] = {2, 1, 0};
    h->swapTable[1] = {2, 2, 2};
    h->swapCount = 2;
    Load l = LoadOne(o.manager, o.header, o.input.io());
    EXPECT_EQ(l.data, "\x02\x01\x04\x03\x06\x05\x12\x11\x14\x13\x16\x15");
}

TEST(InfoFormat, CopyCreateFreeAndTheChunkRecordsOrder) {
    HVHdrManager m = Info();
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(h->managerType, 10);
    EXPECT_EQ(h->dimCount, 1u);
    EXPECT_EQ(h->dims[0], 1u);
    EXPECT_EQ(h->dims[1], 0u);
    EXPECT_EQ(h->endian, HalvIdentifyEndian());
    EXPECT_EQ(h->emitChunk, m.emitChunk);
    EXPECT_EQ(AsInfo(h)->swapTable, nullptr);
    EXPECT_EQ(AsInfo(h)->chunkBuffer, nullptr);

    // Records go out in this machine's order even for a big-endian
    // header; the payload as it is; flags cut to 0x01 and 0x20.
    h->endian = 1;
    h->bytesPerSep[0] = 4;
    std::string written = HeaderOf(m, h);
    EXPECT_NE(written.find("architecture: type 1\n"), std::string::npos);
    HalvIO *out = HalvIO_Mem(0);
    char payload[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    HalvChunk c{0xFFFFFFFF, 0xA1B2C3D4, 2, 8, 8, 0, payload};
    ASSERT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    EXPECT_EQ(Contents(out), ExtChunk(std::string(payload, 8), 2, 0xA1B2C3D4, 0x21, false));
    out->close(out);
    h->free(h);

    // A copy of a header with a swap table owns a table of its own.
    TableText t;
    t.architecture = "type 1";
    t.extra = {"[Notes]\nby: hand\n"};
    Opened o(t.Text() + ExtChunk(Samples(5, 4, true), 1, 0, 0, true));
    ASSERT_EQ(o.result, 1);
    ASSERT_EQ(LoadOne(o.manager, o.header, o.input.io()).result, 1);
    HalvHeaderStruct *copy = o.header->copy(o.header);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(AsInfo(copy)->swapTable, AsInfo(o.header)->swapTable);
    EXPECT_EQ(Swaps(copy), Swaps(o.header));
    EXPECT_EQ(AsInfo(copy)->swapBytes, 1u);
    EXPECT_EQ(AsInfo(copy)->chunkBuffer, nullptr);
    EXPECT_EQ(AsInfo(copy)->bufferCapacity, 0u);
    EXPECT_NE(copy->userData, o.header->userData);
    EXPECT_STREQ(HVHdrGetHeaderParam(copy->userData, "Notes", "by"), "hand");
    EXPECT_EQ(copy->copy, o.header->copy);
    // The original goes first; the copy still works on its own.
    o.header->free(o.header);
    o.header = nullptr;
    EXPECT_EQ(Swaps(copy), "4x1@0 8x2@4");
    copy->free(copy);
}

TEST(InfoFormat, TheTableFindsTheFormatByNameAndCode) {
    HVHdrManager byName{}, byType{};
    ASSERT_EQ(HVHdrGetManager_Str("INFO", "1.0", &byName), 1);
    ASSERT_EQ(HVHdrGetManager_Type(10, &byType), 1);
    EXPECT_EQ(std::memcmp(&byName, &byType, sizeof byName), 0);
    EXPECT_STREQ(HVHdrGetFormatName_Type(10), "info");
    EXPECT_EQ(byName.toStruct, nullptr);
    EXPECT_NE(byName.createHeader, nullptr);
    EXPECT_EQ(HVHdrGetManager_Str("info", "1.1", &byName), 0);
    // A null header is ignored by free, and the slots refuse nulls.
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(byName, &h), 1);
    HalvChunk chunk{};
    EXPECT_EQ(h->loadChunk(nullptr, nullptr, &chunk, 0), 0);
    EXPECT_EQ(h->emitChunk(h, nullptr, nullptr), 0);
    EXPECT_EQ(h->fromHeader(h, nullptr), 0);
    EXPECT_EQ(h->toHeader(nullptr, nullptr), 0);
    h->free(nullptr);
    h->free(h);
}
