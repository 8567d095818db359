/*
 * headers/formats/wavelength_header.cpp - the header of the "spectral"
 * format: section Spectral to the record and back.  Both versions share
 * it; "1.0-binary" only adds the four zero bytes of ID/binary.
 *
 * Writing starts a tree of its own: what a reader left in userData is not
 * written back, unlike the raster formats.
 */
#include "halv_userdata.h"
#include "headers/formats/formats.h"
#include "headers/internal.h"

namespace halv {

namespace {

constexpr float kNone = HALV_SPECTRAL_NONE;
/* Samples of 4 bytes whose count times 4 still fits bytesPerMeasurement. */
constexpr uint32_t kMaxSamples = UINT32_MAX / 4;

const char *const kReadKeys[] = {"samplingInterval",     "startWaveLength", "wavelengths", "numberOfSamples",
                                 "numberOfMeasurements", "spectrumType",    nullptr};

/* Leading white space doesn't count in a stored type name. */
uint32_t TypeFromTree(HalvUserCMData *tree) {
    const char *text = HVHdrGetHeaderParam(tree, "Spectral", "spectrumType");
    if (text == nullptr)
        return HALV_SPECTRUM_UNKNOWN;
    while (IsHeaderSpace((unsigned char)*text))
        ++text;
    return (uint32_t)ctkStr2SpecType(text);
}

/* Every separation a measurement has holds one 32-bit float sample. */
void FillSamples(HalvHeaderStruct *g) {
    uint32_t n = g->dims[0] < HALV_MAX_SEPARATIONS ? g->dims[0] : HALV_MAX_SEPARATIONS;
    for (uint32_t i = 0; i < n; ++i) {
        g->bitsPerSample[i] = 32;
        g->bytesPerSep[i] = 4;
    }
}

HalvUserCMData *SetFloat(HalvUserCMData *tree, const char *key, float value) {
    return HVHdrSetHeaderFloats(tree, "Spectral", key, &value, 1, 1);
}

int FromHeader(HalvHeaderStruct *header, HalvUserCMData **tree, bool binary) {
    if (header == nullptr || tree == nullptr)
        return 0;
    static const char kZeroBytes[4] = {0, 0, 0, 0};
    const auto *h = reinterpret_cast<const HalvSpectralHeader *>(header);
    HVHdrFree(*tree);
    HalvUserCMData *t = HVHdrSetHeaderParam(nullptr, "ID", "format", "spectral");
    if (binary)
        t = HVHdrSetHeaderField(t, "ID", "binary", kZeroBytes, sizeof kZeroBytes);
    t = HVHdrSetHeaderParam(t, "ID", "version", binary ? "1.0-binary" : "1.0-ascii");
    t = RasterSetNumbers(t, "Spectral", "numberOfSamples", &header->dims[0], 1);
    t = RasterSetNumbers(t, "Spectral", "numberOfMeasurements", &header->dims[1], 1);
    if (h->wavelengths[0] != kNone) {
        uint32_t n = header->dims[0] < HALV_SPECTRAL_MAX_WAVELENGTHS ? header->dims[0] : HALV_SPECTRAL_MAX_WAVELENGTHS;
        t = HVHdrSetHeaderFloats(t, "Spectral", "wavelength", h->wavelengths, n, n);
    } else {
        t = SetFloat(t, "startWaveLength", h->startWaveLength);
        t = SetFloat(t, "samplingInterval", h->samplingInterval);
    }
    t = HVHdrSetHeaderParam(t, "Spectral", "spectrumType", __HVHdrSpectralTypeName(h->spectrumType));
    *tree = HVHdrSetHeaderParam(t, "End", nullptr, nullptr);
    return 1;
}

} // namespace

} // namespace halv

extern "C" {

HALV_API int __HVHdrSpectralToHeader_10(HalvUserCMData *tree, HalvHeaderStruct **header) noexcept {
    if (header == nullptr)
        return 0;
    HalvSpectralHeader *h = halv::SpectralNewRecord();
    if (h == nullptr)
        return 0;
    HalvHeaderStruct *g = &h->generic;
    g->userData = HalvUserCMDupData(tree);
    g->parts[0] = 1;
    bool ok = g->userData != nullptr || tree == nullptr;
    if (ok) {
        halv::RasterReadNumber(tree, "Spectral", "numberOfSamples", &g->dims[0]);
        halv::FillSamples(g);
        halv::RasterReadNumber(tree, "Spectral", "numberOfMeasurements", &g->dims[1]);
        h->bytesPerMeasurement = g->dims[0] * 4;
        h->spectrumType = halv::TypeFromTree(tree);
        ok = g->dims[0] <= halv::kMaxSamples && halv::SpectralReadWavelengths(tree, h);
    }
    if (!ok) {
        g->free(g);
        return 0;
    }
    g->userData = halv::RasterDeleteKeys(g->userData, "Spectral", halv::kReadKeys);
    *header = g;
    return 1;
}

HALV_API int __HVHdrSpectralFromHeader_A10(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    return halv::FromHeader(header, tree, false);
}

HALV_API int __HVHdrSpectralFromHeader_B10(HalvHeaderStruct *header, HalvUserCMData **tree) noexcept {
    return halv::FromHeader(header, tree, true);
}

} // extern "C"
