// Fuzz target for stored wavelength data: the header text with its
// wavelength rules, and every chunk of either version behind it.
//
// A header is checked against what the rules promise (a table and no
// interval, or a start and an interval and no table), copied and released
// through its own slots, and its chunks are loaded until one ends the data,
// a load fails, or a bound of loads is reached.  Every chunk goes out again
// through the header's own version and through the other one, behind
// headers written for each; both written copies are read once more.  Any
// crash, leak, sanitizer report or broken promise is a fault.
#include "fuzz/support.h"

namespace {

using fuzz::Require;

constexpr int kMaxLoads = 256;
/* Loads allocate whole measurements up front, and every sample goes out
 * and back as text; above this the header alone is exercised, so that a
 * header that claims millions of samples doesn't make a run of seconds. */
constexpr uint64_t kMaxLoadBytes = 1u << 20;

/* What a header that toHeader accepted holds. */
void CheckRules(const HalvSpectralHeader *s) {
    const HalvHeaderStruct *g = &s->generic;
    Require(g->managerType == HALV_HDR_SPECTRAL && g->dimCount == 2 && g->parts[0] == 1);
    Require(s->bytesPerMeasurement == g->dims[0] * 4 && g->dims[0] <= UINT32_MAX / 4);
    if (s->wavelengths[0] != HALV_SPECTRAL_NONE) {
        // Bit for bit: a table of one may hold a NaN.
        Require(s->samplingInterval == HALV_SPECTRAL_NONE &&
                std::memcmp(&s->startWaveLength, &s->wavelengths[0], sizeof(float)) == 0);
        Require(g->dims[0] >= 1 && g->dims[0] <= HALV_SPECTRAL_MAX_WAVELENGTHS);
        for (uint32_t i = 1; i < g->dims[0]; ++i)
            Require(s->wavelengths[i] > s->wavelengths[i - 1]);
    } else {
        Require(s->startWaveLength != HALV_SPECTRAL_NONE && s->samplingInterval != HALV_SPECTRAL_NONE);
    }
    Require(s->spectrumType <= 3);
}

/* header with the slots of the other version. */
HalvHeaderStruct *AsOtherVersion(HalvHeaderStruct *header, const HVHdrManager &other) {
    HalvHeaderStruct *copy = header->copy(header);
    if (copy != nullptr)
        std::memcpy(&copy->toStruct, &other, sizeof other);
    return copy;
}

/* Reads one spectrum from in; when out isn't null, writes it there in its
 * own version and to converted in the other one. */
void Pass(HalvIO *in, HalvIO *out, HalvIO *converted, uint32_t measurements) {
    HVHdrManager manager{};
    HalvHeaderStruct *header = nullptr;
    if (HVHdrRead_Header(in, &manager, &header) != 1 || header == nullptr)
        return;
    if (header->managerType != HALV_HDR_SPECTRAL) {
        header->free(header);
        return;
    }
    auto *s = reinterpret_cast<HalvSpectralHeader *>(header);
    CheckRules(s);
    HVHdrManager other{};
    bool binary = manager.loadChunk == &__HVHdrSpectralLoadChunk_B10;
    Require(HVHdrGetManager_Str("spectral", binary ? "1.0-ascii" : "1.0-binary", &other) == 1);
    HalvHeaderStruct *twin = out != nullptr ? AsOtherVersion(header, other) : nullptr;
    if (out != nullptr) {
        HVHdrWrite_Header(header, &manager, out);
        if (twin != nullptr)
            HVHdrWrite_Header(twin, &other, converted);
    }
    uint32_t asked = measurements != 0 ? measurements : binary ? 5 : 1;
    if ((uint64_t)s->bytesPerMeasurement * asked <= kMaxLoadBytes) {
        for (int i = 0; i < kMaxLoads; ++i) {
            HalvChunk chunk;
            std::memset(&chunk, 0, sizeof chunk);
            int result = HVHdrToChunkLines(manager, header, in, &chunk, measurements);
            if (result != 1 && result != 2)
                break;
            Require(chunk.bytes == chunk.lines * s->bytesPerMeasurement && chunk.lines <= asked);
            Require(header->dims[1] == 0 || s->linesRead <= header->dims[1]);
            if (out != nullptr) {
                HVHdrFromChunk(manager, header, &chunk, out);
                if (twin != nullptr)
                    HVHdrFromChunk(other, twin, &chunk, converted);
            }
            if (chunk.flags & HALV_CHUNK_END || s->bytesPerMeasurement == 0)
                break;
        }
    }
    if (twin != nullptr)
        twin->free(twin);
    header->free(header);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20))
        return 0;
    HalvIO *out = HalvIO_Mem(0), *converted = HalvIO_Mem(0);
    const uint32_t measurements = fuzz::CountToAsk(data, size, 9);
    fuzz::OverCopy(data, size, [&](HalvIO *in) { Pass(in, out, converted, measurements); });
    for (HalvIO *written : {out, converted}) {
        fuzz::ReadBack(written, [&](HalvIO *again) { Pass(again, nullptr, nullptr, measurements); });
        written->close(written);
    }
    return 0;
}
