// Helpers for the stored-format tests: stored images built by hand as bytes,
// read through the library's string streams, loaded chunk by chunk and
// written back to memory streams or files; the wavelength format's headers
// and data (numbers as glibc's snprintf writes them, or raw floats).
#ifndef HALV_TESTS_HEADERS_FORMATS_SUPPORT_H
#define HALV_TESTS_HEADERS_FORMATS_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dpk_hvsup.h"
#include "temp_dir.h"

namespace fmt_test {

using TempDir = halvtest::TempDir;

inline HVHdrManager Manager(const char *format, const char *version) {
    HVHdrManager m{};
    EXPECT_EQ(HVHdrGetManager_Str(format, version, &m), 1) << format << " " << version;
    return m;
}

/* The "binary" value and the end marker as they stand in stored text. */
inline const std::string kBinary = std::string("binary: ") + std::string(4, '\0') + "\n";
inline const std::string kEndMarker = "[End]\x0c\n";

/* A stored header's text, section by section, as the writer lays it out:
 * each section's lines, an empty line between sections. */
struct HeaderText {
    std::string format = "internal";
    std::string version = "2.1";
    std::string architecture = "type 2"; // empty: no key
    std::vector<std::string> raster = {"pixels: 4", "scanlines: 3"};
    std::vector<std::string> encoding = {"imageParts: 1 0 0", "bytes/sl: 4", "bits/sample: 8",
                                         "interleave: scanline"};
    std::vector<std::string> photometry = {"name: grayLinear"}; // empty: no section
    std::vector<std::string> extra;                             // whole sections, written before End
    bool binary = true;

    std::string Text() const {
        std::string s =
            "[ID]\nformat: " + format + "\n" + (binary ? kBinary : "") + "version: " + version + "\n";
        if (!architecture.empty())
            s += "architecture: " + architecture + "\n";
        s += Section("Raster", raster) + Section("Encoding", encoding);
        if (!photometry.empty())
            s += Section("Photometry", photometry);
        for (const std::string &e : extra)
            s += "\n" + e;
        return s + "\n" + kEndMarker;
    }
    static std::string Section(const std::string &name, const std::vector<std::string> &lines) {
        std::string s = "\n[" + name + "]\n";
        for (const std::string &l : lines)
            s += l + "\n";
        return s;
    }
};

/* A string stream over a copy of bytes; the test owns it through close. */
class Input {
  public:
    explicit Input(const std::string &bytes) : bytes_(bytes) {
        if (bytes_.empty())
            bytes_.push_back('\0'); // a string stream needs a buffer; size 0 below
        io_ = HalvIO_Str(bytes_.data(), (uint32_t)bytes.size());
        if (bytes.empty()) {
            io_->close(io_);
            io_ = HalvIO_Mem(0); // reads nothing
        }
    }
    ~Input() { io_->close(io_); }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;
    HalvIO *io() { return io_; }

