/*
 * bundle.cpp - the halv bundle's entry points: its version, the list of
 * its functions, and one module record for each.
 *
 * The init points are exported as well, so that a description file can
 * name them ("init: HalvSampleGainInit" finds them in dpk_halv).
 */
#include <cstring>

#include "sample_filter.h"

#define BUNDLE_EXPORT extern "C" __attribute__((visibility("default")))

BUNDLE_EXPORT int HalvSampleCopyInit(intptr_t *args, HalvState **out) noexcept {
    return sample::InitFilter(&sample::kCopy, args, out);
}
BUNDLE_EXPORT int HalvSampleInvertInit(intptr_t *args, HalvState **out) noexcept {
    return sample::InitFilter(&sample::kInvert, args, out);
}
BUNDLE_EXPORT int HalvSampleGainInit(intptr_t *args, HalvState **out) noexcept {
    return sample::InitFilter(&sample::kGain, args, out);
}
BUNDLE_EXPORT int HalvSampleThresholdInit(intptr_t *args, HalvState **out) noexcept {
    return sample::InitFilter(&sample::kThreshold, args, out);
}

namespace {

constexpr HalvBundleVersion kVersion = {HALV_BUNDLE_MAJOR, "3.8.0", "2025-01-01 00:00:00"};

constexpr const char *kBitsArg = "bits:i  sample depth: 8 or 16 (machine byte order); 8 when absent";
constexpr const char *kPointFormats[] = {"interleave: scanline pixel", "bits: 8 16", "cspace: any", nullptr};
constexpr const char *kNoArgs[] = {kBitsArg, nullptr};
constexpr const char *kGainArgs[] = {"factor:d  gain factor, 0 or more; required", kBitsArg, nullptr};
constexpr const char *kThresholdArgs[] = {"level:i  lowest sample that becomes white, 0 to the top of the range; required",
                                          kBitsArg, nullptr};
constexpr const char *kCopyTests[] = {"bytes 0 7 255 stay 0 7 255", nullptr};
constexpr const char *kInvertTests[] = {"8 bits: 0 7 255 give 255 248 0", nullptr};
constexpr const char *kGainTests[] = {"factor 2, 8 bits: 0 100 200 give 0 200 255", nullptr};
constexpr const char *kThresholdTests[] = {"level 128, 8 bits: 127 128 give 0 255", nullptr};
constexpr const char *kCopyCategories[] = {"utility", nullptr};
constexpr const char *kToneCategories[] = {"point", "tone", nullptr};

constexpr HalvBundleModule kModules[] = {
    {"copy", 0, kNoArgs, 1, 1, kPointFormats, kCopyTests, kCopyCategories, "Copies every sample unchanged.",
     "Passes each chunk of scanlines through into a buffer of its own: the smallest complete function, and the "
     "one to start a new function from.",
     0, HalvSampleCopyInit},
    {"invert", 0, kNoArgs, 1, 1, kPointFormats, kInvertTests, kToneCategories, "Inverts every sample.",
     "Replaces each sample s by the top of the range minus s: 255 - s for 8 bits, 65535 - s for 16 bits.", 0,
     HalvSampleInvertInit},
    {"gain", 0, kGainArgs, 1, 1, kPointFormats, kGainTests, kToneCategories, "Multiplies every sample by a factor.",
     "Replaces each sample s by s * factor, rounded to the nearest integer and clipped at the top of the range.",
     0, HalvSampleGainInit},
    {"threshold", 0, kThresholdArgs, 1, 1, kPointFormats, kThresholdTests, kToneCategories,
     "Makes every sample black or white.",
     "Replaces each sample s by the top of the range when s is at least level, and by 0 otherwise.", 0,
     HalvSampleThresholdInit},
};

constexpr const char *kModuleNames[] = {"copy", "invert", "gain", "threshold", nullptr};

} // namespace

BUNDLE_EXPORT const HalvBundleVersion *HalvernBundleGetVersion_halv(void) noexcept { return &kVersion; }

BUNDLE_EXPORT const char *const *HalvernBundleGetList_halv(void) noexcept { return kModuleNames; }

BUNDLE_EXPORT const HalvBundleModule *HalvernBundleGetModule_halv(const char *name) noexcept {
    if (name == nullptr)
        return nullptr;
    for (const HalvBundleModule &module : kModules)
        if (std::strcmp(module.name, name) == 0)
            return &module;
    return nullptr;
}
