/*
 * headers/formats/image_ext_format.cpp - the "image-ext" raster format: a
 * header, then chunks of any size, each behind a 16-byte record of four
 * words (payload bytes, lines, auxWord, flags) in the header's byte order.
 * The stream ends with the last chunk: its end is a chunk boundary.
 */
#include <cstddef>
#include <cstring>
#include <iterator>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

HalvImageExtHeader *AsImageExt(HalvHeaderStruct *header) { return reinterpret_cast<HalvImageExtHeader *>(header); }

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

HalvHeaderStruct *NewRecord() noexcept {
    HalvHeaderStruct *h = ImageExtNewRecord();
    if (h == nullptr)
        return nullptr;
    h->managerType = HALV_HDR_IMAGE_EXT;
    h->dimCount = 1;
    h->dims[0] = 1;
    return h;
}

constexpr RasterNumberKey kNumberKeys[] = {
    {"Raster", "pixels", offsetof(HalvHeaderStruct, dims[0]), 1, 0},
    {"Raster", "scanlines", offsetof(HalvHeaderStruct, dims[1]), 1, 2},
    {"Raster", "blobs", offsetof(HalvHeaderStruct, dims[2]), 1, 3},
    {"Encoding", "imageParts", offsetof(HalvHeaderStruct, parts), 3, 0},
    {"Encoding", "bits/sample", offsetof(HalvHeaderStruct, bitsPerSample), HALV_MAX_SEPARATIONS, 0},
    {"Encoding", "bytes/sl", offsetof(HalvHeaderStruct, bytesPerSep), HALV_MAX_SEPARATIONS, 0},
    {"Encoding", "alignment", offsetof(HalvHeaderStruct, alignment), 1, 0},
    {"Encoding", "minimumChunk", offsetof(HalvHeaderStruct, minimumChunk), 1, 0},
    {"Encoding", "preferredChunk", offsetof(HalvHeaderStruct, preferredChunk), 1, 0},
};

constexpr RasterReading kImageExtReading = {NewRecord, kNumberKeys, std::size(kNumberKeys), kRasterKeys,
                                            kEncodingKeys};

} // namespace

int ImageExtToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    return RasterToHeader(kImageExtReading, tree, header);
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

int ImageExtCreateHeader(HalvHeaderStruct **header) noexcept { return RasterCreateHeader(NewRecord, header); }

} // namespace halv
