// The header of the wavelength format ("spectral") at the C interface: the wavelength
// rules (start and interval, or a table, and which wins), the refusals,
// the spectrum types, the keys read, kept and written, hostile numbers,
// and the record's copy and free.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"

using namespace fmt_test;

namespace {

constexpr float kNone = HALV_SPECTRAL_NONE;

/* The header text with the given Spectral lines, read through the table. */
struct Read {
    explicit Read(const std::vector<std::string> &spectral, const std::string &version = "1.0-ascii")
        : opened(StoredHeader(version, spectral)) {}
    HalvSpectralHeader *s() { return Spectral(opened.header); }
    Opened opened;
};

HVHdrManager Manager(const char *version) { return fmt_test::Manager("spectral", version); }

/* The header text that a header writes through its own slots. */
std::string Written(HalvHeaderStruct *h) { return WriteImage(h, HVHdrManager{}); }

std::string Line(const std::string &text, const std::string &key) {
    size_t at = text.find("\n" + key + ": ");
    if (at == std::string::npos)
        return "(none)";
    at += key.size() + 3;
    return text.substr(at, text.find('\n', at) - at);
}

} // namespace

TEST(SpectralHeader, StartAndIntervalWithoutATable) {
    Read r(EvenKeys(31, 2));
    ASSERT_EQ(r.opened.result, 1);
    HalvHeaderStruct *g = r.opened.header;
    EXPECT_EQ(Fields(g), "type 9 dims 2: 31 2 parts 1 0 0 endian 0 il 0");
    for (uint32_t i = 0; i < HALV_MAX_SEPARATIONS; ++i)
        EXPECT_EQ(g->bitsPerSample[i] * 1000 + g->bytesPerSep[i], i < 31 ? 32004u : 0u) << i;
    EXPECT_EQ(r.s()->bytesPerMeasurement, 124u);
    EXPECT_EQ(r.s()->startWaveLength, 400.0f);
    EXPECT_EQ(r.s()->samplingInterval, 10.0f);
    EXPECT_EQ(r.s()->wavelengths[0], kNone);
    EXPECT_EQ(r.s()->spectrumType, 0u);
    EXPECT_EQ(__HVHdrSpectralWavelength(g, 0), 400.0f);
    EXPECT_EQ(__HVHdrSpectralWavelength(g, 30), 700.0f);
    EXPECT_EQ(__HVHdrSpectralWavelength(g, 31), kNone);
    // Written back: the same two keys, the same text.
    EXPECT_EQ(Written(g), StoredHeader("1.0-ascii", EvenKeys(31, 2)));

    // More than 36 samples: the lists stop at 36.  Fewer: the rest stays 0.
    Read wide(EvenKeys(40, 1));
    ASSERT_EQ(wide.opened.result, 1);
    EXPECT_EQ(wide.opened.header->bitsPerSample[35], 32u);
    Read narrow(EvenKeys(3, 1));
    ASSERT_EQ(narrow.opened.result, 1);
    EXPECT_EQ(narrow.opened.header->bitsPerSample[3], 0u);
}

