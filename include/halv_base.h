/*
 * halv_base.h - common ground of every public header of dpk_hvsup.
 *
 * The exported interface is plain C: every function is declared inside
 * HALV_BEGIN_DECLS / HALV_END_DECLS and marked HALV_API, the only symbols
 * the shared library makes visible.  Records are ordinary C structs whose
 * field order is part of the interface, so that plug-ins can embed them.
 * The headers compile as C11 and as C++.
 *
 * Memory that crosses the interface comes from the halv_internal_
 * allocators of halv_core.h: a string or array that a function calls new is
 * released with halv_internal_free, or with the function its contract
 * names.  No exception crosses the interface.
 */
#ifndef HALV_BASE_H
#define HALV_BASE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

/* Marks a function the library exports: default visibility, where every
 * other symbol of the library is hidden. */
#if defined(__GNUC__)
#define HALV_API __attribute__((visibility("default")))
#else
#define HALV_API
#endif

/* Marks a function that never returns to its caller. */
#if defined(__GNUC__)
#define HALV_NORETURN __attribute__((noreturn))
#else
#define HALV_NORETURN
#endif

/* HALV_BEGIN_DECLS and HALV_END_DECLS enclose the declarations of a header:
 * C linkage for C++ callers, nothing for C ones.  HALV_NOEXCEPT is noexcept
 * for C++ callers: no exported function throws. */
#ifdef __cplusplus
#define HALV_BEGIN_DECLS extern "C" {
#define HALV_END_DECLS }
#define HALV_NOEXCEPT noexcept
#else
#define HALV_BEGIN_DECLS
#define HALV_END_DECLS
#define HALV_NOEXCEPT
#endif

/* printf-style argument checking is deliberately absent: the print engine
 * knows directives of its own that the compiler's checker would reject. */

/* The copy slot of a smart record, its first word: makes a new record with
 * its own copies of what the record owns, or gives null when memory runs
 * out.  Headers, function descriptions, info fields and directory entries
 * are smart records. */
typedef void *(*HalvCopyFn)(void *record);

/* The free slot of a smart record, its third word (the second has no use):
 * releases what the record owns and the record itself.  HalvFreeSmartArray
 * calls it for every item of an array; a stream's close slot stands in its
 * place. */
typedef void (*HalvFreeFn)(void *record);

#endif /* HALV_BASE_H */