  private:
    std::string bytes_;
    HalvIO *io_;
};

/* One load's result and the chunk it gave, its data copied out. */
struct Load {
    int result;
    uint32_t flags, auxWord, lines, bytes, capacity;
    std::string data;
};

/* "result lines L bytes B flags aux" of a load, so that one line checks it
 * all; "a?" is an auxWord the load left as it was. */
inline std::string Brief(const Load &l) {
    char text[96];
    std::snprintf(text, sizeof text, "%d %uL %uB f%x a%x", l.result, l.lines, l.bytes, l.flags, l.auxWord);
    std::string s = text;
    return l.auxWord == 0xA5A5A5A5u ? s.substr(0, s.rfind(' ')) + " a?" : s;
}

inline std::string Briefs(const std::vector<Load> &loads) {
    std::string s;
    for (const Load &l : loads)
        s += (s.empty() ? "" : "; ") + Brief(l);
    return s;
}

inline std::string Concat(const std::vector<Load> &loads) {
    std::string s;
    for (const Load &l : loads)
        s += l.data;
    return s;
}

inline Load LoadOne(HVHdrManager &m, HalvHeaderStruct *h, HalvIO *in, uint32_t lines = 0) {
    HalvChunk chunk;
    std::memset(&chunk, 0xA5, sizeof chunk);
    Load l{};
    l.result = HVHdrToChunkLines(m, h, in, &chunk, lines);
    l.flags = chunk.flags;
    l.auxWord = chunk.auxWord;
    l.lines = chunk.lines;
    l.bytes = chunk.bytes;
    l.capacity = chunk.capacity;
    // A failed load may still have filled the chunk (a truncated image
    // hands over what arrived); an untouched chunk keeps the pattern.
    void *untouched;
    std::memset(&untouched, 0xA5, sizeof untouched);
    if (chunk.data != untouched && chunk.data != nullptr && chunk.bytes != 0 && chunk.bytes <= chunk.capacity)
        l.data.assign(static_cast<const char *>(chunk.data), chunk.bytes);
    return l;
}

/* Loads until a chunk ends the image, a load fails, or limit loads. */
inline std::vector<Load> LoadAll(HVHdrManager &m, HalvHeaderStruct *h, HalvIO *in, uint32_t lines = 0,
                                 int limit = 10000) {
    std::vector<Load> loads;
    for (int i = 0; i < limit; ++i) {
        loads.push_back(LoadOne(m, h, in, lines));
        if (loads.back().result != 1 || (loads.back().flags & HALV_CHUNK_END) != 0)
            break;
    }
    return loads;
}

/* The bytes a memory stream holds. */
inline std::string Contents(HalvIO *mem) {
    const char *p = static_cast<const char *>(HalvIOMemBuffer(mem));
    return p == nullptr ? std::string() : std::string(p, HalvIOMemLength(mem));
}

/* A header written and the loads' chunks behind it, through the header's
 * own slots and the manager passed; no loads: the header's text. */
inline std::string WriteImage(HalvHeaderStruct *h, HVHdrManager m, const std::vector<Load> &loads = {}) {
    HalvIO *out = HalvIO_Mem(0);
    EXPECT_EQ(HVHdrWrite_Header(h, &m, out), 1);
    for (const Load &l : loads) {
        HalvChunk c{l.flags, l.auxWord, l.lines, l.bytes, l.bytes, 0, const_cast<char *>(l.data.data())};
        EXPECT_EQ(HVHdrFromChunk(m, h, &c, out), 1);
    }
    std::string bytes = Contents(out);
    out->close(out);
    return bytes;
}

/* A header's kind and shape in one line: "type T dims n: d0 d1.. parts
 * p0 p1 p2 endian e il i". */
inline std::string Fields(const HalvHeaderStruct *h) {
    std::string s = "type " + std::to_string(h->managerType) + " dims " + std::to_string(h->dimCount) + ":";
    for (uint32_t i = 0; i < h->dimCount && i < HALV_MAX_DIMS; ++i)
        s += " " + std::to_string(h->dims[i]);
    return s + " parts " + std::to_string(h->parts[0]) + " " + std::to_string(h->parts[1]) + " " +
           std::to_string(h->parts[2]) + " endian " + std::to_string(h->endian) + " il " +
           std::to_string(h->interleave);
}

/* The value of a key in a tree, "(none)" when it has none. */
inline std::string Param(const HalvUserCMData *tree, const char *section, const char *key) {
    const char *text = HVHdrGetHeaderParam(const_cast<HalvUserCMData *>(tree), section, key);
    return text != nullptr ? text : "(none)";
}

/* The tree that writing the header would store; the caller frees it. */
inline HalvUserCMData *WrittenTree(HVHdrManager m, HalvHeaderStruct *h) {
    HalvUserCMData *tree = nullptr;
    EXPECT_EQ(HVHdrFromHeader(m, h, &tree), 1);
    return tree;
}

/* Reads a header from bytes: the header (null when reading failed), the
 * manager, and the stream standing at the data. */
struct Opened {
    explicit Opened(const std::string &bytes) : input(bytes) {
        result = HVHdrRead_Header(input.io(), &manager, &header);
    }
    ~Opened() {
        if (header != nullptr)
            header->free(header);
    }
    Opened(const Opened &) = delete;
    Opened &operator=(const Opened &) = delete;
    template <class T> T *as() { return reinterpret_cast<T *>(header); }
    HalvInternalHeader *internal() { return as<HalvInternalHeader>(); }
    HalvImageExtHeader *ext() { return as<HalvImageExtHeader>(); }
    Load Next(uint32_t lines = 0) { return LoadOne(manager, header, input.io(), lines); }
    std::vector<Load> All(uint32_t lines = 0, int limit = 10000) {
        return LoadAll(manager, header, input.io(), lines, limit);
    }

