/*
 * jpeg_codec.c - JPEG through libjpeg: grey, and colour (YCbCr or RGB)
 * decoded to RGB, 8 bits.  CMYK and YCCK files are refused.  Writing
 * takes 8-bit grey or RGB without alpha, at a quality of 1 to 100.
 *
 * libjpeg reports errors by calling error_exit, which must not return: it
 * longjmps back to the setjmp of the calling function.  Its warnings are
 * about damaged data (a file cut short is padded with grey and a warning),
 * so a warning fails the read too.
 */
#include <setjmp.h>
#include <stdio.h> /* jpeglib.h needs FILE and size_t first */
#include <stdlib.h>
#include <string.h>

#include <jpeglib.h>

#include "picture.h"

typedef struct JpegError {
    struct jpeg_error_mgr manager;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
} JpegError;

static void OnError(j_common_ptr common) {
    JpegError *error = (JpegError *)common->err;
    common->err->format_message(common, error->message);
    longjmp(error->jump, 1);
}

static void OnMessage(j_common_ptr common, int level) {
    if (level < 0) /* a warning: the data are damaged */
        OnError(common);
}

typedef struct JpegReader {
    struct jpeg_decompress_struct jpeg;
    JpegError error;
    FILE *file;
    int started;
} JpegReader;

static void CloseReader(PictureReader *reader) {
    JpegReader *codec = reader->codec;
    if (codec == NULL)
        return;
    jpeg_destroy_decompress(&codec->jpeg);
    if (codec->file != NULL)
        fclose(codec->file);
    free(codec);
}

static int Damaged(PictureReader *reader) {
    JpegReader *codec = reader->codec;
    return Complain("%s is a damaged JPEG: %s", reader->path, codec->error.message);
}

static int ReadRows(PictureReader *reader, unsigned char *rows, uint32_t count) {
    JpegReader *codec = reader->codec;
    size_t rowBytes = PictureRowBytes(&reader->info);
    if (setjmp(codec->error.jump))
        return Damaged(reader);
    if (!codec->started) {
        jpeg_start_decompress(&codec->jpeg);
        codec->started = 1;
    }
    for (uint32_t i = 0; i < count;) {
        JSAMPROW row = rows + rowBytes * i;
        JDIMENSION got = jpeg_read_scanlines(&codec->jpeg, &row, 1);
        if (got == 0)
            return Complain("%s is a damaged JPEG: its rows end early", reader->path);
        i += got;
    }
    return kExitOk;
}

int JpegOpenReader(PictureReader *reader, FILE *file) {
    JpegReader *codec = calloc(1, sizeof *codec);
    if (codec == NULL) {
        fclose(file);
        return Complain("no memory");
    }
    codec->file = file;
    reader->codec = codec;
    reader->kind = "JPEG";
    reader->readRows = ReadRows;
    reader->close = CloseReader;
    codec->jpeg.err = jpeg_std_error(&codec->error.manager);
    codec->error.manager.error_exit = OnError;
    codec->error.manager.emit_message = OnMessage;
    if (setjmp(codec->error.jump))
        return Damaged(reader);
    jpeg_create_decompress(&codec->jpeg);
    jpeg_stdio_src(&codec->jpeg, file);
    jpeg_read_header(&codec->jpeg, TRUE);
    J_COLOR_SPACE space = codec->jpeg.jpeg_color_space;
    if (space == JCS_CMYK || space == JCS_YCCK)
        return Complain("%s is a CMYK JPEG; grey and colour JPEGs can be imported", reader->path);
    codec->jpeg.out_color_space = space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_calc_output_dimensions(&codec->jpeg);
    reader->info.width = codec->jpeg.output_width;
    reader->info.height = codec->jpeg.output_height;
    reader->info.colours = (uint32_t)codec->jpeg.out_color_components;
    reader->info.bits = 8;
    return kExitOk;
}

/* ------------------------------------------------------------------------
 * Writing, through a destination that hands libjpeg's buffer to the output
 * ------------------------------------------------------------------------ */

enum { kBufferBytes = 1 << 16 };

typedef struct JpegWriter {
    struct jpeg_compress_struct jpeg;
    JpegError error;
    struct jpeg_destination_mgr destination;
    PictureWriter *writer;
    int failed; /* a write to the output failed, already said */
    JOCTET buffer[kBufferBytes];
} JpegWriter;

