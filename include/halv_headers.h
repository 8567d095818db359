/*
 * halv_headers.h - generic image header, header managers, stored formats, vocabulary.
 */
#ifndef HALV_HEADERS_H
#define HALV_HEADERS_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_HEADERS_H */
