/*
 * headers/formats/pixr_format.cpp - the "pixr" raster format, the sibling
 * of image-ext: the same record, copy, free and emitChunk, the same
 * 16-byte chunk records, and a header that also carries a frame and an
 * offset.  Its part counts go under "parts", and its lists name every
 * separation whatever the interleave.
 *
 * Its loader reverses the words of a record stored in the other order and
 * hands the payload on as it stands: the samples stay in the file's order.
 */
#include "halv_userdata.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

HalvImageExtHeader *AsPixr(HalvHeaderStruct *header) { return reinterpret_cast<HalvImageExtHeader *>(header); }

const char *const kIdKeys[] = {"architecture", "format", "version", "binary", nullptr};
const char *const kRasterKeys[] = {"pixels", "scanlines", "frame", "blobs", nullptr};
const char *const kEncodingKeys[] = {"offset",      "minimumChunk", "preferredChunk", "parts",     "bits/sample",
                                     "bytes/sl",    "interleave",   "alignment",      nullptr};

HalvHeaderStruct *NewRecord() {
    HalvHeaderStruct *h = ImageExtNewRecord();
    if (h == nullptr)
        return nullptr;
    h->managerType = HALV_HDR_PIXR;
    h->dimCount = 4;
    return h;
}

HalvUserCMData *AddScanlinesFrameBlobs(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    tree = RasterSetNumbers(tree, "Raster", "scanlines", &header->dims[1], 1);
    tree = RasterSetNumbers(tree, "Raster", "frame", &header->dims[2], 1);
    if (header->dimCount > 4 && header->dims[4] != 0)
        tree = RasterSetNumbers(tree, "Raster", "blobs", &header->dims[4], 1);
    return tree;
}

/* The offset is a dimension, dims[3], but its key stands in Encoding. */
HalvUserCMData *AddOffset(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    return RasterSetNumbers(tree, "Encoding", "offset", &header->dims[3], 1);
}

constexpr RasterKeys kPixrKeys = {"pixr", "1.0", "parts", true, AddScanlinesFrameBlobs, AddOffset,
                                  RasterAddChunkSizes};

} // namespace

int PixrToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *g = NewRecord();
    if (g == nullptr)
        return 0;
    g->userData = HalvUserCMDupData(tree);
    if (g->userData == nullptr && tree != nullptr) {
        g->free(g);
        return 0;
    }
    RasterFindByteOrder(tree, g, &AsPixr(g)->swapBytes);
    RasterReadNumber(tree, "Raster", "pixels", &g->dims[0]);
    RasterReadNumber(tree, "Raster", "scanlines", &g->dims[1]);
    RasterReadNumber(tree, "Raster", "frame", &g->dims[2]);
    if (RasterReadNumber(tree, "Raster", "blobs", &g->dims[4]))
        g->dimCount = 5;
    RasterReadNumber(tree, "Encoding", "offset", &g->dims[3]);
    RasterReadNumber(tree, "Encoding", "minimumChunk", &g->minimumChunk);
    RasterReadNumber(tree, "Encoding", "preferredChunk", &g->preferredChunk);
    RasterReadNumbers(tree, "Encoding", "parts", g->parts, 3);
    RasterReadNumbers(tree, "Encoding", "bits/sample", g->bitsPerSample, HALV_MAX_SEPARATIONS);
    RasterReadNumbers(tree, "Encoding", "bytes/sl", g->bytesPerSep, HALV_MAX_SEPARATIONS);
    g->interleave = (uint32_t)HalvStr2Interleave(HVHdrGetHeaderParam(tree, "Encoding", "interleave"));
    RasterReadNumber(tree, "Encoding", "alignment", &g->alignment);
    g->color = ColorFromTree(&g->userData);
    g->compression = CompressionFromTree(tree);

    // The sections stay: only the keys read go.
    g->userData = RasterDeleteKeys(g->userData, "ID", kIdKeys);
    g->userData = RasterDeleteKeys(g->userData, "Raster", kRasterKeys);
    g->userData = RasterDeleteKeys(g->userData, "Encoding", kEncodingKeys);
    *header = g;
    return 1;
}

int PixrLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvImageExtHeader *h = AsPixr(header);
    return ReadStoredChunk(in, chunk, h->swapBytes != 0, &h->chunkBuffer, &h->bufferCapacity) == 1 ? 1 : 0;
}

int PixrFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    return RasterFromHeader(kPixrKeys, header, tree);
}

int PixrCreateHeader(HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *h = NewRecord();
    if (h == nullptr)
        return 0;
    *header = h;
    return 1;
}

} // namespace halv
