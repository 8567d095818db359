/*
 * headers/resolution.cpp - resolution and units of a header, which live in
 * section Origin of its tree: `resolution` holds the first resolution and
 * `aspect` first over second.  A first of 1.0 is never stored, since it is
 * what an absent key reads as.
 */
#include "halv_userdata.h"
#include "headers/internal.h"

namespace {

constexpr const char *kOrigin = "Origin";

/* 1 with *value scanned (or left alone when the text doesn't scan) if the
 * key has a value, else 0. */
int ReadOne(HalvUserCMData *tree, const char *key, double *value) {
    uint32_t count = 1;
    return HVHdrGetHeaderDoubles(tree, kOrigin, key, value, &count);
}

void StoreOne(HalvHeaderStruct *header, const char *key, double value) {
    header->userData = HVHdrSetHeaderDoubles(header->userData, kOrigin, key, &value, 1, 1);
}

void Forget(HalvHeaderStruct *header, const char *key) {
    header->userData = HVHdrDeleteHeaderField(header->userData, kOrigin, key);
}

} // namespace

extern "C" {

HALV_API int HalvHeaderGetResolution(const HalvHeaderStruct *header, double *first, double *second) noexcept {
    if (header == nullptr || first == nullptr || second == nullptr)
        return 0;
    double resolution = 1.0;
    bool hasResolution = ReadOne(header->userData, "resolution", &resolution) == 1;
    *first = *second = hasResolution ? resolution : 1.0;
    double aspect = 0.0;
    bool hasAspect = ReadOne(header->userData, "aspect", &aspect) == 1;
    if (hasAspect && aspect > 0.0)
        *second /= aspect;
    return hasResolution ? 1 : hasAspect ? 2 : 0;
}

HALV_API int HalvHeaderSetResolution(HalvHeaderStruct *header, double first, double second) noexcept {
    if (header == nullptr)
        return 0;
    if (first > 1.0 && second != 0.0)
        StoreOne(header, "resolution", first);
    else
        Forget(header, "resolution");
    if (second == 0.0)
        Forget(header, "aspect");
    else
        StoreOne(header, "aspect", first / second);
    return 1;
}

HALV_API const char *HalvHeaderGetUnits(const HalvHeaderStruct *header) noexcept {
    return header != nullptr ? HVHdrGetHeaderParam(header->userData, kOrigin, "units") : nullptr;
}

HALV_API int HalvHeaderSetUnits(HalvHeaderStruct *header, const char *text) noexcept {
    if (header == nullptr)
        return 0;
    header->userData = HVHdrSetHeaderParam(header->userData, kOrigin, "units", text);
    return 1;
}

} // extern "C"
