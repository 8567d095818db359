/*
 * tiff_codec.c - TIFF through libtiff: stripped and tiled, contiguous and
 * separate planes, either byte order, any compression libtiff decodes;
 * grey (black or white as zero) and RGB, with one extra sample kept as
 * alpha.  A file of more than one page is refused: the stored image holds
 * one.  Writing gives one page, stripped, uncompressed, in this machine's
 * byte order.
 *
 * Strips and tiles are read as bands: the rows that one strip, or one row
 * of tiles, covers are made into rows of the common layout at once and
 * then handed out.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <tiffio.h>
#include <unistd.h>

#include "picture.h"

/* No band, strip or tile of a sane file needs more. */
static const uint64_t kMaxBandBytes = 1ull << 30;

typedef struct TiffCodec {
    TIFF *tiff;
    char message[256]; /* libtiff's last error */
    int tiled, separate, minIsWhite;
    uint32_t pieceWidth, pieceRows; /* a tile's size; a strip is the width by its rows */
    unsigned char *piece;           /* one strip or tile as decoded */
    tmsize_t pieceBytes;
    unsigned char *band; /* pieceRows rows of the common layout */
    uint32_t bandStart, bandRows, nextRow;
    unsigned char *scratch; /* writing: one row libtiff may change */
} TiffCodec;

static int OnMessage(TIFF *tiff, void *data, const char *module, const char *format, va_list args) {
    (void)tiff;
    (void)module;
    TiffCodec *codec = data;
    vsnprintf(codec->message, sizeof codec->message, format, args);
    return 1;
}

static int OnWarning(TIFF *tiff, void *data, const char *module, const char *format, va_list args) {
    (void)tiff, (void)data, (void)module, (void)format, (void)args;
    return 1; /* unknown tags and the like: the samples are what counts */
}

static TIFFOpenOptions *Options(TiffCodec *codec) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (options == NULL)
        return NULL;
    TIFFOpenOptionsSetErrorHandlerExtR(options, OnMessage, codec);
    TIFFOpenOptionsSetWarningHandlerExtR(options, OnWarning, codec);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, (tmsize_t)kMaxBandBytes);
    return options;
}

static int Damaged(PictureReader *reader, const char *what) {
    TiffCodec *codec = reader->codec;
    return Complain("%s is a damaged TIFF: %s%s%s", reader->path, what, codec->message[0] ? ": " : "",
                    codec->message);
}

static void CloseReader(PictureReader *reader) {
    TiffCodec *codec = reader->codec;
    if (codec == NULL)
        return;
    if (codec->tiff != NULL)
        TIFFClose(codec->tiff);
    free(codec->piece);
    free(codec->band);
    free(codec);
}

/* Decodes the strip or tile at (x, bandStart) of plane into piece. */
static int ReadPiece(PictureReader *reader, uint32_t x, uint16_t plane) {
    TiffCodec *codec = reader->codec;
    tmsize_t got;
    if (codec->tiled)
        got = TIFFReadEncodedTile(codec->tiff, TIFFComputeTile(codec->tiff, x, codec->bandStart, 0, plane),
                                  codec->piece, codec->pieceBytes);
    else
        got = TIFFReadEncodedStrip(codec->tiff, TIFFComputeStrip(codec->tiff, codec->bandStart, plane), codec->piece,
                                   codec->pieceBytes);
    uint32_t planeSamples = codec->separate ? 1 : PictureSamples(&reader->info);
    uint64_t need = (uint64_t)(codec->tiled ? codec->pieceRows : codec->bandRows) * codec->pieceWidth *
                    planeSamples * (reader->info.bits / 8);
    if (got < 0 || (uint64_t)got < need) {
        char what[96];
        snprintf(what, sizeof what, "its %s at row %u can't be read", codec->tiled ? "tile" : "strip",
                 codec->bandStart);
        return Damaged(reader, what);
    }
    return kExitOk;
}

