// The data of the wavelength format ("spectral") at the C interface: the
// stored bytes of both versions byte for byte (the numbers as glibc's
// snprintf writes them), loads of either version with default, capped and
// failing counts, streams that end inside a measurement, what emitting
// refuses, and round trips through files and through http:// URLs served
// from 127.0.0.1.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/support.h"
#include "headers/support.h"
#include "streams/peer.h"

using namespace fmt_test;

namespace {

HVHdrManager Manager(const char *version) { return fmt_test::Manager("spectral", version); }

std::vector<float> Part(const std::vector<float> &v, size_t from, size_t to) {
    return std::vector<float>(v.begin() + (long)from, v.begin() + (long)to);
}

/* Tokens in text, a cut one at the end included: the reader can't tell
 * that a number was cut short. */
uint32_t Tokens(const std::string &text) {
    uint32_t count = 0;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] != ' ' && text[i] != '\n' && (i == 0 || text[i - 1] == ' ' || text[i - 1] == '\n'))
            ++count;
    return count;
}

} // namespace

TEST(SpectralData, StoredBytesOfBothVersions) {
    // 2 measurements of 31 samples from 400 nm in steps of 10 nm.
    std::vector<float> values = Values(31, 2);
    values[3] = 1.0e-7f; // exponent form
    values[40] = 123456789.0f;
    values[41] = -0.0f;
    for (const char *version : {"1.0-ascii", "1.0-binary"}) {
        SCOPED_TRACE(version);
        const bool ascii = version[4] == 'a';
        auto expected = [&](const std::vector<float> &v) {
            return StoredHeader(version, EvenKeys(31, 2)) + (ascii ? AsciiData(v) : BinaryData(v));
        };
        HVHdrManager m = Manager(version);
        HalvHeaderStruct *h = MakeSpectral(m, 31, 2);
        std::string bytes = WriteValues(h, m, values, 2);
        EXPECT_EQ(bytes, expected(values));
        h->free(h);
        if (ascii) {
            std::string data = bytes.substr(bytes.find(kEndMarker) + kEndMarker.size());
            EXPECT_EQ(data.substr(0, 40), " 0.0078125\n 0.0390625\n 0.0703125\n 1e-07\n");
            EXPECT_NE(data.find("\n 1.23457e+08\n -0\n"), std::string::npos);
        }

        // Read back and written again: the same bytes.
        Opened o(bytes);
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = o.All(2);
        ASSERT_FALSE(loads.empty());
        EXPECT_EQ(loads[0].lines, 2u);
        EXPECT_EQ(loads.back().flags & HALV_CHUNK_END, HALV_CHUNK_END);
        std::vector<float> got = FloatsOf(loads);
        EXPECT_EQ(got, ascii ? AsPrinted(values) : values);
        EXPECT_EQ(WriteValues(o.header, o.manager, got, 2), expected(got));
    }
}

