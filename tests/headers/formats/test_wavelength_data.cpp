// The data of the "spectral" format at the C interface: the stored bytes
// of both versions byte for byte (the numbers as glibc's snprintf writes
// them), loads of either version with default, capped and failing counts,
// streams that end inside a measurement, what emitting refuses, and round
// trips through files.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "headers/formats/wavelength_support.h"
#include "headers/support.h"

using namespace spectral_test;

namespace {

/* 2 measurements of 31 samples from 400 nm in steps of 10 nm. */
constexpr uint32_t kSamples = 31, kMeasurements = 2;

std::string Expected(const char *version, const std::vector<float> &values) {
    std::string header = StoredHeader(version, EvenKeys(kSamples, kMeasurements));
    return header + (std::string(version) == "1.0-ascii" ? AsciiData(values) : BinaryData(values));
}

} // namespace

TEST(SpectralData, StoredBytesOfBothVersions) {
    std::vector<float> values = Values(kSamples, kMeasurements);
    values[3] = 1.0e-7f; // exponent form
    values[40] = 123456789.0f;
    values[41] = -0.0f;
    for (const char *version : {"1.0-ascii", "1.0-binary"}) {
        SCOPED_TRACE(version);
        HVHdrManager m = Manager(version);
        HalvHeaderStruct *h = MakeHeader(m, kSamples, kMeasurements);
        std::string bytes = Write(h, m, values, kMeasurements);
        EXPECT_EQ(bytes, Expected(version, values));
        h->free(h);

        // Read back and written again: the same bytes.
        Opened o(bytes);
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), kMeasurements);
        ASSERT_FALSE(loads.empty());
        EXPECT_EQ(loads[0].lines, kMeasurements);
        EXPECT_EQ(loads.back().flags & HALV_CHUNK_END, HALV_CHUNK_END);
        std::vector<float> got = Samples(loads);
        EXPECT_EQ(got, std::string(version) == "1.0-ascii" ? AsPrinted(values) : values);
        EXPECT_EQ(Write(o.header, o.manager, got, kMeasurements), Expected(version, got));
    }
    // The first lines of the ASCII data, spelled out.
    HVHdrManager m = Manager("1.0-ascii");
    HalvHeaderStruct *h = MakeHeader(m, kSamples, kMeasurements);
    std::string bytes = Write(h, m, values, kMeasurements);
    std::string data = bytes.substr(bytes.find("[End]\x0c\n") + 7);
    EXPECT_EQ(data.substr(0, 40), " 0.0078125\n 0.0390625\n 0.0703125\n 1e-07\n");
    EXPECT_NE(data.find("\n 1.23457e+08\n -0\n"), std::string::npos);
    h->free(h);
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