/* Copies piece (plane, starting at column x) into the band. */
static void Scatter(PictureReader *reader, uint32_t x, uint16_t plane) {
    TiffCodec *codec = reader->codec;
    const PictureInfo *info = &reader->info;
    uint32_t bytes = info->bits / 8, samples = PictureSamples(info);
    uint32_t planeSamples = codec->separate ? 1 : samples;
    uint32_t columns = info->width - x < codec->pieceWidth ? info->width - x : codec->pieceWidth;
    size_t rowBytes = PictureRowBytes(info), pieceRowBytes = (size_t)codec->pieceWidth * planeSamples * bytes;
    for (uint32_t y = 0; y < codec->bandRows; ++y) {
        const unsigned char *from = codec->piece + pieceRowBytes * y;
        unsigned char *to = codec->band + rowBytes * y + ((size_t)x * samples + plane) * bytes;
        if (!codec->separate) {
            memcpy(to, from, (size_t)columns * samples * bytes);
            continue;
        }
        for (uint32_t c = 0; c < columns; ++c, from += bytes, to += (size_t)samples * bytes)
            memcpy(to, from, bytes);
    }
}

static void InvertBand(PictureReader *reader) {
    TiffCodec *codec = reader->codec;
    size_t count = PictureRowBytes(&reader->info) * codec->bandRows;
    if (reader->info.bits == 8) {
        for (size_t i = 0; i < count; ++i)
            codec->band[i] = (unsigned char)(255 - codec->band[i]);
        return;
    }
    for (size_t i = 0; i + 1 < count; i += 2) {
        uint16_t v;
        memcpy(&v, codec->band + i, 2);
        v = (uint16_t)(65535 - v);
        memcpy(codec->band + i, &v, 2);
    }
}

static int LoadBand(PictureReader *reader) {
    TiffCodec *codec = reader->codec;
    codec->bandStart = codec->nextRow;
    codec->bandRows = reader->info.height - codec->bandStart < codec->pieceRows ? reader->info.height - codec->bandStart
                                                                                 : codec->pieceRows;
    uint16_t planes = codec->separate ? (uint16_t)PictureSamples(&reader->info) : 1;
    for (uint32_t x = 0; x < reader->info.width; x += codec->pieceWidth)
        for (uint16_t plane = 0; plane < planes; ++plane) {
            if (ReadPiece(reader, x, plane) != kExitOk)
                return kExitFailed;
            Scatter(reader, x, plane);
        }
    if (codec->minIsWhite)
        InvertBand(reader);
    return kExitOk;
}

static int ReadRows(PictureReader *reader, unsigned char *rows, uint32_t count) {
    TiffCodec *codec = reader->codec;
    size_t rowBytes = PictureRowBytes(&reader->info);
    while (count > 0) {
        if (codec->band == NULL || codec->nextRow >= codec->bandStart + codec->bandRows) {
            if (codec->band == NULL) {
                codec->band = malloc(rowBytes * codec->pieceRows);
                if (codec->band == NULL)
                    return Complain("no memory for a band of %s", reader->path);
            }
            if (LoadBand(reader) != kExitOk)
                return kExitFailed;
        }
        uint32_t available = codec->bandStart + codec->bandRows - codec->nextRow;
        uint32_t take = available < count ? available : count;
        memcpy(rows, codec->band + rowBytes * (codec->nextRow - codec->bandStart), rowBytes * take);
        rows += rowBytes * take;
        count -= take;
        codec->nextRow += take;
    }
    return kExitOk;
}

static uint32_t Field32(TIFF *tiff, uint32_t tag, uint32_t fallback) {
    uint32_t value = fallback;
    return TIFFGetField(tiff, tag, &value) == 1 ? value : fallback;
}

static uint16_t Field16(TIFF *tiff, uint32_t tag, uint16_t fallback) {
    uint16_t value = fallback;
    return TIFFGetFieldDefaulted(tiff, tag, &value) == 1 ? value : fallback;
}

