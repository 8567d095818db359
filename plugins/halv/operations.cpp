/*
 * operations.cpp - copy, invert, gain and threshold: what each does to one
 * sample, and the arguments it reads.
 */
#include <cmath>

#include "sample_filter.h"

namespace sample {
namespace {

bool NoArguments(FilterState *, const intptr_t *) noexcept { return true; }

uint32_t CopySample(const FilterState *, uint32_t sample, uint32_t) noexcept { return sample; }

uint32_t InvertSample(const FilterState *, uint32_t sample, uint32_t maxValue) noexcept { return maxValue - sample; }

/* Rounded to nearest and clipped at the top of the range. */
uint32_t GainSample(const FilterState *state, uint32_t sample, uint32_t maxValue) noexcept {
    double scaled = std::floor(sample * state->factor + 0.5);
    return scaled >= maxValue ? maxValue : (uint32_t)scaled;
}

uint32_t ThresholdSample(const FilterState *state, uint32_t sample, uint32_t maxValue) noexcept {
    return (int32_t)sample >= state->level ? maxValue : 0u;
}

bool ReadFactor(FilterState *state, const intptr_t *args) noexcept {
    int found = 0;
    if (HalvParseArgs(args, "factor:d", &found, &state->factor, HALV_ARG_END) != 1 || !found)
        return HalvSetError(&state->base, 0, "gain: argument factor:d is required\n"), false;
    if (!std::isfinite(state->factor) || state->factor < 0)
        return HalvSetError(&state->base, 0, "gain: factor must be a finite number of 0 or more\n"), false;
    return true;
}

bool ReadLevel(FilterState *state, const intptr_t *args) noexcept {
    int found = 0;
    if (HalvParseArgs(args, "level:i", &found, &state->level, HALV_ARG_END) != 1 || !found)
        return HalvSetError(&state->base, 0, "threshold: argument level:i is required\n"), false;
    int32_t maxValue = state->bits == 16 ? 0xFFFF : 0xFF;
    if (state->level < 0 || state->level > maxValue)
        return HalvSetError(&state->base, 0, "threshold: level %d is outside 0 to %d\n", state->level, maxValue),
               false;
    return true;
}

} // namespace

const Operation kCopy = {"copy", NoArguments, CopySample, true};
const Operation kInvert = {"invert", NoArguments, InvertSample, false};
const Operation kGain = {"gain", ReadFactor, GainSample, false};
const Operation kThreshold = {"threshold", ReadLevel, ThresholdSample, false};

} // namespace sample
