/*
 * image_in.c - reading a stored image: the header through its manager,
 * then the chunks, with every size the header claims checked against what
 * the data hold.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "host.h"

/* Chunks of about this many bytes keep the number of passes small without
 * leaving the caches far behind. */
enum { kChunkTargetBytes = 1u << 20, kCompressedLinesPerLoad = 256 };
/* No sane scanline is longer; anything above is a header that lies. */
static const uint64_t kMaxLineBytes = 1ull << 30;

static void CopyParam(char *dst, size_t size, HalvUserCMData *tree, const char *section, const char *key) {
    const char *text = HVHdrGetHeaderParam(tree, section, key);
    snprintf(dst, size, "%s", text != NULL ? text : "");
}

static int IsRasterFormat(const HalvHeaderStruct *header) {
    static const int32_t kRaster[] = {HALV_HDR_INTERNAL, HALV_HDR_IMAGE_EXT, HALV_HDR_PIXR, HALV_HDR_PIXELSTREAM};
    for (size_t i = 0; i < sizeof kRaster / sizeof kRaster[0]; ++i)
        if (header->managerType == kRaster[i])
            return 1;
    return 0;
}

void PixelStreamGeometry(const HalvHeaderStruct *header, uint32_t *width, uint32_t *height) {
    int32_t pixels = 0, scanlines = 0;
    uint32_t count = 1;
    HVHdrGetHeaderInts(header->userData, "Raster", "pixels", &pixels, &count);
    count = 1;
    HVHdrGetHeaderInts(header->userData, "Raster", "scanlines", &scanlines, &count);
    *width = pixels > 0 ? (uint32_t)pixels : 1;
    *height = scanlines > 0 && pixels > 0 ? (uint32_t)scanlines : 0;
}

static int IsPixelStream(const Image *image) { return image->header->managerType == HALV_HDR_PIXELSTREAM; }

uint32_t ImageSamples(const Image *image) {
    const HalvHeaderStruct *h = image->header;
    uint64_t sum = (uint64_t)h->parts[0] + h->parts[1] + h->parts[2];
    return sum > HALV_MAX_SEPARATIONS ? 0 : (uint32_t)sum;
}

/* With pixel interleave one bits/sample entry stands for every sample. */
static uint32_t SampleBits(const HalvHeaderStruct *header, uint32_t sample) {
    return header->bitsPerSample[header->interleave == 1 ? 0 : sample];
}

uint32_t ImageCommonBits(const Image *image) {
    uint32_t samples = ImageSamples(image);
    if (samples == 0)
        return 0;
    if (image->header->interleave == 1)
        return image->header->bitsPerSample[0];
    for (uint32_t i = 1; i < samples; ++i)
        if (image->header->bitsPerSample[i] != image->header->bitsPerSample[0])
            return 0;
    return image->header->bitsPerSample[0];
}

const char *ImageColorName(const HalvHeaderStruct *header) {
    if (header->color == 0) {
        const char *stored = HVHdrGetHeaderParam(header->userData, "Photometry", "name");
        if (stored != NULL)
            return stored;
    }
    return HalvClr2Str(header->color);
}

void ImageClose(Image *image) {
    if (image->io != NULL)
        image->io->close(image->io);
    if (image->header != NULL && image->header->free != NULL)
        image->header->free(image->header);
    image->io = NULL;
    image->header = NULL;
}

static int ReadHeader(Image *image) {
    HalvUserCMData *tree = NULL;
    int read = HVHdrRead(image->io, &tree);
    if (read != 1) {
        HVHdrFree(tree);
        return Complain("%s is not a stored image: its header text is missing or malformed", image->path);
    }
    CopyParam(image->format, sizeof image->format, tree, "ID", "format");
    CopyParam(image->version, sizeof image->version, tree, "ID", "version");
    CopyParam(image->architecture, sizeof image->architecture, tree, "ID", "architecture");
    int status = kExitOk;
    if (image->format[0] == '\0')
        status = Complain("%s is not a stored image: its header names no format", image->path);
    else if (HVHdrGetManager(tree, &image->manager) != 1)
        status = Complain("%s has format \"%s\" version \"%s\", which this build can't read", image->path,
                          image->format, image->version);
    else if (HVHdrToHeader(image->manager, tree, &image->header) != 1 || image->header == NULL)
        status = Complain("%s: its %s header can't be read: it breaks a rule of that format, or memory ran out",
                          image->path, image->format);
    HVHdrFree(tree);
    return status;
}

