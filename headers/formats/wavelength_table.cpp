/*
 * headers/formats/wavelength_table.cpp - where the samples of a
 * spectrum lie: a start and an interval, or a table of up to 500
 * wavelengths.
 *
 * A stored header may give both.  The rules below settle on one form: a
 * table with even steps that agrees with its interval gives way to start
 * and interval, a table with uneven steps wins over an interval, and a
 * header that contradicts itself is refused.  -1.0 marks each of the three
 * fields as absent, compared for equality.
 */
#include "headers/formats/formats.h"

namespace halv {

namespace {

constexpr float kNone = HALV_SPECTRAL_NONE;

/* One float of Spectral/key, or none when the key has no value (or its
 * text is no number). */
float ReadOne(HalvUserCMData *tree, const char *key) {
    float value = kNone;
    uint32_t count = 1;
    (void)HVHdrGetHeaderFloats(tree, "Spectral", key, &value, &count);
    return value;
}

/* Checks a table of count entries (count is numberOfSamples) against the
 * start and interval given with it, and settles the form.  False when the
 * header is to be refused. */
bool SettleTable(HalvSpectralHeader *h, uint32_t count) {
    float *w = h->wavelengths;
    // A first entry of -1.0, written so or left there by a word that is no
    // number, would read as no table and leave no wavelengths at all.
    if (w[0] == kNone)
        return false;
    if (h->startWaveLength == kNone)
        h->startWaveLength = w[0];
    else if (h->startWaveLength != w[0])
        return false;

    // The step of the first two entries, in float; the others are compared
    // with it in double precision.  A table of one entry compares with the
    // zero behind it.
    float step = w[1] - w[0];
    uint32_t even = 1;
    for (uint32_t i = 1; i < count; ++i) {
        if (!(w[i] > w[i - 1]))
            return false;
        if ((double)w[i] - (double)w[i - 1] == (double)step)
            ++even;
    }
    if (h->samplingInterval == kNone)
        return true;
    if (even != count) {
        h->samplingInterval = kNone; // the table wins
        return true;
    }
    if (h->samplingInterval != step)
        return false;
    h->startWaveLength = w[0];
    w[0] = kNone; // start and interval say the same as the table
    return true;
}

} // namespace

bool SpectralReadWavelengths(HalvUserCMData *tree, HalvSpectralHeader *h) noexcept {
    h->samplingInterval = ReadOne(tree, "samplingInterval");
    h->startWaveLength = ReadOne(tree, "startWaveLength");
    h->wavelengths[0] = kNone;
    uint32_t count = HALV_SPECTRAL_MAX_WAVELENGTHS;
    if (HVHdrGetHeaderFloats(tree, "Spectral", "wavelengths", h->wavelengths, &count) != 1 || count == 0) {
        h->wavelengths[0] = kNone;
        return h->startWaveLength != kNone && h->samplingInterval != kNone;
    }
    if (count != h->generic.dims[0])
        return false;
    return SettleTable(h, count);
}

} // namespace halv

extern "C" {

HALV_API float __HVHdrSpectralWavelength(const HalvHeaderStruct *header, uint32_t index) noexcept {
    if (header == nullptr || header->managerType != HALV_HDR_SPECTRAL || index >= header->dims[0])
        return HALV_SPECTRAL_NONE;
    const auto *h = reinterpret_cast<const HalvSpectralHeader *>(header);
    if (h->wavelengths[0] != HALV_SPECTRAL_NONE)
        return index < HALV_SPECTRAL_MAX_WAVELENGTHS ? h->wavelengths[index] : HALV_SPECTRAL_NONE;
    if (h->startWaveLength == HALV_SPECTRAL_NONE || h->samplingInterval == HALV_SPECTRAL_NONE)
        return HALV_SPECTRAL_NONE;
    return (float)((double)h->startWaveLength + (double)index * (double)h->samplingInterval);
}

} // extern "C"
