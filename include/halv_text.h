/*
 * halv_text.h - print and scan engines, locale, dates.
 */
#ifndef HALV_TEXT_H
#define HALV_TEXT_H

#include "halv_base.h"

HALV_BEGIN_DECLS

HALV_END_DECLS

#endif /* HALV_TEXT_H */
