/* A bundle built for an older engine: major version 2. */
#include <stddef.h>

#include "dpk_hvsup.h"

#define EXPORT __attribute__((visibility("default")))

static const HalvBundleVersion version = {2, "2.9.0", "old"};
static const char *const names[] = {"old", NULL};
static const HalvBundleModule module = {"old", 0, NULL, 1, 1, NULL, NULL, NULL, "old", "old", 0, NULL};

EXPORT const HalvBundleVersion *HalvernBundleGetVersion_oldmajor(void) { return &version; }
EXPORT const char *const *HalvernBundleGetList_oldmajor(void) { return names; }
EXPORT const HalvBundleModule *HalvernBundleGetModule_oldmajor(const char *name) {
    (void)name;
    return &module;
}
