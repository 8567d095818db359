/*
 * info.c - the header of a stored image or spectrum, or of a flat header
 * block, readable: the description the format's manager understood, then
 * the rest of the header's tree.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host.h"

static void PrintNumbers(const char *label, const uint32_t *values, uint32_t count) {
    printf("%-14s", label);
    for (uint32_t i = 0; i < count; ++i)
        printf(" %u", values[i]);
    printf("\n");
}

static const char *ByteOrderName(const char *architecture) {
    static const char *const kNames[] = {"little-endian", "big-endian"};
    int order = HalvStr2Endian(architecture);
    return order == 0 || order == 1 ? kNames[order] : "not given";
}

static void PrintSize(const HalvHeaderStruct *h) {
    uint32_t width = h->dims[0], height = h->dimCount >= 2 ? h->dims[1] : 0;
    if (h->managerType == HALV_HDR_PIXELSTREAM)
        PixelStreamGeometry(h, &width, &height);
    printf("%-14s %u pixels", "size:", width);
    if (height != 0)
        printf(" x %u scanlines", height);
    else
        printf(" x unknown number of scanlines");
    /* pixr's third dimension is its frame; in image-ext it counts blobs. */
    if (h->managerType == HALV_HDR_PIXR) {
        if (h->dimCount >= 5 && h->dims[4] != 0)
            printf(" x %u blobs", h->dims[4]);
        printf("\n%-14s %u\n%-14s %u", "frame:", h->dims[2], "offset:", h->dims[3]);
    } else if (h->managerType != HALV_HDR_PIXELSTREAM && h->dimCount >= 3 && h->dims[2] != 0) {
        printf(" x %u blobs", h->dims[2]);
    }
    printf("\n");
}

/* What a pixel stream holds and where its text comes from. */
static void PrintPixelStream(const HalvHeaderStruct *h) {
    const HalvPixelStreamHeader *p = (const HalvPixelStreamHeader *)h;
    uint32_t width, height;
    PixelStreamGeometry(h, &width, &height);
    printf("%-14s %u samples of %u bits a pixel, one pixel a line, as text\n", "data:", p->valuesPerPixel,
           h->bitsPerSample[0]);
    printf("%-14s %s\n", "read from:",
           p->stdinStream != NULL ? "standard input (useStdin)" : "the file, behind its header");
    if (HVHdrGetHeaderParam(h->userData, "Raster", "pixels") == NULL)
        printf("%-14s none given: converted, the pixels make a column one pixel wide\n", "geometry:");
}

/* A copy of tree without the top-level sections that hold nothing (the
 * manager took their keys); null when nothing is left. */
static HalvUserCMData *WithoutEmptySections(const HalvUserCMData *tree) {
    HalvUserCMData *copy = HalvUserCMDupData(tree);
    HalvUserCMData **link = &copy;
    while (*link != NULL) {
        HalvUserCMData *node = *link;
        if (node->kind == HALV_UCM_SECTION && node->children == NULL) {
            *link = node->next;
            node->next = NULL;
            HalvFreeUserCMData(node);
        } else {
            link = &node->next;
        }
    }
    return copy;
}

/* The tree as the header text would hold it, indented, control bytes
 * shown as dots. */
static void PrintTree(const HalvUserCMData *tree) {
    HalvIO *mem = HalvIO_Mem(1024);
    HalvUserCMData *kept = WithoutEmptySections(tree);
    if (kept == NULL || mem == NULL || HalvWriteUserCMData(kept, mem) != 1) {
        if (mem != NULL)
            mem->close(mem);
        HalvFreeUserCMData(kept);
        printf("rest of header: %s\n", kept == NULL ? "(nothing)" : "(can't be shown)");
        return;
    }
    HalvFreeUserCMData(kept);
    const unsigned char *text = HalvIOMemBuffer(mem);
    uint32_t length = HalvIOMemLength(mem);
    printf("rest of header:\n    ");
    for (uint32_t i = 0; i < length; ++i) {
        unsigned char c = text[i];
        if (c == '\n')
            fputs(i + 1 < length ? "\n    " : "", stdout);
        else
            putchar(c == '\t' || c >= 0x20 ? c : '.');
    }
    printf("\n");
    mem->close(mem);
}

/* The raster description; order says in which byte order the samples
 * are stored, and why it is known. */