TEST(SpectralData, AsciiLoadsWholeMeasurementsOnly) {
    std::vector<float> written = Values(4, 3), values = AsPrinted(written);
    std::string data = AsciiData(written);
    const std::string whole = StoredHeader("1.0-ascii", EvenKeys(4, 3)) + data;
    const struct {
        std::string stored;
        uint32_t ask;
        const char *briefs;
    } rows[] = {
        // Default: one measurement a load; the third ends the data exactly,
        // which a further load then tells.
        {whole, 0, "1 1L 16B f0 a0; 1 1L 16B f0 a0; 1 1L 16B f0 a0; 1 0L 0B f1 a?"},
        // Loads of 2 against 3: 2, then the 1 left (all asked for, so no
        // flag), then the end.
        {whole, 2, "1 2L 32B f0 a0; 1 1L 16B f0 a0; 1 0L 0B f1 a?"},
        // numberOfMeasurements 0: one a load whatever is asked, until the stream ends.
        {StoredHeader("1.0-ascii", EvenKeys(4, 0)) + data, 50,
         "1 1L 16B f0 a0; 1 1L 16B f0 a0; 1 1L 16B f0 a0; 1 0L 0B f1 a0"},
    };
    for (const auto &r : rows) {
        Opened o(r.stored);
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = o.All(r.ask);
        EXPECT_EQ(Briefs(loads), r.briefs) << r.ask;
        EXPECT_EQ(FloatsOf(loads), values);
        EXPECT_EQ(Spectral(o.header)->linesRead, 3u);
    }
    // Ends inside the second of two asked for: only the first, flags 1.
    // Ends inside the first: nothing, flags 1.  Any cut works the same.
    size_t sixth = 0;
    for (int i = 0; i < 6; ++i)
        sixth = data.find('\n', sixth) + 1;
    for (size_t cut : {sixth, sixth - 4, size_t(30), size_t(1), size_t(0)}) {
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 3)) + data.substr(0, cut));
        ASSERT_EQ(o.result, 1);
        Load l = o.Next(2);
        uint32_t measurements = Tokens(data.substr(0, cut)) / 4;
        EXPECT_EQ(Brief(l),
                  "1 " + std::to_string(measurements) + "L " + std::to_string(measurements * 16) + "B f1 a0")
            << cut;
        EXPECT_EQ(Floats(l.data), Part(values, 0, measurements * 4)) << cut;
    }
    // A word among the numbers, and 0x04, end the data like the stream's end.
    for (const char *stop : {" 1\n 2\n 3\n 4\n 5\n six\n 7\n 8\n", " 1\n 2\n 3\n 4\n 5\n\x04 6\n 7\n 8\n"}) {
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 2)) + stop);
        Load l = o.Next(2);
        EXPECT_EQ(Brief(l), "1 1L 16B f1 a0") << stop;
        EXPECT_EQ(Floats(l.data), (std::vector<float>{1, 2, 3, 4}));
    }
}

TEST(SpectralData, AsciiLoadsRefuseHeadersTheyCantFill) {
    HVHdrManager m = Manager("1.0-ascii");
    Input in(" 1\n 2\n 3\n 4\n");
    HalvChunk chunk{};
    // Made but not filled in: no parts, no samples.
    HalvHeaderStruct *h = nullptr;
    ASSERT_EQ(HVHdrCreateHeader(m, &h), 1);
    EXPECT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), -1);
    h->parts[0] = 1;
    EXPECT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), -1) << "no samples";
    h->dims[0] = 2;
    h->bitsPerSample[0] = 32;
    EXPECT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), -1) << "bytesPerMeasurement too small";
    h->bitsPerSample[0] = 64; // complex samples: twice the bytes
    Spectral(h)->bytesPerMeasurement = 8;
    EXPECT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), -1);
    h->parts[0] = 37;
    Spectral(h)->bytesPerMeasurement = 1000;
    EXPECT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), -1);
    h->parts[0] = 2; // two parts of 8 and 16 bits: three bytes a sample
    h->bitsPerSample[0] = 8;
    h->bitsPerSample[1] = 16;
    Spectral(h)->bytesPerMeasurement = 6;
    ASSERT_EQ(HVHdrToChunk(m, h, in.io(), &chunk), 1);
    EXPECT_EQ(chunk.lines, 1u);
    EXPECT_EQ(std::string(static_cast<char *>(chunk.data), 6), std::string("\x01\x02\x00\x03\x04\x00", 6));
    // An odd value out behind the last whole group.
    Input odd(" 5\n");
    EXPECT_EQ(HVHdrToChunk(m, h, odd.io(), &chunk), -1);
    EXPECT_EQ(__HVHdrSpectralLoadChunk_A10(h, nullptr, &chunk, 1), 0);
    h->free(h);
}

