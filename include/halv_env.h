/*
 * halv_env.h - environment, defaults, file search and directories.
 */
#ifndef HALV_ENV_H
#define HALV_ENV_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Environment and defaults
 *
 * Every setting of the library is an environment variable looked up through
 * HalvGetenv, which layers, in this order: values set in the process with
 * HalvSetenv (and values read once before), older names that win (KOVTOP
 * over HVTOP and HV_RELEASE, KOV_DATA_PATH over HV_DATA_PATH, KOV_TEMP over
 * HALV_TEMP), the real environment, alternative names (KOV_RELEASE and
 * KOVTOP fall back on HV_RELEASE, HALV_TEMP on TEMP, USER on LOGNAME), the
 * release directory for HV_RELEASE, built-in defaults, and last resorts for
 * HOME ("."), TEMP ($TMPDIR or "/tmp") and PWD (the current directory).
 * Names are case-sensitive; a variable set to "" in the real environment
 * counts as unset.
 * ------------------------------------------------------------------------ */

/* One node of the process-wide override list, newest first. */
typedef struct HalvEnvVar {
    char *name;
    uint32_t nameHash; /* HalvHashBytes of name, without its terminator */
    char *value;
    struct HalvEnvVar *next;
} HalvEnvVar;

/* The value of variable name, or null when no layer knows it (and for a
 * null name).  The text belongs to the library: it stays valid until
 * HalvSetenv changes that name or the last HalvernEnd, and must not be
 * released.  A value taken from the real environment is read once and kept
 * as an override, so later changes of the process environment are not
 * seen. */
HALV_API const char *HalvGetenv(const char *name) HALV_NOEXCEPT;

/* Sets name to a copy of value inside the process, over every other layer;
 * a null value removes the setting so that lookups fall through again.  The
 * process environment itself is not changed.  1 when done, 0 for a null
 * name or when memory runs out (the variable is then not stored). */
HALV_API int HalvSetenv(const char *name, const char *value) HALV_NOEXCEPT;

/* The directory of the running executable, without a trailing '/' ("/" for
 * an executable in the root), or null when it can't be found.  Computed at
 * the first call and kept for the life of the process. */
HALV_API const char *HalvGetExecutablePath(void) HALV_NOEXCEPT;

/* A new copy of text with every ${NAME} or $NAME reference replaced by
 * HalvGetenv(NAME), as it stands; $NAME ends at the next '/', ${NAME} at '}'.
 * An unknown name puts nothing in; names longer than 255 bytes are cut.
 * Null when text is null, when the result is empty, or when memory runs out;
 * the caller releases the result with halv_internal_free. */
HALV_API char *HalvExpandString(const char *text) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_ENV_H */
