/*
 * core/array.cpp - HalvArray: a null-terminated array of item pointers with
 * no header.  Its length is the position of the first null slot, so every
 * reader walks it; arrays in this library are short (inputs, outputs).
 *
 * A slot may hold the empty-slot marker, the address of one static word,
 * meaning "reserved, no item yet".  Release operations skip it.
 */
#include <cstdint>

#include "halv_core.h"

namespace {

constinit uintptr_t emptySlotWord = 0;

void *EmptySlot() noexcept { return &emptySlotWord; }

bool IsItem(void *slot) noexcept { return slot != nullptr && slot != EmptySlot(); }

uint32_t SizeOf(void *const *array) noexcept {
    uint32_t size = 0;
    if (array != nullptr)
        while (array[size] != nullptr)
            ++size;
    return size;
}

/* Fills slots [from, to) with new zeroed items, or markers for itemSize 0.
 * Returns false when an item can't be allocated; the slots filled so far
 * keep their items and the rest are left null. */
bool FillSlots(void **array, uint32_t from, uint32_t to, uint32_t itemSize) noexcept {
    for (uint32_t i = from; i < to; ++i) {
        if (itemSize == 0) {
            array[i] = EmptySlot();
            continue;
        }
        array[i] = halv_internal_calloc(itemSize, 1);
        if (array[i] == nullptr) {
            for (uint32_t j = i; j < to; ++j)
                array[j] = nullptr;
            return false;
        }
    }
    return true;
}

/* Releases the items of slots [from, end of array) and the pointer array. */
void ReleaseItems(void **array, uint32_t from) noexcept {
    for (uint32_t i = from; array[i] != nullptr; ++i)
        if (IsItem(array[i]))
            halv_internal_free(array[i]);
}

} // namespace

extern "C" {

HALV_API void *HalvArrayEmptySlot(void) noexcept { return EmptySlot(); }

HALV_API int HalvAllocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) noexcept {
    auto **variable = static_cast<void ***>(arrayVariable);
    if (variable == nullptr)
        return 0;
    *variable = nullptr;
    if (count + 1u == 0u)
        return 0;
    auto **array = static_cast<void **>(halv_internal_calloc((size_t)count + 1, sizeof(void *)));
    if (array == nullptr)
        return 0;
    if (!FillSlots(array, 0, count, itemSize)) {
        ReleaseItems(array, 0);
        halv_internal_free(array);
        return 0;
    }
    *variable = array;
    return 1;
}

HALV_API int HalvReallocArray(void *arrayVariable, uint32_t count, uint32_t itemSize) noexcept {
    auto **variable = static_cast<void ***>(arrayVariable);
    if (variable == nullptr)
        return 0;
    void **array = *variable;
    uint32_t oldSize = SizeOf(array);
    if (count + 1u == 0u) {
        HalvFreeArray(array);
        *variable = nullptr;
        return 0;
    }
    if (array != nullptr && count < oldSize) {
        ReleaseItems(array, count);
        array[count] = nullptr;
        oldSize = count;
    }
    auto **resized = static_cast<void **>(halv_internal_realloc(array, ((size_t)count + 1) * sizeof(void *)));
    if (resized == nullptr) {
        HalvFreeArray(array);
        *variable = nullptr;
        return 0;
    }
    for (uint32_t i = oldSize; i <= count; ++i)
        resized[i] = nullptr;
    if (!FillSlots(resized, oldSize, count, itemSize)) {
        HalvFreeArray(resized);
        *variable = nullptr;
        return 0;
    }
    resized[count] = nullptr;
    *variable = resized;
    return 1;
}

HALV_API int HalvFreeArray(void *array) noexcept {
    if (array == nullptr)
        return 0;
    ReleaseItems(static_cast<void **>(array), 0);
    halv_internal_free(array);
    return 1;
}

HALV_API int HalvFreeSmartArray(void *array) noexcept {
    if (array == nullptr)
        return 0;
    auto **slots = static_cast<void **>(array);
    for (uint32_t i = 0; slots[i] != nullptr; ++i) {
        if (!IsItem(slots[i]))
            continue;
        auto freeFn = reinterpret_cast<HalvFreeFn *>(slots[i])[2];
        if (freeFn != nullptr)
            freeFn(slots[i]);
    }
    halv_internal_free(array);
    return 1;
}

HALV_API void *HalvGetArrayItem(const void *array, uint32_t index) noexcept {
    auto *const *slots = static_cast<void *const *>(array);
    if (slots == nullptr)
        return nullptr;
    for (uint32_t i = 0; slots[i] != nullptr; ++i)
        if (i == index)
            return slots[i];
    return nullptr;
}

HALV_API uint32_t HalvGetArraySize(const void *array) noexcept {
    return SizeOf(static_cast<void *const *>(array));
}

} // extern "C"