TEST(SpectralData, BinaryLoadsByFiveUpToWhatRemains) {
    std::vector<float> values = Values(3, 12);
    std::string data = BinaryData(values);
    const struct {
        std::string stored;
        uint32_t ask;
        const char *briefs;
        size_t floats;
    } rows[] = {
        // Measurements 0 means 5; 12 in the header: 5, 5, then the 2 left
        // with flag 1 on them.
        {StoredHeader("1.0-binary", EvenKeys(3, 12)) + data + "trailing bytes are not read", 0,
         "1 5L 60B f0 a0; 1 5L 60B f0 a0; 1 2L 24B f1 a0", 36},
        // numberOfMeasurements 3, a load of 5: 3 with flag 1.
        {StoredHeader("1.0-binary", EvenKeys(3, 3)) + data, 5, "1 3L 36B f1 a0", 9},
        // A load of more than the stream holds after a header that says 0:
        // one at a time.
        {StoredHeader("1.0-binary", EvenKeys(3, 0)) + data.substr(0, 24), 100,
         "1 1L 12B f0 a0; 1 1L 12B f0 a0; 1 0L 0B f1 a0", 6},
    };
    for (const auto &r : rows) {
        Opened o(r.stored);
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = o.All(r.ask);
        EXPECT_EQ(Briefs(loads), r.briefs);
        EXPECT_EQ(FloatsOf(loads), Part(values, 0, r.floats));
        EXPECT_EQ(Brief(o.Next()), "1 0L 0B f1 a0") << "a further load gives nothing";
    }

    // 7 whole measurements and 2 samples of the eighth: loads of 5 give 5,
    // then all of the 3 asked for, the missing samples zero (not the last
    // load's), then the end.
    Opened o(StoredHeader("1.0-binary", EvenKeys(3, 0)) + data.substr(0, 7 * 12 + 8));
    o.header->dims[1] = 12; // so that loads of more than one are allowed
    std::vector<Load> loads = o.All(5);
    EXPECT_EQ(Briefs(loads), "1 5L 60B f0 a0; 1 5L 60B f0 a0; 1 0L 0B f1 a0");
    std::vector<float> expected = Part(values, 15, 23);
    expected.resize(15, 0.0f);
    EXPECT_EQ(Floats(loads[1].data), expected);
    EXPECT_EQ(Spectral(o.header)->linesRead, 10u);
}

TEST(SpectralData, BinaryLoadsTakeFewerWhenMemoryRunsShort) {
    // 500 samples of 2000 bytes: a million measurements would take 2 GB,
    // more than one load may have.  With a buffer of 5 the load takes 5 and
    // says 2; with none it gives 0 and an empty chunk.
    std::vector<float> values = Values(500, 12);
    Opened o(StoredHeader("1.0-binary", EvenKeys(500, 0)) + BinaryData(values));
    ASSERT_EQ(o.result, 1);
    o.header->dims[1] = 2000000;
    EXPECT_EQ(Brief(o.Next(1000000)), "0 0L 0B f1 a0");
    EXPECT_EQ(o.Next(0).lines, 5u);
    Load fewer = o.Next(1000000);
    EXPECT_EQ(Brief(fewer), "2 5L 10000B f0 a0");
    EXPECT_EQ(Floats(fewer.data), Part(values, 2500, 5000));
    EXPECT_EQ(Spectral(o.header)->bufferCapacity, 5u);

    // A measurement that alone is too large: the binary load refuses, the
    // ASCII one reads nothing and ends the data.
    for (const char *version : {"1.0-binary", "1.0-ascii"}) {
        Opened huge(StoredHeader(version, EvenKeys(100000000, 1)) + " 1\n 2\n");
        ASSERT_EQ(huge.result, 1);
        Load l = huge.Next();
        EXPECT_EQ(l.result, version[4] == 'b' ? 0 : 1) << version;
        EXPECT_EQ(l.bytes, 0u);
        EXPECT_EQ(l.flags, 1u);
    }
    // No samples: the binary load has nothing to do and leaves the chunk.
    Opened empty(StoredHeader("1.0-binary", EvenKeys(0, 4)) + "data");
    HalvChunk chunk{7, 7, 7, 7, 7, 7, nullptr};
    EXPECT_EQ(HVHdrToChunk(empty.manager, empty.header, empty.input.io(), &chunk), 1);
    EXPECT_EQ(chunk.flags, 7u);
    EXPECT_EQ(chunk.bytes, 7u);
}

