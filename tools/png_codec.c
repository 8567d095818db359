/*
 * png_codec.c - PNG through libpng.  Reading turns every kind the format
 * has into the common layout: palettes into RGB, transparency chunks into
 * alpha, grey of 1, 2 or 4 bits into 8.  Writing takes 8 or 16 bits, grey
 * or RGB, with or without alpha, not interlaced.
 *
 * libpng reports errors by longjmp to the setjmp of the calling function,
 * so every function here that calls into it sets one up first.
 */
#include <png.h>
#include <stdlib.h>
#include <string.h>

#include "picture.h"

/* Pictures larger than this are not read whole (interlaced ones must be). */
static const uint64_t kMaxWholePicture = 1ull << 30;

typedef struct PngCodec {
    png_structp png;
    png_infop info;
    FILE *file;
    char message[256]; /* libpng's last error */
    unsigned char *whole; /* an interlaced picture, read at the first rows asked */
    uint32_t nextRow;
    int passes;
} PngCodec;

static void OnError(png_structp png, png_const_charp message) {
    PngCodec *codec = png_get_error_ptr(png);
    snprintf(codec->message, sizeof codec->message, "%s", message);
    png_longjmp(png, 1);
}

/* Warnings (an odd colour profile, an unknown chunk) don't change the
 * samples; they stay quiet. */
static void OnWarning(png_structp png, png_const_charp message) {
    (void)png;
    (void)message;
}

/* libpng's own reader says only "Read Error" at the end of the file. */
static void ReadData(png_structp png, png_bytep data, size_t length) {
    PngCodec *codec = png_get_io_ptr(png);
    if (fread(data, 1, length, codec->file) != length)
        png_error(png, ferror(codec->file) ? "the file can't be read" : "it is cut short");
}

static int Damaged(PictureReader *reader) {
    PngCodec *codec = reader->codec;
    return Complain("%s is a damaged PNG: %s", reader->path, codec->message);
}

static void CloseReader(PictureReader *reader) {
    PngCodec *codec = reader->codec;
    if (codec == NULL)
        return;
    png_destroy_read_struct(&codec->png, &codec->info, NULL);
    if (codec->file != NULL)
        fclose(codec->file);
    free(codec->whole);
    free(codec);
}

static int ReadWhole(PictureReader *reader) {
    PngCodec *codec = reader->codec;
    size_t rowBytes = PictureRowBytes(&reader->info);
    if ((uint64_t)rowBytes * reader->info.height > kMaxWholePicture)
        return Complain("%s is an interlaced PNG of more than %llu MiB, which this host doesn't hold in memory",
                        reader->path, (unsigned long long)(kMaxWholePicture >> 20));
    codec->whole = malloc(rowBytes * reader->info.height);
    png_bytep *rows = malloc(sizeof *rows * reader->info.height);
    if (codec->whole == NULL || rows == NULL) {
        free(rows);
        return Complain("no memory for %s", reader->path);
    }
    for (uint32_t y = 0; y < reader->info.height; ++y)
        rows[y] = codec->whole + rowBytes * y;
    if (setjmp(png_jmpbuf(codec->png))) {
        free(rows);
        return Damaged(reader);
    }
    png_read_image(codec->png, rows);
    free(rows);
    return kExitOk;
}

static int ReadRows(PictureReader *reader, unsigned char *rows, uint32_t count) {
    PngCodec *codec = reader->codec;
    size_t rowBytes = PictureRowBytes(&reader->info);
    if (codec->passes > 1) {
        if (codec->whole == NULL && ReadWhole(reader) != kExitOk)
            return kExitFailed;
        memcpy(rows, codec->whole + rowBytes * codec->nextRow, rowBytes * count);
        codec->nextRow += count;
        return kExitOk;
    }
    if (setjmp(png_jmpbuf(codec->png)))
        return Damaged(reader);
    for (uint32_t i = 0; i < count; ++i)
        png_read_row(codec->png, rows + rowBytes * i, NULL);
    codec->nextRow += count;
    return kExitOk;
}

/* The transformations that make every PNG one of the common layout, and
 * what they give; checked before libpng sizes its row buffers by it. */
