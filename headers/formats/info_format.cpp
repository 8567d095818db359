/*
 * headers/formats/info_format.cpp - the "info" format: a table of packed
 * entries instead of an image.  The header says how long an entry is and
 * how many there are; the field list in section Info says what an entry
 * holds, and is all that byte reversal needs.  The data are stored chunks
 * as image-ext has them, but their records are always written in this
 * machine's order.
 */
#include <cstring>

#include "halv_modules.h"
#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

HalvInfoHeader *AsInfo(HalvHeaderStruct *header) { return reinterpret_cast<HalvInfoHeader *>(header); }

const char *const kIdKeys[] = {"architecture", "format", "version", "binary", nullptr};
const char *const kInfoKeys[] = {"entries", "blobs", nullptr};
const char *const kEncodingKeys[] = {"name", "bytes/entry", "alignment", "minimumChunk", "preferredChunk", nullptr};

void FreeInfo(HalvHeaderStruct *header) {
    if (header == nullptr)
        return;
    HalvInfoHeader *h = AsInfo(header);
    HalvFreeUserCMData(header->userData);
    halv_internal_free(h->swapTable);
    halv_internal_free(h->chunkBuffer);
    halv_internal_free(header);
}

HalvHeaderStruct *CopyInfo(HalvHeaderStruct *header) {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvInfoHeader *>(halv_internal_malloc(sizeof(HalvInfoHeader)));
    if (copy == nullptr)
        return nullptr;
    const HalvInfoHeader *h = AsInfo(header);
    std::memcpy(copy, h, sizeof *copy);
    copy->generic.copy = CopyInfo;
    copy->generic.free = FreeInfo;
    copy->bufferCapacity = 0;
    copy->chunkBuffer = nullptr;
    copy->swapTable = nullptr;
    copy->generic.userData = nullptr;
    bool complete = true;
    if (h->swapTable != nullptr && h->swapCount != 0) {
        size_t size = h->swapCount * sizeof(HalvInfoSwapEntry);
        copy->swapTable = static_cast<HalvInfoSwapEntry *>(halv_internal_malloc(size));
        if (copy->swapTable != nullptr)
            std::memcpy(copy->swapTable, h->swapTable, size);
        complete = copy->swapTable != nullptr;
    }
    if (complete && header->userData != nullptr) {
        copy->generic.userData = HalvUserCMDupData(header->userData);
        complete = copy->generic.userData != nullptr;
    }
    if (!complete) {
        FreeInfo(&copy->generic);
        return nullptr;
    }
    return &copy->generic;
}

HalvHeaderStruct *NewRecord() noexcept {
    HalvHeaderStruct *h = RasterNewRecord(sizeof(HalvInfoHeader), CopyInfo, FreeInfo);
    if (h == nullptr)
        return nullptr;
    h->managerType = HALV_HDR_INFO;
    h->dimCount = 1;
    h->dims[0] = 1;
    return h;
}

/* The swap table from the header's field list.  A list that doesn't parse
 * leaves no table, and the data come as stored; false only when memory
 * runs out for the table itself. */
bool BuildSwapTable(HalvInfoHeader *h) {
    HalvInfoField **fields = nullptr;
    bool built = true;
    if (HalvParseInfoFieldsFromHdr(&h->generic, &fields) == 1)
        built = InfoBuildSwapTable(fields, &h->swapTable, &h->swapCount);
    HalvFreeSmartArray(fields);
    return built;
}

} // namespace

int InfoToHeader(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvHeaderStruct *g = NewRecord();
    if (g == nullptr)
        return 0;
    HalvInfoHeader *h = AsInfo(g);
    g->userData = HalvUserCMDupData(tree);
    if (g->userData == nullptr && tree != nullptr) {
        FreeInfo(g);
        return 0;
    }
    RasterFindByteOrder(tree, g, &h->swapBytes);
    if (RasterReadNumber(tree, "Info", "entries", &g->dims[1]))
        g->dimCount = 2;
    if (RasterReadNumber(tree, "Info", "blobs", &g->dims[2]))
        g->dimCount = 3;
    RasterReadNumber(tree, "Encoding", "bytes/entry", &g->bytesPerSep[0]);
    RasterReadNumber(tree, "Encoding", "alignment", &g->alignment);
    RasterReadNumber(tree, "Encoding", "minimumChunk", &g->minimumChunk);
    RasterReadNumber(tree, "Encoding", "preferredChunk", &g->preferredChunk);

    // The field-N keys stay: they are the table's description.
    g->userData = RasterDeleteKeys(g->userData, "ID", kIdKeys);
    g->userData = RasterDeleteKeys(g->userData, "Info", kInfoKeys);
    g->userData = RasterDeleteKeys(g->userData, "Encoding", kEncodingKeys);
    if (h->swapBytes && !BuildSwapTable(h)) {
        FreeInfo(g);
        return 0;
    }
    *header = g;
    return 1;
}

int InfoLoadChunk(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t) noexcept {
    if (header == nullptr || in == nullptr || chunk == nullptr)
        return 0;
    HalvInfoHeader *h = AsInfo(header);
    if (ReadStoredChunk(in, chunk, h->swapBytes != 0, &h->chunkBuffer, &h->bufferCapacity) != 1)
        return 0;
    if (h->swapBytes)
        InfoReverseEntries(h->swapTable, h->swapCount, chunk->data, chunk->bytes, chunk->lines, header->bytesPerSep[0]);
    return 1;
}

int InfoEmitChunk(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out) noexcept {
    if (header == nullptr || chunk == nullptr || out == nullptr)
        return 0;
    // Unlike image-ext, the record goes out in this machine's order
    // whatever the header's byte order is.
    return WriteStoredChunk(chunk, out, false);
}

int InfoFromHeader(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    if (header == nullptr || tree == nullptr)
        return 0;
    static const char kZeroBytes[4] = {0, 0, 0, 0};
    int endian = header->endian == -1 ? HalvIdentifyEndian() : header->endian;
    HalvUserCMData *t = *tree;
    t = HVHdrSetHeaderParam(t, "ID", "format", "info");
    t = HVHdrSetHeaderField(t, "ID", "binary", kZeroBytes, sizeof kZeroBytes);
    t = HVHdrSetHeaderParam(t, "ID", "version", "1.0");
    t = HVHdrSetHeaderParam(t, "ID", "architecture", HalvEndian2Str(endian));

    t = HVHdrSetHeaderParam(t, "Encoding", "name", "packed");
    t = RasterSetNumbers(t, "Encoding", "bytes/entry", &header->bytesPerSep[0], 1);
    if (header->alignment != 0)
        t = RasterSetNumbers(t, "Encoding", "alignment", &header->alignment, 1);
    if (header->minimumChunk != 0)
        t = RasterSetNumbers(t, "Encoding", "minimumChunk", &header->minimumChunk, 1);
    if (header->preferredChunk != 0)
        t = RasterSetNumbers(t, "Encoding", "preferredChunk", &header->preferredChunk, 1);

    if (header->dimCount > 1 && header->dims[1] != 0)
        t = RasterSetNumbers(t, "Info", "entries", &header->dims[1], 1);
    if (header->dimCount > 2 && header->dims[2] != 0)
        t = RasterSetNumbers(t, "Info", "blobs", &header->dims[2], 1);

    t = HVHdrSetHeaderParam(t, "End", nullptr, nullptr);
    *tree = t;
    return 1;
}

int InfoCreateHeader(HalvHeaderStruct **header) noexcept { return RasterCreateHeader(NewRecord, header); }

} // namespace halv