TEST(SpectralData, AsciiLoadsWholeMeasurementsOnly) {
    std::vector<float> written = Values(4, 3), values = AsPrinted(written);
    std::string data = AsciiData(written);
    // Default: one measurement a load; the third ends the data exactly,
    // which a further load then tells.
    {
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 3)) + data);
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io());
        ASSERT_EQ(loads.size(), 4u);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(loads[i].result, 1);
            EXPECT_EQ(loads[i].lines, 1u);
            EXPECT_EQ(loads[i].bytes, 16u);
            EXPECT_EQ(loads[i].flags, 0u);
            EXPECT_EQ(loads[i].auxWord, 0u);
        }
        EXPECT_EQ(loads[3].bytes, 0u);
        EXPECT_EQ(loads[3].lines, 0u);
        EXPECT_EQ(loads[3].flags, 1u);
        EXPECT_EQ(Samples(loads), values);
        EXPECT_EQ(Spectral(o.header)->linesRead, 3u);
    }
    // Ends inside the second of two asked for: only the first, flags 1.
    // Ends inside the first: nothing, flags 1.  Any cut works the same.
    size_t sixth = 0;
    for (int i = 0; i < 6; ++i)
        sixth = data.find('\n', sixth) + 1;
    for (size_t cut : {sixth, sixth - 4, size_t(30), size_t(1), size_t(0)}) {
        SCOPED_TRACE(cut);
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 3)) + data.substr(0, cut));
        ASSERT_EQ(o.result, 1);
        Load l = LoadOne(o.manager, o.header, o.input.io(), 2);
        EXPECT_EQ(l.result, 1);
        uint32_t whole = Tokens(data.substr(0, cut)) / 4;
        EXPECT_EQ(l.lines, whole);
        EXPECT_EQ(l.bytes, whole * 16);
        EXPECT_EQ(l.flags, 1u);
        EXPECT_EQ(Floats(l.data), std::vector<float>(values.begin(), values.begin() + whole * 4));
    }
    // Loads of 2 against 3 measurements: 2, then the 1 left (all asked
    // for, so no flag), then the end.
    {
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 3)) + data);
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), 2);
        ASSERT_EQ(loads.size(), 3u);
        EXPECT_EQ(loads[0].lines, 2u);
        EXPECT_EQ(loads[1].lines, 1u);
        EXPECT_EQ(loads[1].flags, 0u);
        EXPECT_EQ(loads[2].flags, 1u);
        EXPECT_EQ(loads[2].bytes, 0u);
    }
    // numberOfMeasurements 0: one a load whatever is asked, until the
    // stream ends.
    {
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 0)) + data);
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), 50);
        ASSERT_EQ(loads.size(), 4u);
        EXPECT_EQ(loads[0].lines, 1u);
        EXPECT_EQ(loads[3].flags, 1u);
        EXPECT_EQ(Samples(loads), values);
    }
    // A word among the numbers, and 0x04, end the data like the stream's end.
    for (const std::string &stop : {std::string(" 1\n 2\n 3\n 4\n 5\n six\n 7\n 8\n"), std::string(" 1\n 2\n 3\n 4\n 5\n\x04 6\n 7\n 8\n")}) {
        SCOPED_TRACE(stop);
        Opened o(StoredHeader("1.0-ascii", EvenKeys(4, 2)) + stop);
        Load l = LoadOne(o.manager, o.header, o.input.io(), 2);
        EXPECT_EQ(l.result, 1);
        EXPECT_EQ(l.lines, 1u);
        EXPECT_EQ(l.flags, 1u);
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
    // Measurements 0 means 5; 12 in the header: 5, 5, then the 2 left with
    // flag 1 on them; a further load gives nothing.
    {
        Opened o(StoredHeader("1.0-binary", EvenKeys(3, 12)) + data + "trailing bytes are not read");
        ASSERT_EQ(o.result, 1);
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io());
        ASSERT_EQ(loads.size(), 3u);
        EXPECT_EQ(loads[0].lines, 5u);
        EXPECT_EQ(loads[0].bytes, 60u);
        EXPECT_EQ(loads[0].flags, 0u);
        EXPECT_EQ(loads[2].lines, 2u);
        EXPECT_EQ(loads[2].flags, 1u);
        EXPECT_EQ(Samples(loads), values);
        Load after = LoadOne(o.manager, o.header, o.input.io());
        EXPECT_EQ(after.result, 1);
        EXPECT_EQ(after.bytes, 0u);
        EXPECT_EQ(after.lines, 0u);
        EXPECT_EQ(after.flags, 1u);
    }
    // numberOfMeasurements 3, a load of 5: 3 with flag 1.  A load of more
    // than the stream holds after a header that says 0: one at a time.
    {
        Opened o(StoredHeader("1.0-binary", EvenKeys(3, 3)) + data);
        Load l = LoadOne(o.manager, o.header, o.input.io(), 5);
        EXPECT_EQ(l.lines, 3u);
        EXPECT_EQ(l.flags, 1u);
        EXPECT_EQ(Floats(l.data), std::vector<float>(values.begin(), values.begin() + 9));
    }
    {
        Opened o(StoredHeader("1.0-binary", EvenKeys(3, 0)) + data.substr(0, 24));
        std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), 100);
        ASSERT_EQ(loads.size(), 3u);
        EXPECT_EQ(loads[0].lines, 1u);
        EXPECT_EQ(loads[1].lines, 1u);
        EXPECT_EQ(loads[2].flags, 1u);
        EXPECT_EQ(loads[2].bytes, 0u);
    }
}