static int Normalise(PictureReader *reader) {
    PngCodec *codec = reader->codec;
    png_structp png = codec->png;
    int type = png_get_color_type(png, codec->info);
    int depth = png_get_bit_depth(png, codec->info);
    int transparency = png_get_valid(png, codec->info, PNG_INFO_tRNS) != 0;
    reader->info.width = png_get_image_width(png, codec->info);
    reader->info.height = png_get_image_height(png, codec->info);
    reader->info.bits = depth == 16 ? 16 : 8;
    reader->info.colours = type & PNG_COLOR_MASK_COLOR ? 3 : 1;
    reader->info.alpha = (type & PNG_COLOR_MASK_ALPHA) != 0 || transparency;
    if (PictureCheck(reader->path, &reader->info) != kExitOk)
        return kExitFailed;
    if (type == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (type == PNG_COLOR_TYPE_GRAY && depth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (transparency)
        png_set_tRNS_to_alpha(png);
    if (depth == 16 && HalvIdentifyEndian() == 0)
        png_set_swap(png); /* the file is most significant byte first */
    codec->passes = png_set_interlace_handling(png);
    png_read_update_info(png, codec->info);
    return kExitOk;
}

int PngOpenReader(PictureReader *reader, FILE *file) {
    PngCodec *codec = calloc(1, sizeof *codec);
    if (codec == NULL) {
        fclose(file);
        return Complain("no memory");
    }
    codec->file = file;
    reader->codec = codec;
    reader->kind = "PNG";
    reader->readRows = ReadRows;
    reader->close = CloseReader;
    codec->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, codec, OnError, OnWarning);
    codec->info = codec->png != NULL ? png_create_info_struct(codec->png) : NULL;
    if (codec->info == NULL)
        return Complain("no memory for libpng");
    if (setjmp(png_jmpbuf(codec->png)))
        return Damaged(reader);
    /* The format allows 2^31 - 1 each way; the row limit of PictureCheck
     * and the data themselves bound what is read. */
    png_set_user_limits(codec->png, 0x7fffffff, 0x7fffffff);
    png_set_read_fn(codec->png, codec, ReadData);
    png_read_info(codec->png, codec->info);
    return Normalise(reader);
}

/* ------------------------------------------------------------------------
 * Writing
 * ------------------------------------------------------------------------ */

typedef struct PngWriter {
    png_structp png;
    png_infop info;
    char message[256];
    int failed; /* a write to the output failed, already said */
} PngWriter;

static void OnWriterError(png_structp png, png_const_charp message) {
    PngWriter *codec = png_get_error_ptr(png);
    snprintf(codec->message, sizeof codec->message, "%s", message);
    png_longjmp(png, 1);
}

static void WriteData(png_structp png, png_bytep data, size_t length) {
    PictureWriter *writer = png_get_io_ptr(png);
    PngWriter *codec = writer->codec;
    for (size_t done = 0; done < length;) {
        uint32_t piece = length - done > (1u << 30) ? 1u << 30 : (uint32_t)(length - done);
        if (OutputWriteBytes(writer->out, data + done, piece) != kExitOk) {
            codec->failed = 1;
            png_error(png, "the write failed");
        }
        done += piece;
    }
}

static void FlushData(png_structp png) { (void)png; }

static int WriterFailed(PictureWriter *writer) {
    PngWriter *codec = writer->codec;
    if (codec->failed)
        return kExitFailed;
    return Complain("can't write %s as PNG: %s", writer->out->path, codec->message);
}

static int WriteRows(PictureWriter *writer, const unsigned char *rows, uint32_t count) {
    PngWriter *codec = writer->codec;
    size_t rowBytes = PictureRowBytes(&writer->info);
    if (setjmp(png_jmpbuf(codec->png)))
        return WriterFailed(writer);
    for (uint32_t i = 0; i < count; ++i)
        png_write_row(codec->png, rows + rowBytes * i);
    return kExitOk;
}

static int FinishWriter(PictureWriter *writer) {
    PngWriter *codec = writer->codec;
    if (setjmp(png_jmpbuf(codec->png)))
        return WriterFailed(writer);
    png_write_end(codec->png, NULL);
    return kExitOk;
}

static void ReleaseWriter(PictureWriter *writer) {
    PngWriter *codec = writer->codec;
    if (codec == NULL)
        return;
    png_destroy_write_struct(&codec->png, &codec->info);
    free(codec);
    writer->codec = NULL;
}

int PngStartWriter(PictureWriter *writer) {
    PngWriter *codec = calloc(1, sizeof *codec);
    if (codec == NULL)
        return Complain("no memory");
    writer->codec = codec;
    writer->writeRows = WriteRows;
    writer->finish = FinishWriter;
    writer->release = ReleaseWriter;
    codec->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, codec, OnWriterError, OnWarning);
    codec->info = codec->png != NULL ? png_create_info_struct(codec->png) : NULL;
    if (codec->info == NULL)
        return Complain("no memory for libpng");
    if (setjmp(png_jmpbuf(codec->png)))
        return WriterFailed(writer);
    static const int kTypes[2][2] = {{PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA},
                                     {PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_RGB_ALPHA}};
    const PictureInfo *info = &writer->info;
    png_set_write_fn(codec->png, writer, WriteData, FlushData);
    png_set_user_limits(codec->png, 0x7fffffff, 0x7fffffff);
    png_set_IHDR(codec->png, codec->info, info->width, info->height, (int)info->bits,
                 kTypes[info->colours == 3][info->alpha != 0], PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (info->colours == 3)
        png_set_sRGB(codec->png, codec->info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(codec->png, codec->info);
    if (info->bits == 16 && HalvIdentifyEndian() == 0)
        png_set_swap(codec->png);
    return kExitOk;
}
