// The "info" table format at the C interface: tables written here and
// read back in this machine's order and, with their bytes reversed by the
// test, in the other one; the keys it reads and writes; the swap table
// drawn from the field list; field lists that don't parse; hostile
// headers and chunk records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"

using namespace fmt_test;

namespace {

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

/* The same table in the other byte order. */
TableText Other(TableText t) {
    t.architecture = "type 1";
    return t;
}

HalvInfoHeader *AsInfo(HalvHeaderStruct *h) { return reinterpret_cast<HalvInfoHeader *>(h); }

/* The swap table as "width x count @ offset" rows. */
std::string Swaps(HalvHeaderStruct *h) {
    const HalvInfoHeader *info = AsInfo(h);
    std::string out;
    for (uint32_t r = 0; r < info->swapCount; ++r)
        out += (r ? " " : "") + std::to_string(info->swapTable[r].width) + "x" +
               std::to_string(info->swapTable[r].count) + "@" + std::to_string(info->swapTable[r].offset);
    return out;
}

// The test's own table: every type, counts above 1, unaligned values.
const std::vector<const char *> kFields = {"id:1i", "tag:3c", "w:2f", "n:3i", "z:1f", "s:1c", nullptr};
constexpr uint32_t kEntryBytes = 4 + 3 + 16 + 12 + 8 + 1;
/* Where the numbers of an entry stand, and how wide each is. */
const std::vector<std::pair<uint32_t, uint32_t>> kNumbers = {{0, 4},  {7, 8},  {15, 8}, {23, 4},
                                                             {27, 4}, {31, 4}, {35, 8}};

/* Entries first.. in this machine's order. */
std::string Entries(uint32_t first, uint32_t count) {
    std::string s;
    for (uint32_t k = first; k < first + count; ++k) {
        std::string e(kEntryBytes, '\0');
        int32_t id = (int32_t)(k * 2654435761u), n[3] = {(int32_t)k, -(int32_t)k - 1, INT32_MIN + (int32_t)k};
        double w[2] = {k + 0.1, -1.0 / (k + 3)}, z = std::ldexp(1.0, (int)k - 40);
        std::memcpy(&e[0], &id, 4);
        std::memcpy(&e[4], "ab", 3);
        e[5] = (char)('a' + k % 26);
        std::memcpy(&e[7], w, 16);
        std::memcpy(&e[23], n, 12);
        std::memcpy(&e[35], &z, 8);
        e[43] = (char)(0x80 + k);
        s += e;
    }
    return s;
}

uint32_t GetWord(const std::string &s, size_t at) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (uint32_t)(unsigned char)s[at + i] << (8 * i);
    return v;
}

/* A stored little-endian table turned into the other order, as a
 * big-endian machine would have written it: the architecture key, the
 * record words and every number of every entry reversed; characters stay. */
std::string IntoOtherOrder(const std::string &stored) {
    size_t data = stored.find(kEndMarker) + kEndMarker.size();
    std::string out = stored.substr(0, data);
    out.replace(out.find("architecture: type 2"), 20, "architecture: type 1");
    for (size_t at = data; at < stored.size();) {
        uint32_t bytes = GetWord(stored, at);
        for (int w = 0; w < 4; ++w)
            PutWord(out, GetWord(stored, at + 4 * w), true);
        std::string entries = stored.substr(at + 16, bytes);
        for (size_t base = 0; base + kEntryBytes <= entries.size(); base += kEntryBytes)
            for (auto [offset, width] : kNumbers)
                std::reverse(entries.begin() + (long)(base + offset),
                             entries.begin() + (long)(base + offset + width));
        out += entries;
        at += 16 + bytes;
    }
    return out;
}

} // namespace

