/* A bundle linked against a function no library defines: the loader
 * refuses it ("undefined symbol"), however complete its entry points. */
#include <stddef.h>

#include "dpk_hvsup.h"

#define EXPORT __attribute__((visibility("default")))

extern int HalvNoSuchFunction(void);

static const HalvBundleVersion version = {HALV_BUNDLE_MAJOR, "3.8.0", "now"};
static const char *const names[] = {NULL};

EXPORT const HalvBundleVersion *HalvernBundleGetVersion_unresolved(void) {
    return HalvNoSuchFunction() ? &version : NULL;
}
EXPORT const char *const *HalvernBundleGetList_unresolved(void) { return names; }
EXPORT const HalvBundleModule *HalvernBundleGetModule_unresolved(const char *name) {
    (void)name;
    return NULL;
}
