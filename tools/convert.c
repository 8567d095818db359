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

static const char kConvertUsage[] =
    "usage: halvern convert INPUT OUTPUT --format internal|image-ext|pixr|pixelstream [--byte-order big|little], "
    "or SPECTRA OUTPUT --format spectral [--version 1.0-ascii|1.0-binary]";

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
        return Complain("--format %s: internal, image-ext, pixr or pixelstream for images, spectral for spectra",
                        options->format),
               kExitUsage;
    if (WritableVersion(options->format, options->version) == NULL)
        return Complain("--version %s: format %s is written as %s", options->version, options->format,
                        strcmp(options->format, "spectral") == 0 ? "1.0-ascii or 1.0-binary"
                                                                 : WritableVersion(options->format, NULL)),
               kExitUsage;
    if (strcmp(options->format, "spectral") == 0 && options->byteOrder >= 0)
        return Complain("--byte-order: spectra are stored in this machine's byte order"), kExitUsage;
    if (strcmp(options->format, "pixelstream") == 0 && options->byteOrder >= 0)
        return Complain("--byte-order: a pixel stream is text, whose samples have no byte order"), kExitUsage;
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
                 toSpectrum ? "an image, not a spectrum" : "a spectrum",
                 toSpectrum ? "internal, image-ext, pixr or pixelstream" : "spectral");
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
    int compressedRaster = h->managerType == HALV_HDR_INTERNAL || h->managerType == HALV_HDR_IMAGE_EXT ||
                           h->managerType == HALV_HDR_PIXR;
    if (h->compression == 0 ? ImageCheckRaster(image) != kExitOk : !compressedRaster) {
        if (h->compression != 0)
            Complain("%s has format %s; only internal, image-ext and pixr images can be converted", image->path,
                     image->format);
        return NULL;
    }
    if (h->compression != 0 && strcmp(options->format, "pixelstream") == 0) {
        Complain("%s holds compressed data; a pixel stream holds samples", image->path);
        return NULL;
    }
    /* Loaded data are in the header's order (a pixel stream's and pixr's
     * in this machine's, see ImageNextChunk); unknown counts as this
     * machine's. */
    int loadedOrder = (h->endian == 0 || h->endian == 1) && h->managerType != HALV_HDR_PIXELSTREAM
                          ? h->endian
                          : HalvIdentifyEndian();
    /* By default the output keeps the order the input was stored in. */
    int storedOrder = HalvStr2Endian(image->architecture);
    int target = options->byteOrder >= 0 ? options->byteOrder : storedOrder >= 0 ? storedOrder : loadedOrder;
    if (strcmp(options->format, "pixelstream") == 0)
        target = HalvIdentifyEndian(); /* text is written from samples in this machine's order */
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

/* How the chunks of the input become those of the output: a pixel stream
 * takes its pixels packed, samples side by side, and counts them. */
typedef struct ChunkPlan {
    int pack;                /* regroup each scanline into packed pixels */
    uint32_t sampleBytes;    /* bytes of one sample */
    uint32_t packedLine;     /* bytes of a packed scanline */
    uint32_t pixelsPerLine;  /* for Output: a pixel stream's chunks count pixels */
    unsigned char *scratch;
    uint32_t scratchCapacity;
} ChunkPlan;

/* The dimensions that each raster format keeps: internal two, image-ext
 * one or two, pixr four.  frame, offset and blobs mean something else in
 * each, so they don't cross from one format to another. */
static void KeepDimensions(HalvHeaderStruct *header, int32_t sourceType, uint32_t width, uint32_t height) {
    if (sourceType == header->managerType)
        return;
    memset(header->dims, 0, sizeof header->dims);
    header->dims[0] = width;
    header->dims[1] = height;
    header->dimCount = header->managerType == HALV_HDR_PIXR       ? 4
                       : header->managerType == HALV_HDR_IMAGE_EXT ? (height != 0 ? 2 : 1)
                                                                   : 2;
}

/* The geometry of the output header, which a pixel stream on either side
 * keeps in its Raster section alone; with a pixel stream as output, how
 * its chunks are made.  kExitOk, or kExitFailed after saying why. */
