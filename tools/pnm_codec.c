/*
 * pnm_codec.c - netpbm grey and colour maps: P2 and P3 (plain text), P5
 * and P6 (binary).  A maxval up to 255 gives 8-bit samples, above it
 * 16-bit ones (binary: most significant byte first); the samples are kept
 * as they are, whatever the maxval.  Writing gives P5 or P6 with maxval 255
 * or 65535.
 */
#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include "picture.h"

typedef struct PnmReader {
    FILE *file;
    int plain;
    uint32_t maxval;
    uint32_t rowsRead;
} PnmReader;

static void CloseReader(PictureReader *reader) {
    PnmReader *codec = reader->codec;
    if (codec == NULL)
        return;
    fclose(codec->file);
    free(codec);
}

/* The next decimal number of the text, behind white space and comments.
 * 1 read, 0 none (the file ended or holds something else), -1 too large. */
static int Number(FILE *file, uint32_t *value) {
    int c = getc(file);
    for (;;) {
        while (c != EOF && isspace(c))
            c = getc(file);
        if (c != '#')
            break;
        while (c != EOF && c != '\n' && c != '\r')
            c = getc(file);
    }
    if (c == EOF || !isdigit(c))
        return 0;
    uint64_t number = 0;
    for (; c != EOF && isdigit(c); c = getc(file))
        if ((number = number * 10 + (uint64_t)(c - '0')) > UINT32_MAX)
            return -1;
    if (c != EOF)
        ungetc(c, file);
    *value = (uint32_t)number;
    return 1;
}

static int CutShort(PictureReader *reader) {
    PnmReader *codec = reader->codec;
    return Complain("%s is cut short: it ends after %u of its %u rows", reader->path, codec->rowsRead,
                    reader->info.height);
}

static int CheckMaxval(PictureReader *reader, const unsigned char *rows, size_t count) {
    PnmReader *codec = reader->codec;
    for (size_t i = 0; i < count; ++i) {
        uint32_t v = rows[i];
        if (reader->info.bits == 16) {
            uint16_t wide;
            memcpy(&wide, rows + 2 * i, 2);
            v = wide;
        }
        if (v > codec->maxval)
            return Complain("%s is damaged: a sample of %u in row %zu is above its maxval %u", reader->path, v,
                            codec->rowsRead + i / (PictureRowBytes(&reader->info) / (reader->info.bits / 8)) + 1,
                            codec->maxval);
    }
    return kExitOk;
}

static int ReadPlain(PictureReader *reader, unsigned char *rows, size_t samples) {
    PnmReader *codec = reader->codec;
    for (size_t i = 0; i < samples; ++i) {
        uint32_t v = 0;
        int got = Number(codec->file, &v);
        if (got == 0)
            return CutShort(reader);
        if (got < 0 || v > codec->maxval)
            return Complain("%s is damaged: a sample in row %zu is above its maxval %u", reader->path,
                            codec->rowsRead + i / ((size_t)reader->info.width * reader->info.colours) + 1,
                            codec->maxval);
        if (reader->info.bits == 8) {
            rows[i] = (unsigned char)v;
        } else {
            uint16_t wide = (uint16_t)v;
            memcpy(rows + 2 * i, &wide, 2);
        }
    }
    return kExitOk;
}

static int ReadRows(PictureReader *reader, unsigned char *rows, uint32_t count) {
    PnmReader *codec = reader->codec;
    size_t bytes = PictureRowBytes(&reader->info) * count, samples = bytes / (reader->info.bits / 8);
    if (codec->plain) {
        if (ReadPlain(reader, rows, samples) != kExitOk)
            return kExitFailed;
    } else {
        size_t got = fread(rows, 1, bytes, codec->file);
        if (got < bytes) {
            codec->rowsRead += (uint32_t)(got / PictureRowBytes(&reader->info));
            return CutShort(reader);
        }
        if (reader->info.bits == 16 && HalvIdentifyEndian() == 0)
            PictureSwapRows(&reader->info, rows, count);
        if (CheckMaxval(reader, rows, samples) != kExitOk)
            return kExitFailed;
    }
    codec->rowsRead += count;
    return kExitOk;
}

