/*
 * modules/infofield_header.cpp - a field list in a header: the quoted keys
 * field-0, field-1, ... of section Info of its userData.
 *
 * Reading walks the section once and notes, for each number, the first
 * key of that name, just as a lookup by name would find it.  A lookup per
 * number would walk the section once for each field, and a header can
 * hold as many keys as its text has lines.
 */
#include <cstdio>
#include <cstring>

#include "halv_headers.h"
#include "halv_userdata.h"
#include "halv_util.h"
#include "modules/infofield.h"

namespace {

constexpr char kSection[] = "Info";
constexpr char kKeyPrefix[] = "field-";
constexpr uint32_t kKeyPrefixLength = sizeof kKeyPrefix - 1;

/* The N of a label named "field-N" (prefix in any case, N as "%d" writes
 * it), if N is below limit; else -1.  The name is length bytes. */
int64_t KeyNumber(const char *name, uint32_t length, uint32_t limit) {
    if (name == nullptr || length <= kKeyPrefixLength || HalvStrNCaseCmp(name, kKeyPrefix, kKeyPrefixLength) != 0)
        return -1;
    const char *digits = name + kKeyPrefixLength;
    uint32_t count = length - kKeyPrefixLength;
    if (count > 1 && digits[0] == '0')
        return -1; // "field-01" is no name "field-%d" gives
    uint64_t number = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (digits[i] < '0' || digits[i] > '9')
            return -1;
        number = number * 10 + (uint64_t)(digits[i] - '0');
        if (number >= limit)
            return -1;
    }
    return (int64_t)number;
}

/* The texts of field-0, field-1, ... up to the first number without a
 * label or without a value, pointing into tree; *texts is a new array
 * (null when there are none).  False when memory runs out. */
bool CollectFieldTexts(HalvUserCMData *tree, const char ***texts, uint32_t *count) {
    *texts = nullptr;
    *count = 0;
    HalvUserCMData *section = HalvGetUserCMData(tree, nullptr, kSection, nullptr);
    if (section == nullptr)
        return true;
    uint32_t children = 0;
    for (const HalvUserCMData *node = section->children; node != nullptr; node = node->next)
        ++children;
    if (children == 0)
        return true;
    // The first node of each name: a key that isn't a label, or a label
    // without a value, hides any later one of the same name.
    auto **first = static_cast<const HalvUserCMData **>(halv_internal_calloc(children, sizeof(HalvUserCMData *)));
    if (first == nullptr)
        return false;
    for (const HalvUserCMData *node = section->children; node != nullptr; node = node->next) {
        int64_t number = KeyNumber(node->text, node->length, children);
        if (number >= 0 && first[number] == nullptr)
            first[number] = node;
    }
    uint32_t found = 0;
    while (found < children && first[found] != nullptr && first[found]->kind == HALV_UCM_LABEL &&
           first[found]->children != nullptr && first[found]->children->text != nullptr)
        ++found;
    if (found > 0) {
        auto **list = static_cast<const char **>(halv_internal_malloc(found * sizeof(char *)));
        if (list == nullptr) {
            halv_internal_free(first);
            return false;
        }
        for (uint32_t i = 0; i < found; ++i)
            list[i] = first[i]->children->text;
        *texts = list;
        *count = found;
    }
    halv_internal_free(first);
    return true;
}

} // namespace

extern "C" {

HALV_API int HalvParseInfoFieldsFromHdr(const HalvHeaderStruct *header, HalvInfoField ***fields) noexcept {
    if (header == nullptr || fields == nullptr)
        return 0;
    const char **texts = nullptr;
    uint32_t count = 0;
    if (!CollectFieldTexts(header->userData, &texts, &count)) {
        *fields = nullptr;
        return 0;
    }
    int result = halv::ParseInfoFieldTexts(texts, count, fields);
    halv_internal_free(texts);
    return result;
}

HALV_API int HalvWriteInfoFieldsToHdr(HalvHeaderStruct *header, HalvInfoField **fields) noexcept {
    if (header == nullptr || fields == nullptr)
        return 0;
    HalvUserCMData *tree = HVHdrDeleteHeaderSection(header->userData, kSection);
    for (uint32_t i = 0; fields[i] != nullptr; ++i) {
        const HalvInfoField *field = fields[i];
        char key[sizeof kKeyPrefix + 10];
        std::snprintf(key, sizeof key, "%s%u", kKeyPrefix, i);
        // A long name is cut, never the count and type behind it.
        char suffix[16];
        int suffixLength = std::snprintf(suffix, sizeof suffix, ":%d%c", (int)field->count, field->type);
        int room = HALV_INFO_FIELD_TEXT_MAX - suffixLength;
        char text[HALV_INFO_FIELD_TEXT_MAX + 1];
        std::snprintf(text, sizeof text, "%.*s%s", room, field->name != nullptr ? field->name : "", suffix);
        tree = HVHdrSetHeaderString(tree, kSection, key, text);
    }
    header->userData = tree;
    return 1;
}

} // extern "C"
