/*
 * halv_thread.h - threads, lock objects, the conditional, clocks, worker pools, coroutines.
 */
#ifndef HALV_THREAD_H
#define HALV_THREAD_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_THREAD_H */
