/*
 * convert.c - an image into another stored format or byte order, chunk by
 * chunk, without touching the samples' values.
 */
#include <stdio.h>
#include <string.h>

#include "host.h"

typedef struct ConvertOptions {
    const char *input;
    const char *output;
    const char *format;
    int byteOrder; /* 0 little, 1 big, -1 keep */
} ConvertOptions;

static int ParseOptions(int argc, char **argv, ConvertOptions *options) {
    memset(options, 0, sizeof *options);
    options->byteOrder = -1;
    int positional = 0;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--format") == 0 && i + 1 < argc)
            options->format = argv[++i];
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
        return Complain("usage: halvern convert INPUT OUTPUT --format internal|image-ext [--byte-order big|little]"),
               kExitUsage;
    if (strcmp(options->format, "internal") != 0 && strcmp(options->format, "image-ext") != 0)
        return Complain("--format %s: internal or image-ext", options->format), kExitUsage;
    return kExitOk;
}

static int HasWideSamples(const Image *image) {
    for (uint32_t i = 0; i < ImageSamples(image); ++i)
        if (image->header->bitsPerSample[i] > 8)
            return 1;
    return 0;
}

/* Checks the input and makes the output header; *swap says whether the
 * samples must be reversed on the way. */
static HalvHeaderStruct *PlanConversion(const Image *image, const ConvertOptions *options, HVHdrManager *manager,
                                        int *swap) {
    const HalvHeaderStruct *h = image->header;
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
    HalvHeaderStruct *header = MakeHeaderAs(h, options->format, manager);
    if (header != NULL)
        header->endian = target;
    return header;
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
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = ImageNextChunk(&image, &chunk);
        if (status == kExitOk)
            status = OutputWriteChunk(&out, &chunk);
        ProgressAdvance(&progress, chunk.bytes);
    }
    ProgressFinish(&progress);
    if (status == kExitOk && image.linesRead == 0 && image.bytesRead == 0)
        status = Complain("%s holds no data", image.path);
    status = OutputFinish(&out, status);
    ImageClose(&image);
    return status;
}