int ImageOpen(Image *image, const char *path) {
    memset(image, 0, sizeof *image);
    image->path = path;
    if (!HalvIsURL(path)) {
        struct stat info;
        if (stat(path, &info) != 0)
            return Complain("can't read %s: %s", path, strerror(errno));
        if (S_ISDIR(info.st_mode))
            return Complain("can't read %s: it is a directory", path);
        if (S_ISREG(info.st_mode))
            image->fileBytes = (uint64_t)info.st_size;
    }
    errno = 0;
    image->io = HalvIO_FileName(path, "rb");
    if (image->io == NULL)
        return Complain("can't open %s: %s", path, errno != 0 ? strerror(errno) : "failed");
    if (ReadHeader(image) != kExitOk) {
        ImageClose(image);
        return kExitFailed;
    }
    image->storedSeps = HalvHeaderSepCount(image->header);
    uint64_t lineBytes = HalvHeaderLineBytes(image->header);
    image->unit = "scanline";
    if (image->header->managerType == HALV_HDR_SPECTRAL) {
        /* A measurement is a spectrum's line: all its samples side by side. */
        lineBytes = ((const HalvSpectralHeader *)image->header)->bytesPerMeasurement;
        image->unit = "measurement";
    }
    image->height = image->header->dimCount >= 2 ? image->header->dims[1] : 0;
    image->width = image->header->dims[0];
    if (IsPixelStream(image)) {
        /* A scanline is width pixels side by side. */
        PixelStreamGeometry(image->header, &image->width, &image->height);
        lineBytes = (uint64_t)((const HalvPixelStreamHeader *)image->header)->bytesPerPixel * image->width;
    }
    image->lineBytes = image->header->compression != 0 || lineBytes > kMaxLineBytes ? 0 : (uint32_t)lineBytes;
    return kExitOk;
}

/* Bytes a scanline of stored separation sep needs for pixels pixels, by the
 * library's count; with pixel interleave the one separation holds every
 * sample.  The count is worked out in 32 bits: a line whose bits don't fit
 * is given by its size alone, which is far beyond what this host takes. */
static uint64_t NeededBytes(const HalvHeaderStruct *h, uint32_t sep, uint32_t samples, uint32_t pixels) {
    uint32_t group = h->interleave == 1 ? samples : 1;
    uint64_t bits = (uint64_t)SampleBits(h, sep) * group * pixels;
    if (bits > UINT32_MAX - 31)
        return (bits + 7) / 8;
    if (h->interleave != 1)
        return HalvCalcBytesPerSep(h->bitsPerSample[sep], pixels);
    uint32_t sampleBits[HALV_MAX_SEPARATIONS], bytes[HALV_MAX_SEPARATIONS];
    for (uint32_t s = 0; s < samples; ++s)
        sampleBits[s] = h->bitsPerSample[0];
    return HalvCalcInterleaveBytesArray(1, bytes, samples, sampleBits, pixels);
}

static int CheckSeparations(const Image *image, uint32_t pixels) {
    const HalvHeaderStruct *h = image->header;
    uint32_t samples = ImageSamples(image);
    for (uint32_t i = 0; i < samples; ++i)
        if (SampleBits(h, i) == 0 || SampleBits(h, i) > 32)
            return Complain("%s: separation %u has %u bits per sample; 1 to 32 can be handled", image->path, i + 1,
                            SampleBits(h, i));
    for (uint32_t i = 0; i < image->storedSeps; ++i) {
        uint64_t need = NeededBytes(h, i, samples, pixels);
        if (need > kMaxLineBytes)
            return Complain("%s: a scanline of %llu pixels needs %llu bytes, more than this host handles",
                            image->path, (unsigned long long)pixels, (unsigned long long)need);
        if (h->bytesPerSep[i] < need)
            return Complain("%s: its header gives separation %u %u bytes per scanline, but %llu pixels of %u "
                            "bits need %llu",
                            image->path, i + 1, h->bytesPerSep[i], (unsigned long long)pixels,
                            SampleBits(h, i), (unsigned long long)need);
    }
    return kExitOk;
}

/* Where the data start and how many bytes of them the file holds; 0 when
 * that can't be known (no size, a stream that can't tell its position). */
static int StoredDataBytes(const Image *image, uint64_t *have) {
    if (image->fileBytes == 0 || image->io->seek == NULL)
        return 0;
    int64_t dataStart = image->io->seek(image->io, 0, 1);
    if (dataStart < 0)
        return 0;
    *have = image->fileBytes > (uint64_t)dataStart ? image->fileBytes - (uint64_t)dataStart : 0;
    return 1;
}

/* An internal image of known height, and a binary spectrum, must hold all
 * their lines; saying so before anything is written gives the clearest
 * message.  (A binary spectrum that ends early reads as zeros.) */
