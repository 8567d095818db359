/*
 * halv_modules.h - plug-in modules: registry, shared objects, function descriptions, info fields.
 */
#ifndef HALV_MODULES_H
#define HALV_MODULES_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_MODULES_H */
