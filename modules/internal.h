/*
 * modules/internal.h - what the files of the modules layer share.
 */
#ifndef HALV_MODULES_INTERNAL_H
#define HALV_MODULES_INTERNAL_H

#include "halv_modules.h"

namespace halv {

/* Longest library name text, terminator included, of the loader paths. */
constexpr size_t kLibraryNameSize = 1024;

/* A one-line account of why a load or a registration failed, built up in
 * pieces for the registry report.  Functions that take a Why* collect
 * nothing when it is null, which is how the plain interface calls them. */
struct Why {
    char text[1024];
    uint32_t length;
};

/* Appends formatted text to why (null: nothing); cut at the buffer's end. */
void Explain(Why *why, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

/* Opens the file a library base name maps to: "<name>.so", or the name as
 * it stands when it already ends in ".so" or holds a '/'.  A name without
 * '/' is tried beside the executable first.  The handle, or null with the
 * places tried and the loader's texts in why. */
void *OpenSharedObject(const char *baseName, Why *why) noexcept;

/* HalvDLOpen, telling why in why when the bundle doesn't load. */
int OpenBundle(const char *name, void **handle, Why *why) noexcept;

/* HalvRegisterLibrary, telling why in why when it gives -1 or 0. */
int RegisterLibrary(const char *name, HalvLibrary **library, Why *why) noexcept;

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

/* The registry report (registry_report.cpp), written by the registry step:
 * ReportBegin drops the last report and starts a new one, ReportEnd drops
 * it at the last HalvernEnd.  A bundle's outcome is its library record, or
 * null and the reason it failed. */
void ReportBegin() noexcept;
void ReportRegistryFile(int32_t state, const char *path) noexcept;
void ReportProblem(const char *format, ...) noexcept __attribute__((format(printf, 1, 2)));
void ReportBundle(const char *name, bool optional, HalvLibrary *library, const char *reason) noexcept;
void ReportEnd() noexcept;

} // namespace halv

#endif