    Input input;
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    int result = 0;
};

inline void PutWord(std::string &s, uint32_t v, bool big) {
    for (int i = 0; i < 4; ++i)
        s.push_back((char)(big ? v >> (24 - 8 * i) : v >> (8 * i)));
}

/* One stored chunk record (length, lines, aux, flags) and its payload. */
inline std::string ExtChunk(const std::string &payload, uint32_t lines, uint32_t aux, uint32_t flags,
                            bool big, uint32_t length = UINT32_MAX) {
    std::string s;
    PutWord(s, length == UINT32_MAX ? (uint32_t)payload.size() : length, big);
    PutWord(s, lines, big);
    PutWord(s, aux, big);
    PutWord(s, flags, big);
    return s + payload;
}

/* The bytes of count samples of width bytes, value i * step + base, in
 * the byte order asked for. */
inline std::string Samples(uint32_t count, uint32_t width, bool big, uint32_t base = 0x01020304,
                           uint32_t step = 0x01010101) {
    std::string s;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t v = base + i * step;
        for (uint32_t b = 0; b < width; ++b)
            s.push_back((char)(v >> (big ? 8 * (width - 1 - b) : 8 * b)));
    }
    return s;
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

// ---- the wavelength format ----

inline HalvSpectralHeader *Spectral(HalvHeaderStruct *h) { return reinterpret_cast<HalvSpectralHeader *>(h); }

/* The header text of a stored measurement set: ID for the version, then
 * the lines of its section as given, then End. */
inline std::string StoredHeader(const std::string &version, const std::vector<std::string> &keys) {
    std::string s = "[ID]\nformat: spectral\n" + (version == "1.0-binary" ? kBinary : "") +
                    "version: " + version + "\n\n[Spectral]\n";
    for (const std::string &line : keys)
        s += line + "\n";
    return s + "\n" + kEndMarker;
}

/* The lines of that section for samples and measurements from start at
 * interval, as the writer puts them. */
inline std::vector<std::string> EvenKeys(uint32_t samples, uint32_t measurements,
                                         const char *start = "400.000000", const char *interval = "10.000000",
                                         const char *type = "reflectance") {
    return {"numberOfSamples: " + std::to_string(samples),
            "numberOfMeasurements: " + std::to_string(measurements), std::string("startWaveLength: ") + start,
            std::string("samplingInterval: ") + interval, std::string("spectrumType: ") + type};
}

/* Sample values that show misplaced or lost ones: measurement m, sample s. */
inline std::vector<float> Values(uint32_t samples, uint32_t measurements) {
    std::vector<float> v;
    for (uint32_t m = 0; m < measurements; ++m)
        for (uint32_t s = 0; s < samples; ++s)
            v.push_back(0.03125f * (float)s + 0.5f * (float)m + 0.0078125f);
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

/* A header made through the manager for samples x measurements from start
 * at interval, as a host makes one. */
inline HalvHeaderStruct *MakeSpectral(HVHdrManager &m, uint32_t samples, uint32_t measurements,
                                      float start = 400.0f, float interval = 10.0f) {
    HalvHeaderStruct *h = nullptr;
    EXPECT_EQ(HVHdrCreateHeader(m, &h), 1);
    if (h == nullptr)
        return nullptr;
    h->parts[0] = 1;
    h->dims[0] = samples;
    h->dims[1] = measurements;
    for (uint32_t i = 0; i < samples && i < HALV_MAX_SEPARATIONS; ++i) {
        h->bitsPerSample[i] = 32;
        h->bytesPerSep[i] = 4;
    }
    Spectral(h)->bytesPerMeasurement = samples * 4;
    Spectral(h)->startWaveLength = start;
    Spectral(h)->samplingInterval = interval;
    Spectral(h)->wavelengths[0] = HALV_SPECTRAL_NONE;
    return h;
}

/* The header written through m, then the values as one chunk. */
inline std::string WriteValues(HalvHeaderStruct *h, HVHdrManager &m, const std::vector<float> &values,
                               uint32_t lines) {
    std::vector<float> copy = values;
    Load l{1, 0, 0, lines, (uint32_t)(copy.size() * 4), 0, BinaryData(copy)};
    return WriteImage(h, m, {l});
}

/* All float samples of the loads, in order. */
inline std::vector<float> FloatsOf(const std::vector<Load> &loads) { return Floats(Concat(loads)); }

} // namespace fmt_test

#endif
