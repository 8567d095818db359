/*
 * export.c - an image as binary netpbm: P5 (pgm) for one separation, P6
 * (ppm) for three; 8-bit samples with maxval 255, 16-bit with maxval 65535
 * stored most significant byte first.  Spectra go out as CSV or SVG
 * (spectra.c), info tables as CSV (table_export.c).
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "host.h"

typedef struct Netpbm {
    const char *extension;
    const char *magic;
    uint32_t samples;
    const char *hint;
} Netpbm;

static const Netpbm kKinds[] = {{".pgm", "P5", 1, "one separation"}, {".ppm", "P6", 3, "three separations"}};

static const Netpbm *KindOf(const char *path) {
    size_t length = strlen(path);
    for (size_t i = 0; i < sizeof kKinds / sizeof kKinds[0]; ++i)
        if (length > 4 && strcasecmp(path + length - 4, kKinds[i].extension) == 0)
            return &kKinds[i];
    return NULL;
}

static int CheckExportable(const Image *image, const Netpbm *kind) {
    if (ImageCheckRaster(image) != kExitOk)
        return kExitFailed;
    uint32_t samples = ImageSamples(image), bits = ImageCommonBits(image);
    if (samples != kind->samples)
        return Complain("%s has %u separations; %s takes %s (pgm one, ppm three)", image->path, samples,
                        kind->extension, kind->hint);
    if (bits == 0)
        return Complain("%s has separations of different depths; pgm and ppm take one depth", image->path);
    if (bits != 8 && bits != 16)
        return Complain("%s has %u-bit samples; pgm and ppm export takes 8 or 16 bits", image->path, bits);
    if (image->height == 0)
        return Complain("%s doesn't say how many scanlines it has, and a %s header must", image->path,
                        kind->extension);
    return kExitOk;
}

/* One scanline as netpbm wants it: pixel after pixel, samples adjacent,
 * most significant byte first. */
static void ConvertLine(const Image *image, const unsigned char *line, unsigned char *out, uint32_t samples,
                        uint32_t width) {
    const HalvHeaderStruct *h = image->header;
    uint32_t bytes = h->bitsPerSample[0] / 8;
    uint32_t offsets[3] = {0, 0, 0};
    for (uint32_t s = 1; s < samples && h->interleave != 1; ++s)
        offsets[s] = offsets[s - 1] + h->bytesPerSep[s - 1];
    for (uint32_t p = 0; p < width; ++p)
        for (uint32_t s = 0; s < samples; ++s) {
            const unsigned char *sample =
                h->interleave == 1 ? line + ((size_t)p * samples + s) * bytes : line + offsets[s] + (size_t)p * bytes;
            if (bytes == 1) {
                *out++ = sample[0];
            } else {
                uint16_t value;
                memcpy(&value, sample, 2); /* loaded data are in this machine's order */
                *out++ = (unsigned char)(value >> 8);
                *out++ = (unsigned char)value;
            }
        }
}

static int WritePixels(Image *image, Output *out, uint32_t samples) {
    uint32_t width = image->width;
    size_t lineOut = (size_t)width * samples * (image->header->bitsPerSample[0] / 8);
    unsigned char *buffer = NULL;
    size_t capacity = 0;
    Progress progress;
    ProgressStart(&progress, "export", image->fileBytes);
    HalvChunk chunk = {0};
    int status = kExitOk;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = ImageNextChunk(image, &chunk);
        if (status != kExitOk)
            break;
        size_t need = lineOut * chunk.lines;
        if (need > capacity) {
            unsigned char *grown = realloc(buffer, need);
            if (grown == NULL) {
                status = Complain("no memory");
                break;
            }
            buffer = grown;
            capacity = need;
        }
        for (uint32_t l = 0; l < chunk.lines; ++l)
            ConvertLine(image, (const unsigned char *)chunk.data + (size_t)l * image->lineBytes, buffer + l * lineOut,
                        samples, width);
        status = OutputWriteBytes(out, buffer, (uint32_t)need);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    free(buffer);
    return status;
}

static void NoteColour(const Image *image, uint32_t samples) {
    uint32_t wanted = samples == 3 ? HALV_COLOR_RGB : HALV_COLOR_GRAY;
    if (image->header->color != 0 && !HalvColorQuery(image->header->color, wanted))
        fprintf(stderr, "halvern: note: %s is in colour space %s; its samples are written as they are\n",
                image->path, ImageColorName(image->header));
}

/* What isn't a raster image goes out as text; the input's format picks
 * the writer, which checks the output's extension itself. */
static const struct {
    int managerType;
    int (*write)(const char *input, const char *output);
} kTextExports[] = {{HALV_HDR_SPECTRAL, ExportSpectrum}, {HALV_HDR_INFO, ExportTable}};

static int ExportOther(const char *input, const char *output) {
    size_t length = strlen(output);
    if (!IsSpectrumExport(output) && !(length > 4 && strcasecmp(output + length - 4, ".csv") == 0))
        return Complain("export writes .pgm or .ppm files of images, .csv or .svg files of spectra and .csv files "
                        "of info tables, not %s",
                        output),
               kExitUsage;
    Image image;
    if (ImageOpen(&image, input) != kExitOk)
        return kExitFailed;
    int type = image.header->managerType;
    char format[sizeof image.format];
    memcpy(format, image.format, sizeof format);
    ImageClose(&image);
    for (size_t i = 0; i < sizeof kTextExports / sizeof kTextExports[0]; ++i)
        if (kTextExports[i].managerType == type)
            return kTextExports[i].write(input, output);
    return Complain("%s has format %s; .csv and .svg exports take spectra and info tables (images go to .pgm or "
                    ".ppm)",
                    input, format);
}

int CommandExport(int argc, char **argv) {
    if (argc != 2)
        return Complain("usage: halvern export IMAGE OUTPUT.pgm|OUTPUT.ppm, SPECTRA OUTPUT.csv|OUTPUT.svg, or "
                        "TABLE OUTPUT.csv"),
               kExitUsage;
    const Netpbm *kind = KindOf(argv[1]);
    if (kind == NULL)
        return ExportOther(argv[0], argv[1]);
    Image image;
    if (ImageOpen(&image, argv[0]) != kExitOk)
        return kExitFailed;
    int status = CheckExportable(&image, kind);
    Output out;
    if (status == kExitOk)
        status = OutputOpen(&out, argv[1]);
    if (status == kExitOk) {
        NoteColour(&image, kind->samples);
        char header[64];
        int length = snprintf(header, sizeof header, "%s\n%u %u\n%u\n", kind->magic, image.width,
                              image.height, ImageCommonBits(&image) == 8 ? 255u : 65535u);
        status = OutputWriteBytes(&out, header, (uint32_t)length);
        if (status == kExitOk)
            status = WritePixels(&image, &out, kind->samples);
        status = OutputFinish(&out, status);
    }
    ImageClose(&image);
    return status;
}
