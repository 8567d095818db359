/*
 * headers/formats/internal_format.cpp - the "internal" raster format: a
 * header, then the raw scanlines with nothing between them.  Version 2.1
 * is read and written; version 2.0 is read through its own toHeader and
 * goes out as 2.1.
 *
 * One chunk buffer per header, which only grows: loads of equal size
 * allocate once, and a chunk's data point straight into it.
 */
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

/* Lines of a load that asks for none. */
constexpr uint32_t kDefaultLines = 32;
/* Bytes of one line's block when the data are compressed. */
constexpr uint64_t kCompressedBlock = 1024;
/* A read's result is a signed 32-bit count, and the buffer has 4 bytes
 * beyond what is read: larger loads are refused, never wrapped. */
constexpr uint64_t kMaxLoad = 0x7FFFFFFF - 4;

HalvInternalHeader *AsInternal(HalvHeaderStruct *header) { return reinterpret_cast<HalvInternalHeader *>(header); }

const char *const kRasterKeys[] = {"pixels", "scanlines", nullptr};
const char *const kEncodingKeys[] = {"name",        "imageParts", "bits/sample", "bytes/sl", "maskBits/sample",
                                     "maskBytes/sl", "interleave", "alignment",   nullptr};

/* sepCount and bytesPerLine from interleave, parts and bytesPerSep. */
void CountLine(HalvInternalHeader *h) {
    h->sepCount = HalvHeaderSepCount(&h->generic);
    h->bytesPerLine = (uint32_t)HalvHeaderLineBytes(&h->generic); /* low 32 bits, as byte counts wrap */
}

/* What both versions take out of the tree once the fields are read. */
HalvUserCMData *DropReadKeys(HalvUserCMData *tree) {
    tree = HVHdrDeleteHeaderSection(tree, "ID");
    tree = HVHdrDeleteHeaderSection(tree, "End");
    tree = RasterDeleteKeys(tree, "Raster", kRasterKeys);
    return RasterDeleteKeys(tree, "Encoding", kEncodingKeys);
}

void FreeInternal(HalvHeaderStruct *header) {
    if (header == nullptr)
        return;
    HalvFreeUserCMData(header->userData);
    halv_internal_free(AsInternal(header)->chunkBuffer);
    halv_internal_free(header);
}

HalvHeaderStruct *CopyInternal(HalvHeaderStruct *header) {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvInternalHeader *>(halv_internal_malloc(sizeof(HalvInternalHeader)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, header, sizeof *copy);
    copy->generic.copy = CopyInternal;
    copy->generic.free = FreeInternal;
    copy->bufferCapacity = 0;
    copy->chunkBuffer = nullptr;
    copy->linesRead = 0;
    CountLine(copy);
    copy->generic.userData = nullptr;
    if (header->userData != nullptr) {
        copy->generic.userData = HalvUserCMDupData(header->userData);
        if (copy->generic.userData == nullptr) {
            FreeInternal(&copy->generic);
            return nullptr;
        }
    }
    return &copy->generic;
}

/* The record both versions start from: the tree duplicated into it. */
HalvInternalHeader *NewFromTree(HalvUserCMData *tree) {
    HalvHeaderStruct *header = RasterNewRecord(sizeof(HalvInternalHeader), CopyInternal, FreeInternal);
    if (header == nullptr)
        return nullptr;
    header->dimCount = 2;
    header->userData = HalvUserCMDupData(tree);
    if (header->userData == nullptr && tree != nullptr) {
        FreeInternal(header);
        return nullptr;
    }
    return AsInternal(header);
}

void ReadDimensions(HalvUserCMData *tree, HalvHeaderStruct *h) {
    RasterReadNumber(tree, "Raster", "pixels", &h->dims[0]);
    RasterReadNumber(tree, "Raster", "scanlines", &h->dims[1]);
    RasterReadNumbers(tree, "Encoding", "imageParts", h->parts, 3);
}

/* Makes the buffer hold want bytes and 4 zeroed ones behind; false when
 * memory runs out (the header then has no buffer). */
bool ReserveBuffer(HalvInternalHeader *h, uint32_t want) {
    if (want <= h->bufferCapacity)
        return true;
    halv_internal_free(h->chunkBuffer);
    h->chunkBuffer = halv_internal_calloc(1, (size_t)want + 4);
    h->bufferCapacity = h->chunkBuffer != nullptr ? want : 0;
    return h->chunkBuffer != nullptr;
}

} // namespace

int InternalToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    HalvInternalHeader *h = NewFromTree(tree);
    if (h == nullptr)
        return 0;
    HalvHeaderStruct *g = &h->generic;
    RasterFindByteOrder(tree, g, &h->swapBytes);
    ReadDimensions(tree, g);
    RasterReadNumbers(tree, "Encoding", "bits/sample", g->bitsPerSample, HALV_MAX_SEPARATIONS);
    RasterReadNumbers(tree, "Encoding", "bytes/sl", g->bytesPerSep, HALV_MAX_SEPARATIONS);
    g->interleave = (uint32_t)HalvStr2Interleave(HVHdrGetHeaderParam(tree, "Encoding", "interleave"));
    RasterReadNumber(tree, "Encoding", "alignment", &g->alignment);
    CountLine(h);
    g->color = ColorFromTree(&g->userData);
    g->compression = CompressionFromTree(tree);
    if (g->compression != 0)
        h->bytesPerLine = 0;
    g->userData = DropReadKeys(g->userData);
    *header = g;
    return 1;
}

int InternalToHeaderOld(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    HalvInternalHeader *h = NewFromTree(tree);
    if (h == nullptr)
        return 0;
    HalvHeaderStruct *g = &h->generic;
    g->endian = 0; // this version names no byte order
    g->parts[0] = 1;
    ReadDimensions(tree, g);
    uint32_t p = g->parts[0] < HALV_MAX_SEPARATIONS ? g->parts[0] : HALV_MAX_SEPARATIONS;

    // Old headers give one width for all image parts.
    RasterReadNumbers(tree, "Encoding", "bits/sample", g->bitsPerSample, HALV_MAX_SEPARATIONS);
    RasterReadNumbers(tree, "Encoding", "bytes/sl", g->bytesPerSep, HALV_MAX_SEPARATIONS);
    for (uint32_t i = 1; i < p; ++i) {
        g->bitsPerSample[i] = g->bitsPerSample[0];
        g->bytesPerSep[i] = g->bytesPerSep[0];
    }
    // A mask counts only when both of its lists are there.
    uint32_t room = HALV_MAX_SEPARATIONS - p;
    if (RasterReadNumbers(tree, "Encoding", "maskBits/sample", g->bitsPerSample + p, room)) {
        if (RasterReadNumbers(tree, "Encoding", "maskBytes/sl", g->bytesPerSep + p, room))
            g->parts[1] = 1;
        else if (p < HALV_MAX_SEPARATIONS)
            g->bitsPerSample[p] = 0;
    }

    // The maps had no place in this version's colour names.
    int32_t color = HalvStr2Clr(HVHdrGetHeaderParam(tree, "Photometry", "name"));
    g->color = color == 11 || color == 12 ? 0 : color;
    CountLine(h);
    g->userData = DropReadKeys(g->userData);
    *header = g;
    return 1;
}

int InternalLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvInternalHeader *h = AsInternal(header);
    if (lines == 0)
        lines = kDefaultLines;
    std::memset(chunk, 0, sizeof *chunk);

    uint32_t height = header->dims[1];
    uint64_t want;
    if (h->bytesPerLine != 0) {
        if (height != 0) {
            uint32_t left = height > h->linesRead ? height - h->linesRead : 0;
            lines = lines < left ? lines : left;
        } else {
            lines = 1;
        }
        want = (uint64_t)h->bytesPerLine * lines;
    } else {
        want = (uint64_t)lines * kCompressedBlock;
    }
    if (want > kMaxLoad || !ReserveBuffer(h, (uint32_t)want))
        return 0;
    chunk->data = h->chunkBuffer;
    chunk->capacity = h->bufferCapacity;
    if (want != 0) {
        int32_t got = HalvIOReadBytes(in, h->chunkBuffer, (uint32_t)want);
        if (got < 0)
            return 0;
        uint32_t count = h->bytesPerLine != 0 ? (uint32_t)got / h->bytesPerLine : 0;
        if (h->swapBytes)
            HalvHeaderReverseLines(header, h->chunkBuffer, (uint32_t)got, count);
        chunk->bytes = (uint32_t)got;
        chunk->lines = count;
        h->linesRead += count;
        if (height != 0 && h->bytesPerLine != 0) {
            if ((uint64_t)got != want)
                return 0; // a truncated image is a failure
            if (h->linesRead < height)
                return 1;
        } else if ((uint64_t)got == want) {
            return 1;
        }
    }
    chunk->flags |= HALV_CHUNK_END;
    return 1;
}

int InternalEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    return RasterWritePayload(chunk, out);
}

namespace {

HalvUserCMData *AddScanlines(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    return RasterSetNumbers(tree, "Raster", "scanlines", &header->dims[1], 1);
}

constexpr RasterKeys kInternalKeys = {"internal", "2.1", "imageParts", false, AddScanlines, nullptr, nullptr};

} // namespace

int InternalFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    return RasterFromHeader(kInternalKeys, header, tree);
}

int InternalCreateHeader(HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *h = RasterNewRecord(sizeof(HalvInternalHeader), CopyInternal, FreeInternal);
    if (h == nullptr)
        return 0;
    h->dimCount = 2;
    *header = h;
    return 1;
}

} // namespace halv