TEST(SpectralData, EmittingAndWhatItRefuses) {
    HVHdrManager ascii = Manager("1.0-ascii"), binary = Manager("1.0-binary");
    HalvHeaderStruct *h = MakeSpectral(ascii, 2, 0), *b = MakeSpectral(binary, 2, 0);
    float values[4] = {1.5f, 2.0f, -3.25f, 1e20f};
    const std::string raw(reinterpret_cast<char *>(values), 16);
    // Rows change the chunk or the header from the plain case, the change
    // undone behind them.
    const struct {
        const char *what;
        uint32_t aux, bytes, parts2, bits0;
        HalvHeaderStruct *header;
        size_t room;
        int result;
        std::string text;
    } rows[] = {
        {"ascii", 0, 16, 0, 32, h, SIZE_MAX, 1, " 1.5\n 2\n -3.25\n 1e+20\n"},
        {"an auxWord: no samples", 5, 16, 0, 32, h, SIZE_MAX, 1, ""},
        {"lines the bytes don't hold", 0, 12, 0, 32, h, SIZE_MAX, 0, ""},
        {"parts beyond the lists", 0, 16, 40, 32, h, SIZE_MAX, 0, ""},
        {"an unknown width still ends its lines", 0, 16, 0, 12, h, SIZE_MAX, 0, "\n\n\n\n"},
        {"a short write", 0, 16, 0, 32, h, 9, -1, " 1.5\n 2\n "},
        {"binary: the bytes as they are", 0, 16, 0, 32, b, SIZE_MAX, 1, raw},
        {"binary: 1 even when the write fails", 0, 16, 0, 32, b, 3, 1, raw.substr(0, 3)},
    };
    for (const auto &r : rows) {
        HalvChunk chunk{0, r.aux, 2, r.bytes, 16, 0, values};
        r.header->parts[2] = r.parts2;
        r.header->bitsPerSample[0] = r.bits0;
        hdr_test::Sink out(r.room);
        EXPECT_EQ(HVHdrFromChunk(r.header == h ? ascii : binary, r.header, &chunk, out.io()), r.result)
            << r.what;
        EXPECT_EQ(out.text(), r.text) << r.what;
        r.header->parts[2] = 0;
        r.header->bitsPerSample[0] = 32;
    }
    hdr_test::Sink out;
    HalvChunk empty{0, 0, 0, 0, 0, 0, nullptr}, broken{0, 0, 1, 8, 8, 0, nullptr};
    EXPECT_EQ(HVHdrFromChunk(binary, b, &empty, out.io()), 1);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_B10(b, &broken, out.io()), 0);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_A10(h, &broken, out.io()), 0);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_A10(h, nullptr, out.io()), 0);
    h->free(h);
    b->free(b);
}