TEST(SpectralHeader, TablesAndIntervalsSettleOnOneForm) {
    struct Case {
        const char *name;
        std::vector<std::string> keys;
        int result;
        float start = 0, interval = 0;
        std::vector<float> table = {}; // empty: no table
    };
    const std::string samples3 = "numberOfSamples: 3";
    const Case cases[] = {
        {"even table agreeing with its interval is dropped",
         {samples3, "wavelengths: 400 410 420", "samplingInterval: 10"}, 1, 400, 10, {}},
        {"table alone stays, with its start",
         {samples3, "wavelengths: 400 410 420"}, 1, 400, kNone, {400, 410, 420}},
        {"table with its own start and no interval",
         {samples3, "startWaveLength: 400", "wavelengths: 400 410 420"}, 1, 400, kNone, {400, 410, 420}},
        {"uneven table wins over an interval",
         {samples3, "wavelengths: 400 410 430", "samplingInterval: 10"}, 1, 400, kNone, {400, 410, 430}},
        {"uneven table wins over an interval and a start it agrees with",
         {samples3, "startWaveLength: 400", "wavelengths: 400 410 430", "samplingInterval: 99"},
         1, 400, kNone,
         {400, 410, 430}},
        {"even table against another interval",
         {samples3, "wavelengths: 400 410 420", "samplingInterval: 20"}, 0},
        {"start other than the table's first",
         {samples3, "startWaveLength: 390", "wavelengths: 400 410 420"}, 0},
        {"equal neighbours", {samples3, "wavelengths: 400 400 420"}, 0},
        {"falling table", {samples3, "wavelengths: 420 410 400"}, 0},
        {"falling at the end", {samples3, "wavelengths: 400 410 405"}, 0},
        {"fewer entries than samples", {"numberOfSamples: 4", "wavelengths: 400 410 420"}, 0},
        {"more entries than samples", {"numberOfSamples: 2", "wavelengths: 400 410 420"}, 0},
        {"table without numberOfSamples", {"wavelengths: 400 410 420"}, 0},
        // Written tables go to "wavelength", which the reader doesn't know:
        // without start and interval that is no header.
        {"the written key is not read", {samples3, "wavelength: 400 410 420"}, 0},
        {"the written key beside start and interval",
         {samples3, "wavelength: 400 410 420", "startWaveLength: 400", "samplingInterval: 10"},
         1, 400, 10, {}},
        {"no table, no start", {samples3, "samplingInterval: 10"}, 0},
        {"no table, no interval", {samples3, "startWaveLength: 400"}, 0},
        {"-1 is no start", {samples3, "startWaveLength: -1.0", "samplingInterval: 10"}, 0},
        {"-1 is no interval", {samples3, "startWaveLength: 400", "samplingInterval: -1"}, 0},
        {"a start that is no number", {samples3, "startWaveLength: blue", "samplingInterval: 10"}, 0},
        {"nothing at all", {samples3}, 0},
        // Decimal steps that floats don't hold evenly: 400.1, 400.2, 400.3
        // are 0.1000061, 0.1000061 and 0.0999756 apart, so the table wins.
        {"decimal steps uneven in float",
         {"numberOfSamples: 4", "wavelengths: 400 400.1 400.2 400.3", "samplingInterval: 0.1"}, 1, 400, kNone,
         {400.0f, 400.1f, 400.2f, 400.3f}},
        // Steps of a binary fraction are even, and the interval must be
        // exactly the float step.
        {"binary steps",
         {"numberOfSamples: 4", "wavelengths: 400 400.25 400.5 400.75", "samplingInterval: 0.25"},
         1, 400, 0.25f, {}},
        {"binary steps, interval off by a little",
         {"numberOfSamples: 4", "wavelengths: 400 400.25 400.5 400.75", "samplingInterval: 0.2500001"}, 0},
        // One entry: its step is taken to the zero behind it.
        {"a table of one", {"numberOfSamples: 1", "wavelengths: 555"}, 1, 555, kNone, {555}},
        {"a table of one and an interval",
         {"numberOfSamples: 1", "wavelengths: 555", "samplingInterval: 10"}, 0},
        {"a table of one and its own odd step",
         {"numberOfSamples: 1", "wavelengths: 555", "samplingInterval: -555"}, 1, 555, -555, {}},
        {"a table and no samples", {"numberOfSamples: 0", "wavelengths: 555"}, 0},
        // -1.0 marks "no table" in the first entry: a table can't start there.
        {"a table from -1", {"numberOfSamples: 3", "wavelengths: -1 0 1"}, 0},
        {"a word for the first entry", {"numberOfSamples: 1", "wavelengths: na"}, 0},
        {"a table through -1", {"numberOfSamples: 3", "wavelengths: -2 -1 0"}, 1, -2, kNone, {-2, -1, 0}},
        {"nan in a table", {samples3, "wavelengths: 400 nan 420"}, 0},
        {"a word keeps its entry at 0: not increasing", {samples3, "wavelengths: 400 blue 420"}, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Read r(c.keys);
        EXPECT_EQ(r.opened.result, c.result);
        if (c.result != 1 || r.opened.result != 1) {
            EXPECT_EQ(r.opened.header, nullptr);
            continue;
        }
        EXPECT_EQ(r.s()->startWaveLength, c.start);
        EXPECT_EQ(r.s()->samplingInterval, c.interval);
        if (c.table.empty()) {
            EXPECT_EQ(r.s()->wavelengths[0], kNone);
        } else {
            for (size_t i = 0; i < c.table.size(); ++i)
                EXPECT_EQ(r.s()->wavelengths[i], c.table[i]) << i;
            EXPECT_EQ(__HVHdrSpectralWavelength(r.opened.header, 1), c.table.size() > 1 ? c.table[1] : kNone);
        }
    }
}

TEST(SpectralHeader, ATableIsWrittenToWavelengthAloneAndCantBeReadBack) {
    Read r({"numberOfSamples: 3", "numberOfMeasurements: 1", "wavelengths: 400 410.5 430",
            "spectrumType: filter"});
    ASSERT_EQ(r.opened.result, 1);
    std::string text = Written(r.opened.header);
    EXPECT_EQ(text, StoredHeader("1.0-ascii", {"numberOfSamples: 3", "numberOfMeasurements: 1",
                                               "wavelength: 400.000000 410.500000 430.000000",
                                               "spectrumType: filter"}));
    EXPECT_EQ(Line(text, "startWaveLength"), "(none)");
    Opened back(text);
    EXPECT_EQ(back.result, 0);
    EXPECT_EQ(back.header, nullptr);

    // A table at the full 500 entries goes out whole on one line.
    std::string table = "wavelengths:";
    for (int i = 0; i < 500; ++i)
        table += " " + std::to_string(380 + i) + (i % 2 ? ".5" : "");
    Read full({"numberOfSamples: 500", table});
    ASSERT_EQ(full.opened.result, 1);
    EXPECT_EQ(full.s()->wavelengths[499], 879.5f);
    std::string line = Line(Written(full.opened.header), "wavelength");
    EXPECT_EQ(line.substr(0, 22), "380.000000 381.500000 ");
    EXPECT_EQ(line.substr(line.size() - 11), " 879.500000");
    // One more entry than 500: the reader stops at 500, which can't match.
    Read over({"numberOfSamples: 501", table + " 880"});
    EXPECT_EQ(over.opened.result, 0);
}

TEST(SpectralHeader, SpectrumTypes) {
    const struct {
        const char *line;
        uint32_t type;
    } cases[] = {{"spectrumType: Illuminant", 1}, {"spectrumType: FILTER", 2},
                 {"spectrumType: reflectance", 0}, {"spectrumType: other", 3}, {"spectrumType: unknown", 3},
                 {"spectrumType: filters", 3}, {"spectrumType:   filter", 2}, {"spectrumType:", 3}, {"", 3}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        std::vector<std::string> keys = EvenKeys(2, 1);
        keys.pop_back();
        if (c.line[0] != '\0')
            keys.push_back(c.line);
        Read r(keys);
        ASSERT_EQ(r.opened.result, 1);
        EXPECT_EQ(r.s()->spectrumType, c.type);
        EXPECT_EQ(Line(Written(r.opened.header), "spectrumType"), __HVHdrSpectralTypeName(c.type));
    }
    // Blanks are not skipped here.
    for (auto [word, type] : {std::pair<const char *, int32_t>{"FiLtEr", 2}, {"illuminant", 1},
                              {" filter", 3}, {"filter ", 3}, {"", 3}, {nullptr, 3}})
        EXPECT_EQ(ctkStr2SpecType(word), type) << (word ? word : "null");
    EXPECT_STREQ(__HVHdrSpectralTypeName(0), "reflectance");
    EXPECT_STREQ(__HVHdrSpectralTypeName(77), "unknown");
}

TEST(SpectralHeader, KeysTakenKeptAndWritten) {
    std::string text = "[ID]\nformat: spectral\nversion: 1.0-binary\ncreator: lab\n\n[Spectral]\n"
                       "numberOfSamples: 2\nnumberOfMeasurements: 7\nstartWaveLength: 380.5\n"
                       "samplingInterval: 2.5\nspectrumType: illuminant\ninstrument: XR-7\n\n"
                       "[Origin]\nsite: bench 3\n\n[End]\x0c\n";
    Opened o(text);
    ASSERT_EQ(o.result, 1);
    HalvUserCMData *kept = o.header->userData;
    for (const char *key : {"numberOfSamples", "numberOfMeasurements", "startWaveLength", "samplingInterval",
                            "spectrumType", "wavelengths"})
        EXPECT_EQ(HVHdrCheckHeaderParam(kept, "Spectral", key), 0) << key;
    EXPECT_STREQ(HVHdrGetHeaderParam(kept, "Spectral", "instrument"), "XR-7");
    EXPECT_STREQ(HVHdrGetHeaderParam(kept, "Origin", "site"), "bench 3");
    EXPECT_STREQ(HVHdrGetHeaderParam(kept, "ID", "creator"), "lab");
    EXPECT_STREQ(HVHdrGetHeaderParam(kept, "ID", "format"), "spectral") << "ID stays";

    // Writing starts afresh: nothing of the tree goes out, through either
    // version, whatever the manager passed.
    HVHdrManager binary = Manager("1.0-binary"), ascii = Manager("1.0-ascii");
    std::vector<std::string> keys = {"numberOfSamples: 2", "numberOfMeasurements: 7",
                                     "startWaveLength: 380.500000", "samplingInterval: 2.500000",
                                     "spectrumType: illuminant"};
    // The header's own slots go first.
    EXPECT_EQ(WriteImage(o.header, ascii), StoredHeader("1.0-binary", keys));
    HalvUserCMData *tree = nullptr;
    ASSERT_EQ(HVHdrFromHeader(binary, o.header, &tree), 1);
    EXPECT_EQ(HVHdrCheckHeaderParam(tree, "Origin", "site"), 0);
    HVHdrFree(tree);
    // The slot itself releases the tree it is given.
    tree = HVHdrSetHeaderParam(nullptr, "Old", "key", "value");
    ASSERT_EQ(__HVHdrSpectralFromHeader_A10(o.header, &tree), 1);
    EXPECT_EQ(HVHdrCheckHeaderParam(tree, "Old", "key"), 0);
    EXPECT_STREQ(HVHdrGetHeaderParam(tree, "ID", "version"), "1.0-ascii");
    HVHdrFree(tree);
    EXPECT_EQ(__HVHdrSpectralFromHeader_B10(nullptr, &tree), 0);
    EXPECT_EQ(__HVHdrSpectralFromHeader_B10(o.header, nullptr), 0);
    EXPECT_EQ(__HVHdrSpectralToHeader_10(nullptr, nullptr), 0);
    HalvHeaderStruct *none = nullptr;
    EXPECT_EQ(__HVHdrSpectralToHeader_10(nullptr, &none), 0) << "no keys: no wavelengths";

    // A type code of 9 finds the ASCII entry; both share toHeader and
    // createHeader.
    HVHdrManager byType{};
    ASSERT_EQ(HVHdrGetManager_Type(9, &byType), 1);
    EXPECT_EQ(byType.loadChunk, &__HVHdrSpectralLoadChunk_A10);
    EXPECT_EQ(binary.loadChunk, &__HVHdrSpectralLoadChunk_B10);
    EXPECT_EQ(binary.toHeader, ascii.toHeader);
    EXPECT_EQ(binary.createHeader, ascii.createHeader);
    EXPECT_EQ(binary.toStruct, nullptr);
    EXPECT_STREQ(HVHdrGetFormatName_Type(9), "spectral");
}

TEST(SpectralHeader, HostileNumbersAreRefusedOrHarmless) {
    // Text where numbers belong leaves the defaults.
    Read words({"numberOfSamples: many", "numberOfMeasurements: several", "startWaveLength: 400",
                "samplingInterval: 10"});
    ASSERT_EQ(words.opened.result, 1);
    EXPECT_EQ(words.opened.header->dims[0], 0u);
    EXPECT_EQ(words.opened.header->dims[1], 0u);
    EXPECT_EQ(words.s()->bytesPerMeasurement, 0u);
    // Samples whose bytes don't fit a 32-bit count are refused; the largest
    // that fits is read.
    for (const char *count : {"1073741824", "4294967295", "-1"}) {
        Read huge({std::string("numberOfSamples: ") + count, "startWaveLength: 400", "samplingInterval: 10"});
        EXPECT_EQ(huge.opened.result, 0) << count;
    }
    Read largest({"numberOfSamples: 1073741823", "startWaveLength: 400", "samplingInterval: 10"});
    ASSERT_EQ(largest.opened.result, 1);
    EXPECT_EQ(largest.s()->bytesPerMeasurement, 0xFFFFFFFCu);
    // Huge measurement counts are only a number.
    Read many({"numberOfSamples: 3", "numberOfMeasurements: 4000000000", "startWaveLength: 400",
               "samplingInterval: 10"});
    ASSERT_EQ(many.opened.result, 1);
    EXPECT_EQ(many.opened.header->dims[1], 4000000000u);
    // A table reads at most 500 entries: 500 samples take the first 500
    // of a longer line.
    std::string table = "wavelengths:";
    for (int i = 0; i < 700; ++i)
        table += " " + std::to_string(100 + i);
    Read first({"numberOfSamples: 500", table});
    ASSERT_EQ(first.opened.result, 1);
    EXPECT_EQ(first.s()->wavelengths[499], 599.0f);
}

TEST(SpectralHeader, CreateCopyAndFree) {
    HVHdrManager ascii = Manager("1.0-ascii");
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(ascii, &h), 1);
    HalvSpectralHeader *s = Spectral(h);
    EXPECT_EQ(Fields(h), "type 9 dims 2: 0 0 parts 0 0 0 endian 0 il 0") << "parts are left to the caller";
    EXPECT_EQ(s->spectrumType, 0u);
    EXPECT_EQ(s->bytesPerMeasurement, 0u);
    EXPECT_EQ(s->wavelengths[0], 0.0f);
    EXPECT_EQ(h->loadChunk, &__HVHdrSpectralLoadChunk_A10);
    EXPECT_EQ(__HVHdrSpectralCreateHeader_A10(nullptr), 0);

    // A table of the caller's, a tree and a buffer: the copy has the table,
    // its own tree, no buffer, and works out its bytes per measurement.
    h->parts[0] = 1;
    h->dims[0] = 3;
    h->dims[1] = 2;
    h->bitsPerSample[0] = 32;
    s->bytesPerMeasurement = 12;
    s->startWaveLength = 400;
    s->samplingInterval = kNone;
    s->wavelengths[0] = 400;
    s->wavelengths[1] = 450;
    s->wavelengths[2] = 525;
    s->spectrumType = 2;
    h->userData = HVHdrSetHeaderParam(nullptr, "Origin", "site", "lab");
    Input in(" 1\n 2\n 3\n");
    HalvChunk chunk;
    ASSERT_EQ(HVHdrToChunk(ascii, h, in.io(), &chunk), 1);
    s->bytesPerMeasurement = 99;
    HalvHeaderStruct *c = h->copy(h);
    ASSERT_NE(c, nullptr);
    HalvSpectralHeader *cs = Spectral(c);
    EXPECT_EQ(cs->bytesPerMeasurement, 12u);
    EXPECT_EQ(cs->chunkBuffer, nullptr);
    EXPECT_EQ(cs->bufferCapacity, 0u);
    EXPECT_EQ(cs->linesRead, 0u);
    EXPECT_EQ(cs->wavelengths[2], 525.0f);
    EXPECT_EQ(cs->spectrumType, 2u);
    EXPECT_NE(c->userData, h->userData);
    EXPECT_STREQ(HVHdrGetHeaderParam(c->userData, "Origin", "site"), "lab");
    EXPECT_EQ(c->loadChunk, h->loadChunk);
    EXPECT_EQ(Line(Written(c), "wavelength"), "400.000000 450.000000 525.000000");
    void (*release)(HalvHeaderStruct *) = c->free;
    h->free(h);
    release(c);
    release(nullptr); // ignored
}
