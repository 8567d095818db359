/*
 * headers/typed_values.cpp - a key's text as an array of integers, floats
 * or doubles.
 *
 * Numbers go out with "%d" or "%f" and come back with "%d", "%f" or "%lf",
 * always in the C locale.  Reading walks the first value line token by
 * token; a token that doesn't scan keeps its entry and still counts, and
 * callers rely on a missing key leaving their defaults alone.
 */
#include "halv_userdata.h"
#include "headers/internal.h"
#include "headers/number_text.h"

namespace {

/* The key's text: the numbers, each followed by a line feed when it closes
 * a line of perLine numbers and by a blank otherwise (perLine 0 never
 * closes one).  The buffer is measured first: "%f" of a large double runs
 * to hundreds of characters. */
template <typename T>
HalvUserCMData *SetNumbers(HalvUserCMData *tree, const char *section, const char *key, const T *values,
                           uint32_t count, uint32_t perLine) {
    if (count != 0 && values == nullptr)
        return tree;
    halv::CNumberLocale c;
    size_t size = 1;
    for (uint32_t i = 0; i < count; ++i)
        size += (size_t)halv::NumberText<T>::Print(nullptr, 0, values[i]) + 1;
    auto *text = static_cast<char *>(halv_internal_malloc(size));
    if (text == nullptr)
        return tree;
    size_t used = 0;
    for (uint32_t i = 0; i < count; ++i) {
        used += (size_t)halv::NumberText<T>::Print(text + used, size - used, values[i]);
        bool closesLine = perLine != 0 && (i + 1) % perLine == 0;
        text[used++] = closesLine ? '\n' : ' ';
    }
    text[used] = '\0';
    tree = HVHdrSetHeaderField(tree, section, key, text, (uint32_t)used);
    halv_internal_free(text);
    return tree;
}

template <typename T>
int GetNumbers(HalvUserCMData *tree, const char *section, const char *key, T *values, uint32_t *count) {
    if (count == nullptr)
        return 0;
    const char *text = HVHdrGetHeaderParam(tree, section, key);
    if (text == nullptr)
        return 0;
    if (*count == 0)
        return 1;
    if (values == nullptr)
        return 0;
    halv::CNumberLocale c;
    halv::NumberText<T>::Scan(text, &values[0]);
    uint32_t taken = 1;
    for (const char *p = text;;) {
        p = halv::SkipSpace(p);
        if (*p == '\0')
            break;
        p = halv::SkipToken(p);
        if (*p == '\0' || taken >= *count)
            break;
        halv::NumberText<T>::Scan(p, &values[taken++]);
    }
    *count = taken;
    return 1;
}

} // namespace

extern "C" {

HALV_API HalvUserCMData *HVHdrSetHeaderInts(HalvUserCMData *tree, const char *section, const char *key,
                                            const int32_t *values, uint32_t count, uint32_t perLine) noexcept {
    return SetNumbers(tree, section, key, values, count, perLine);
}

HALV_API HalvUserCMData *HVHdrSetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key,
                                               const double *values, uint32_t count, uint32_t perLine) noexcept {
    return SetNumbers(tree, section, key, values, count, perLine);
}

HALV_API HalvUserCMData *HVHdrSetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key,
                                              const float *values, uint32_t count, uint32_t perLine) noexcept {
    return SetNumbers(tree, section, key, values, count, perLine);
}

HALV_API int HVHdrGetHeaderInts(HalvUserCMData *tree, const char *section, const char *key, int32_t *values,
                                uint32_t *count) noexcept {
    return GetNumbers(tree, section, key, values, count);
}

HALV_API int HVHdrGetHeaderDoubles(HalvUserCMData *tree, const char *section, const char *key, double *values,
                                   uint32_t *count) noexcept {
    return GetNumbers(tree, section, key, values, count);
}

HALV_API int HVHdrGetHeaderFloats(HalvUserCMData *tree, const char *section, const char *key, float *values,
                                  uint32_t *count) noexcept {
    return GetNumbers(tree, section, key, values, count);
}

} // extern "C"