TEST(SpectralData, RoundTripsThroughFilesAndBetweenVersions) {
    TempDir dir;
    std::vector<float> values = AsPrinted(Values(31, 9));
    HVHdrManager ascii = Manager("1.0-ascii");
    HalvHeaderStruct *h = MakeSpectral(ascii, 31, 9, 380.0f, 10.0f);
    Spectral(h)->spectrumType = HALV_SPECTRUM_ILLUMINANT;
    std::string first = WriteValues(h, ascii, values, 9);
    h->free(h);

    // ASCII file to binary file to ASCII file, chunk by chunk through the
    // managers, loads of 4: the same values, and the ASCII bytes again.
    std::string current = first;
    for (const char *version : {"1.0-binary", "1.0-ascii"}) {
        SCOPED_TRACE(version);
        std::string path = dir.File(std::string("measured.") + version);
        {
            Opened in(current);
            ASSERT_EQ(in.result, 1);
            HVHdrManager to = Manager(version);
            HalvHeaderStruct *out = nullptr;
            ASSERT_EQ(HVHdrCreateHeader(to, &out), 1);
            // The record's description moves over whole; only the slots and
            // the buffer are the new header's own.
            HalvSpectralHeader keep = *Spectral(out);
            std::memcpy(Spectral(out), Spectral(in.header), sizeof keep);
            std::memcpy(&out->toStruct, &keep.generic.toStruct, 9 * sizeof(void *));
            out->copy = keep.generic.copy;
            out->free = keep.generic.free;
            out->userData = nullptr;
            Spectral(out)->chunkBuffer = nullptr;
            Spectral(out)->bufferCapacity = 0;
            HalvIO *file = HalvIO_FileName(path.c_str(), "w");
            ASSERT_NE(file, nullptr);
            ASSERT_EQ(HVHdrWrite_Header(out, &to, file), 1);
            for (Load &l : in.All(4)) {
                HalvChunk c{l.flags, l.auxWord, l.lines, l.bytes, l.bytes, 0, l.data.data()};
                ASSERT_EQ(HVHdrFromChunk(to, out, &c, file), 1);
            }
            file->close(file);
            out->free(out);
        }
        current = ReadFile(path);
        Opened back(current);
        ASSERT_EQ(back.result, 1);
        EXPECT_EQ(Spectral(back.header)->spectrumType, 1u);
        EXPECT_EQ(__HVHdrSpectralWavelength(back.header, 30), 680.0f);
        EXPECT_EQ(FloatsOf(back.All()), values);
        if (version[4] == 'b') {
            EXPECT_EQ(current.substr(current.find(kEndMarker) + kEndMarker.size()), BinaryData(values));
        }
    }
    EXPECT_EQ(current, first);
}

TEST(SpectralData, RoundTripThroughAUrl) {
    for (const char *version : {"1.0-ascii", "1.0-binary"}) {
        SCOPED_TRACE(version);
        std::vector<float> values = AsPrinted(Values(81, 6));
        HVHdrManager m = Manager(version);

        // Up: header and three chunks of two measurements, each write one
        // chunk of the upload.
        peer::Server server;
        server.Receive();
        HalvIO *up = HalvIO_FileName(server.Url("/measured/patches.hvs").c_str(), "w");
        ASSERT_NE(up, nullptr);
        HalvHeaderStruct *h = MakeSpectral(m, 81, 6, 380.0f, 5.0f);
        ASSERT_EQ(HVHdrWrite_Header(h, &m, up), 1);
        for (uint32_t i = 0; i < 3; ++i) {
            HalvChunk c{0, 0, 2, 2 * 81 * 4, 2 * 81 * 4, 0, values.data() + i * 2 * 81};
            ASSERT_EQ(HVHdrFromChunk(m, h, &c, up), 1);
        }
        up->close(up);
        server.Join();
        std::string request = server.request();
        size_t body = request.find("\r\n\r\n");
        ASSERT_NE(body, std::string::npos);
        EXPECT_EQ(request.rfind("PUT /measured/patches.hvs HTTP/1.1\r\n", 0), 0u);
        peer::Dechunked stored = peer::Dechunk(std::string_view(request).substr(body + 4));
        ASSERT_TRUE(stored.ok);
        EXPECT_EQ(stored.body, WriteValues(h, m, values, 6));
        h->free(h);

        // Down: the same bytes served back, read as any file is.
        peer::Server again;
        again.Respond(
            peer::Response("Content-Length: " + std::to_string(stored.body.size()) + "\r\n", stored.body));
        HalvIO *down = HalvIO_FileName(again.Url("/measured/patches.hvs").c_str(), "r");
        ASSERT_NE(down, nullptr);
        HVHdrManager read{};
        HalvHeaderStruct *back = nullptr;
        ASSERT_EQ(HVHdrRead_Header(down, &read, &back), 1);
        EXPECT_EQ(read.loadChunk, m.loadChunk);
        EXPECT_EQ(back->dims[0], 81u);
        EXPECT_EQ(__HVHdrSpectralWavelength(back, 80), 780.0f);
        std::vector<Load> loads = LoadAll(read, back, down, 4);
        EXPECT_EQ(loads.back().flags & HALV_CHUNK_END, HALV_CHUNK_END);
        EXPECT_EQ(FloatsOf(loads), values);
        back->free(back);
        down->close(down);
        again.Join();
    }
}
