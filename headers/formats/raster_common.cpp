/*
 * headers/formats/raster_common.cpp - what the raster formats share: the
 * byte order, compression and colour a stored header names, the number
 * keys and the keys both write.
 */
#include <cstdio>
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

/* Longest decimal text of a uint32_t, and the blank or NUL behind it. */
constexpr size_t kNumberBytes = 11;

} // namespace

void RasterFindByteOrder(HalvUserCMData *tree, HalvHeaderStruct *header, uint32_t *swap) noexcept {
    int order = HalvStr2Endian(HVHdrGetHeaderParam(tree, "ID", "architecture"));
    int machine = HalvIdentifyEndian();
    *swap = 0;
    if (order != -1 && order != machine) {
        *swap = 1;
        order = machine;
    }
    header->endian = order;
}

bool RasterReadNumbers(HalvUserCMData *tree, const char *section, const char *key, uint32_t *values,
                       uint32_t capacity) noexcept {
    int32_t scanned[HALV_MAX_SEPARATIONS];
    if (capacity > HALV_MAX_SEPARATIONS)
        capacity = HALV_MAX_SEPARATIONS;
    std::memcpy(scanned, values, capacity * sizeof(uint32_t));
    uint32_t count = capacity;
    if (HVHdrGetHeaderInts(tree, section, key, scanned, &count) != 1)
        return false;
    std::memcpy(values, scanned, count * sizeof(uint32_t));
    return true;
}

bool RasterReadNumber(HalvUserCMData *tree, const char *section, const char *key, uint32_t *value) noexcept {
    return RasterReadNumbers(tree, section, key, value, 1);
}

HalvUserCMData *RasterSetNumbers(HalvUserCMData *tree, const char *section, const char *key, const uint32_t *values,
                                 uint32_t count) noexcept {
    // A list of no numbers is no key at all, which reads as zeroes: a key
    // written with an empty value would run on into the next key's text.
    if (count == 0)
        return DeleteEveryHeaderField(tree, section, key);
    char text[HALV_MAX_SEPARATIONS * kNumberBytes + 1];
    size_t used = 0;
    text[0] = '\0';
    for (uint32_t i = 0; i < count && i < HALV_MAX_SEPARATIONS; ++i)
        used += (size_t)std::snprintf(text + used, sizeof text - used, i == 0 ? "%u" : " %u", values[i]);
    return HVHdrSetHeaderParam(tree, section, key, text);
}

HalvUserCMData *RasterDeleteKeys(HalvUserCMData *tree, const char *section, const char *const *keys) noexcept {
    for (; *keys != nullptr; ++keys)
        tree = DeleteEveryHeaderField(tree, section, *keys);
    return tree;
}

int RasterFromHeader(const RasterKeys &keys, HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    if (header == nullptr || tree == nullptr)
        return 0;
    static const char kZeroBytes[4] = {0, 0, 0, 0};
    int endian = header->endian == -1 ? HalvIdentifyEndian() : header->endian;
    HalvUserCMData *t = *tree;
    t = HVHdrSetHeaderParam(t, "ID", "format", keys.format);
    t = HVHdrSetHeaderField(t, "ID", "binary", kZeroBytes, sizeof kZeroBytes);
    t = HVHdrSetHeaderParam(t, "ID", "version", keys.version);
    t = HVHdrSetHeaderParam(t, "ID", "architecture", HalvEndian2Str(endian));

    t = RasterSetNumbers(t, "Raster", "pixels", &header->dims[0], 1);
    if (keys.addRaster != nullptr)
        t = keys.addRaster(header, t);

    uint32_t n = HalvHeaderSepCount(header);
    if (keys.listEveryPart) {
        uint64_t sum = (uint64_t)header->parts[0] + header->parts[1] + header->parts[2];
        n = sum < HALV_MAX_SEPARATIONS ? (uint32_t)sum : HALV_MAX_SEPARATIONS;
    }
    t = RasterSetNumbers(t, "Encoding", keys.partsKey, header->parts, 3);
    if (keys.addAfterParts != nullptr)
        t = keys.addAfterParts(header, t);
    t = RasterSetNumbers(t, "Encoding", "bytes/sl", header->bytesPerSep, n);
    t = RasterSetNumbers(t, "Encoding", "bits/sample", header->bitsPerSample, n);
    t = HVHdrSetHeaderParam(t, "Encoding", "interleave", HalvInterleave2Str((int32_t)header->interleave));
    if (header->alignment != 0)
        t = RasterSetNumbers(t, "Encoding", "alignment", &header->alignment, 1);
    if (keys.addEncoding != nullptr)
        t = keys.addEncoding(header, t);
    t = RasterSetColorName(header, t);
    t = HVHdrSetHeaderParam(t, "End", nullptr, nullptr);
    *tree = t;
    return 1;
}