TEST(InfoFormat, ATableReadsBackInBothByteOrders) {
    ASSERT_EQ(HalvIdentifyEndian(), 0) << "the test turns little-endian tables around";
    HVHdrManager m = Manager("info", "1.0");
    HalvHeaderStruct *made = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &made), 1);
    HalvInfoField **fields = nullptr;
    ASSERT_EQ(HalvParseInfoFields(kFields.data(), &fields), 1);
    EXPECT_EQ(HalvWriteInfoFieldsToHdr(made, fields), 1);
    HalvFreeSmartArray(fields);
    made->bytesPerSep[0] = kEntryBytes;
    made->dimCount = 2;
    made->dims[1] = 5;
    const std::string first = Entries(0, 3), second = Entries(3, 2);
    const std::string stored = WriteImage(
        made, m,
        {{1, 0, 5, 3, 3 * kEntryBytes, 0, first}, {1, HALV_CHUNK_END, 6, 2, 2 * kEntryBytes, 0, second}});
    made->free(made);

    // In this machine's order: no swap table, the entries as written.
    {
        Opened o(stored);
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(AsInfo(o.header)->swapBytes, 0u);
        EXPECT_EQ(AsInfo(o.header)->swapTable, nullptr);
        EXPECT_EQ(Concat(o.All()), first + second);
    }

    // In the other order: numbers come back as they were, characters were
    // never touched, and written again it is the table written first.
    std::string other = IntoOtherOrder(stored);
    ASSERT_NE(other.substr(other.size() - 20), stored.substr(stored.size() - 20));
    Opened o(other);
    ASSERT_EQ(o.result, 1);
    EXPECT_EQ(o.header->managerType, HALV_HDR_INFO);
    EXPECT_EQ(o.header->endian, HalvIdentifyEndian()) << "the loader turns the data around";
    EXPECT_EQ(AsInfo(o.header)->swapBytes, 1u);
    EXPECT_EQ(Swaps(o.header), "4x1@0 8x2@7 4x3@23 8x1@35");
    std::vector<Load> loads = {o.Next(1), o.Next(), o.Next()};
    EXPECT_EQ(Briefs(loads), "1 3L 132B f0 a5; 1 2L 88B f1 a6; 1 0L 0B f1 a0");
    EXPECT_EQ(loads[0].data, first);
    EXPECT_EQ(loads[1].data, second);
    loads.pop_back();
    EXPECT_EQ(WriteImage(o.header, o.manager, loads), stored);

    // The values by field, out of the loaded bytes.
    ASSERT_EQ(HalvParseInfoFieldsFromHdr(o.header, &fields), 1);
    for (uint32_t k = 0; k < 2; ++k) {
        const char *entry = loads[1].data.data() + k * kEntryBytes;
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
}

TEST(InfoFormat, KeysReadAndWritten) {
    TableText t;
    t.encoding = {"name: packed", "bytes/entry: 20", "alignment: 8", "minimumChunk: 20",
                  "preferredChunk: 640"};
    t.info = {"entries: 100", "blobs: 2", "field-0: \"x:1i\"", "field-1: \"weight:2f\""};
    t.extra = {"[Photometry]\nname: rgbLinear\n", "[Origin]\nsite: bench\n"};
    Opened o(t.Text());
    ASSERT_EQ(o.result, 1);
    HalvHeaderStruct *h = o.header;
    EXPECT_EQ(Fields(h), "type 10 dims 3: 1 100 2 parts 0 0 0 endian 0 il 0");
    EXPECT_EQ(h->bytesPerSep[0], 20u);
    EXPECT_EQ(h->alignment, 8u);
    EXPECT_EQ(h->minimumChunk, 20u);
    EXPECT_EQ(h->preferredChunk, 640u);
    EXPECT_EQ(h->color, 0) << "colour is no business of a table";
    EXPECT_EQ(HalvHeaderGetTotalBytes(h), 20u);
    // What was read left the tree; the field list and all else stay.
    for (auto [section, key] :
         {std::pair{"ID", "format"}, {"Info", "entries"}, {"Encoding", "bytes/entry"}, {"Encoding", "name"}})
        EXPECT_EQ(Param(h->userData, section, key), "(none)") << key;
    EXPECT_EQ(Param(h->userData, "Info", "field-1"), "weight:2f");
    EXPECT_EQ(Param(h->userData, "Photometry", "name"), "rgbLinear");
    EXPECT_EQ(
        WriteImage(h, o.manager),
        "[ID]\nformat: info\n" + kBinary +
            "version: 1.0\narchitecture: type 2\n\n[Encoding]\nname: packed\nbytes/entry: 20\nalignment: 8\n"
            "minimumChunk: 20\npreferredChunk: 640\n\n[Info]\nfield-0: \"x:1i\"\nfield-1: \"weight:2f\"\n"
            "entries: 100\nblobs: 2\n\n[Photometry]\nname: rgbLinear\n\n[Origin]\nsite: bench\n\n" +
            kEndMarker);

    // entries absent: one dimension, and none written; blobs without
    // entries: three dimensions, and only blobs written; no architecture:
    // byte order unknown, written as this machine's.
    const struct {
        std::vector<std::string> info;
        std::string architecture;
        uint32_t dimCount, dims2;
        int endian;
        std::vector<std::string> in, out; // in the written text, or not
    } rows[] = {
        {{"field-0: \"x:1i\""}, "type 2", 1, 0, 0, {"bytes/entry: 20\n"}, {"entries", "alignment"}},
        {{"blobs: 7"}, "type 2", 3, 7, 0, {"[Info]\nblobs: 7\n"}, {"entries"}},
        {t.info, "", 3, 2, -1, {"architecture: type 2"}, {}},
    };
    for (const auto &r : rows) {
        TableText u;
        u.info = r.info;
        u.architecture = r.architecture;
        Opened a(u.Text());
        ASSERT_EQ(a.result, 1) << r.info[0];
        EXPECT_EQ(a.header->dimCount, r.dimCount) << r.info[0];
        EXPECT_EQ(a.header->dims[2], r.dims2) << r.info[0];
        EXPECT_EQ(a.header->endian, r.endian) << r.info[0];
        EXPECT_EQ(AsInfo(a.header)->swapBytes, 0u);
        std::string written = WriteImage(a.header, a.manager);
        for (const std::string &s : r.in)
            EXPECT_NE(written.find(s), std::string::npos) << s << " in " << written;
        for (const std::string &s : r.out)
            EXPECT_EQ(written.find(s), std::string::npos) << s << " in " << written;
    }
}

