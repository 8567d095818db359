/*
 * halv_headers.h - generic image header, header managers, stored formats, vocabulary.
 */
#ifndef HALV_HEADERS_H
#define HALV_HEADERS_H

#include "halv_base.h"

HALV_BEGIN_DECLS

/* ------------------------------------------------------------------------
 * Image vocabulary: codes and words of colour spaces, compressions,
 * interleaves, orientations and scan directions.  Words given back are
 * static text; all comparing folds ASCII case.
 * ------------------------------------------------------------------------ */

/* Colour class bits for HalvColorQuery. */
#define HALV_COLOR_UNKNOWN 0x01u
#define HALV_COLOR_RGB 0x02u
#define HALV_COLOR_GRAY 0x04u
#define HALV_COLOR_PLAIN 0x08u /* all but unknown, hue spaces, maps, MultiPart, Spectral */
#define HALV_COLOR_HUE 0x10u
#define HALV_COLOR_DEVICE 0x20u
#define HALV_COLOR_INDEPENDENT 0x40u
#define HALV_COLOR_MAP 0x80u

/* Colour code of a word, matched by its beginning in a fixed order; 0 for
 * null or no match. */
HALV_API int32_t HalvStr2Clr(const char *text) HALV_NOEXCEPT;
/* The written word of a colour code; "Unknown" for codes not in the table. */
HALV_API const char *HalvClr2Str(int32_t code) HALV_NOEXCEPT;
HALV_API int HalvValidColor(int32_t code) HALV_NOEXCEPT;
/* 1 for 1 part, 2 for 3 parts, 6 for 4 parts, else 0. */
HALV_API int32_t HalvGetDefaultColor(int32_t parts) HALV_NOEXCEPT;
/* Separations of a colour space; -1 for no fixed number or no such space. */
HALV_API int32_t HalvGetImageParts(int32_t code) HALV_NOEXCEPT;
HALV_API int32_t HalvCompareColor(int32_t a, int32_t b) HALV_NOEXCEPT;
/* 1 if the space's class shares a bit with mask. */
HALV_API int HalvColorQuery(int32_t code, uint32_t mask) HALV_NOEXCEPT;

/* Compression code of a whole word ("hex" reads as base16); -1 otherwise. */
HALV_API int32_t HalvStr2Comp(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvComp2Str(int32_t code) HALV_NOEXCEPT;
/* Interleave code of a whole word; 0 (scanline) for null or no match. */
HALV_API int32_t HalvStr2Interleave(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvInterleave2Str(int32_t code) HALV_NOEXCEPT;
/* 0 for null, "TB" or "LRTB"; 1 for "BT" or "LRBT"; -1 otherwise. */
HALV_API int32_t HalvStr2Orient(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvOrient2Str(int32_t code) HALV_NOEXCEPT;
/* Scan direction code of a whole word; 0 for null, -1 for no match. */
HALV_API int32_t HalvStr2ScanDir(const char *text) HALV_NOEXCEPT;
HALV_API const char *HalvScanDir2Str(int32_t code) HALV_NOEXCEPT;

HALV_END_DECLS

#endif /* HALV_HEADERS_H */
