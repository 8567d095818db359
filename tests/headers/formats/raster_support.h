// Helpers for the raster format tests: stored images built by hand as
// bytes, read through the library's string streams, loaded chunk by chunk
// and written back to memory streams or files in a temporary directory.
#ifndef HALV_TESTS_RASTER_SUPPORT_H
#define HALV_TESTS_RASTER_SUPPORT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dpk_hvsup.h"
#include "temp_dir.h"

namespace raster_test {

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
    std::vector<std::string> extra;                              // whole sections, written before End
    bool binary = true;

    std::string Text() const {
        std::string s = "[ID]\nformat: " + format + "\n";
        if (binary)
            s += kBinary;
        s += "version: " + version + "\n";
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
 * own slots and the manager passed. */
inline std::string WriteImage(HalvHeaderStruct *h, HVHdrManager &m, const std::vector<Load> &loads) {
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
    HalvInternalHeader *internal() { return reinterpret_cast<HalvInternalHeader *>(header); }
    HalvImageExtHeader *ext() { return reinterpret_cast<HalvImageExtHeader *>(header); }

    Input input;
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    int result = 0;
};

using TempDir = halvtest::TempDir;

inline void PutWord(std::string &s, uint32_t v, bool big) {
    for (int i = 0; i < 4; ++i)
        s.push_back((char)(big ? v >> (24 - 8 * i) : v >> (8 * i)));
}

/* One stored image-ext chunk record and its payload. */
inline std::string ExtChunk(const std::string &payload, uint32_t lines, uint32_t aux, uint32_t flags, bool big,
                            uint32_t length = UINT32_MAX) {
    std::string s;
    PutWord(s, length == UINT32_MAX ? (uint32_t)payload.size() : length, big);
    PutWord(s, lines, big);
    PutWord(s, aux, big);
    PutWord(s, flags, big);
    return s + payload;
}

/* The bytes of count samples of width bytes, value i * step + base, in
 * the byte order asked for. */
inline std::string Samples(uint32_t count, uint32_t width, bool big, uint32_t base = 0x01020304, uint32_t step = 0x01010101) {
    std::string s;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t v = base + i * step;
        for (uint32_t b = 0; b < width; ++b) {
            uint32_t shift = big ? 8 * (width - 1 - b) : 8 * b;
            s.push_back((char)(v >> shift));
        }
    }
    return s;
}

} // namespace raster_test

#endif
