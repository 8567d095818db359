/*
 * modules/infofield_value.cpp - single values of a record, read and
 * written by field.  Values go through memcpy, so records of packed fields
 * need no alignment.
 */
#include <cstring>
#include <type_traits>

#include "halv_core.h"
#include "halv_util.h"
#include "modules/infofield.h"

namespace {

/* Where value index of field lies in record, or null (with *result the
 * answer to give) when the field has another type or no such value. */
template <typename Record>
Record *ValueAt(const HalvInfoField *field, Record *record, int32_t index, char type, int *result) {
    *result = -1;
    if (field->type != type || index < 0 || index >= field->count)
        return nullptr;
    *result = 1;
    using Byte = std::conditional_t<std::is_const_v<Record>, const unsigned char, unsigned char>;
    return static_cast<Byte *>(record) + field->offset + (size_t)index * (size_t)halv::InfoTypeWidth(type);
}

template <typename Value> int GetValue(const HalvInfoField *field, const void *record, int32_t index, Value *value, char type) {
    if (field == nullptr || record == nullptr || value == nullptr)
        return 0;
    int result;
    if (const void *at = ValueAt(field, record, index, type, &result))
        std::memcpy(value, at, sizeof *value);
    return result;
}

template <typename Value> int SetValue(const HalvInfoField *field, void *record, int32_t index, Value value, char type) {
    if (field == nullptr || record == nullptr)
        return 0;
    int result;
    if (void *at = ValueAt(field, record, index, type, &result))
        std::memcpy(at, &value, sizeof value);
    return result;
}

} // namespace

extern "C" {

HALV_API int HalvGetInfoFieldInt(const HalvInfoField *field, const void *record, int32_t index,
                                 int32_t *value) noexcept {
    return GetValue(field, record, index, value, HALV_INFO_INT);
}

HALV_API int HalvSetInfoFieldInt(const HalvInfoField *field, void *record, int32_t index, int32_t value) noexcept {
    return SetValue(field, record, index, value, HALV_INFO_INT);
}

HALV_API int HalvGetInfoFieldDouble(const HalvInfoField *field, const void *record, int32_t index,
                                    double *value) noexcept {
    return GetValue(field, record, index, value, HALV_INFO_DOUBLE);
}

HALV_API int HalvSetInfoFieldDouble(const HalvInfoField *field, void *record, int32_t index, double value) noexcept {
    return SetValue(field, record, index, value, HALV_INFO_DOUBLE);
}

HALV_API int HalvGetInfoFieldStr(const HalvInfoField *field, const void *record, char **text) noexcept {
    if (field == nullptr || record == nullptr || text == nullptr)
        return 0;
    *text = nullptr;
    if (field->type != HALV_INFO_CHAR)
        return -1;
    if (field->count < 0)
        return 0;
    auto *copy = static_cast<char *>(halv_internal_malloc((size_t)field->count + 1));
    if (copy == nullptr)
        return 0;
    std::memcpy(copy, static_cast<const unsigned char *>(record) + field->offset, (size_t)field->count);
    copy[field->count] = '\0';
    *text = copy;
    return 1;
}

HALV_API int HalvSetInfoFieldStr(const HalvInfoField *field, void *record, const char *text) noexcept {
    if (field == nullptr || record == nullptr || text == nullptr)
        return 0;
    if (field->type != HALV_INFO_CHAR)
        return -1;
    if (field->count > 0)
        HalvStrNCpy(static_cast<char *>(record) + field->offset, text, (uint32_t)field->count);
    return 1;
}

} // extern "C"