static void StartDestination(j_compress_ptr jpeg) {
    JpegWriter *codec = (JpegWriter *)jpeg;
    codec->destination.next_output_byte = codec->buffer;
    codec->destination.free_in_buffer = kBufferBytes;
}

static void Spill(JpegWriter *codec, size_t bytes) {
    if (OutputWriteBytes(codec->writer->out, codec->buffer, (uint32_t)bytes) != kExitOk) {
        codec->failed = 1;
        snprintf(codec->error.message, sizeof codec->error.message, "the write failed");
        longjmp(codec->error.jump, 1);
    }
}

static boolean EmptyBuffer(j_compress_ptr jpeg) {
    JpegWriter *codec = (JpegWriter *)jpeg;
    Spill(codec, kBufferBytes);
    StartDestination(jpeg);
    return TRUE;
}

static void EndDestination(j_compress_ptr jpeg) {
    JpegWriter *codec = (JpegWriter *)jpeg;
    Spill(codec, kBufferBytes - codec->destination.free_in_buffer);
}

static int WriterFailed(PictureWriter *writer) {
    JpegWriter *codec = writer->codec;
    if (codec->failed)
        return kExitFailed;
    return Complain("can't write %s as JPEG: %s", writer->out->path, codec->error.message);
}

static int WriteRows(PictureWriter *writer, const unsigned char *rows, uint32_t count) {
    JpegWriter *codec = writer->codec;
    size_t rowBytes = PictureRowBytes(&writer->info);
    if (setjmp(codec->error.jump))
        return WriterFailed(writer);
    for (uint32_t i = 0; i < count; ++i) {
        JSAMPROW row = (JSAMPROW)(rows + rowBytes * i); /* libjpeg only reads it */
        jpeg_write_scanlines(&codec->jpeg, &row, 1);
    }
    return kExitOk;
}

static int FinishWriter(PictureWriter *writer) {
    JpegWriter *codec = writer->codec;
    if (setjmp(codec->error.jump))
        return WriterFailed(writer);
    jpeg_finish_compress(&codec->jpeg);
    return kExitOk;
}

static void ReleaseWriter(PictureWriter *writer) {
    JpegWriter *codec = writer->codec;
    if (codec == NULL)
        return;
    jpeg_destroy_compress(&codec->jpeg);
    free(codec);
    writer->codec = NULL;
}

int JpegStartWriter(PictureWriter *writer) {
    const PictureInfo *info = &writer->info;
    if (info->bits != 8)
        return Complain("%s: JPEG holds 8-bit samples, and the image has %u bits (export it as .png or .tif)",
                        writer->out->path, info->bits);
    if (info->alpha)
        return Complain("%s: JPEG holds no alpha, and the image has an alpha separation (export it as .png or .tif)",
                        writer->out->path);
    if (info->width > JPEG_MAX_DIMENSION || info->height > JPEG_MAX_DIMENSION)
        return Complain("%s: JPEG holds at most %u x %u pixels, and the image is %u x %u", writer->out->path,
                        (unsigned)JPEG_MAX_DIMENSION, (unsigned)JPEG_MAX_DIMENSION, info->width, info->height);
    JpegWriter *codec = calloc(1, sizeof *codec);
    if (codec == NULL)
        return Complain("no memory");
    writer->codec = codec;
    writer->writeRows = WriteRows;
    writer->finish = FinishWriter;
    writer->release = ReleaseWriter;
    codec->writer = writer;
    codec->jpeg.err = jpeg_std_error(&codec->error.manager);
    codec->error.manager.error_exit = OnError;
    codec->error.manager.emit_message = OnMessage;
    if (setjmp(codec->error.jump))
        return WriterFailed(writer);
    jpeg_create_compress(&codec->jpeg);
    codec->destination.init_destination = StartDestination;
    codec->destination.empty_output_buffer = EmptyBuffer;
    codec->destination.term_destination = EndDestination;
    codec->jpeg.dest = &codec->destination;
    codec->jpeg.image_width = info->width;
    codec->jpeg.image_height = info->height;
    codec->jpeg.input_components = (int)info->colours;
    codec->jpeg.in_color_space = info->colours == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&codec->jpeg);
    jpeg_set_quality(&codec->jpeg, writer->quality, TRUE);
    jpeg_start_compress(&codec->jpeg, TRUE);
    return kExitOk;
}
