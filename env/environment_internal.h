/*
 * env/environment_internal.h - what the environment files share: the
 * override list, the values computed in the process, and scoped locks.
 */
#ifndef HALV_ENV_ENVIRONMENT_INTERNAL_H
#define HALV_ENV_ENVIRONMENT_INTERNAL_H

#include <stdint.h>

#include "halv_core.h"
#include "halv_env.h"
#include "core/internal.h"

namespace halv {

using EnvLock = ScopedKeyLock<HALV_LOCK_ENVV>;

/* A copy of text from halv_internal_malloc, or null. */
char *CopyEnvText(const char *text) noexcept;

/* Override list; the caller holds the ENVV lock.
 *
 * FindEnvVar: the node for name, compared by hash, then byte for byte.
 * StoreEnvVar: sets (value non-null) or removes (value null) name.  With
 * takeOver the list keeps value itself and frees it if it can't be stored;
 * otherwise it keeps a copy.  False when memory ran out. */
HalvEnvVar *FindEnvVar(const char *name) noexcept;
bool StoreEnvVar(const char *name, char *value, bool takeOver) noexcept;

/* Values computed in the process, once; the caller holds the ENVV lock.
 *
 * ReleaseDirectory: derived from the executable's directory, or null when
 * that can't be found.  LastResort: the value for HOME, TEMP or PWD, null for
 * any other name. */
const char *ReleaseDirectory() noexcept;
const char *LastResort(const char *name) noexcept;

} // namespace halv

#endif