TEST(SpectralData, BinaryStreamsThatEndInsideAMeasurement) {
    std::vector<float> values = Values(3, 12);
    std::string data = BinaryData(values);
    // 7 whole measurements and 2 samples of the eighth: loads of 5 give 5,
    // then all of the 3 asked for, the missing samples zero (not the last
    // load's), then the end.
    Opened o(StoredHeader("1.0-binary", EvenKeys(3, 0)) + data.substr(0, 7 * 12 + 8));
    HalvSpectralHeader *s = Spectral(o.header);
    o.header->dims[1] = 12; // so that loads of more than one are allowed
    std::vector<Load> loads = LoadAll(o.manager, o.header, o.input.io(), 5);
    ASSERT_EQ(loads.size(), 3u);
    EXPECT_EQ(loads[1].lines, 5u);
    EXPECT_EQ(loads[1].bytes, 60u);
    EXPECT_EQ(loads[1].flags, 0u);
    std::vector<float> second = Floats(loads[1].data);
    EXPECT_EQ(std::vector<float>(second.begin(), second.begin() + 8), std::vector<float>(values.begin() + 15, values.begin() + 23));
    EXPECT_EQ(std::vector<float>(second.begin() + 8, second.end()), std::vector<float>(7, 0.0f));
    EXPECT_EQ(loads[2].flags, 1u);
    EXPECT_EQ(loads[2].lines, 0u);
    EXPECT_EQ(s->linesRead, 10u);
}

TEST(SpectralData, BinaryLoadsTakeFewerWhenMemoryRunsShort) {
    // 500 samples of 2000 bytes: a million measurements would take 2 GB,
    // more than one load may have.  With a buffer of 5 the load takes 5 and
    // says 2; with none it gives 0 and an empty chunk.
    std::vector<float> values = Values(500, 12);
    std::string stored = StoredHeader("1.0-binary", EvenKeys(500, 0)) + BinaryData(values);
    Opened o(stored);
    ASSERT_EQ(o.result, 1);
    o.header->dims[1] = 2000000;
    Load first = LoadOne(o.manager, o.header, o.input.io(), 1000000);
    EXPECT_EQ(first.result, 0);
    EXPECT_EQ(first.bytes, 0u);
    EXPECT_EQ(first.flags, 1u);
    Load five = LoadOne(o.manager, o.header, o.input.io(), 0);
    EXPECT_EQ(five.result, 1);
    EXPECT_EQ(five.lines, 5u);
    Load fewer = LoadOne(o.manager, o.header, o.input.io(), 1000000);
    EXPECT_EQ(fewer.result, 2);
    EXPECT_EQ(fewer.lines, 5u);
    EXPECT_EQ(fewer.bytes, 10000u);
    EXPECT_EQ(Floats(fewer.data), std::vector<float>(values.begin() + 2500, values.begin() + 5000));
    EXPECT_EQ(Spectral(o.header)->bufferCapacity, 5u);

    // A measurement that alone is too large: the binary load refuses, the
    // ASCII one reads nothing and ends the data.
    for (const char *version : {"1.0-binary", "1.0-ascii"}) {
        Opened huge(StoredHeader(version, EvenKeys(100000000, 1)) + " 1\n 2\n");
        ASSERT_EQ(huge.result, 1);
        Load l = LoadOne(huge.manager, huge.header, huge.input.io());
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
    HalvHeaderStruct *h = MakeHeader(ascii, 2, 0);
    float values[4] = {1.5f, 2.0f, -3.25f, 1e20f};
    HalvChunk chunk{0, 0, 2, 16, 16, 0, values};
    hdr_test::Sink out;
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, out.io()), 1);
    EXPECT_EQ(out.text(), " 1.5\n 2\n -3.25\n 1e+20\n");
    // A chunk marked by its auxWord carries no samples.
    chunk.auxWord = 5;
    hdr_test::Sink none;
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, none.io()), 1);
    EXPECT_EQ(none.text(), "");
    chunk.auxWord = 0;
    // Lines the bytes don't hold, parts beyond the lists, a width the
    // codec doesn't know.
    chunk.bytes = 12;
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, none.io()), 0);
    chunk.bytes = 16;
    h->parts[2] = 40;
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, none.io()), 0);
    h->parts[2] = 0;
    h->bitsPerSample[0] = 12;
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, none.io()), 0);
    h->bitsPerSample[0] = 32;
    EXPECT_EQ(none.text(), std::string(4, '\n')) << "unknown widths still end their lines";
    // A short write.
    hdr_test::Sink small(9);
    EXPECT_EQ(HVHdrFromChunk(ascii, h, &chunk, small.io()), -1);
    // Binary: the bytes as they are, 1 even when the write fails.
    HalvHeaderStruct *b = MakeHeader(binary, 2, 0);
    hdr_test::Sink raw, tight(3);
    EXPECT_EQ(HVHdrFromChunk(binary, b, &chunk, raw.io()), 1);
    EXPECT_EQ(raw.text(), std::string(reinterpret_cast<char *>(values), 16));
    EXPECT_EQ(HVHdrFromChunk(binary, b, &chunk, tight.io()), 1);
    EXPECT_EQ(tight.text().size(), 3u);
    HalvChunk empty{0, 0, 0, 0, 0, 0, nullptr}, broken{0, 0, 1, 8, 8, 0, nullptr};
    EXPECT_EQ(HVHdrFromChunk(binary, b, &empty, raw.io()), 1);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_B10(b, &broken, raw.io()), 0);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_A10(h, &broken, raw.io()), 0);
    EXPECT_EQ(__HVHdrSpectralEmitChunk_A10(h, nullptr, raw.io()), 0);
    h->free(h);
    b->free(b);
}

