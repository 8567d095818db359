/*
 * halv_env.h - environment, defaults, file search and directories.
 *
 * All settings of the library are environment variables read through
 * HalvGetenv, which has older names, alternatives and built-in defaults;
 * the [variables] section of the registry file sets them too.  Paths are
 * UTF-8 throughout.
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
    char *name;              /* the variable's name, owned */
    uint32_t nameHash;       /* HalvHashBytes of name, without its terminator */
    char *value;             /* its value, owned */
    struct HalvEnvVar *next; /* the node set before this one */
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
 * process environment itself is not changed.  A string that HalvGetenv gave
 * for name becomes invalid.  1 when done, 0 for a null name or when memory
 * runs out (the variable is then not stored). */
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

/* ------------------------------------------------------------------------
 * Files and directories
 *
 * Paths are UTF-8 and use '/', and go to the system as they are.  A null
 * path is refused by every function here, with 0 or null as its contract
 * says.
 * ------------------------------------------------------------------------ */

HALV_BEGIN_DECLS

/* The state of one directory walk. */
typedef struct HalvDir {
    void *handle;        /* the open directory (DIR *), null after the end */
    void *entry;         /* the latest entry (struct dirent *) */
    int32_t firstGiven;  /* the entry HalvOpenDir read has been handed out */
} HalvDir;

/* One entry of HalvListDir's result, a smart record. */
typedef struct HalvDirEntry {
    HalvCopyFn copy;         /* new record with a copy of name and isDirectory */
    uintptr_t reservedWord;  /* the smart record's word without use: 0 */
    HalvFreeFn free;         /* releases name and the record */
    int32_t isDirectory;     /* 1 for a directory (links followed), else 0 */
    char *name;              /* the entry's name within its directory, owned */
} HalvDirEntry;

/* Finds a data file: for each comma-separated element of path (null means
 * HalvGetenv("HV_DATA_PATH")), tries "element/name.${HV_OS}.extension" and
 * then "element/name.extension", each piece expanded by HalvExpandString,
 * empty pieces left out with their separator, extension null or "" for
 * none.  A candidate is found when it exists and isn't a directory, or,
 * failing that, when the URL stream opens it; candidates that begin with
 * "//" are passed over.  A name that begins with '/' is returned as it is,
 * with no search.  With HVFINDFILE_DEBUG set at HalvernInit each candidate
 * is traced to standard error.  Result: a new string the caller releases
 * with halv_internal_free, or null when nothing was found, when path is
 * null and HV_DATA_PATH has no value, and for a null name. */
HALV_API char *HalvFindFile(const char *name, const char *extension, const char *path) HALV_NOEXCEPT;

/* Starts a walk of directory path and reads its first entry.  Result: the
 * walk, which the caller releases with HalvCloseDir, or null when path is
 * null or can't be read as a directory, or memory runs out. */
HALV_API HalvDir *HalvOpenDir(const char *path) HALV_NOEXCEPT;

/* The name of the next entry ("." and ".." included, in the directory's
 * own order) as a new string the caller releases with halv_internal_free,
 * or null at the end and for a null walk.  The first call gives the entry HalvOpenDir read.  The
 * directory is closed at the end; the record then only needs freeing. */
HALV_API char *HalvNextDir(HalvDir *dir) HALV_NOEXCEPT;

/* Ends a walk at any point: closes the directory and frees the record.
 * 1, or 0 for null. */
HALV_API int HalvCloseDir(HalvDir *dir) HALV_NOEXCEPT;

/* The whole directory path without "." and "..": 1 with *count set and
 * *entries a new null-terminated array of HalvDirEntry, which the caller
 * releases with HalvFreeSmartArray (an empty directory gives a count of 0
 * and an empty array); 0 on any failure, a null argument among them, with
 * *entries null where entries is given. */
HALV_API int HalvListDir(const char *path, uint32_t *count, HalvDirEntry ***entries) HALV_NOEXCEPT;

/* Creates directory path; with recursive non-zero missing parents too.
 * 1 when created, -1 when something of that name exists already, 0 on any
 * other failure (a missing parent without recursive among them). */
HALV_API int HalvMkDir(const char *path, int recursive) HALV_NOEXCEPT;

/* The roots of the file system: an array holding the one string "/", which
 * the caller releases with HalvFreeArray; null when memory runs out. */
HALV_API char **HalvGetSystemRoots(void) HALV_NOEXCEPT;

/* 0 for a file (anything that isn't a directory), 1 for a directory, 2 when
 * nothing is there or path is null.  Links are followed. */
HALV_API int HalvIdentifyFile(const char *path) HALV_NOEXCEPT;

/* Stores in *value, for what 0, the time of last access, for 1 the time of
 * last change, in milliseconds since 1970-01-01 00:00 UTC, or for 2 the size
 * in bytes (0 for a directory).  1 when stored; -1 when the attributes
 * can't be read; 0 for what outside 0 to 2 or a null argument. */
HALV_API int HalvGetFileAttributes(const char *path, int what, uint64_t *value) HALV_NOEXCEPT;

/* Removes a file, a link or an empty directory.  1; -1 on failure (also
 * when nothing is there); 0 for a null path. */
HALV_API int HalvDeleteFile(const char *path) HALV_NOEXCEPT;

/* Renames oldPath to newPath, also across file systems for a file; an
 * existing newPath is never replaced.  1; -1 on failure; 0 for a null
 * path. */
HALV_API int HalvRenameFile(const char *oldPath, const char *newPath) HALV_NOEXCEPT;

/* Copies the file source to destination (note the order), with its
 * permission bits and times.  With overwrite 0 an existing destination
 * fails.  A destination made by a copy that fails is removed.  1; -1 on
 * failure; 0 for a null path. */
HALV_API int HalvCopyFile(const char *destination, const char *source, int overwrite) HALV_NOEXCEPT;

/* The canonical form of path, worked out from the text alone: repeated '/'
 * collapse, "." components and a trailing '/' go, and ".." takes away the
 * component in front of it; leading ".." of a relative path stay.  With
 * makeAbsolute non-zero a relative path is put behind the current
 * directory first.  With longName non-zero the result must exist.  Result:
 * a new string the caller releases ("." for an empty result without
 * longName), or null when ".." climbs above the root '/', when longName's
 * test fails, for a null path or when memory runs out. */
HALV_API char *HalvRealPath(const char *path, int makeAbsolute, int longName) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_ENV_H */