static int FitGeometry(const Image *image, HalvHeaderStruct *header, ChunkPlan *plan) {
    const HalvHeaderStruct *h = image->header;
    uint32_t samples = ImageSamples(image), bits = ImageCommonBits(image);
    memset(plan, 0, sizeof *plan);
    if (header->managerType == HALV_HDR_PIXELSTREAM) {
        if (bits != 8 && bits != 16 && bits != 32)
            return Complain("%s: a pixel stream holds samples of one depth, 8, 16 or 32 bits; this image's "
                            "separations differ or have another depth",
                            image->path);
        plan->sampleBytes = bits / 8;
        plan->packedLine = samples * plan->sampleBytes * image->width; /* within the 1 GiB of a line */
        plan->pack = h->managerType != HALV_HDR_PIXELSTREAM &&
                     (image->lineBytes != plan->packedLine || (h->interleave != 1 && samples > 1));
        plan->pixelsPerLine = image->width;
        memset(header->dims, 0, sizeof header->dims);
        header->dims[0] = 1;
        header->dimCount = 1;
        header->interleave = 1;
        header->alignment = 0;
        header->minimumChunk = header->preferredChunk = 0;
        header->bitsPerSample[0] = bits;
        header->userData = HVHdrSetHeaderInts(header->userData, "Raster", "pixels", (const int32_t *)&image->width,
                                              1, 1);
        if (image->height != 0)
            header->userData = HVHdrSetHeaderInts(header->userData, "Raster", "scanlines",
                                                  (const int32_t *)&image->height, 1, 1);
        else
            header->userData = HVHdrDeleteHeaderField(header->userData, "Raster", "scanlines");
        return kExitOk;
    }
    if (h->managerType == HALV_HDR_PIXELSTREAM) {
        /* Packed pixels are a scanline of pixel interleave as it stands. */
        header->interleave = 1;
        header->alignment = 0;
        for (uint32_t i = 0; i < samples; ++i)
            header->bitsPerSample[i] = bits;
        KeepDimensions(header, HALV_HDR_PIXELSTREAM, image->width, image->height);
        uint32_t minimum = header->minimumChunk, preferred = header->preferredChunk;
        HalvHeaderFillInBytes(header);
        header->minimumChunk = minimum;
        header->preferredChunk = preferred;
        header->userData = HVHdrDeleteHeaderField(header->userData, "Raster", "pixels");
        header->userData = HVHdrDeleteHeaderField(header->userData, "Raster", "scanlines");
        return kExitOk;
    }
    KeepDimensions(header, h->managerType, image->width, image->height);
    return kExitOk;
}

/* The chunk as the output takes it: the input's, or its scanlines packed. */
static int PlanChunk(ChunkPlan *plan, const Image *image, const HalvChunk *chunk, HalvChunk *planned) {
    *planned = *chunk;
    if (!plan->pack || chunk->lines == 0)
        return kExitOk;
    uint64_t bytes = (uint64_t)chunk->lines * plan->packedLine;
    if (bytes > plan->scratchCapacity) {
        unsigned char *grown = bytes <= UINT32_MAX ? realloc(plan->scratch, (size_t)bytes) : NULL;
        if (grown == NULL)
            return Complain("no memory for %llu bytes", (unsigned long long)bytes);
        plan->scratch = grown;
        plan->scratchCapacity = (uint32_t)bytes;
    }
    const HalvHeaderStruct *h = image->header;
    uint32_t samples = ImageSamples(image), w = plan->sampleBytes;
    uint32_t start[HALV_MAX_SEPARATIONS]; /* where each separation begins in a scanline */
    for (uint32_t s = 0, at = 0; s < samples; ++s) {
        start[s] = h->interleave == 1 ? s * w : at;
        at += h->interleave == 1 ? 0 : h->bytesPerSep[s];
    }
    uint32_t step = h->interleave == 1 ? samples * w : w; /* from one pixel's sample to the next's */
    const unsigned char *in = chunk->data;
    unsigned char *out = plan->scratch;
    for (uint32_t y = 0; y < chunk->lines; ++y, in += image->lineBytes)
        for (uint32_t x = 0; x < image->width; ++x)
            for (uint32_t s = 0; s < samples; ++s, out += w)
                memcpy(out, in + start[s] + (size_t)x * step, w);
    planned->data = plan->scratch;
    planned->bytes = (uint32_t)bytes;
    planned->capacity = plan->scratchCapacity;
    return kExitOk;
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
    ChunkPlan plan;
    memset(&plan, 0, sizeof plan);
    if (header != NULL && header->managerType != HALV_HDR_SPECTRAL && FitGeometry(&image, header, &plan) != kExitOk) {
        header->free(header);
        header = NULL;
    }
    Output out;
    status = header != NULL ? OutputOpen(&out, options.output) : kExitFailed;
    if (status != kExitOk) {
        if (header != NULL)
            header->free(header);
        ImageClose(&image);
        return kExitFailed;
    }
    out.pixelsPerLine = plan.pixelsPerLine;
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
        HalvChunk planned;
        if (status == kExitOk)
            status = PlanChunk(&plan, &image, &chunk, &planned);
        if (status == kExitOk)
            status = OutputWriteChunk(&out, &planned);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    if (status == kExitOk && image.linesRead == 0 && image.bytesRead == 0)
        status = Complain("%s holds no data", image.path);
    if (status == kExitOk && rounded != 0)
        fprintf(stderr, "halvern: note: %llu samples of %s were rounded to the six digits that 1.0-ascii stores\n",
                (unsigned long long)rounded, image.path);
    status = OutputFinish(&out, status);
    free(plan.scratch);
    ImageClose(&image);
    return status;
}