/* What the page holds, and whether this host reads it. */
static int Describe(PictureReader *reader) {
    TiffCodec *codec = reader->codec;
    TIFF *tiff = codec->tiff;
    PictureInfo *info = &reader->info;
    info->width = Field32(tiff, TIFFTAG_IMAGEWIDTH, 0);
    info->height = Field32(tiff, TIFFTAG_IMAGELENGTH, 0);
    info->bits = Field16(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    uint16_t samples = Field16(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    uint16_t format = Field16(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    uint16_t photometric = Field16(tiff, TIFFTAG_PHOTOMETRIC, 0xFFFF);
    uint16_t compression = Field16(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (format != SAMPLEFORMAT_UINT)
        return Complain("%s holds %s samples; unsigned integers can be imported", reader->path,
                        format == SAMPLEFORMAT_IEEEFP ? "floating-point" : "signed");
    if (photometric == PHOTOMETRIC_YCBCR && compression == COMPRESSION_JPEG) {
        TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB); /* libjpeg gives RGB */
        photometric = PHOTOMETRIC_RGB;
    }
    if (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE)
        info->colours = 1;
    else if (photometric == PHOTOMETRIC_RGB)
        info->colours = 3;
    else
        return Complain("%s has photometric interpretation %u; grey and RGB TIFFs can be imported (palette, CMYK, "
                        "YCbCr and Lab can't)",
                        reader->path, photometric);
    if (samples < info->colours || samples > info->colours + 1)
        return Complain("%s has %u samples a pixel; a %s TIFF can be imported with at most one extra (alpha)",
                        reader->path, samples, info->colours == 3 ? "RGB" : "grey");
    info->alpha = samples - info->colours;
    codec->minIsWhite = photometric == PHOTOMETRIC_MINISWHITE;
    codec->separate = samples > 1 && Field16(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE;
    codec->tiled = TIFFIsTiled(tiff);
    if (PictureCheck(reader->path, info) != kExitOk)
        return kExitFailed;
    if (codec->tiled) {
        codec->pieceWidth = Field32(tiff, TIFFTAG_TILEWIDTH, 0);
        codec->pieceRows = Field32(tiff, TIFFTAG_TILELENGTH, 0);
        codec->pieceBytes = TIFFTileSize(tiff);
    } else {
        codec->pieceWidth = info->width;
        codec->pieceRows = Field32(tiff, TIFFTAG_ROWSPERSTRIP, info->height);
        if (codec->pieceRows == 0 || codec->pieceRows > info->height)
            codec->pieceRows = info->height;
        codec->pieceBytes = TIFFStripSize(tiff);
    }
    if (codec->pieceWidth == 0 || codec->pieceRows == 0 || codec->pieceBytes <= 0)
        return Damaged(reader, "its strips or tiles have no size");
    if ((uint64_t)PictureRowBytes(info) * codec->pieceRows > kMaxBandBytes ||
        (uint64_t)codec->pieceBytes > kMaxBandBytes)
        return Complain("%s has strips or tiles of more than %llu MiB, more than this host handles", reader->path,
                        (unsigned long long)(kMaxBandBytes >> 20));
    codec->piece = malloc((size_t)codec->pieceBytes);
    if (codec->piece == NULL)
        return Complain("no memory for a strip of %s", reader->path);
    return kExitOk;
}

int TiffOpenReader(PictureReader *reader, FILE *file) {
    int fd = dup(fileno(file));
    fclose(file);
    TiffCodec *codec = calloc(1, sizeof *codec);
    if (codec == NULL || fd < 0) {
        free(codec);
        if (fd >= 0)
            close(fd);
        return Complain("no memory");
    }
    reader->codec = codec;
    reader->kind = "TIFF";
    reader->readRows = ReadRows;
    reader->close = CloseReader;
    TIFFOpenOptions *options = Options(codec);
    /* "rm": the file is read, not mapped, so that one cut short fails on
     * reading instead of faulting. */
    codec->tiff = options != NULL ? TIFFFdOpenExt(fd, reader->path, "rm", options) : NULL;
    TIFFOpenOptionsFree(options);
    if (codec->tiff == NULL) {
        close(fd);
        return Damaged(reader, "its header can't be read");
    }
    tdir_t pages = TIFFNumberOfDirectories(codec->tiff);
    if (pages > 1)
        return Complain("%s is a TIFF of %u pages; import takes a TIFF of one page", reader->path, (unsigned)pages);
    if (!TIFFSetDirectory(codec->tiff, 0))
        return Damaged(reader, "its first page can't be read");
    return Describe(reader);
}

/* ------------------------------------------------------------------------
 * Writing, through the output's stream
 * ------------------------------------------------------------------------ */

static tmsize_t StreamRead(thandle_t handle, void *buffer, tmsize_t size) {
    HalvIO *io = ((PictureWriter *)handle)->out->io;
    return size > INT32_MAX ? -1 : io->read(io, buffer, (uint32_t)size);
}

static tmsize_t StreamWrite(thandle_t handle, void *buffer, tmsize_t size) {
    PictureWriter *writer = handle;
    if (size > INT32_MAX || OutputWriteBytes(writer->out, buffer, (uint32_t)size) != kExitOk)
        return -1;
    return size;
}

static toff_t StreamSeek(thandle_t handle, toff_t offset, int whence) {
    HalvIO *io = ((PictureWriter *)handle)->out->io;
    return (toff_t)io->seek(io, (int64_t)offset, whence);
}

static int StreamClose(thandle_t handle) {
    (void)handle; /* the output closes its stream */
    return 0;
}

static toff_t StreamSize(thandle_t handle) {
    HalvIO *io = ((PictureWriter *)handle)->out->io;
    int64_t here = io->seek(io, 0, SEEK_CUR), end = io->seek(io, 0, SEEK_END);
    io->seek(io, here, SEEK_SET);
    return (toff_t)end;
}

static int NoMap(thandle_t handle, void **base, toff_t *size) {
    (void)handle, (void)base, (void)size;
    return 0;
}

static void NoUnmap(thandle_t handle, void *base, toff_t size) { (void)handle, (void)base, (void)size; }

static int WriterFailed(PictureWriter *writer) {
    TiffCodec *codec = writer->codec;
    return Complain("can't write %s as TIFF%s%s", writer->out->path, codec->message[0] ? ": " : "", codec->message);
}

static int WriteRows(PictureWriter *writer, const unsigned char *rows, uint32_t count) {
    TiffCodec *codec = writer->codec;
    size_t rowBytes = PictureRowBytes(&writer->info);
    for (uint32_t i = 0; i < count; ++i, ++codec->nextRow) {
        memcpy(codec->scratch, rows + rowBytes * i, rowBytes);
        if (TIFFWriteScanline(codec->tiff, codec->scratch, codec->nextRow, 0) != 1)
            return WriterFailed(writer);
    }
    return kExitOk;
}

static int FinishWriter(PictureWriter *writer) {
    TiffCodec *codec = writer->codec;
    int written = TIFFWriteDirectory(codec->tiff) == 1 && TIFFFlush(codec->tiff) == 1;
    return written ? kExitOk : WriterFailed(writer);
}

static void ReleaseWriter(PictureWriter *writer) {
    TiffCodec *codec = writer->codec;
    if (codec == NULL)
        return;
    if (codec->tiff != NULL)
        TIFFCleanup(codec->tiff);
    free(codec->scratch);
    free(codec);
    writer->codec = NULL;
}

int TiffStartWriter(PictureWriter *writer) {
    TiffCodec *codec = calloc(1, sizeof *codec);
    if (codec == NULL)
        return Complain("no memory");
    writer->codec = codec;
    writer->writeRows = WriteRows;
    writer->finish = FinishWriter;
    writer->release = ReleaseWriter;
    const PictureInfo *info = &writer->info;
    codec->scratch = malloc(PictureRowBytes(info));
    TIFFOpenOptions *options = codec->scratch != NULL ? Options(codec) : NULL;
    if (options == NULL)
        return Complain("no memory");
    codec->tiff = TIFFClientOpenExt(writer->out->path, "w", writer, StreamRead, StreamWrite, StreamSeek, StreamClose,
                                    StreamSize, NoMap, NoUnmap, options);
    TIFFOpenOptionsFree(options);
    if (codec->tiff == NULL)
        return WriterFailed(writer);
    TIFF *tiff = codec->tiff;
    uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
    int set = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, info->width) && TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, info->height) &&
              TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, (uint16_t)info->bits) &&
              TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, (uint16_t)PictureSamples(info)) &&
              TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
              TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, info->colours == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
              TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE) &&
              TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0)) &&
              (info->alpha == 0 || TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &alpha));
    return set ? kExitOk : WriterFailed(writer);
}