static int CheckStoredSize(const Image *image) {
    int binarySpectrum = image->header->managerType == HALV_HDR_SPECTRAL && strcmp(image->version, "1.0-binary") == 0;
    uint64_t have = 0;
    if ((image->header->managerType != HALV_HDR_INTERNAL && !binarySpectrum) || !StoredDataBytes(image, &have))
        return kExitOk;
    if (binarySpectrum && image->height == 0 && have % image->lineBytes != 0)
        return Complain("%s ends in the middle of a measurement, after %llu whole measurements", image->path,
                        (unsigned long long)(have / image->lineBytes));
    uint64_t need = (uint64_t)image->height * image->lineBytes;
    if (have < need)
        return Complain("%s is cut short: its header promises %u %ss of %u bytes (%llu bytes), the file holds %llu",
                        image->path, image->height, image->unit, image->lineBytes, (unsigned long long)need,
                        (unsigned long long)have);
    return kExitOk;
}

int ImageCheckRaster(const Image *image) {
    const HalvHeaderStruct *h = image->header;
    if (!IsRasterFormat(h))
        return Complain("%s has format %s; only internal, image-ext, pixr and pixelstream images can be processed",
                        image->path, image->format);
    if (h->compression != 0)
        return Complain("%s holds compressed data (%s); its samples can't be processed", image->path,
                        HalvComp2Str(h->compression));
    if (h->interleave > 1)
        return Complain("%s has %s interleave; scanline and pixel interleave can be processed", image->path,
                        HalvInterleave2Str((int32_t)h->interleave));
    if (ImageSamples(image) == 0)
        return Complain("%s: its header gives %s separations", image->path,
                        h->parts[0] + h->parts[1] + h->parts[2] == 0 ? "no" : "more than 36");
    if (h->dims[0] == 0)
        return Complain("%s has no pixels: its width is 0", image->path);
    if (IsPixelStream(image) && h->bitsPerSample[0] != 8 && h->bitsPerSample[0] != 16 && h->bitsPerSample[0] != 32)
        return Complain("%s: its pixel stream has %u bits per sample; 8, 16 and 32 can be handled", image->path,
                        h->bitsPerSample[0]);
    /* A pixel stream's bytes/sl is one pixel's: its scanline is checked by
     * pixels of one. */
    if (CheckSeparations(image, h->dims[0]) != kExitOk)
        return kExitFailed;
    if (image->lineBytes == 0)
        return Complain("%s: its scanlines have no bytes", image->path);
    return CheckStoredSize(image);
}

/* A measurement this host holds in memory at once, at most. */
static const uint32_t kMaxMeasurementBytes = 64u << 20;

int ImageCheckSpectrum(const Image *image) {
    const HalvHeaderStruct *h = image->header;
    if (h->managerType != HALV_HDR_SPECTRAL)
        return Complain("%s has format %s; this takes spectra (format spectral)", image->path, image->format);
    if (h->dims[0] == 0)
        return Complain("%s has no samples: its numberOfSamples is 0 or missing", image->path);
    if (image->lineBytes == 0 || image->lineBytes > kMaxMeasurementBytes)
        return Complain("%s: a measurement of %u samples is more than this host handles", image->path, h->dims[0]);
    return CheckStoredSize(image);
}

static uint32_t LinesPerLoad(const Image *image) {
    if (image->lineBytes == 0)
        return kCompressedLinesPerLoad;
    uint32_t lines = kChunkTargetBytes / image->lineBytes;
    return lines == 0 ? 1 : lines;
}

/* A pixel stream's chunk counts pixels: whole scanlines of them, or the
 * data end inside one. */
static int PixelsToScanlines(Image *image, HalvChunk *chunk) {
    if (chunk->lines % image->width != 0)
        return Complain("%s ends in the middle of a scanline of %u pixels, after %llu whole scanlines", image->path,
                        image->width, (unsigned long long)(image->linesRead + chunk->lines / image->width));
    chunk->lines /= image->width;
    return kExitOk;
}

/* pixr hands samples on in the file's byte order; every other format in
 * the machine's.  Turned around here, the host sees one order only. */
static void PixrToMachineOrder(const Image *image, HalvChunk *chunk) {
    int stored = HalvStr2Endian(image->architecture);
    if (image->header->managerType == HALV_HDR_PIXR && stored != -1 && stored != HalvIdentifyEndian() &&
        image->header->compression == 0)
        HalvHeaderReverseLines(image->header, chunk->data, chunk->bytes, chunk->lines);
}

