/*
 * headers/formats/image_ext_format.cpp - the "image-ext" raster format: a
 * header, then chunks of any size, each behind a 16-byte record of four
 * words (payload bytes, lines, auxWord, flags) in the header's byte order.
 * The stream ends with the last chunk: its end is a chunk boundary.
 */
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

constexpr uint32_t kRecordBytes = 16;
/* The only flags a stored chunk keeps: end of data, and kept by the format. */
constexpr uint32_t kStoredFlags = HALV_CHUNK_END | HALV_CHUNK_STORED;
/* The buffer grows by at most this much ahead of the bytes that have
 * arrived, so a record that claims gigabytes on a short stream fails at
 * the end of the stream, not in an allocation of what it claimed. */
constexpr uint32_t kGrowthStep = 1u << 20;

HalvImageExtHeader *AsImageExt(HalvHeaderStruct *header) { return reinterpret_cast<HalvImageExtHeader *>(header); }

const char *const kIdKeys[] = {"architecture", "format", "version", "binary", nullptr};
const char *const kRasterKeys[] = {"pixels", "scanlines", "blobs", nullptr};
const char *const kEncodingKeys[] = {"name",       "imageParts", "bits/sample",  "bytes/sl",       "maskBits/sample",
                                     "maskBytes/sl", "interleave", "alignment", "minimumChunk", "preferredChunk",
                                     nullptr};

void FreeImageExt(HalvHeaderStruct *header) {
    if (header == nullptr)
        return;
    HalvFreeUserCMData(header->userData);
    halv_internal_free(AsImageExt(header)->chunkBuffer);
    halv_internal_free(header);
}

HalvHeaderStruct *CopyImageExt(HalvHeaderStruct *header) {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvImageExtHeader *>(halv_internal_malloc(sizeof(HalvImageExtHeader)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, header, sizeof *copy);
    copy->generic.copy = CopyImageExt;
    copy->generic.free = FreeImageExt;
    copy->bufferCapacity = 0;
    copy->chunkBuffer = nullptr;
    copy->generic.userData = nullptr;
    if (header->userData != nullptr) {
        copy->generic.userData = HalvUserCMDupData(header->userData);
        if (copy->generic.userData == nullptr) {
            FreeImageExt(&copy->generic);
            return nullptr;
        }
    }
    return &copy->generic;
}

HalvHeaderStruct *NewRecord() {
    HalvHeaderStruct *h = RasterNewRecord(sizeof(HalvImageExtHeader), CopyImageExt, FreeImageExt);
    if (h == nullptr)
        return nullptr;
    h->managerType = HALV_HDR_IMAGE_EXT;
    h->dimCount = 1;
    h->dims[0] = 1;
    return h;
}

void ReverseWords(uint32_t (&words)[4]) { HalvSwabLongArray(words, 4); }

/* Reads the payload of bytes into the header's buffer, growing it as the
 * bytes arrive; its capacity ends at bytes exactly when it had to grow.
 * False for a short read, a failed read or no memory. */
bool ReadPayload(HalvImageExtHeader *h, HalvIO *in, uint32_t bytes) {
    uint32_t have = 0;
    while (have < bytes) {
        if (h->bufferCapacity <= have) {
            uint64_t next = (uint64_t)have + (have > kGrowthStep ? have : kGrowthStep);
            uint32_t capacity = next < bytes ? (uint32_t)next : bytes;
            void *grown = halv_internal_realloc(h->chunkBuffer, capacity);
            if (grown == nullptr)
                return false;
            h->chunkBuffer = grown;
            h->bufferCapacity = capacity;
        }
        uint32_t end = h->bufferCapacity < bytes ? h->bufferCapacity : bytes;
        uint32_t piece = end - have;
        int32_t got = HalvIOReadBytes(in, static_cast<unsigned char *>(h->chunkBuffer) + have, piece);
        if (got < 0 || (uint32_t)got != piece)
            return false;
        have = end;
    }
    return true;
}

} // namespace

int ImageExtToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    HalvHeaderStruct *g = NewRecord();
    if (g == nullptr)
        return 0;
    HalvImageExtHeader *h = AsImageExt(g);
    g->userData = HalvUserCMDupData(tree);
    if (g->userData == nullptr && tree != nullptr) {
        FreeImageExt(g);
        return 0;
    }
    RasterFindByteOrder(tree, g, &h->swapBytes);
    RasterReadNumber(tree, "Raster", "pixels", &g->dims[0]);
    if (RasterReadNumber(tree, "Raster", "scanlines", &g->dims[1]))
        g->dimCount = 2;
    if (RasterReadNumber(tree, "Raster", "blobs", &g->dims[2]))
        g->dimCount = 3;
    RasterReadNumbers(tree, "Encoding", "imageParts", g->parts, 3);
    RasterReadNumbers(tree, "Encoding", "bits/sample", g->bitsPerSample, HALV_MAX_SEPARATIONS);
    RasterReadNumbers(tree, "Encoding", "bytes/sl", g->bytesPerSep, HALV_MAX_SEPARATIONS);
    g->interleave = (uint32_t)HalvStr2Interleave(HVHdrGetHeaderParam(tree, "Encoding", "interleave"));
    RasterReadNumber(tree, "Encoding", "alignment", &g->alignment);
    RasterReadNumber(tree, "Encoding", "minimumChunk", &g->minimumChunk);
    RasterReadNumber(tree, "Encoding", "preferredChunk", &g->preferredChunk);
    g->color = ColorFromTree(&g->userData);
    g->compression = CompressionFromTree(tree);

    // The sections stay, End among them: only the keys read go.
    g->userData = RasterDeleteKeys(g->userData, "ID", kIdKeys);
    g->userData = RasterDeleteKeys(g->userData, "Raster", kRasterKeys);
    g->userData = RasterDeleteKeys(g->userData, "Encoding", kEncodingKeys);
    *header = g;
    return 1;
}

int ImageExtLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvImageExtHeader *h = AsImageExt(header);
    std::memset(chunk, 0, sizeof *chunk);

    unsigned char record[kRecordBytes];
    int32_t got = HalvIOReadBytes(in, record, kRecordBytes);
    if (got == 0) {
        chunk->flags = HALV_CHUNK_END;
        return 1;
    }
    if (got != (int32_t)kRecordBytes)
        return 0;
    uint32_t words[4];
    std::memcpy(words, record, sizeof words);
    if (h->swapBytes)
        ReverseWords(words);
    chunk->bytes = words[0];
    chunk->lines = words[1];
    chunk->auxWord = words[2];
    chunk->flags = words[3] & kStoredFlags;

    bool complete = ReadPayload(h, in, chunk->bytes);
    chunk->data = h->chunkBuffer;
    chunk->capacity = h->bufferCapacity;
    if (!complete)
        return 0;
    if (h->swapBytes)
        HalvHeaderReverseLines(header, h->chunkBuffer, chunk->bytes, chunk->lines);
    return 1;
}

int ImageExtEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    uint32_t words[4] = {chunk->bytes, chunk->lines, chunk->auxWord, chunk->flags & kStoredFlags};
    // The payload is taken to be in the header's order already.
    if (header->endian != -1 && header->endian != HalvIdentifyEndian())
        ReverseWords(words);
    unsigned char record[kRecordBytes];
    std::memcpy(record, words, sizeof record);
    if (HalvIOWriteBytes(out, record, kRecordBytes) != (int32_t)kRecordBytes)
        return -1;
    return RasterWritePayload(chunk, out);
}

namespace {

HalvUserCMData *AddScanlinesAndBlobs(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    if (header->dimCount > 1 && header->dims[1] != 0)
        tree = RasterSetNumbers(tree, "Raster", "scanlines", &header->dims[1], 1);
    if (header->dimCount > 2 && header->dims[2] != 0)
        tree = RasterSetNumbers(tree, "Raster", "blobs", &header->dims[2], 1);
    return tree;
}

HalvUserCMData *AddChunkSizes(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    if (header->minimumChunk != 0)
        tree = RasterSetNumbers(tree, "Encoding", "minimumChunk", &header->minimumChunk, 1);
    if (header->preferredChunk != 0)
        tree = RasterSetNumbers(tree, "Encoding", "preferredChunk", &header->preferredChunk, 1);
    return tree;
}

constexpr RasterKeys kImageExtKeys = {"image-ext", "1.0", AddScanlinesAndBlobs, AddChunkSizes};

} // namespace

int ImageExtFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    return RasterFromHeader(kImageExtKeys, header, tree);
}

int ImageExtCreateHeader(HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *h = NewRecord();
    if (h == nullptr)
        return 0;
    *header = h;
    return 1;
}

} // namespace halv