int PnmOpenReader(PictureReader *reader, FILE *file) {
    PnmReader *codec = calloc(1, sizeof *codec);
    if (codec == NULL) {
        fclose(file);
        return Complain("no memory");
    }
    codec->file = file;
    reader->codec = codec;
    reader->kind = "PNM";
    reader->readRows = ReadRows;
    reader->close = CloseReader;
    char magic[2];
    if (fread(magic, 1, 2, file) != 2)
        return CutShort(reader);
    codec->plain = magic[1] == '2' || magic[1] == '3';
    reader->info.colours = magic[1] == '3' || magic[1] == '6' ? 3 : 1;
    uint32_t *fields[] = {&reader->info.width, &reader->info.height, &codec->maxval};
    for (size_t i = 0; i < 3; ++i)
        if (Number(file, fields[i]) != 1)
            return Complain("%s is a damaged netpbm file: its header doesn't give width, height and maxval",
                            reader->path);
    if (codec->maxval == 0 || codec->maxval > 65535)
        return Complain("%s has maxval %u; netpbm allows 1 to 65535", reader->path, codec->maxval);
    int c = getc(file); /* the one white-space byte before binary samples */
    if (c == EOF || !isspace(c))
        return Complain("%s is a damaged netpbm file: no white space behind its maxval", reader->path);
    reader->info.bits = codec->maxval > 255 ? 16 : 8;
    if (codec->maxval != 255 && codec->maxval != 65535)
        fprintf(stderr, "halvern: note: %s has maxval %u; its samples are kept as they are\n", reader->path,
                codec->maxval);
    return kExitOk;
}

/* ------------------------------------------------------------------------
 * Writing: P5 and P6
 * ------------------------------------------------------------------------ */

typedef struct PnmWriter {
    unsigned char *scratch; /* one row, big-endian */
} PnmWriter;

static int WriteRows(PictureWriter *writer, const unsigned char *rows, uint32_t count) {
    PnmWriter *codec = writer->codec;
    size_t rowBytes = PictureRowBytes(&writer->info);
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char *row = rows + rowBytes * i;
        if (writer->info.bits == 16 && HalvIdentifyEndian() == 0) {
            memcpy(codec->scratch, row, rowBytes);
            PictureSwapRows(&writer->info, codec->scratch, 1);
            row = codec->scratch;
        }
        if (OutputWriteBytes(writer->out, row, (uint32_t)rowBytes) != kExitOk)
            return kExitFailed;
    }
    return kExitOk;
}

static int FinishWriter(PictureWriter *writer) {
    (void)writer;
    return kExitOk;
}

static void ReleaseWriter(PictureWriter *writer) {
    PnmWriter *codec = writer->codec;
    if (codec != NULL)
        free(codec->scratch);
    free(codec);
    writer->codec = NULL;
}

static int StartNetpbm(PictureWriter *writer, uint32_t colours, const char *magic) {
    const PictureInfo *info = &writer->info;
    const char *extension = colours == 1 ? ".pgm" : ".ppm";
    if (info->colours + info->alpha != colours)
        return Complain("the image has %u separations; %s takes %s (pgm one, ppm three)", info->colours + info->alpha,
                        extension, colours == 1 ? "one separation" : "three separations");
    PnmWriter *codec = calloc(1, sizeof *codec);
    if (codec == NULL || (codec->scratch = malloc(PictureRowBytes(info))) == NULL) {
        free(codec);
        return Complain("no memory");
    }
    writer->codec = codec;
    writer->writeRows = WriteRows;
    writer->finish = FinishWriter;
    writer->release = ReleaseWriter;
    char header[64];
    int length = snprintf(header, sizeof header, "%s\n%u %u\n%u\n", magic, info->width, info->height,
                          info->bits == 8 ? 255u : 65535u);
    return OutputWriteBytes(writer->out, header, (uint32_t)length);
}

int PgmStartWriter(PictureWriter *writer) { return StartNetpbm(writer, 1, "P5"); }
int PpmStartWriter(PictureWriter *writer) { return StartNetpbm(writer, 3, "P6"); }
