/*
 * modules/infofield_record.cpp - one info field as a smart record, and the
 * sizes and offsets of a list of them.
 */
#include <cstring>

#include "halv_util.h"
#include "modules/infofield.h"

namespace {

struct TypeWidth {
    char type;
    int32_t width;
};

constexpr TypeWidth kTypeWidths[] = {{HALV_INFO_INT, 4}, {HALV_INFO_DOUBLE, 8}, {HALV_INFO_CHAR, 1}};

/* The largest record, and so the largest end of any field in it. */
constexpr int64_t kMaxRecordBytes = INT32_MAX;

void FreeField(void *record) noexcept {
    auto *field = static_cast<HalvInfoField *>(record);
    if (field == nullptr)
        return;
    halv_internal_free(field->name);
    halv_internal_free(field);
}

void *CopyField(void *record) noexcept {
    const auto *field = static_cast<const HalvInfoField *>(record);
    if (field == nullptr)
        return nullptr;
    auto *copy = static_cast<HalvInfoField *>(halv_internal_malloc(sizeof(HalvInfoField)));
    if (copy == nullptr)
        return nullptr;
    std::memcpy(copy, field, sizeof *copy);
    copy->copy = CopyField;
    copy->free = FreeField;
    copy->name = nullptr;
    if (field->name != nullptr && (copy->name = HalvStrDup(field->name)) == nullptr) {
        halv_internal_free(copy);
        return nullptr;
    }
    return copy;
}

} // namespace

namespace halv {

int32_t InfoTypeWidth(char type) noexcept {
    for (const TypeWidth &entry : kTypeWidths)
        if (entry.type == type)
            return entry.width;
    return 0;
}

int32_t InfoFieldSize(char type, int32_t count) noexcept {
    int64_t size = (int64_t)InfoTypeWidth(type) * count;
    return count < 1 || size > kMaxRecordBytes ? 0 : (int32_t)size;
}

HalvInfoField *NewInfoField(char *name, char type, int32_t count) noexcept {
    auto *field = static_cast<HalvInfoField *>(halv_internal_calloc(1, sizeof(HalvInfoField)));
    if (field == nullptr) {
        halv_internal_free(name);
        return nullptr;
    }
    field->copy = CopyField;
    field->free = FreeField;
    field->name = name;
    field->type = type;
    field->count = count;
    field->size = InfoFieldSize(type, count);
    return field;
}

uint32_t InfoFieldCount(HalvInfoField *const *fields) noexcept {
    uint32_t count = 0;
    if (fields != nullptr)
        while (fields[count] != nullptr)
            ++count;
    return count;
}

bool LayOutInfoFields(HalvInfoField **fields) noexcept {
    bool fits = true;
    int64_t offset = 0;
    for (uint32_t i = 0; fields != nullptr && fields[i] != nullptr; ++i) {
        HalvInfoField *field = fields[i];
        field->offset = (int32_t)offset;
        if (field->size < 0 || offset + field->size > kMaxRecordBytes) {
            field->size = 0;
            fits = false;
        }
        offset += field->size;
    }
    return fits;
}

} // namespace halv
