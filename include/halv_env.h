/*
 * halv_env.h - environment, defaults, file search and directories.
 */
#ifndef HALV_ENV_H
#define HALV_ENV_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_ENV_H */
