/*
 * core/alloc.cpp - the allocator family.  Every block that crosses the
 * interface comes from here, so there is one place to hook allocation.
 *
 * Aligned blocks carry their own header: the raw allocation is size + a
 * bytes, the address handed out is (raw + a) rounded down to a multiple of a,
 * and the 32-bit word just in front of it holds the distance back to raw.
 */
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "halv_core.h"

extern "C" {

HALV_API void *halv_internal_malloc(size_t size) noexcept { return std::malloc(size); }

HALV_API void *halv_internal_calloc(size_t count, size_t size) noexcept { return std::calloc(count, size); }

HALV_API void *halv_internal_realloc(void *ptr, size_t size) noexcept { return std::realloc(ptr, size); }

HALV_API void halv_internal_free(void *ptr) noexcept { std::free(ptr); }

HALV_API void *halv_internal_aligned_malloc(size_t size, size_t alignment) noexcept {
    if (alignment < 4)
        alignment = 4;
    if ((alignment & (alignment - 1)) != 0 || alignment > UINT32_MAX || size > SIZE_MAX - alignment)
        return nullptr;
    auto *raw = static_cast<unsigned char *>(std::malloc(size + alignment));
    if (raw == nullptr)
        return nullptr;
    uintptr_t block = (reinterpret_cast<uintptr_t>(raw) + alignment) & ~(uintptr_t)(alignment - 1);
    uint32_t distance = (uint32_t)(block - reinterpret_cast<uintptr_t>(raw));
    std::memcpy(reinterpret_cast<unsigned char *>(block) - sizeof distance, &distance, sizeof distance);
    return reinterpret_cast<void *>(block);
}

HALV_API void *halv_internal_aligned_alloc(size_t size, size_t alignment) noexcept {
    void *block = halv_internal_aligned_malloc(size, alignment);
    if (block != nullptr)
        std::memset(block, 0, size);
    return block;
}

HALV_API void halv_internal_aligned_free(void *ptr) noexcept {
    if (ptr == nullptr)
        return;
    uint32_t distance;
    std::memcpy(&distance, static_cast<unsigned char *>(ptr) - sizeof distance, sizeof distance);
    std::free(static_cast<unsigned char *>(ptr) - distance);
}

} // extern "C"
