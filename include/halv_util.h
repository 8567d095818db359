/*
 * halv_util.h - strings, tokens, UTF-8, hashes, byte order, code pages.
 */
#ifndef HALV_UTIL_H
#define HALV_UTIL_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_UTIL_H */