HalvUserCMData *RasterSetColorName(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    // A name this library doesn't know came in with the header and stays
    // as it was; "unknown" only where there was no name at all.
    if (header->color != 0)
        return HVHdrSetHeaderParam(tree, "Photometry", "name", HalvClr2Str(header->color));
    if (HVHdrGetHeaderParam(header->userData, "Photometry", "name") == nullptr)
        return HVHdrSetHeaderParam(tree, "Photometry", "name", "unknown");
    return tree;
}

HalvUserCMData *RasterAddChunkSizes(const HalvHeaderStruct *header, HalvUserCMData *tree) noexcept {
    if (header->minimumChunk != 0)
        tree = RasterSetNumbers(tree, "Encoding", "minimumChunk", &header->minimumChunk, 1);
    if (header->preferredChunk != 0)
        tree = RasterSetNumbers(tree, "Encoding", "preferredChunk", &header->preferredChunk, 1);
    return tree;
}

HalvHeaderStruct *RasterNewRecord(size_t size, HalvHeaderStruct *(*copy)(HalvHeaderStruct *),
                                  void (*release)(HalvHeaderStruct *)) noexcept {
    auto *header = static_cast<HalvHeaderStruct *>(halv_internal_calloc(1, size));
    if (header == nullptr)
        return nullptr;
    header->copy = copy;
    header->free = release;
    header->endian = HalvIdentifyEndian();
    return header;
}

namespace {

/* The ID keys every raster format reads. */
const char *const kIdKeys[] = {"architecture", "format", "version", "binary", nullptr};

void ReadNumberKeys(const RasterReading &reading, HalvUserCMData *tree, HalvHeaderStruct *header) noexcept {
    auto *base = reinterpret_cast<unsigned char *>(header);
    for (size_t i = 0; i < reading.numberCount; ++i) {
        const RasterNumberKey &k = reading.numbers[i];
        auto *values = reinterpret_cast<uint32_t *>(base + k.offset);
        bool there = k.count == 1 ? RasterReadNumber(tree, k.section, k.key, values)
                                  : RasterReadNumbers(tree, k.section, k.key, values, k.count);
        if (there && k.dimCount != 0)
            header->dimCount = k.dimCount;
    }
}

} // namespace

int RasterToHeader(const RasterReading &reading, HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *g = reading.newRecord();
    if (g == nullptr)
        return 0;
    g->userData = HalvUserCMDupData(tree);
    if (g->userData == nullptr && tree != nullptr) {
        g->free(g);
        return 0;
    }
    RasterFindByteOrder(tree, g, &reinterpret_cast<HalvImageExtHeader *>(g)->swapBytes);
    ReadNumberKeys(reading, tree, g);
    g->interleave = (uint32_t)HalvStr2Interleave(HVHdrGetHeaderParam(tree, "Encoding", "interleave"));
    g->color = ColorFromTree(&g->userData);
    g->compression = CompressionFromTree(tree);

    g->userData = RasterDeleteKeys(g->userData, "ID", kIdKeys);
    g->userData = RasterDeleteKeys(g->userData, "Raster", reading.rasterKeys);
    g->userData = RasterDeleteKeys(g->userData, "Encoding", reading.encodingKeys);
    *header = g;
    return 1;
}

int RasterCreateHeader(HalvHeaderStruct *(*newRecord)() noexcept, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *h = newRecord();
    if (h == nullptr)
        return 0;
    *header = h;
    return 1;
}

int RasterWritePayload(const HalvChunk *chunk, HalvIO *out) noexcept {
    if (chunk->bytes == 0)
        return 1;
    if (chunk->data == nullptr)
        return -1;
    int32_t written = HalvIOWriteBytes(out, chunk->data, chunk->bytes);
    return written >= 0 && (uint32_t)written == chunk->bytes ? 1 : -1;
}

} // namespace halv
