/*
 * export.c - a stored image as a picture of the kind its name says: .png,
 * .tif or .tiff, .jpg or .jpeg (with --quality), .pgm or .ppm
 * (picture.c picks the codec).  Spectra go out as CSV or SVG (wavelength_data.c),
 * info tables as CSV (table_export.c): the input's format picks those.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "picture.h"

enum { kDefaultQuality = 90 };

static void NoteColour(const Image *image, const PictureInfo *info) {
    uint32_t wanted = info->colours == 3 ? HALV_COLOR_RGB : HALV_COLOR_GRAY;
    if (image->header->color != 0 && !HalvColorQuery(image->header->color, wanted))
        fprintf(stderr, "halvern: note: %s is in colour space %s; its samples are written as they are\n",
                image->path, ImageColorName(image->header));
}

/* Every chunk of the image, line by line into rows of the common layout,
 * into the writer. */
static int WriteRows(Image *image, const PictureInfo *info, PictureWriter *writer) {
    size_t rowBytes = PictureRowBytes(info);
    unsigned char *rows = NULL;
    size_t capacity = 0;
    Progress progress;
    ProgressStart(&progress, "export", image->fileBytes);
    HalvChunk chunk = {0};
    int status = kExitOk;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = ImageNextChunk(image, &chunk);
        if (status != kExitOk)
            break;
        if (rowBytes * chunk.lines > capacity) {
            unsigned char *grown = realloc(rows, rowBytes * chunk.lines);
            if (grown == NULL) {
                status = Complain("no memory");
                break;
            }
            rows = grown;
            capacity = rowBytes * chunk.lines;
        }
        for (uint32_t l = 0; l < chunk.lines; ++l)
            PictureRowFromLine(image, info, (const unsigned char *)chunk.data + (size_t)l * image->lineBytes,
                               rows + rowBytes * l);
        status = writer->writeRows(writer, rows, chunk.lines);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    free(rows);
    return status == kExitOk ? writer->finish(writer) : status;
}

int ExportPicture(const char *input, const char *output, int quality) {
    Image image;
    if (ImageOpen(&image, input) != kExitOk)
        return kExitFailed;
    PictureInfo info;
    int status = PictureFromImage(&image, &info);
    Output out;
    if (status == kExitOk)
        status = OutputOpen(&out, output);
    if (status == kExitOk) {
        NoteColour(&image, &info);
        PictureWriter writer;
        status = PictureStartWriter(&writer, &out, &info, quality);
        if (status == kExitOk)
            status = WriteRows(&image, &info, &writer);
        if (writer.release != NULL)
            writer.release(&writer);
        status = OutputFinish(&out, status);
    }
    ImageClose(&image);
    return status;
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
        return Complain("export writes .png, .tif, .jpg, .pgm or .ppm files of images, .csv or .svg files of "
                        "spectra and .csv files of info tables, not %s",
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
    return Complain("%s has format %s; .csv and .svg exports take spectra and info tables (images go to .png, "
                    ".tif, .jpg, .pgm or .ppm)",
                    input, format);
}

static const char kExportUsage[] = "usage: halvern export IMAGE OUTPUT.png|.tif|.jpg|.pgm|.ppm [--quality 1-100], "
                                   "SPECTRA OUTPUT.csv|OUTPUT.svg, or TABLE OUTPUT.csv";

int CommandExport(int argc, char **argv) {
    const char *paths[2] = {NULL, NULL};
    int positional = 0, quality = -1;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--quality") == 0 && i + 1 < argc) {
            char *end = NULL;
            long value = strtol(argv[++i], &end, 10);
            if (end == argv[i] || *end != '\0' || value < 1 || value > 100)
                return Complain("--quality %s: a whole number from 1 to 100", argv[i]), kExitUsage;
            quality = (int)value;
        } else if (strncmp(argv[i], "--", 2) == 0 || positional == 2) {
            return Complain("%s", kExportUsage), kExitUsage;
        } else {
            paths[positional++] = argv[i];
        }
    }
    if (positional != 2)
        return Complain("%s", kExportUsage), kExitUsage;
    size_t length = strlen(paths[1]);
    int jpeg = (length > 4 && strcasecmp(paths[1] + length - 4, ".jpg") == 0) ||
               (length > 5 && strcasecmp(paths[1] + length - 5, ".jpeg") == 0);
    if (quality >= 0 && !jpeg)
        return Complain("--quality is for .jpg and .jpeg files, not %s", paths[1]), kExitUsage;
    if (!IsPictureName(paths[1]))
        return ExportOther(paths[0], paths[1]);
    return ExportPicture(paths[0], paths[1], quality >= 0 ? quality : kDefaultQuality);
}