static int CheckChunk(Image *image, const HalvChunk *chunk) {
    if (image->lineBytes == 0)
        return kExitOk;
    if ((uint64_t)chunk->lines * image->lineBytes != chunk->bytes) {
        if (chunk->bytes % image->lineBytes != 0)
            return Complain("%s ends in the middle of a %s, after %llu whole %ss", image->path, image->unit,
                            (unsigned long long)image->linesRead, image->unit);
        return Complain("%s is damaged: a chunk holds %u bytes for %u %ss of %u bytes", image->path, chunk->bytes,
                        chunk->lines, image->unit, image->lineBytes);
    }
    if (image->height != 0 && image->linesRead + chunk->lines > image->height)
        return Complain("%s holds more %ss than the %u its header gives", image->path, image->unit, image->height);
    return kExitOk;
}

int ImageNextChunk(Image *image, HalvChunk *chunk) {
    memset(chunk, 0, sizeof *chunk);
    int interrupted = InterruptStatus();
    if (interrupted != kExitOk)
        return interrupted; /* the caller's failure path removes its output */
    if (image->ended) {
        chunk->flags = HALV_CHUNK_END;
        return kExitOk;
    }
    uint32_t lines = LinesPerLoad(image);
    if (IsPixelStream(image))
        lines *= image->width; /* at most 1 GiB / pixel bytes: no wrap */
    int loaded = HVHdrToChunkLines(image->manager, image->header, image->io, chunk, lines);
    if (loaded == -1 && IsPixelStream(image))
        return Complain("%s ends in the middle of a pixel of %u samples, or holds text that is no number (after "
                        "%llu scanlines)",
                        image->path, ImageSamples(image), (unsigned long long)image->linesRead);
    if (loaded != 1 && loaded != 2) {
        if (image->header->managerType == HALV_HDR_INTERNAL && image->height != 0)
            return Complain("%s is cut short: it ends before the %u scanlines its header gives (after %llu)",
                            image->path, image->height, (unsigned long long)image->linesRead);
        if (image->header->managerType == HALV_HDR_SPECTRAL)
            return Complain("%s is damaged: its data can't be read as %u samples a measurement (after %llu "
                            "measurements)",
                            image->path, image->header->dims[0], (unsigned long long)image->linesRead);
        return Complain("%s is damaged: its data end inside a chunk, or a chunk record gives a wrong length "
                        "(after %llu scanlines)",
                        image->path, (unsigned long long)image->linesRead);
    }
    if (IsPixelStream(image) && PixelsToScanlines(image, chunk) != kExitOk)
        return kExitFailed;
    if (CheckChunk(image, chunk) != kExitOk)
        return kExitFailed;
    PixrToMachineOrder(image, chunk);
    image->linesRead += chunk->lines;
    image->bytesRead += chunk->bytes;
    if (chunk->flags & HALV_CHUNK_END) {
        image->ended = 1;
        if (image->height != 0 && image->lineBytes != 0 && image->linesRead < image->height)
            return Complain("%s is cut short: it ends after %llu of the %u %ss its header gives", image->path,
                            (unsigned long long)image->linesRead, image->height, image->unit);
    }
    return kExitOk;
}

int ParseByteOrder(const char *word, int *order) {
    static const char *const kWords[] = {"little", "big"};
    for (int i = 0; i < 2; ++i)
        if (strcmp(word, kWords[i]) == 0)
            return *order = i, 1;
    return 0;
}

int ReadWholeFile(const char *path, unsigned char **bytes, uint32_t *size, uint32_t limit) {
    *bytes = NULL;
    *size = 0;
    errno = 0;
    HalvIO *io = HalvIO_FileName(path, "rb");
    if (io == NULL)
        return Complain("can't open %s: %s", path, errno != 0 ? strerror(errno) : "failed");
    uint32_t capacity = 0;
    int status = kExitOk;
    for (;;) {
        if (*size == capacity) {
            uint32_t grown = capacity == 0 ? 4096 : capacity * 2;
            if (capacity >= limit) {
                status = Complain("%s is larger than %u bytes", path, limit);
                break;
            }
            unsigned char *more = realloc(*bytes, grown);
            if (more == NULL) {
                status = Complain("no memory for %s", path);
                break;
            }
            *bytes = more;
            capacity = grown;
        }
        int32_t got = io->read(io, *bytes + *size, capacity - *size);
        if (got <= 0) {
            if (got < 0)
                status = Complain("can't read %s", path);
            break;
        }
        *size += (uint32_t)got;
    }
    io->close(io);
    if (status != kExitOk) {
        free(*bytes);
        *bytes = NULL;
        *size = 0;
    }
    return status;
}