TEST(InfoFormat, SwapTablesFromTheFieldList) {
    const std::string fourFields[] = {"field-0: \"a:2c\"", "field-1: \"b:3i\"", "field-2: \"c:2f\"",
                                      "field-3: \"d:1c\""};
    const struct {
        const char *architecture;
        std::vector<std::string> info;
        uint32_t swapBytes;
        const char *swaps;
    } rows[] = {
        {"type 2", {fourFields, fourFields + 4}, 0, ""},          // only the other order gets a table
        {"big", {fourFields, fourFields + 4}, 1, "4x3@2 8x2@14"}, // no row for the character fields
        {"big", {"field-0: \"name:16c\""}, 1, ""},                // characters only: nothing to reverse
    };
    for (const auto &r : rows) {
        TableText t;
        t.architecture = r.architecture;
        t.info = r.info;
        t.encoding = {"bytes/entry: 31"};
        Opened o(t.Text());
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(AsInfo(o.header)->swapBytes, r.swapBytes) << r.swaps;
        EXPECT_EQ(Swaps(o.header), r.swaps);
        EXPECT_EQ(AsInfo(o.header)->swapTable == nullptr, *r.swaps == '\0') << r.swaps;
    }

    // A field list that doesn't parse leaves the data as stored, though
    // the header stands and the record's words are still reversed.
    for (const std::vector<std::string> &info :
         {std::vector<std::string>{"field-0: \"x:1i\"", "field-1: \"weight:2q\""},
          {"field-0: \"x1i\""},
          {"field-0: \"x:\""},
          {"field-0: \"x:1i\"", "field-1: \"y:300000000f\""}}) {
        SCOPED_TRACE(info.back());
        TableText t = Other(TableText());
        t.info = info;
        std::string payload = Samples(5, 4, true);
        Opened o(t.Text() + ExtChunk(payload, 1, 9, 0, true));
        ASSERT_EQ(o.result, 1);
        EXPECT_EQ(AsInfo(o.header)->swapBytes, 1u);
        EXPECT_EQ(AsInfo(o.header)->swapTable, nullptr);
        EXPECT_EQ(o.header->bytesPerSep[0], 20u);
        Load l = o.Next();
        EXPECT_EQ(Brief(l), "1 1L 20B f0 a9");
        EXPECT_EQ(l.data, payload) << "no reversal";
        EXPECT_EQ(Param(o.header->userData, "Info", "field-0"), info[0].substr(10, info[0].size() - 11));
    }

    // The table only ever holds 4 and 8; a plug-in may put a 2 there.
    TableText t = Other(TableText());
    t.encoding = {"bytes/entry: 6"};
    t.info = {"field-0: \"a:1i\"", "field-1: \"b:2c\""};
    Opened o(t.Text() + ExtChunk("\x01\x02\x03\x04\x05\x06\x11\x12\x13\x14\x15\x16", 2, 0, 0, true));
    ASSERT_EQ(o.result, 1);
    HalvInfoHeader *h = AsInfo(o.header);
    halv_internal_free(h->swapTable);
    h->swapTable = static_cast<HalvInfoSwapEntry *>(halv_internal_malloc(2 * sizeof(HalvInfoSwapEntry)));
    h->swapTable[0] = {2, 1, 0};
    h->swapTable[1] = {2, 2, 2};
    h->swapCount = 2;
    EXPECT_EQ(o.Next().data, "\x02\x01\x04\x03\x06\x05\x12\x11\x14\x13\x16\x15");
}

