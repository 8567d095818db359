/* A second, well-formed bundle: two modules, one of them without an init
 * point, one name in its list that it doesn't give, and symbols for the
 * retrieval tests. */
#include <stddef.h>
#include <string.h>

#include "dpk_hvsup.h"

#define EXPORT __attribute__((visibility("default")))

static const HalvBundleVersion version = {HALV_BUNDLE_MAJOR, "1.2.3", "2025-02-03"};
static const char *const names[] = {"describe-only", "ghost", "fill", NULL};
static const char *const fillArgs[] = {"value:i  byte to write", NULL};
static const char *const categories[] = {"test", "generator", NULL};

/* An init point whose state writes the argument byte into each input. */
static int FillPass(HalvState *state) {
    HalvChunk *chunk = state->inputChunks[0];
    memset(chunk->data, (int)state->reservedWord, chunk->bytes);
    state->outputChunks = state->inputChunks;
    return 1;
}

static int FillEnd(HalvState *state) {
    HalvFreeArray(state->inputChunks);
    return HalvFreeState(state);
}

EXPORT int ExtraFillInit(intptr_t *args, HalvState **out) {
    int32_t value = 0;
    if (HalvAllocState(out, (int32_t)sizeof(HalvState)) != 1)
        return 0;
    HalvParseArgs(args, "value:i", (int *)NULL, &value, HALV_ARG_END);
    (*out)->reservedWord = value;
    (*out)->processPoint = FillPass;
    (*out)->endPoint = FillEnd;
    if (HalvAllocArray(&(*out)->inputChunks, 1, (uint32_t)sizeof(HalvChunk)) != 1)
        return HalvSetError(*out, 0, "fill: no memory\n");
    return 1;
}

EXPORT int extra_plain_symbol(void) { return 42; }
EXPORT int _extra_underscored(void) { return 7; }

static const HalvBundleModule modules[] = {
    {"describe-only", 0, NULL, 2, 0, NULL, NULL, NULL, "Only a description.", NULL, 0, NULL},
    {"fill", 0, fillArgs, 1, 1, NULL, NULL, categories, "Fills with a byte.", "Writes value into every byte.", 0,
     ExtraFillInit},
};

EXPORT const HalvBundleVersion *HalvernBundleGetVersion_extra(void) { return &version; }
EXPORT const char *const *HalvernBundleGetList_extra(void) { return names; }
EXPORT const HalvBundleModule *HalvernBundleGetModule_extra(const char *name) {
    for (size_t i = 0; i < sizeof modules / sizeof modules[0]; ++i)
        if (strcmp(modules[i].name, name) == 0)
            return &modules[i];
    return NULL;
}
