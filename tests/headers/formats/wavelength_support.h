// Helpers for the spectral format tests: stored spectra written as bytes
// here (the header text line by line, the data through glibc's own
// snprintf or as raw floats), and headers made through the managers.
#ifndef HALV_TESTS_WAVELENGTH_SUPPORT_H
#define HALV_TESTS_WAVELENGTH_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dpk_hvsup.h"
#include "headers/formats/raster_support.h"

namespace spectral_test {

using raster_test::Contents;
using raster_test::Input;
using raster_test::Load;
using raster_test::LoadAll;
using raster_test::LoadOne;
using raster_test::Opened;

inline HVHdrManager Manager(const char *version) {
    HVHdrManager m{};
    EXPECT_EQ(HVHdrGetManager_Str("spectral", version, &m), 1) << version;
    return m;
}

inline HalvSpectralHeader *Spectral(HalvHeaderStruct *h) { return reinterpret_cast<HalvSpectralHeader *>(h); }

/* The header text of a stored spectrum: ID for the version, then the lines
 * of section Spectral as given, then End. */
inline std::string StoredHeader(const std::string &version, const std::vector<std::string> &spectral) {
    std::string s = "[ID]\nformat: spectral\n";
    if (version == "1.0-binary")
        s += std::string("binary: ") + std::string(4, '\0') + "\n";
    s += "version: " + version + "\n\n[Spectral]\n";
    for (const std::string &line : spectral)
        s += line + "\n";
    return s + "\n[End]\x0c\n";
}

/* The lines of section Spectral for samples and measurements from start at
 * interval, as the writer puts them. */
inline std::vector<std::string> EvenKeys(uint32_t samples, uint32_t measurements, const char *start = "400.000000",
                                         const char *interval = "10.000000", const char *type = "reflectance") {
    return {"numberOfSamples: " + std::to_string(samples), "numberOfMeasurements: " + std::to_string(measurements),
            std::string("startWaveLength: ") + start, std::string("samplingInterval: ") + interval,
            std::string("spectrumType: ") + type};
}

inline std::string ReadFile(const std::string &path) {
    std::string bytes;
    if (FILE *fp = std::fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t got;
        while ((got = std::fread(buffer, 1, sizeof buffer, fp)) > 0)
            bytes.append(buffer, got);
        std::fclose(fp);
    }
    return bytes;
}

/* Sample values that show misplaced or lost ones: measurement m, sample s. */
inline float Value(uint32_t m, uint32_t s) { return 0.03125f * (float)s + 0.5f * (float)m + 0.0078125f; }

inline std::vector<float> Values(uint32_t samples, uint32_t measurements, uint32_t first = 0) {
    std::vector<float> v;
    for (uint32_t m = first; m < first + measurements; ++m)
        for (uint32_t s = 0; s < samples; ++s)
            v.push_back(Value(m, s));
    return v;
}

/* The data of "1.0-ascii" as glibc writes them: " %g" and a line feed. */
inline std::string AsciiData(const std::vector<float> &values) {
    std::string s;
    char text[64];
    for (float v : values) {
        std::snprintf(text, sizeof text, " %g\n", (double)v);
        s += text;
    }
    return s;
}

/* The data of "1.0-binary": the floats' bytes as they lie in memory. */
inline std::string BinaryData(const std::vector<float> &values) {
    return std::string(reinterpret_cast<const char *>(values.data()), values.size() * sizeof(float));
}

inline std::vector<float> Floats(const std::string &bytes) {
    std::vector<float> v(bytes.size() / sizeof(float));
    if (!v.empty())
        std::memcpy(v.data(), bytes.data(), v.size() * sizeof(float));
    return v;
}

/* A header made through the manager of version for samples x measurements
 * from start at interval, as a host makes one. */
inline HalvHeaderStruct *MakeHeader(HVHdrManager &m, uint32_t samples, uint32_t measurements, float start = 400.0f,
                                    float interval = 10.0f) {
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(HVHdrCreateHeader(m, &h), 1);
    if (h == nullptr)
        return nullptr;
    HalvSpectralHeader *s = Spectral(h);
    h->parts[0] = 1;
    h->dims[0] = samples;
    h->dims[1] = measurements;
    for (uint32_t i = 0; i < samples && i < HALV_MAX_SEPARATIONS; ++i) {
        h->bitsPerSample[i] = 32;
        h->bytesPerSep[i] = 4;
    }
    s->bytesPerMeasurement = samples * 4;
    s->startWaveLength = start;
    s->samplingInterval = interval;
    s->wavelengths[0] = HALV_SPECTRAL_NONE;
    return h;
}

/* The header written through m, then the values as one chunk. */
inline std::string Write(HalvHeaderStruct *h, HVHdrManager &m, const std::vector<float> &values, uint32_t lines) {
    HalvIO *out = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    std::vector<float> copy = values;
    HalvChunk c{0, 0, lines, (uint32_t)(copy.size() * 4), (uint32_t)(copy.size() * 4), 0, copy.data()};
    EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    std::string bytes = Contents(out);
    out->close(out);
    return bytes;
}

/* All samples of the loads, in order. */
inline std::vector<float> Samples(const std::vector<Load> &loads) {
    std::vector<float> v;
    for (const Load &l : loads) {
        std::vector<float> part = Floats(l.data);
        v.insert(v.end(), part.begin(), part.end());
    }
    return v;
}

/* The floats that glibc reads back from the " %g" text of values, as the
 * ASCII version must: "%lf", narrowed. */
inline std::vector<float> AsPrinted(const std::vector<float> &values) {
    std::vector<float> v;
    char text[64];
    for (float f : values) {
        std::snprintf(text, sizeof text, "%g", (double)f);
        double d = 0;
        std::sscanf(text, "%lf", &d);
        v.push_back((float)d);
    }
    return v;
}

} // namespace spectral_test

#endif