static void PrintRaster(const HalvHeaderStruct *h, const char *order) {
    uint32_t partSum = h->parts[0] + h->parts[1] + h->parts[2];
    uint32_t samples = partSum <= HALV_MAX_SEPARATIONS ? partSum : 0;
    PrintSize(h);
    printf("%-14s %u (image %u, mask %u, other %u)\n", "separations:", partSum, h->parts[0], h->parts[1], h->parts[2]);
    PrintNumbers("bit depth:", h->bitsPerSample, h->interleave == 1 && samples > 0 ? 1 : samples);
    if (h->managerType == HALV_HDR_PIXELSTREAM) {
        PrintPixelStream(h);
        printf("%-14s %s\n", "colour space:", ImageColorName(h));
        return;
    }
    PrintNumbers("bytes/line:", h->bytesPerSep, HalvHeaderSepCount(h));
    printf("%-14s %s\n", "colour space:", ImageColorName(h));
    printf("%-14s %s\n", "byte order:", order);
    printf("%-14s %s\n", "interleave:", HalvInterleave2Str((int32_t)h->interleave));
    printf("%-14s %s\n", "compression:", h->compression == 0 ? "none" : HalvComp2Str(h->compression));
    if (h->alignment != 0)
        printf("%-14s %u\n", "alignment:", h->alignment);
    if (h->minimumChunk != 0 || h->preferredChunk != 0)
        printf("%-14s minimum %u, preferred %u\n", "chunks:", h->minimumChunk, h->preferredChunk);
}

/* Flat header blocks are small; anything larger is not one. */
static const uint32_t kMaxBlockBytes = 64u << 20;

static int IsBlock(const unsigned char *bytes, uint32_t size) {
    return size >= 4 && bytes[0] == 'B' && bytes[1] == 'H' && (bytes[2] == 'L' || bytes[2] == 'B') &&
           (bytes[3] == 'L' || bytes[3] == 'B');
}

/* A 'B' 'H' block made by halvern pack: its header read back. */
static int BlockInfo(const char *path, const unsigned char *bytes, uint32_t size) {
    HalvHeaderStruct *h = HalvBinHdrToHdr(bytes, size, 0);
    if (h == NULL)
        return Complain("%s is a damaged header block: it is cut short, or a length in it is wrong", path);
    printf("%-14s %s (%u bytes)\n", "file:", path, size);
    printf("%-14s flat header block, its words %s-endian\n", "form:", bytes[2] == 'B' ? "big" : "little");
    const char *format = HVHdrGetFormatName_Type(h->managerType);
    printf("%-14s %s (manager type %d)\n", "format:", format != NULL ? format : "unknown", h->managerType);
    PrintRaster(h, h->endian != 0 ? "big-endian (as the block says)" : "little-endian (as the block says)");
    PrintTree(h->userData);
    h->free(h);
    return kExitOk;
}

static int ImageInfo(const char *path) {
    Image image;
    if (ImageOpen(&image, path) != kExitOk)
        return kExitFailed;
    printf("%-14s %s", "file:", image.path);
    if (image.fileBytes != 0)
        printf(" (%llu bytes)", (unsigned long long)image.fileBytes);
    printf("\n%-14s %s\n%-14s %s\n", "format:", image.format, "version:", image.version);
    if (image.header->managerType == HALV_HDR_SPECTRAL) {
        SpectrumPrintInfo(image.header);
        printf("%-14s %s\n", "data:",
               strcmp(image.version, "1.0-binary") == 0 ? "32-bit floats, in the byte order of the machine that wrote them"
                                                        : "one number a line, as text");
        /* The format and version were shown above. */
        HalvUserCMData *rest = HVHdrDeleteHeaderSection(HalvUserCMDupData(image.header->userData), "ID");
        PrintTree(rest);
        HVHdrFree(rest);
        ImageClose(&image);
        return kExitOk;
    }
    char order[64];
    snprintf(order, sizeof order, "%s (%s)", ByteOrderName(image.architecture),
             image.architecture[0] ? image.architecture : "no architecture key");
    int status = kExitOk;
    if (image.header->managerType == HALV_HDR_INFO)
        status = TableInfo(&image, order);
    else
        PrintRaster(image.header, order);
    PrintTree(image.header->userData);
    ImageClose(&image);
    return status;
}

int CommandInfo(int argc, char **argv) {
    if (argc != 1)
        return Complain("usage: halvern info FILE"), kExitUsage;
    /* A block is told by its first four bytes; a stored image's header
     * text can't begin with them. */
    FILE *file = HalvIsURL(argv[0]) ? NULL : fopen(argv[0], "rb");
    unsigned char magic[4] = {0};
    size_t got = file != NULL ? fread(magic, 1, sizeof magic, file) : 0;
    if (file != NULL)
        fclose(file);
    if (!IsBlock(magic, (uint32_t)got))
        return ImageInfo(argv[0]);
    unsigned char *bytes = NULL;
    uint32_t size = 0;
    if (ReadWholeFile(argv[0], &bytes, &size, kMaxBlockBytes) != kExitOk)
        return kExitFailed;
    int status = BlockInfo(argv[0], bytes, size);
    free(bytes);
    return status;
}
