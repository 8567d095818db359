/* A bundle without its list entry point. */
#include <stddef.h>

#include "dpk_hvsup.h"

#define EXPORT __attribute__((visibility("default")))

static const HalvBundleVersion version = {HALV_BUNDLE_MAJOR, "3.8.0", "now"};
static const HalvBundleModule module = {"lonely", 0, NULL, 1, 1, NULL, NULL, NULL, "lonely", "lonely", 0, NULL};

EXPORT const HalvBundleVersion *HalvernBundleGetVersion_nolist(void) { return &version; }
EXPORT const HalvBundleModule *HalvernBundleGetModule_nolist(const char *name) {
    (void)name;
    return &module;
}
