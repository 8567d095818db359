/*
 * halv_headers.h - generic image header, header managers, stored formats, vocabulary.
 */
#ifndef HALV_HEADERS_H
#define HALV_HEADERS_H

#include "halv_base.h"
#include "halv_core.h"
#include "halv_streams.h"

HALV_BEGIN_DECLS

typedef struct HalvUserCMData HalvUserCMData;
typedef struct HalvHeaderStruct HalvHeaderStruct;

/* ------------------------------------------------------------------------
 * Header managers: nine methods that make up one stored format.  The same
 * nine slots, in the same order, sit in every HalvHeaderStruct.
 * ------------------------------------------------------------------------ */

typedef int (*HVHdrToStructFn)(HalvUserCMData *tree, void *structure);
typedef int (*HVHdrLoadAllFn)(void *first, void *second);
typedef int (*HVHdrFromStructFn)(void *structure, HalvUserCMData **tree);
typedef int (*HVHdrEmitAllFn)(void *first, void *second);
typedef int (*HVHdrToHeaderFn)(HalvUserCMData *tree, HalvHeaderStruct **header);
typedef int (*HVHdrLoadChunkFn)(HalvHeaderStruct *header, HalvIO *in, HalvChunk *chunk, uint32_t lines);
typedef int (*HVHdrFromHeaderFn)(HalvHeaderStruct *header, HalvUserCMData **tree);
typedef int (*HVHdrEmitChunkFn)(HalvHeaderStruct *header, HalvChunk *chunk, HalvIO *out);
typedef int (*HVHdrCreateHeaderFn)(HalvHeaderStruct **header);

typedef struct HVHdrManager {
    HVHdrToStructFn toStruct;
    HVHdrLoadAllFn loadAll;
    HVHdrFromStructFn fromStruct;
    HVHdrEmitAllFn emitAll;
    HVHdrToHeaderFn toHeader;
    HVHdrLoadChunkFn loadChunk;
    HVHdrFromHeaderFn fromHeader;
    HVHdrEmitChunkFn emitChunk;
    HVHdrCreateHeaderFn createHeader;
} HVHdrManager;

/* ------------------------------------------------------------------------
 * The generic image header.  A smart record: formats extend it behind
 * userData, so it is duplicated and released only through copy and free.
 * ------------------------------------------------------------------------ */

#define HALV_MAX_SEPARATIONS 36
#define HALV_MAX_DIMS 10

/* managerType codes */
#define HALV_HDR_INTERNAL 0
#define HALV_HDR_PIXELSTREAM 1
#define HALV_HDR_SPECTRAL 9
#define HALV_HDR_INFO 10
#define HALV_HDR_IMAGE_EXT 11
#define HALV_HDR_PIXR 12

struct HalvHeaderStruct {
    HalvHeaderStruct *(*copy)(HalvHeaderStruct *header);
    uintptr_t reservedWord;
    void (*free)(HalvHeaderStruct *header);
    HVHdrToStructFn toStruct;
    HVHdrLoadAllFn loadAll;
    HVHdrFromStructFn fromStruct;
    HVHdrEmitAllFn emitAll;
    HVHdrToHeaderFn toHeader;
    HVHdrLoadChunkFn loadChunk;
    HVHdrFromHeaderFn fromHeader;
    HVHdrEmitChunkFn emitChunk;
    HVHdrCreateHeaderFn createHeader;
    int32_t managerType;
    int32_t endian;
    uint32_t parts[3];
    uint32_t bitsPerSample[HALV_MAX_SEPARATIONS];
    uint32_t dimCount;
    uint32_t dims[HALV_MAX_DIMS];
    uint32_t alignment;
    uint32_t interleave;
    int32_t compression;
    uint32_t bytesPerSep[HALV_MAX_SEPARATIONS];
    uint32_t minimumChunk;
    uint32_t preferredChunk;
    int32_t color;
    HalvUserCMData *userData;
};

/* Byte counts of scanlines.  All arithmetic is unsigned 32-bit and wraps. */

/* Bytes of one scanline of one separation: whole bytes up to 8 bits, whole
 * 16-bit words up to 16 bits, whole 32-bit words above. */
HALV_API uint32_t HalvCalcBytesPerSep(uint32_t bits, uint32_t pixels) HALV_NOEXCEPT;
/* One scanline with natural alignment: each separation starts on a boundary
 * fit for its sample width, the padding going to the separation before. */
HALV_API uint32_t HalvCalcBytesArray(uint32_t *out, uint32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;
/* Interleave 0 as HalvCalcBytesArray, 1 as one pixel-interleaved line in
 * out[0]; 0 and out untouched for other interleaves. */
HALV_API uint32_t HalvCalcInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t count, const uint32_t *bits,
                                               uint32_t pixels) HALV_NOEXCEPT;
/* Each separation's bytes rounded up to alignment (0: natural alignment). */
HALV_API uint32_t HalvCalcAlignedBytesArray(uint32_t *out, uint32_t alignment, int32_t count, const uint32_t *bits,
                                            uint32_t pixels) HALV_NOEXCEPT;
HALV_API uint32_t HalvCalcAlignedInterleaveBytesArray(uint32_t interleave, uint32_t *out, uint32_t alignment,
                                                      int32_t count, const uint32_t *bits, uint32_t pixels) HALV_NOEXCEPT;
/* Fills bytesPerSep, minimumChunk and preferredChunk; the bytes of a line. */
HALV_API uint32_t HalvHeaderFillInBytes(HalvHeaderStruct *header) HALV_NOEXCEPT;
/* Bytes of one unit of data: an info entry, 1024 when compressed, else a line. */
HALV_API uint32_t HalvHeaderGetTotalBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;
HALV_API uint32_t HalvHeaderGetPreferredBytes(const HalvHeaderStruct *header) HALV_NOEXCEPT;

/* Windows: a pixel window is x, y, width, height as 32-bit integers; a
 * fractional one the same four as fractions of the image's size. */
HALV_API int HalvFWinToWin(int32_t width, int32_t height, const double *fwin, int32_t *win) HALV_NOEXCEPT;
HALV_API int HalvWinToFWin(int32_t width, int32_t height, const int32_t *win, double *fwin) HALV_NOEXCEPT;
/* Crops win to the image: 1 unchanged, 2 cropped, 0 for an empty image. */
HALV_API int HalvCropWin(int32_t width, uint32_t height, int32_t *win) HALV_NOEXCEPT;

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