TEST(InfoFormat, HostileEntrySizesAndRecordsStayWithinTheChunk) {
    // The example entry (an integer, two doubles); the payload is 8 values
    // 0x01020304 + i * 0x01010101 stored big-endian.
    const std::string payload = Samples(8, 4, true);
    // The payload with the word at index i, or the double at byte at, reversed.
    auto word = [](size_t i) { return Samples(1, 4, false, 0x01020304 + (uint32_t)i * 0x01010101); };
    auto dbl = [&payload](size_t at) {
        std::string d = payload.substr(at, 8);
        std::reverse(d.begin(), d.end());
        return d;
    };
    const struct {
        std::string bytesPerEntry;
        uint32_t lines;
        std::string expected;
    } cases[] = {
        {"0", 3, payload}, // entries of no bytes hold nothing to reverse
        // Strides in the billions: one entry, as far as the bytes reach.
        {"4000000000", 1, word(0) + dbl(4) + dbl(12) + payload.substr(20)},
        {"-1", 5, word(0) + dbl(4) + dbl(12) + payload.substr(20)},
        // Stride 16 against fields of 20 bytes: the second double of each
        // entry reaches past it and stays.
        {"16", 2, word(0) + dbl(4) + payload.substr(12, 4) + word(4) + dbl(20) + payload.substr(28)},
        // Lines the bytes don't hold: entries within them only; the second
        // entry's second double would end past the bytes.
        {"20", 1000, word(0) + dbl(4) + dbl(12) + word(5) + dbl(24)},
        {"20", 1, word(0) + dbl(4) + dbl(12) + payload.substr(20)}, // fewer lines than the bytes hold
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("bytes/entry " + c.bytesPerEntry + ", lines " + std::to_string(c.lines));
        TableText t = Other(TableText());
        t.encoding = {"bytes/entry: " + c.bytesPerEntry};
        Opened o(t.Text() + ExtChunk(payload, c.lines, 0, 0, true));
        ASSERT_EQ(o.result, 1);
        Load l = o.Next();
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.lines, c.lines);
        EXPECT_EQ(l.data, c.expected);
        EXPECT_EQ(o.Next().flags, HALV_CHUNK_END);
    }

    // Three example entries in one chunk, each reversed.
    std::string three;
    for (uint32_t k = 0; k < 3; ++k) {
        PutWord(three, 0x01020304u + k, true);
        for (double v : {k * 10 + 0.25, k * 10 + 1.25}) {
            unsigned char b[8];
            std::memcpy(b, &v, 8);
            for (int i = 7; i >= 0; --i)
                three.push_back((char)b[i]);
        }
    }
    Opened o(Other(TableText()).Text() + ExtChunk(three, 3, 0, 0, true));
    Load l = o.Next();
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

