/*
 * halv_text.h - print and scan engines, locale, dates.
 */
#ifndef HALV_TEXT_H
#define HALV_TEXT_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Locale: the number punctuation the print and scan engines honour.  Only
 * decimalPoint is read by the library; the other two are carried along.
 * ------------------------------------------------------------------------ */

typedef struct HalvLocale {
    const char *decimalPoint;
    const char *thousandSeparator;
    const char *grouping;
} HalvLocale;

HALV_END_DECLS

#endif /* HALV_TEXT_H */
