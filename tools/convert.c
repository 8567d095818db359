/*
 * convert.c - an image into another stored format or byte order, or a
 * spectrum into the other spectral version, chunk by chunk, without
 * touching the samples' values.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host.h"

typedef struct ConvertOptions {
    const char *input;
    const char *output;
    const char *format;
    const char *version; /* null: the format's default */
    int byteOrder;       /* 0 little, 1 big, -1 keep */
} ConvertOptions;

static const char kConvertUsage[] = "usage: halvern convert INPUT OUTPUT --format internal|image-ext [--byte-order "
                                    "big|little], or SPECTRA OUTPUT --format spectral [--version 1.0-ascii|1.0-binary]";

static int ParseOptions(int argc, char **argv, ConvertOptions *options) {
    memset(options, 0, sizeof *options);
    options->byteOrder = -1;
    int positional = 0;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--format") == 0 && i + 1 < argc)
            options->format = argv[++i];
        else if (strcmp(argv[i], "--version") == 0 && i + 1 < argc)
            options->version = argv[++i];
        else if (strcmp(argv[i], "--byte-order") == 0 && i + 1 < argc) {
            if (!ParseByteOrder(argv[++i], &options->byteOrder))
                return Complain("--byte-order %s: big or little", argv[i]), kExitUsage;
        } else if (strncmp(argv[i], "--", 2) == 0)
            return Complain("convert: unknown option %s", argv[i]), kExitUsage;
        else if (positional == 0)
            options->input = argv[i], ++positional;
        else if (positional == 1)
            options->output = argv[i], ++positional;
        else
            return Complain("convert: unexpected argument %s", argv[i]), kExitUsage;
    }
    if (options->input == NULL || options->output == NULL || options->format == NULL)
        return Complain("%s", kConvertUsage), kExitUsage;
    if (WritableVersion(options->format, NULL) == NULL)
        return Complain("--format %s: internal or image-ext for images, spectral for spectra", options->format),
               kExitUsage;
    if (WritableVersion(options->format, options->version) == NULL)
        return Complain("--version %s: format %s is written as %s", options->version, options->format,
                        strcmp(options->format, "spectral") == 0 ? "1.0-ascii or 1.0-binary"
                                                                 : WritableVersion(options->format, NULL)),
               kExitUsage;
    if (strcmp(options->format, "spectral") == 0 && options->byteOrder >= 0)
        return Complain("--byte-order: spectra are stored in this machine's byte order"), kExitUsage;
    return kExitOk;
}

static int HasWideSamples(const Image *image) {
    for (uint32_t i = 0; i < ImageSamples(image); ++i)
        if (image->header->bitsPerSample[i] > 8)
            return 1;
    return 0;
}

/* A spectrum goes into a spectrum only, its samples as they are. */
static HalvHeaderStruct *PlanSpectrum(const Image *image, const ConvertOptions *options, HVHdrManager *manager) {
    int toSpectrum = strcmp(options->format, "spectral") == 0;
    if (image->header->managerType != HALV_HDR_SPECTRAL || !toSpectrum) {
        Complain("%s is %s; it can be converted to %s only", image->path,
                 toSpectrum ? "an image, not a spectrum" : "a spectrum", toSpectrum ? "internal or image-ext" : "spectral");
        return NULL;
    }
    if (ImageCheckSpectrum(image) != kExitOk)
        return NULL;
    return MakeHeaderAs(image->header, options->format, options->version, manager);
}

/* Checks the input and makes the output header; *swap says whether the
 * samples must be reversed on the way. */
static HalvHeaderStruct *PlanConversion(const Image *image, const ConvertOptions *options, HVHdrManager *manager,
                                        int *swap) {
    const HalvHeaderStruct *h = image->header;
    if (h->managerType == HALV_HDR_SPECTRAL || strcmp(options->format, "spectral") == 0)
        return PlanSpectrum(image, options, manager);
    if (h->compression == 0 ? ImageCheckRaster(image) != kExitOk
                            : (h->managerType != HALV_HDR_INTERNAL && h->managerType != HALV_HDR_IMAGE_EXT)) {
        if (h->compression != 0)
            Complain("%s has format %s; only internal and image-ext images can be converted", image->path,
                     image->format);
        return NULL;
    }
    /* Loaded data are in the header's order; unknown counts as this machine's. */
    int loadedOrder = h->endian == 0 || h->endian == 1 ? h->endian : HalvIdentifyEndian();
    /* By default the output keeps the order the input was stored in. */
    int storedOrder = HalvStr2Endian(image->architecture);
    int target = options->byteOrder >= 0 ? options->byteOrder : storedOrder >= 0 ? storedOrder : loadedOrder;
    *swap = target != loadedOrder && HasWideSamples(image);
    if (*swap && h->compression != 0) {
        Complain("%s holds compressed data; its byte order can't be changed", image->path);
        return NULL;
    }
    HalvHeaderStruct *header = MakeHeaderAs(h, options->format, options->version, manager);
    if (header != NULL)
        header->endian = target;
    return header;
}

/* Samples of the chunk that the text of "1.0-ascii", six digits of " %g",
 * can't hold exactly. */
static uint64_t RoundedSamples(const HalvChunk *chunk) {
    uint64_t rounded = 0;
    const float *values = chunk->data;
    char text[32];
    for (uint32_t i = 0; i < chunk->bytes / sizeof(float); ++i) {
        snprintf(text, sizeof text, "%g", (double)values[i]);
        float back = (float)strtod(text, NULL);
        rounded += back != values[i] && !(isnan(back) && isnan(values[i]));
    }
    return rounded;
}

int CommandConvert(int argc, char **argv) {
    ConvertOptions options;
    int status = ParseOptions(argc, argv, &options);
    if (status != kExitOk)
        return status;
    Image image;
    if (ImageOpen(&image, options.input) != kExitOk)
        return kExitFailed;
    HVHdrManager manager;
    int swap = 0;
    HalvHeaderStruct *header = PlanConversion(&image, &options, &manager, &swap);
    Output out;
    status = header != NULL ? OutputOpen(&out, options.output) : kExitFailed;
    if (status != kExitOk) {
        if (header != NULL)
            header->free(header);
        ImageClose(&image);
        return kExitFailed;
    }
    status = OutputWriteHeader(&out, header, manager, swap);
    Progress progress;
    ProgressStart(&progress, "convert", image.fileBytes);
    HalvChunk chunk = {0};
    int toText = header->managerType == HALV_HDR_SPECTRAL && strcmp(options.version != NULL ? options.version : "",
                                                                    "1.0-ascii") == 0;
    uint64_t rounded = 0;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = ImageNextChunk(&image, &chunk);
        if (status == kExitOk && toText)
            rounded += RoundedSamples(&chunk);
        if (status == kExitOk)
            status = OutputWriteChunk(&out, &chunk);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    if (status == kExitOk && image.linesRead == 0 && image.bytesRead == 0)
        status = Complain("%s holds no data", image.path);
    if (status == kExitOk && rounded != 0)
        fprintf(stderr, "halvern: note: %llu samples of %s were rounded to the six digits that 1.0-ascii stores\n",
                (unsigned long long)rounded, image.path);
    status = OutputFinish(&out, status);
    ImageClose(&image);
    return status;
}
