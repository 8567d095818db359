// Hand-built streams and small helpers for the header tests.  Each stream
// fills only the slots it needs, so a slot the code shouldn't touch would
// crash the test.
#ifndef HALV_TESTS_HEADERS_SUPPORT_H
#define HALV_TESTS_HEADERS_SUPPORT_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "dpk_hvsup.h"

namespace hdr_test {

/* Bytes to read.  After failAt bytes every read gives -1. */
class Source {
  public:
    explicit Source(std::string bytes, size_t failAt = SIZE_MAX) : bytes_(std::move(bytes)), failAt_(failAt) {
        std::memset(&record_, 0, sizeof record_);
        record_.io.read = &Source::Read;
        record_.self = this;
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;

    HalvIO *io() { return &record_.io; }
    std::string rest() const { return bytes_.substr(position_); }
    size_t position() const { return position_; }
    int calls() const { return calls_; }

  private:
    struct Record {
        HalvIO io;
        Source *self;
    };
    static int32_t Read(HalvIO *io, void *buffer, uint32_t count) {
        Source *self = reinterpret_cast<Record *>(io)->self;
        ++self->calls_;
        if (self->position_ >= self->failAt_)
            return -1;
        size_t take = std::min<size_t>({count, self->bytes_.size() - self->position_,
                                        self->failAt_ - self->position_});
        std::memcpy(buffer, self->bytes_.data() + self->position_, take);
        self->position_ += take;
        return (int32_t)take;
    }

    Record record_;
    std::string bytes_;
    size_t failAt_;
    size_t position_ = 0;
    int calls_ = 0;
};

/* Collects written bytes up to a capacity (then takes what fits and
 * answers 0), and counts flushes. */
class Sink {
  public:
    explicit Sink(size_t capacity = SIZE_MAX) : capacity_(capacity) {
        std::memset(&record_, 0, sizeof record_);
        record_.io.write = &Sink::Write;
        record_.io.flush = &Sink::Flush;
        record_.self = this;
    }
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    HalvIO *io() { return &record_.io; }
    const std::string &text() const { return text_; }
    int flushes() const { return flushes_; }

  private:
    struct Record {
        HalvIO io;
        Sink *self;
    };
    static int32_t Write(HalvIO *io, const void *bytes, uint32_t count) {
        Sink *self = reinterpret_cast<Record *>(io)->self;
        size_t take = std::min<size_t>(count, self->capacity_ - self->text_.size());
        self->text_.append(static_cast<const char *>(bytes), take);
        return (int32_t)take;
    }
    static void Flush(HalvIO *io) { ++reinterpret_cast<Record *>(io)->self->flushes_; }

    Record record_;
    size_t capacity_;
    std::string text_;
    int flushes_ = 0;
};

/* A tree parsed from header text (with [ID] first); null when it isn't. */
inline HalvUserCMData *Parse(const std::string &text) {
    Source in(text);
    HalvUserCMData *tree = nullptr;
    if (HalvReadUserCMData(in.io(), &tree, 0) != 1) {
        HalvFreeUserCMData(tree);
        return nullptr;
    }
    return tree;
}

/* The text that the tree writes. */
inline std::string Text(const HalvUserCMData *tree) {
    Sink out;
    HalvWriteUserCMData(tree, out.io());
    return out.text();
}

/* A tree of empty top-level sections in the order given. */
inline HalvUserCMData *Sections(std::initializer_list<const char *> names) {
    HalvUserCMData *tree = nullptr;
    for (const char *name : names)
        tree = HVHdrSetHeaderParam(tree, name, nullptr, nullptr);
    return tree;
}

/* Names of the top-level nodes, joined by blanks. */
inline std::string TopNames(const HalvUserCMData *tree) {
    std::string names;
    for (; tree != nullptr; tree = tree->next) {
        if (!names.empty())
            names += ' ';
        names.append(tree->text != nullptr ? tree->text : "-", tree->text != nullptr ? tree->length : 1);
    }
    return names;
}

namespace sample {

// ---- the test's format: "sample" "1.0", one section Raster with dims ----

inline int calls[9];

inline int SampleToHeader(HalvUserCMData *tree, HalvHeaderStruct **out) {
    ++calls[4];
    auto *h = static_cast<HalvHeaderStruct *>(halv_internal_calloc(1, sizeof(HalvHeaderStruct)));
    HalvInitGenericHeader(h);
    h->managerType = 77;
    int32_t dims[2] = {0, 0};
    uint32_t count = 2;
    if (HVHdrGetHeaderInts(tree, "Raster", "dims", dims, &count) != 1 || count != 2) {
        h->free(h);
        return 0;
    }
    h->dimCount = 2;
    h->dims[0] = (uint32_t)dims[0];
    h->dims[1] = (uint32_t)dims[1];
    h->parts[0] = 1;
    h->bitsPerSample[0] = 8;
    HalvHeaderFillInBytes(h);
    h->userData = HalvUserCMDupData(tree);
    *out = h;
    return 1;
}

inline int SampleLoadChunk(HalvHeaderStruct *h, HalvIO *in, HalvChunk *chunk, uint32_t lines) {
    ++calls[5];
    return HVHdrLoadChunk_Ascii_8(in, chunk, h->dims[0] * (lines == 0 ? h->dims[1] : lines));
}

inline int SampleFromHeader(HalvHeaderStruct *h, HalvUserCMData **tree) {
    ++calls[6];
    if (!HVHdrCheckHeaderParam(*tree, "ID", "format")) {
        *tree = HVHdrSetHeaderParam(*tree, "ID", "format", "sample");
        *tree = HVHdrSetHeaderParam(*tree, "ID", "version", "1.0");
    }
    int32_t dims[2] = {(int32_t)h->dims[0], (int32_t)h->dims[1]};
    *tree = HVHdrSetHeaderInts(*tree, "Raster", "dims", dims, 2, 2);
    *tree = HVHdrSetHeaderParam(*tree, "End", nullptr, nullptr);
    return 1;
}

inline int SampleEmitChunk(HalvHeaderStruct *, HalvChunk *chunk, HalvIO *out) {
    ++calls[7];
    return HVHdrEmitChunk_Ascii_8(out, chunk, 1);
}

inline int SampleCreateHeader(HalvHeaderStruct **out) {
    ++calls[8];
    auto *h = static_cast<HalvHeaderStruct *>(halv_internal_calloc(1, sizeof(HalvHeaderStruct)));
    if (h == nullptr)
        return 0;
    HalvInitGenericHeader(h);
    h->managerType = 77;
    *out = h;
    return 1;
}

inline constexpr HVHdrManager kSample = {nullptr,          nullptr,         nullptr,
                                         nullptr,          SampleToHeader,  SampleLoadChunk,
                                         SampleFromHeader, SampleEmitChunk, SampleCreateHeader};

/* Registers the sample format for one test and gives its entry back. */
class SampleFormat {
  public:
    SampleFormat() {
        std::memset(calls, 0, sizeof calls);
        EXPECT_EQ(HVHdrRegisterManager("sample", "1.0", &kSample, &entry_), 1);
    }
    ~SampleFormat() { HVHdrUnregisterManager(entry_); }

  private:
    HVHdrManagerEntry *entry_ = nullptr;
};

inline const std::string kStored =
    "[ID]\nformat: sample\nversion: 1.0\n\n[Raster]\ndims: 3 2\n\n[Notes]\nby: hand\n\n[End]";
inline const std::string kData = " 1 2 3 4 5 250\n";

} // namespace sample

} // namespace hdr_test

#endif
