/*
 * modules/funcdesc.cpp - the function description record: allocation, deep
 * copy, release, and the search for a description file.
 */
#include <cstring>
#include <initializer_list>

#include "halv_env.h"
#include "halv_util.h"
#include "modules/internal.h"

namespace {

constexpr char kDescriptionPath[] = ".,${HOME}/.hvdata/halv,${HV_RELEASE}/data/halv,${HVTOP}/data/halv";

void *CopySlot(void *record) noexcept { return HalvCopyFuncDesc(static_cast<const HalvFuncDesc *>(record)); }

void FreeSlot(void *record) noexcept { HalvFreeFuncDesc(static_cast<HalvFuncDesc *>(record)); }

/* A copy of text, null staying null.  False when the copy failed. */
bool CopyText(const char *text, char **copy) noexcept {
    *copy = text != nullptr ? HalvStrDup(text) : nullptr;
    return text == nullptr || *copy != nullptr;
}

/* A copy of a bits array up to and including its -1; null stays null. */
bool CopyBits(const int32_t *bits, int32_t **copy) noexcept {
    *copy = nullptr;
    if (bits == nullptr)
        return true;
    size_t count = 1;
    while (bits[count - 1] != -1)
        ++count;
    *copy = static_cast<int32_t *>(halv_internal_malloc(count * sizeof(int32_t)));
    if (*copy == nullptr)
        return false;
    std::memcpy(*copy, bits, count * sizeof(int32_t));
    return true;
}

} // namespace

namespace halv {

bool CopyStringArray(const char *const *source, char ***copy) noexcept {
    *copy = nullptr;
    if (source == nullptr)
        return true;
    size_t count = 0;
    while (source[count] != nullptr)
        ++count;
    auto **array = static_cast<char **>(halv_internal_calloc(count + 1, sizeof(char *)));
    if (array == nullptr)
        return false;
    for (size_t i = 0; i < count; ++i) {
        if ((array[i] = HalvStrDup(source[i])) == nullptr) {
            HalvFreeArray(array);
            return false;
        }
    }
    *copy = array;
    return true;
}

} // namespace halv

extern "C" {

HALV_API HalvFuncDesc *HalvAllocFuncDesc(void) noexcept {
    auto *desc = static_cast<HalvFuncDesc *>(halv_internal_calloc(1, sizeof(HalvFuncDesc)));
    if (desc == nullptr)
        return nullptr;
    desc->copy = CopySlot;
    desc->free = FreeSlot;
    desc->synchronous = 1;
    desc->interleave = HALV_INTERLEAVE_ANY;
    return desc;
}

HALV_API void HalvFreeFuncDesc(HalvFuncDesc *desc) noexcept {
    if (desc == nullptr)
        return;
    for (void *text : {(void *)desc->name, (void *)desc->init, (void *)desc->bits, (void *)desc->description,
                       (void *)desc->documentation})
        halv_internal_free(text);
    for (char **array : {desc->args, desc->tests, desc->formats, desc->cspaces, desc->categories})
        HalvFreeArray(array);
    halv_internal_free(desc);
}

HALV_API HalvFuncDesc *HalvCopyFuncDesc(const HalvFuncDesc *desc) noexcept {
    if (desc == nullptr)
        return nullptr;
    HalvFuncDesc *copy = HalvAllocFuncDesc();
    if (copy == nullptr)
        return nullptr;
    copy->initPoint = desc->initPoint;
    copy->inputs = desc->inputs;
    copy->outputs = desc->outputs;
    copy->synchronous = desc->synchronous;
    copy->interleave = desc->interleave;
    bool copied = CopyText(desc->name, &copy->name) && CopyText(desc->init, &copy->init) &&
                  CopyText(desc->description, &copy->description) &&
                  CopyText(desc->documentation, &copy->documentation) && CopyBits(desc->bits, &copy->bits) &&
                  halv::CopyStringArray(desc->args, &copy->args) &&
                  halv::CopyStringArray(desc->cspaces, &copy->cspaces) &&
                  halv::CopyStringArray(desc->tests, &copy->tests) &&
                  halv::CopyStringArray(desc->formats, &copy->formats) &&
                  halv::CopyStringArray(desc->categories, &copy->categories);
    if (!copied) {
        HalvFreeFuncDesc(copy);
        return nullptr;
    }
    return copy;
}

HALV_API char *HalvFuncDescFileName(const char *name) noexcept {
    if (name == nullptr)
        return nullptr;
    return HalvFindFile(name, "dot", kDescriptionPath);
}

} // extern "C"
