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

} // namespace

HalvHeaderStruct *ImageExtNewRecord() noexcept {
    return RasterNewRecord(sizeof(HalvImageExtHeader), CopyImageExt, FreeImageExt);
}

namespace {

HalvHeaderStruct *NewRecord() {
    HalvHeaderStruct *h = ImageExtNewRecord();
    if (h == nullptr)
        return nullptr;
    h->managerType = HALV_HDR_IMAGE_EXT;
    h->dimCount = 1;
    h->dims[0] = 1;
    return h;
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
    if (ReadStoredChunk(in, chunk, h->swapBytes != 0, &h->chunkBuffer, &h->bufferCapacity) != 1)
        return 0;
    if (h->swapBytes)
        HalvHeaderReverseLines(header, chunk->data, chunk->bytes, chunk->lines);
    return 1;
}

int ImageExtEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    // The payload is taken to be in the header's order already.
    return WriteStoredChunk(chunk, out, header->endian != -1 && header->endian != HalvIdentifyEndian());
}

namespace {

HalvUserCMData *AddScanlinesAndBlobs(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    if (header->dimCount > 1 && header->dims[1] != 0)
        tree = RasterSetNumbers(tree, "Raster", "scanlines", &header->dims[1], 1);
    if (header->dimCount > 2 && header->dims[2] != 0)
        tree = RasterSetNumbers(tree, "Raster", "blobs", &header->dims[2], 1);
    return tree;
}

constexpr RasterKeys kImageExtKeys = {"image-ext", "1.0", "imageParts", false, AddScanlinesAndBlobs, nullptr,
                                     RasterAddChunkSizes};

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
