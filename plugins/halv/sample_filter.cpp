/*
 * sample_filter.cpp - the state, the pass and the end of every function of
 * the halv bundle.
 */
#include <cstring>

#include "sample_filter.h"

namespace sample {
namespace {

uint32_t SampleSize(const FilterState *state) noexcept { return state->bits == 16 ? 2u : 1u; }

uint32_t MaxValue(const FilterState *state) noexcept { return state->bits == 16 ? 0xFFFFu : 0xFFu; }

bool GrowOutput(FilterState *state, uint32_t bytes) noexcept {
    if (bytes <= state->outputCapacity)
        return true;
    void *grown = halv_internal_realloc(state->output, bytes);
    if (grown == nullptr)
        return false;
    state->output = grown;
    state->outputCapacity = bytes;
    return true;
}

/* Every operation depends on the sample alone, so its results for all
 * 256 or 65536 values are worked out once at init, and a pass is one table
 * lookup a sample: no call and no floating point per sample. */
/* Whether every entry is the first one less the sample, as invert's
 * table is: such a pass is a subtraction the compiler does 16 or 32 bytes
 * at a time, where lookups go one sample at a time. */
bool IsDescending(const FilterState *state) noexcept {
    const uint32_t maxValue = MaxValue(state);
    for (uint32_t value = 0; value <= maxValue; ++value) {
        const uint32_t entry = state->bits == 8 ? static_cast<const uint8_t *>(state->table)[value]
                                                : static_cast<const uint16_t *>(state->table)[value];
        const uint32_t first = state->bits == 8 ? static_cast<const uint8_t *>(state->table)[0]
                                                : static_cast<const uint16_t *>(state->table)[0];
        if (entry != ((first - value) & maxValue))
            return false;
    }
    return true;
}

bool MakeTable(FilterState *state) noexcept {
    const Operation *op = state->operation;
    if (op->identity)
        return true;
    uint32_t maxValue = MaxValue(state);
    state->table = halv_internal_malloc((maxValue + 1) * SampleSize(state));
    if (state->table == nullptr)
        return false;
    for (uint32_t value = 0; value <= maxValue; ++value) {
        uint32_t mapped = op->apply(state, value, maxValue);
        if (state->bits == 8)
            static_cast<uint8_t *>(state->table)[value] = (uint8_t)mapped;
        else
            static_cast<uint16_t *>(state->table)[value] = (uint16_t)mapped;
    }
    state->descending = IsDescending(state);
    return true;
}

void MapSamples(const FilterState *state, const void *in, void *out, uint32_t bytes) noexcept {
    if (state->operation->identity) {
        std::memcpy(out, in, bytes);
        return;
    }
    if (state->descending && state->bits == 8) {
        const auto first = static_cast<const uint8_t *>(state->table)[0];
        auto *src = static_cast<const uint8_t *>(in);
        auto *dst = static_cast<uint8_t *>(out);
        for (uint32_t i = 0; i < bytes; ++i)
            dst[i] = static_cast<uint8_t>(first - src[i]);
        return;
    }
    if (state->descending) {
        const auto first = static_cast<const uint16_t *>(state->table)[0];
        auto *src = static_cast<const unsigned char *>(in);
        auto *dst = static_cast<unsigned char *>(out);
        for (uint32_t i = 0; i < bytes; i += 2) {
            uint16_t sample;
            std::memcpy(&sample, src + i, 2);
            sample = static_cast<uint16_t>(first - sample);
            std::memcpy(dst + i, &sample, 2);
        }
        return;
    }
    if (state->bits == 8) {
        auto *table = static_cast<const uint8_t *>(state->table);
        auto *src = static_cast<const uint8_t *>(in);
        auto *dst = static_cast<uint8_t *>(out);
        for (uint32_t i = 0; i < bytes; ++i)
            dst[i] = table[src[i]];
        return;
    }
    auto *table = static_cast<const uint16_t *>(state->table);
    auto *src = static_cast<const unsigned char *>(in);
    auto *dst = static_cast<unsigned char *>(out);
    for (uint32_t i = 0; i < bytes; i += 2) {
        uint16_t sample;
        std::memcpy(&sample, src + i, 2); /* chunks need not be aligned */
        sample = table[sample];
        std::memcpy(dst + i, &sample, 2);
    }
}

/* One pass: input chunk 0 mapped into output chunk 0; its end flag and aux
 * word, which a stored format may carry per chunk, are passed on. */
int ProcessChunk(HalvState *base) noexcept {
    auto *state = reinterpret_cast<FilterState *>(base);
    HalvChunk *in = base->inputChunks[0];
    if (in->bytes % SampleSize(state) != 0)
        return HalvSetError(base, 0, "%s: a chunk of %u bytes doesn't hold whole %d-bit samples\n",
                            state->operation->name, in->bytes, state->bits);
    if (in->bytes > 0 && in->data == nullptr)
        return HalvSetError(base, 0, "%s: a chunk of %u bytes has no data\n", state->operation->name, in->bytes);
    if (!GrowOutput(state, in->bytes))
        return HalvSetError(base, 0, "%s: no memory for %u bytes\n", state->operation->name, in->bytes);
    if (in->bytes > 0)
        MapSamples(state, in->data, state->output, in->bytes);
    HalvSetChunk(base->outputChunks, 0, state->output, in->bytes, in->lines);
    HalvSetChunkFlags(base->outputChunks, 0, in->flags & HALV_CHUNK_END);
    base->outputChunks[0]->auxWord = in->auxWord;
    return 1;
}

int EndFilter(HalvState *base) noexcept {
    auto *state = reinterpret_cast<FilterState *>(base);
    halv_internal_free(state->output);
    halv_internal_free(state->table);
    HalvFreeArray(base->inputChunks);
    HalvFreeArray(base->outputChunks);
    return HalvFreeState(base);
}

bool ReadBits(FilterState *state, const intptr_t *args) noexcept {
    state->bits = 8;
    if (HalvParseArgs(args, "bits:i", (int *)nullptr, &state->bits, HALV_ARG_END) != 1)
        return HalvSetError(&state->base, 0, "%s: argument bits:i is malformed\n", state->operation->name), false;
    if (state->bits != 8 && state->bits != 16)
        return HalvSetError(&state->base, 0, "%s: bits must be 8 or 16, not %d\n", state->operation->name,
                            state->bits),
               false;
    return true;
}

} // namespace

int InitFilter(const Operation *operation, intptr_t *args, HalvState **out) noexcept {
    if (out == nullptr)
        return 0;
    *out = nullptr;
    HalvState *base = nullptr;
    if (HalvAllocState(&base, (int32_t)sizeof(FilterState)) != 1)
        return 0;
    auto *state = reinterpret_cast<FilterState *>(base);
    state->operation = operation;
    base->name = operation->name;
    base->processPoint = ProcessChunk;
    base->endPoint = EndFilter;
    *out = base;
    if (args == nullptr)
        return HalvSetError(base, 0, "%s: no argument list\n", operation->name);
    if (HalvAllocArray(&base->inputChunks, 1, (uint32_t)sizeof(HalvChunk)) != 1 ||
        HalvAllocArray(&base->outputChunks, 1, (uint32_t)sizeof(HalvChunk)) != 1)
        return HalvSetError(base, 0, "%s: no memory for chunks\n", operation->name);
    if (!ReadBits(state, args) || !operation->readArguments(state, args))
        return 0;
    if (!MakeTable(state))
        return HalvSetError(base, 0, "%s: no memory for the sample table\n", operation->name);
    return 1;
}

} // namespace sample
