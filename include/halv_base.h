/*
 * halv_base.h - common ground of every public header of dpk_hvsup.
 *
 * The exported interface is plain C: every function is declared inside
 * HALV_BEGIN_DECLS / HALV_END_DECLS and marked HALV_API, the only symbols
 * the shared library makes visible.  Records are ordinary C structs whose
 * field order is part of the interface, so that plug-ins can embed them.
 */
#ifndef HALV_BASE_H
#define HALV_BASE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define HALV_API __attribute__((visibility("default")))
#else
#define HALV_API
#endif

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

/* Smart-record prefix: copy function, a word without use, free function. */
typedef void *(*HalvCopyFn)(void *record);
typedef void (*HalvFreeFn)(void *record);

#endif /* HALV_BASE_H */
