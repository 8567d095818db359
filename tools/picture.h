/*
 * picture.h - pictures in the formats the rest of the field uses (PNG,
 * TIFF, JPEG, netpbm), read and written a band of scanlines at a time
 * through libpng, libtiff and libjpeg.  Only the host links those; the
 * engine itself never sees them.
 *
 * Between the codecs and the stored images stands one row layout: pixel
 * after pixel, the samples of a pixel side by side (colour first, alpha
 * last), 16-bit samples in this machine's byte order.
 */
#ifndef HALVERN_PICTURE_H
#define HALVERN_PICTURE_H

#include <stddef.h>
#include <stdint.h>

#include "host.h"

/* What a picture holds. */
typedef struct PictureInfo {
    uint32_t width, height;
    uint32_t colours; /* 1 grey, 3 RGB */
    uint32_t alpha;   /* 1 when an alpha sample follows the colours */
    uint32_t bits;    /* 8 or 16 */
} PictureInfo;

/* Samples of one pixel, and bytes of one row in the common layout. */
uint32_t PictureSamples(const PictureInfo *info);
size_t PictureRowBytes(const PictureInfo *info);
/* kExitOk when info describes a picture this host handles, else kExitFailed
 * after saying why: 8 or 16 bits, a width and height above 0, a row of at
 * most kPictureMaxRowBytes. */
int PictureCheck(const char *path, const PictureInfo *info);
enum { kPictureMaxRowBytes = 256u << 20 };

/* ------------------------------------------------------------------------
 * Reading: open by content (not by name), then rows top to bottom.
 * ------------------------------------------------------------------------ */

typedef struct PictureReader PictureReader;
struct PictureReader {
    const char *path;
    const char *kind; /* "PNG", "TIFF", "JPEG", "PNM" */
    PictureInfo info;
    void *codec; /* the codec's own state */
    /* Reads the next count rows into rows, in the common layout.  kExitOk,
     * or kExitFailed after saying what is wrong with the file. */
    int (*readRows)(PictureReader *reader, unsigned char *rows, uint32_t count);
    void (*close)(PictureReader *reader);
};

/* Opens path and reads what the picture holds.  kExitOk, or kExitFailed
 * after saying why (nothing is then left open). */
int PictureOpen(PictureReader *reader, const char *path);
void PictureClose(PictureReader *reader);

/* The codecs' openers: file is open at its start and owned by the reader
 * from then on, also when they fail. */
int PngOpenReader(PictureReader *reader, FILE *file);
int TiffOpenReader(PictureReader *reader, FILE *file);
int JpegOpenReader(PictureReader *reader, FILE *file);
int PnmOpenReader(PictureReader *reader, FILE *file);

/* ------------------------------------------------------------------------
 * Writing: rows in the common layout into an Output (image_out.c), which
 * keeps the file under a temporary name until it is committed.
 * ------------------------------------------------------------------------ */

typedef struct PictureWriter PictureWriter;
struct PictureWriter {
    Output *out;
    PictureInfo info;
    int quality; /* JPEG: 1 to 100 */
    void *codec;
    int (*writeRows)(PictureWriter *writer, const unsigned char *rows, uint32_t count);
    /* Ends the file (trailers, directories); kExitOk or kExitFailed. */
    int (*finish)(PictureWriter *writer);
    /* Frees the codec's state, finished or not. */
    void (*release)(PictureWriter *writer);
};

/* A writer for the kind of file that the name of out->path says (.png,
 * .tif, .tiff, .jpg, .jpeg, .pgm, .ppm), which may already have written
 * the file's header.  kExitOk, or kExitFailed after saying why the picture
 * can't go into that kind; writer->release frees it either way. */
int PictureStartWriter(PictureWriter *writer, Output *out, const PictureInfo *info, int quality);
/* 1 when path ends in an extension that PictureStartWriter knows. */
int IsPictureName(const char *path);

int PngStartWriter(PictureWriter *writer);
int TiffStartWriter(PictureWriter *writer);
int JpegStartWriter(PictureWriter *writer);
int PgmStartWriter(PictureWriter *writer);
int PpmStartWriter(PictureWriter *writer);

/* ------------------------------------------------------------------------
 * Between stored images and the common layout (picture_rows.c).
 * ------------------------------------------------------------------------ */

/* What a stored raster image holds, as a picture: 1 or 3 colour
 * separations, with or without one mask separation, all 8 or all 16
 * bits.  kExitOk, or kExitFailed after saying why it isn't a picture. */
int PictureFromImage(const Image *image, PictureInfo *info);
/* One stored scanline of image (either interleave, loaded order) into a
 * row of the common layout. */
void PictureRowFromLine(const Image *image, const PictureInfo *info, const unsigned char *line, unsigned char *row);
/* A stored header of format (internal or image-ext) for info, with pixel
 * interleave and the colour space the field's pictures mean (sRGB, or its
 * grey); samples in byteOrder (0 little, 1 big).  Null after saying why. */
HalvHeaderStruct *PictureHeader(const PictureInfo *info, const char *format, int byteOrder, HVHdrManager *manager);
/* Reverses each 16-bit sample of count rows (between this machine's order
 * and the other). */
void PictureSwapRows(const PictureInfo *info, unsigned char *rows, uint32_t count);

#endif
