/*
 * headers/formats/pixelstream_header.cpp - the record and header keys of
 * "pixelstream" "1.0-ascii": samples as text, one pixel after the other,
 * with no scanlines.  The header says how many values make a pixel and how
 * wide each is, and whether the text comes from standard input instead of
 * the stream behind the header.
 */
#include <cstdio>
#include <cstring>

#include "halv_userdata.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

HalvPixelStreamHeader *AsPixelStream(HalvHeaderStruct *header) {
    return reinterpret_cast<HalvPixelStreamHeader *>(header);
}

const char *const kEncodingKeys[] = {"useStdin", "imageParts", "bits/sample", nullptr};

void FreePixelStream(HalvHeaderStruct *header) {
    if (header == nullptr)
        return;
    HalvPixelStreamHeader *h = AsPixelStream(header);
    HalvFreeUserCMData(header->userData);
    halv_internal_free(h->chunkBuffer);
    if (h->stdinStream != nullptr && h->stdinStream->close != nullptr)
        h->stdinStream->close(h->stdinStream);
    halv_internal_free(header);
}

/* The copy reads its own data source afresh: no buffer, no stdin stream,
 * and its pixel size is worked out again on first use. */
HalvHeaderStruct *CopyPixelStream(HalvHeaderStruct *header) {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvPixelStreamHeader *>(halv_internal_malloc(sizeof(HalvPixelStreamHeader)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, header, sizeof *copy);
    HalvHeaderStruct *g = &copy->generic;
    g->copy = CopyPixelStream;
    g->free = FreePixelStream;
    copy->chunkBuffer = nullptr;
    copy->stdinStream = nullptr;
    copy->bufferCapacity = 0;
    copy->initialised = 0;
    g->dims[0] = 1;
    copy->valuesPerPixel = g->parts[0] + g->parts[1] + g->parts[2];
    uint32_t n = copy->valuesPerPixel < HALV_MAX_SEPARATIONS ? copy->valuesPerPixel : HALV_MAX_SEPARATIONS;
    copy->bytesPerPixel = 0;
    for (uint32_t i = 0; i < n; ++i) {
        g->bytesPerSep[i] = (g->bitsPerSample[i] + 7) >> 3;
        copy->bytesPerPixel += g->bytesPerSep[i];
    }
    g->userData = nullptr;
    if (header->userData != nullptr) {
        g->userData = HalvUserCMDupData(header->userData);
        if (g->userData == nullptr) {
            FreePixelStream(g);
            return nullptr;
        }
    }
    return g;
}

HalvPixelStreamHeader *NewRecord() {
    auto *h = static_cast<HalvPixelStreamHeader *>(halv_internal_calloc(1, sizeof(HalvPixelStreamHeader)));
    if (h == nullptr)
        return nullptr;
    h->generic.copy = CopyPixelStream;
    h->generic.free = FreePixelStream;
    h->generic.managerType = HALV_HDR_PIXELSTREAM;
    h->generic.dimCount = 1;
    h->generic.dims[0] = 1;
    h->generic.interleave = 1;
    return h;
}

/* Yes is a text whose first character is t, T or 1: "true", "1", but not
 * "yes". */
bool AsksForStdin(HalvUserCMData *tree) {
    const char *text = HVHdrGetHeaderParam(tree, "Encoding", "useStdin");
    return text != nullptr && (text[0] == 't' || text[0] == 'T' || text[0] == '1');
}

} // namespace

void PixelStreamWorkOut(HalvPixelStreamHeader *h) noexcept {
    HalvHeaderStruct *g = &h->generic;
    h->valuesPerPixel = g->parts[0] + g->parts[1] + g->parts[2];
    h->bytesPerPixel = (uint32_t)(((uint64_t)h->valuesPerPixel * g->bitsPerSample[0] + 7) >> 3);
    g->bytesPerSep[0] = h->bytesPerPixel;
    h->initialised = 1;
}

} // namespace halv

extern "C" {

HALV_API int __HVHdrPixelStreamToHeader_10_ascii(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvPixelStreamHeader *h = halv::NewRecord();
    if (h == nullptr)
        return 0;
    HalvHeaderStruct *g = &h->generic;
    g->userData = HalvUserCMDupData(tree);
    if (g->userData == nullptr && tree != nullptr) {
        halv::FreePixelStream(g);
        return 0;
    }
    if (halv::AsksForStdin(tree)) {
        h->stdinStream = HalvIO_FP(stdin);
        if (h->stdinStream == nullptr) {
            halv::FreePixelStream(g);
            return 0;
        }
    }
    halv::RasterReadNumbers(tree, "Encoding", "imageParts", g->parts, 3);
    halv::RasterReadNumbers(tree, "Encoding", "bits/sample", g->bitsPerSample, HALV_MAX_SEPARATIONS);
    halv::PixelStreamWorkOut(h);
    g->color = halv::ColorFromTree(&g->userData);
    g->userData = halv::RasterDeleteKeys(g->userData, "Encoding", halv::kEncodingKeys);
    *header = g;
    return 1;
}

HALV_API int __HVHdrPixelStreamCreateHeader_10_ascii(HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvPixelStreamHeader *h = halv::NewRecord();
    if (h == nullptr)
        return 0;
    *header = &h->generic;
    return 1;
}

HALV_API int __HVHdrPixelStreamFromHeader_10_ascii(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    if (header == nullptr || tree == nullptr)
        return 0;
    HalvPixelStreamHeader *h = halv::AsPixelStream(header);
    if (!h->initialised)
        halv::PixelStreamWorkOut(h);
    HalvUserCMData *t = *tree;
    t = HVHdrSetHeaderParam(t, "ID", "format", "pixelstream");
    t = HVHdrSetHeaderParam(t, "ID", "version", "1.0-ascii");
    t = halv::RasterSetNumbers(t, "Encoding", "imageParts", header->parts, 3);
    t = halv::RasterSetNumbers(t, "Encoding", "bits/sample", &header->bitsPerSample[0], 1);
    // Worked out from what the header says now, whatever bytesPerPixel holds.
    uint32_t lineBytes = (uint32_t)(((uint64_t)h->valuesPerPixel * header->bitsPerSample[0] + 7) >> 3);
    t = halv::RasterSetNumbers(t, "Encoding", "bytes/sl", &lineBytes, 1);
    t = halv::RasterSetColorName(header, t);
    t = HVHdrSetHeaderParam(t, "End", nullptr, nullptr);
    *tree = t;
    return 1;
}

} // extern "C"
