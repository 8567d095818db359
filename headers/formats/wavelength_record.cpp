/*
 * headers/formats/wavelength_record.cpp - the record of the "spectral"
 * format: making, copying and freeing it, its chunk buffer, and the names
 * of the spectrum types.
 *
 * One chunk buffer per header, sized in whole measurements; a chunk's data
 * point straight into it, so nothing is copied after a read.
 */
#include <cstring>

#include "halv_userdata.h"
#include "halv_util.h"
#include "headers/formats/formats.h"

namespace halv {

namespace {

/* The most one load may allocate.  A header can claim measurements of a
 * billion samples; a load above this counts as one whose memory can't be
 * had, which the loaders already know how to answer. */
constexpr uint64_t kMaxLoadBytes = 256u << 20;

constexpr const char *kTypeNames[] = {"reflectance", "illuminant", "filter", "unknown"};
constexpr uint32_t kTypeCount = sizeof kTypeNames / sizeof kTypeNames[0];

HalvSpectralHeader *AsSpectral(HalvHeaderStruct *header) { return reinterpret_cast<HalvSpectralHeader *>(header); }

void FreeSpectral(HalvHeaderStruct *header) {
    if (header == nullptr)
        return;
    HalvFreeUserCMData(header->userData);
    halv_internal_free(AsSpectral(header)->chunkBuffer);
    halv_internal_free(header);
}

HalvHeaderStruct *CopySpectral(HalvHeaderStruct *header) {
    if (header == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvSpectralHeader *>(halv_internal_malloc(sizeof(HalvSpectralHeader)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, header, sizeof *copy);
    copy->generic.copy = CopySpectral;
    copy->generic.free = FreeSpectral;
    copy->bytesPerMeasurement = copy->generic.dims[0] * 4;
    copy->bufferCapacity = 0;
    copy->linesRead = 0;
    copy->chunkBuffer = nullptr;
    copy->generic.userData = nullptr;
    if (header->userData != nullptr) {
        copy->generic.userData = HalvUserCMDupData(header->userData);
        if (copy->generic.userData == nullptr) {
            FreeSpectral(&copy->generic);
            return nullptr;
        }
    }
    return &copy->generic;
}

} // namespace

HalvSpectralHeader *SpectralNewRecord() noexcept {
    auto *h = static_cast<HalvSpectralHeader *>(halv_internal_calloc(1, sizeof(HalvSpectralHeader)));
    if (h == nullptr)
        return nullptr;
    h->generic.copy = CopySpectral;
    h->generic.free = FreeSpectral;
    h->generic.managerType = HALV_HDR_SPECTRAL;
    h->generic.dimCount = 2;
    return h;
}

void *SpectralAllocate(uint32_t bytesPerMeasurement, uint32_t measurements, bool zeroed) noexcept {
    uint64_t size = (uint64_t)bytesPerMeasurement * measurements;
    if (size == 0 || size > kMaxLoadBytes)
        return nullptr;
    return zeroed ? halv_internal_calloc(1, (size_t)size) : halv_internal_malloc((size_t)size);
}

void SpectralEndChunk(HalvSpectralHeader *header, HalvChunk *chunk) noexcept {
    chunk->data = header->chunkBuffer;
    chunk->capacity = header->bufferCapacity * header->bytesPerMeasurement;
    chunk->bytes = 0;
    chunk->lines = 0;
    chunk->flags = HALV_CHUNK_END;
}

} // namespace halv

extern "C" {

HALV_API int __HVHdrSpectralCreateHeader_A10(HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvSpectralHeader *h = halv::SpectralNewRecord();
    if (h == nullptr)
        return 0;
    h->spectrumType = HALV_SPECTRUM_REFLECTANCE;
    *header = &h->generic;
    return 1;
}

HALV_API int32_t ctkStr2SpecType(const char *text) noexcept {
    if (text == nullptr)
        return HALV_SPECTRUM_UNKNOWN;
    for (uint32_t i = 0; i < halv::kTypeCount; ++i)
        if (HalvStrCaseCmp(text, halv::kTypeNames[i]) == 0)
            return (int32_t)i;
    return HALV_SPECTRUM_UNKNOWN;
}

HALV_API const char *__HVHdrSpectralTypeName(uint32_t type) noexcept {
    return halv::kTypeNames[type < halv::kTypeCount ? type : HALV_SPECTRUM_UNKNOWN];
}

} // extern "C"
