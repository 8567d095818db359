/*
 * util/hash.cpp - three small non-cryptographic hashes.
 *
 * HalvHashBytes is the one the library keeps beside names in its lists
 * (environment overrides, shared-object cache) so that a walk compares
 * numbers before strings.  Its values are stored and compared across the
 * library, so the arithmetic is fixed to the bit, odd as it is.
 */
#include "halv_util.h"

namespace {

/* The weighted sum runs its multiplier through the odd numbers 1..253. */
constexpr uint32_t kWeightLimit = 255;
constexpr uint32_t kStringHashStart = 5381;
constexpr uint32_t kFnvPrime = 16777619u;

} // namespace

extern "C" {

HALV_API uint32_t HalvHashBytes(const void *bytes, uint32_t length) noexcept {
    if (bytes == nullptr)
        return 0;
    const auto *p = static_cast<const unsigned char *>(bytes);
    uint32_t sum = 0;
    uint32_t weight = 1;
    for (uint32_t i = 0; i < length; ++i) {
        sum += ((2u * p[i] + 1u) * weight) & 0xFFu;
        weight += 2;
        if (weight >= kWeightLimit)
            weight = 1;
    }
    return sum & 0xFFFFu;
}

HALV_API uint32_t HalvHashString(const char *text) noexcept {
    uint32_t h = kStringHashStart;
    if (text == nullptr)
        return h;
    for (const char *p = text; *p != '\0'; ++p)
        h = h * 33u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*p)));
    return h;
}

HALV_API uint32_t HalvFNVHashBytes(const void *bytes, uint32_t length, uint32_t seed) noexcept {
    if (bytes == nullptr)
        return seed;
    const auto *p = static_cast<const unsigned char *>(bytes);
    uint32_t h = seed;
    for (uint32_t i = 0; i < length; ++i)
        h = (h * kFnvPrime) ^ p[i];
    return h;
}

} // extern "C"
