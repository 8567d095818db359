/*
 * picture.c - which codec reads a file (by its first bytes, whatever its
 * name) and which writes one (by the name's extension).
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include "picture.h"

uint32_t PictureSamples(const PictureInfo *info) { return info->colours + info->alpha; }

size_t PictureRowBytes(const PictureInfo *info) {
    return (size_t)info->width * PictureSamples(info) * (info->bits / 8);
}

int PictureCheck(const char *path, const PictureInfo *info) {
    if (info->bits != 8 && info->bits != 16)
        return Complain("%s has %u-bit samples; 8 and 16 bits can be imported", path, info->bits);
    if (info->width == 0 || info->height == 0)
        return Complain("%s has no pixels: it is %u x %u", path, info->width, info->height);
    if ((uint64_t)info->width * PictureSamples(info) * (info->bits / 8) > kPictureMaxRowBytes)
        return Complain("%s is %u pixels wide; a row of more than %u MiB is more than this host handles", path,
                        info->width, kPictureMaxRowBytes >> 20);
    return kExitOk;
}

/* The first bytes of each kind of file, and who reads it. */
static const struct {
    const char *magic;
    size_t length;
    int (*open)(PictureReader *reader, FILE *file);
} kReaders[] = {
    {"\x89PNG\r\n\x1a\n", 8, PngOpenReader}, {"II*\0", 4, TiffOpenReader}, {"MM\0*", 4, TiffOpenReader},
    {"\xff\xd8\xff", 3, JpegOpenReader},      {"P2", 2, PnmOpenReader},    {"P3", 2, PnmOpenReader},
    {"P5", 2, PnmOpenReader},                 {"P6", 2, PnmOpenReader},
};

int PictureOpen(PictureReader *reader, const char *path) {
    memset(reader, 0, sizeof *reader);
    reader->path = path;
    struct stat info;
    if (stat(path, &info) == 0 && S_ISDIR(info.st_mode))
        return Complain("can't read %s: it is a directory", path);
    FILE *file = fopen(path, "rb");
    if (file == NULL)
        return Complain("can't read %s: %s", path, strerror(errno));
    unsigned char head[8] = {0};
    size_t got = fread(head, 1, sizeof head, file);
    rewind(file);
    for (size_t i = 0; i < sizeof kReaders / sizeof kReaders[0]; ++i)
        if (got >= kReaders[i].length && memcmp(head, kReaders[i].magic, kReaders[i].length) == 0) {
            int status = kReaders[i].open(reader, file);
            if (status == kExitOk)
                status = PictureCheck(path, &reader->info);
            if (status != kExitOk)
                PictureClose(reader);
            return status;
        }
    fclose(file);
    return Complain("%s is not a picture this host reads: PNG, TIFF, JPEG, PGM or PPM (P2, P3, P5, P6)", path);
}

void PictureClose(PictureReader *reader) {
    if (reader->close != NULL)
        reader->close(reader);
    reader->close = NULL;
    reader->codec = NULL;
}

/* Extensions and their writers. */
static const struct {
    const char *extension;
    int (*start)(PictureWriter *writer);
} kWriters[] = {
    {".png", PngStartWriter},   {".tif", TiffStartWriter}, {".tiff", TiffStartWriter}, {".jpg", JpegStartWriter},
    {".jpeg", JpegStartWriter}, {".pgm", PgmStartWriter},  {".ppm", PpmStartWriter},
};

static int WriterIndex(const char *path) {
    size_t length = strlen(path);
    for (size_t i = 0; i < sizeof kWriters / sizeof kWriters[0]; ++i) {
        size_t n = strlen(kWriters[i].extension);
        if (length > n && strcasecmp(path + length - n, kWriters[i].extension) == 0)
            return (int)i;
    }
    return -1;
}

int IsPictureName(const char *path) { return WriterIndex(path) >= 0; }

int PictureStartWriter(PictureWriter *writer, Output *out, const PictureInfo *info, int quality) {
    memset(writer, 0, sizeof *writer);
    writer->out = out;
    writer->info = *info;
    writer->quality = quality;
    int index = WriterIndex(out->path);
    if (index < 0)
        return Complain("%s: the name says no picture format (.png, .tif, .jpg, .pgm, .ppm)", out->path);
    return kWriters[index].start(writer);
}