TEST(SpectralData, RoundTripsThroughFilesAndBetweenVersions) {
    raster_test::TempDir dir;
    std::vector<float> values = AsPrinted(Values(31, 9));
    HVHdrManager ascii = Manager("1.0-ascii");
    HalvHeaderStruct *h = MakeHeader(ascii, 31, 9, 380.0f, 10.0f);
    Spectral(h)->spectrumType = HALV_SPECTRUM_ILLUMINANT;
    std::string first = Write(h, ascii, values, 9);
    h->free(h);

    // ASCII file to binary file to ASCII file, chunk by chunk through the
    // managers, loads of 4: the same values, and the ASCII bytes again.
    std::string current = first;
    for (const char *version : {"1.0-binary", "1.0-ascii"}) {
        SCOPED_TRACE(version);
        std::string path = dir.File(std::string("spectrum.") + version);
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
            for (Load &l : LoadAll(in.manager, in.header, in.input.io(), 4)) {
                HalvChunk c{l.flags, l.auxWord, l.lines, l.bytes, l.bytes, 0, l.data.data()};
                ASSERT_EQ(HVHdrFromChunk(to, out, &c, file), 1);
            }
            file->close(file);
            out->free(out);
        }
        HalvIO *file = HalvIO_FileName(path.c_str(), "r");
        ASSERT_NE(file, nullptr);
        HVHdrManager m{};
        HalvHeaderStruct *back = nullptr;
        ASSERT_EQ(HVHdrRead_Header(file, &m, &back), 1);
        EXPECT_EQ(Spectral(back)->spectrumType, 1u);
        EXPECT_EQ(__HVHdrSpectralWavelength(back, 30), 680.0f);
        EXPECT_EQ(Samples(LoadAll(m, back, file, 0)), values);
        back->free(back);
        file->close(file);
        current = ReadFile(path);
        if (version[4] == 'b') {
            EXPECT_EQ(current.substr(current.find("[End]\x0c\n") + 7), BinaryData(values));
        }
    }
    EXPECT_EQ(current, first);
}
