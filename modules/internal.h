/*
 * modules/internal.h - what the files of the modules layer share.
 */
#ifndef HALV_MODULES_INTERNAL_H
#define HALV_MODULES_INTERNAL_H

#include "halv_modules.h"

namespace halv {

/* Longest library name text, terminator included, of the loader paths. */
constexpr size_t kLibraryNameSize = 1024;

/* Opens the file a library base name maps to: "<name>.so", or the name as
 * it stands when it already ends in ".so" or holds a '/'.  A name without
 * '/' is tried beside the executable first.  The handle, or null. */
void *OpenSharedObject(const char *baseName) noexcept;

/* The handle of library name through the process-wide cache, loading it at
 * its first use; null when it can't be loaded or the cache is full. */
void *CachedLoad(const char *name) noexcept;

/* Copies a string array in depth into a new null-terminated array; null
 * stays null.  False out of memory, with *copy null. */
bool CopyStringArray(const char *const *source, char ***copy) noexcept;

/* Fills the fields a bundle module gives (name, args, inputs, outputs,
 * formats, tests, categories, description, documentation, initPoint),
 * releasing what they held.  False out of memory; what was copied stays. */
bool FillFuncDescFromModule(HalvFuncDesc *desc, const HalvBundleModule *module) noexcept;

/* The registry step of the first HalvernInit and its undo at the last
 * HalvernEnd; both run under the master lock. */
int LoadRegistry() noexcept;
int UnregisterBootLibraries() noexcept;

} // namespace halv

#endif
