/*
 * import.c - a picture (PNG, TIFF, JPEG, PGM or PPM, told apart by their
 * first bytes) into a stored image: pixel interleave, 8 or 16 bits as the
 * picture has them, grey or RGB as colour separations and alpha as one
 * mask separation, unless --drop-alpha leaves it out.  The picture is read
 * in bands of about a megabyte, each written as one chunk.
 */
#include <stdlib.h>
#include <string.h>

#include "picture.h"

enum { kBandTargetBytes = 1u << 20 };

typedef struct ImportOptions {
    const char *input;
    const char *output;
    const char *format;
    int byteOrder; /* 0 little, 1 big; this machine's by default */
    int dropAlpha;
} ImportOptions;

static const char kImportUsage[] =
    "usage: halvern import PICTURE OUTPUT [--format internal|image-ext] [--byte-order big|little] [--drop-alpha]";

static int ParseOptions(int argc, char **argv, ImportOptions *options) {
    memset(options, 0, sizeof *options);
    options->format = "internal";
    options->byteOrder = HalvIdentifyEndian();
    int positional = 0;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--format") == 0 && i + 1 < argc)
            options->format = argv[++i];
        else if (strcmp(argv[i], "--byte-order") == 0 && i + 1 < argc) {
            if (!ParseByteOrder(argv[++i], &options->byteOrder))
                return Complain("--byte-order %s: big or little", argv[i]), kExitUsage;
        } else if (strcmp(argv[i], "--drop-alpha") == 0)
            options->dropAlpha = 1;
        else if (strncmp(argv[i], "--", 2) == 0 || positional == 2)
            return Complain("%s", kImportUsage), kExitUsage;
        else if (positional++ == 0)
            options->input = argv[i];
        else
            options->output = argv[i];
    }
    if (positional != 2)
        return Complain("%s", kImportUsage), kExitUsage;
    if (strcmp(options->format, "internal") != 0 && strcmp(options->format, "image-ext") != 0)
        return Complain("--format %s: pictures are imported as internal or image-ext images", options->format),
               kExitUsage;
    return kExitOk;
}

/* Leaves the last sample of every pixel out, in place. */
static void DropAlpha(const PictureInfo *with, unsigned char *rows, uint32_t count) {
    uint32_t bytes = with->bits / 8, keep = with->colours * bytes, pixel = keep + bytes;
    size_t pixels = (size_t)with->width * count;
    for (size_t p = 0; p < pixels; ++p)
        memmove(rows + p * keep, rows + p * pixel, keep);
}

static int CopyBands(PictureReader *reader, const PictureInfo *stored, Output *out) {
    const PictureInfo *info = &reader->info;
    size_t rowBytes = PictureRowBytes(info);
    uint32_t band = (uint32_t)(kBandTargetBytes / rowBytes);
    if (band == 0)
        band = 1;
    if (band > info->height)
        band = info->height;
    unsigned char *rows = malloc(rowBytes * band);
    if (rows == NULL)
        return Complain("no memory for %u rows of %s", band, reader->path);
    Progress progress;
    ProgressStart(&progress, "import", (uint64_t)rowBytes * info->height);
    int status = kExitOk;
    for (uint32_t y = 0; status == kExitOk && y < info->height; y += band) {
        if ((status = InterruptStatus()) != kExitOk)
            break;
        uint32_t count = info->height - y < band ? info->height - y : band;
        status = reader->readRows(reader, rows, count);
        if (status != kExitOk)
            break;
        if (stored->alpha != info->alpha)
            DropAlpha(info, rows, count);
        uint32_t bytes = (uint32_t)(PictureRowBytes(stored) * count);
        HalvChunk chunk = {y + count == info->height ? HALV_CHUNK_END : 0u, 0, count, bytes, bytes, 0, rows};
        status = OutputWriteChunk(out, &chunk);
        ProgressAdvance(&progress, (uint64_t)rowBytes * count);
    }
    ProgressFinish(&progress);
    free(rows);
    return status;
}

int CommandImport(int argc, char **argv) {
    ImportOptions options;
    int status = ParseOptions(argc, argv, &options);
    if (status != kExitOk)
        return status;
    PictureReader reader;
    if (PictureOpen(&reader, options.input) != kExitOk)
        return kExitFailed;
    PictureInfo stored = reader.info;
    if (options.dropAlpha)
        stored.alpha = 0;
    HVHdrManager manager;
    HalvHeaderStruct *header = PictureHeader(&stored, options.format, options.byteOrder, &manager);
    Output out;
    status = header != NULL ? OutputOpen(&out, options.output) : kExitFailed;
    if (status != kExitOk) {
        if (header != NULL)
            header->free(header);
        PictureClose(&reader);
        return kExitFailed;
    }
    int swap = stored.bits == 16 && options.byteOrder != HalvIdentifyEndian();
    status = OutputWriteHeader(&out, header, manager, swap);
    if (status == kExitOk)
        status = CopyBands(&reader, &stored, &out);
    status = OutputFinish(&out, status);
    PictureClose(&reader);
    return status;
}
