/*
 * modules/infofield_list.cpp - a field list as a whole: finding a field by
 * name, adding and removing fields (offsets worked out anew each time),
 * and the bytes of one record.
 */
#include <cstring>

#include "halv_util.h"
#include "modules/infofield.h"

extern "C" {

HALV_API int32_t HalvFindInfoField(HalvInfoField **fields, const char *name) noexcept {
    if (fields == nullptr || name == nullptr)
        return -1;
    for (int32_t i = 0; fields[i] != nullptr; ++i)
        if (fields[i]->name != nullptr && HalvStrCaseCmp(fields[i]->name, name) == 0)
            return i;
    return -1;
}

HALV_API int32_t HalvAddInfoField(HalvInfoField ***fields, const char *name, char type, int32_t count) noexcept {
    if (fields == nullptr || name == nullptr)
        return -1;
    uint32_t n = halv::InfoFieldCount(*fields);
    if (n >= (uint32_t)INT32_MAX)
        return -1;
    // Grown one slot at a time, but by hand: a failed grow leaves the list
    // as it was, where an array function would drop it with its names.
    auto **grown = static_cast<HalvInfoField **>(halv_internal_realloc(*fields, ((size_t)n + 2) * sizeof(HalvInfoField *)));
    if (grown == nullptr)
        return -1;
    grown[n] = nullptr;
    grown[n + 1] = nullptr;
    *fields = grown;
    char *copy = HalvStrDup(name);
    if (copy == nullptr)
        return -1;
    HalvInfoField *field = halv::NewInfoField(copy, type, count);
    if (field == nullptr)
        return -1;
    grown[n] = field;
    bool fits = halv::LayOutInfoFields(grown);
    return fits && field->size != 0 ? (int32_t)n : -1;
}

HALV_API int HalvRemoveInfoField(HalvInfoField **fields, int32_t index) noexcept {
    if (fields == nullptr || index < 0)
        return 0;
    uint32_t n = halv::InfoFieldCount(fields);
    if ((uint32_t)index >= n)
        return 0;
    HalvInfoField *field = fields[index];
    if (field->free != nullptr)
        field->free(field);
    std::memmove(&fields[index], &fields[index + 1], (n - (uint32_t)index) * sizeof(HalvInfoField *));
    halv::LayOutInfoFields(fields);
    return 1;
}

HALV_API int32_t HalvGetInfoFieldsTotal(HalvInfoField **fields) noexcept {
    int64_t total = 0;
    for (uint32_t i = 0; fields != nullptr && fields[i] != nullptr; ++i)
        total += fields[i]->size;
    return total < 0 ? 0 : total > INT32_MAX ? INT32_MAX : (int32_t)total;
}

} // extern "C"