TEST(InfoFormat, StreamsThatEndInsideARecordOrPayloadFail) {
    TableText t = Other(TableText());
    std::string chunk = ExtChunk(Samples(10, 4, true), 2, 0, 0, true);
    const struct {
        std::string data;
        std::vector<int> results;
    } cases[] = {
        {"", {1}},                                      // no chunk at all: the end at once
        {chunk.substr(0, 9), {0}},                      // inside a record
        {chunk + chunk.substr(0, 30), {1, 0}},          // inside a payload
        {ExtChunk("", 0, 0, 0, true, 0x7FFFFFF0), {0}}, // a payload of gigabytes that isn't there
        {chunk + chunk, {1, 1, 1}},                     // exactly behind a payload: the end
    };
    for (const auto &c : cases) {
        Opened o(t.Text() + c.data);
        ASSERT_EQ(o.result, 1);
        std::vector<int> results;
        for (Load &l : o.All(0, 5))
            results.push_back(l.result);
        EXPECT_EQ(results, c.results) << c.data.size();
    }
    // The header's entries aren't the loader's business: a table that
    // promises 3 entries and holds 1 ends quietly after it.
    Opened o(t.Text() + ExtChunk(Samples(5, 4, true), 1, 0, 0, true));
    EXPECT_EQ(Briefs(o.All()), "1 1L 20B f0 a0; 1 0L 0B f1 a0");
}

TEST(InfoFormat, CreateCopyFreeAndTheManagerTable) {
    HVHdrManager m = Manager("INFO", "1.0"), byType{};
    ASSERT_EQ(HVHdrGetManager_Type(HALV_HDR_INFO, &byType), 1);
    EXPECT_EQ(std::memcmp(&m, &byType, sizeof m), 0);
    EXPECT_STREQ(HVHdrGetFormatName_Type(HALV_HDR_INFO), "info");
    EXPECT_EQ(m.toStruct, nullptr);
    EXPECT_EQ(HVHdrGetManager_Str("info", "1.1", &byType), 0);
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(Fields(h), "type 10 dims 1: 1 parts 0 0 0 endian 0 il 0");
    EXPECT_EQ(h->dims[1], 0u);
    EXPECT_EQ(h->emitChunk, m.emitChunk);
    EXPECT_EQ(AsInfo(h)->swapTable, nullptr);
    EXPECT_EQ(AsInfo(h)->chunkBuffer, nullptr);
    HalvChunk chunk{};
    EXPECT_EQ(h->loadChunk(nullptr, nullptr, &chunk, 0), 0);
    EXPECT_EQ(h->emitChunk(h, nullptr, nullptr), 0);
    EXPECT_EQ(h->fromHeader(h, nullptr), 0);
    EXPECT_EQ(h->toHeader(nullptr, nullptr), 0);

    // Records go out in this machine's order even for a big-endian
    // header; the payload as it is; flags cut to 0x01 and 0x20.
    h->endian = 1;
    h->bytesPerSep[0] = 4;
    std::string payload("\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    std::string written = WriteImage(h, m, {{1, 0xFFFFFFFF, 0xA1B2C3D4, 2, 8, 8, payload}});
    EXPECT_NE(written.find("architecture: type 1\n"), std::string::npos);
    EXPECT_EQ(written.substr(written.find(kEndMarker) + kEndMarker.size()),
              ExtChunk(payload, 2, 0xA1B2C3D4, 0x21, false));
    h->free(nullptr);
    h->free(h);

    // A copy of a header with a swap table owns a table of its own, and
    // works on when the original has gone.
    TableText t = Other(TableText());
    t.extra = {"[Notes]\nby: hand\n"};
    Opened o(t.Text() + ExtChunk(Samples(5, 4, true), 1, 0, 0, true));
    ASSERT_EQ(o.result, 1);
    ASSERT_EQ(o.Next().result, 1);
    HalvHeaderStruct *copy = o.header->copy(o.header);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(AsInfo(copy)->swapTable, AsInfo(o.header)->swapTable);
    EXPECT_EQ(AsInfo(copy)->swapBytes, 1u);
    EXPECT_EQ(AsInfo(copy)->chunkBuffer, nullptr);
    EXPECT_EQ(AsInfo(copy)->bufferCapacity, 0u);
    EXPECT_NE(copy->userData, o.header->userData);
    EXPECT_EQ(copy->copy, o.header->copy);
    o.header->free(o.header);
    o.header = nullptr;
    EXPECT_EQ(Swaps(copy), "4x1@0 8x2@4");
    EXPECT_EQ(Param(copy->userData, "Notes", "by"), "hand");
    copy->free(copy);
}
