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
#include <cstddef>
#include <iterator>

#include "halv_userdata.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

HalvImageExtHeader *AsPixr(HalvHeaderStruct *header) { return reinterpret_cast<HalvImageExtHeader *>(header); }

const char *const kRasterKeys[] = {"pixels", "scanlines", "frame", "blobs", nullptr};
const char *const kEncodingKeys[] = {"offset",      "minimumChunk", "preferredChunk", "parts",     "bits/sample",
                                     "bytes/sl",    "interleave",   "alignment",      nullptr};

HalvHeaderStruct *NewRecord() noexcept {
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

constexpr RasterNumberKey kNumberKeys[] = {
    {"Raster", "pixels", offsetof(HalvHeaderStruct, dims[0]), 1, 0},
    {"Raster", "scanlines", offsetof(HalvHeaderStruct, dims[1]), 1, 0},
    {"Raster", "frame", offsetof(HalvHeaderStruct, dims[2]), 1, 0},
    {"Raster", "blobs", offsetof(HalvHeaderStruct, dims[4]), 1, 5},
    {"Encoding", "offset", offsetof(HalvHeaderStruct, dims[3]), 1, 0},
    {"Encoding", "minimumChunk", offsetof(HalvHeaderStruct, minimumChunk), 1, 0},
    {"Encoding", "preferredChunk", offsetof(HalvHeaderStruct, preferredChunk), 1, 0},
    {"Encoding", "parts", offsetof(HalvHeaderStruct, parts), 3, 0},
    {"Encoding", "bits/sample", offsetof(HalvHeaderStruct, bitsPerSample), HALV_MAX_SEPARATIONS, 0},
    {"Encoding", "bytes/sl", offsetof(HalvHeaderStruct, bytesPerSep), HALV_MAX_SEPARATIONS, 0},
    {"Encoding", "alignment", offsetof(HalvHeaderStruct, alignment), 1, 0},
};

constexpr RasterReading kPixrReading = {NewRecord, kNumberKeys, std::size(kNumberKeys), kRasterKeys, kEncodingKeys};

constexpr RasterKeys kPixrKeys = {"pixr", "1.0", "parts", true, AddScanlinesFrameBlobs, AddOffset,
                                  RasterAddChunkSizes};

} // namespace

int PixrToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    return RasterToHeader(kPixrReading, tree, header);
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

int PixrCreateHeader(HalvHeaderStruct **header) noexcept { return RasterCreateHeader(NewRecord, header); }

} // namespace halv
