/*
 * info.c - the header of a stored image, readable: the raster description
 * the format's manager understood, then the rest of the header's tree.
 */
#include <stdio.h>
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
    printf("%-14s %u pixels", "size:", h->dims[0]);
    if (h->dimCount >= 2 && h->dims[1] != 0)
        printf(" x %u scanlines", h->dims[1]);
    else
        printf(" x unknown number of scanlines");
    if (h->dimCount >= 3 && h->dims[2] != 0)
        printf(" x %u blobs", h->dims[2]);
    printf("\n");
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

static void PrintRaster(const Image *image) {
    const HalvHeaderStruct *h = image->header;
    uint32_t samples = ImageSamples(image);
    PrintSize(h);
    printf("%-14s %u (image %u, mask %u, other %u)\n", "separations:", h->parts[0] + h->parts[1] + h->parts[2],
           h->parts[0], h->parts[1], h->parts[2]);
    PrintNumbers("bit depth:", h->bitsPerSample, h->interleave == 1 && samples > 0 ? 1 : samples);
    uint32_t seps = image->storedSeps <= HALV_MAX_SEPARATIONS ? image->storedSeps : 0;
    PrintNumbers("bytes/line:", h->bytesPerSep, seps);
    printf("%-14s %s\n", "colour space:", ImageColorName(h));
    printf("%-14s %s (%s)\n", "byte order:", ByteOrderName(image->architecture),
           image->architecture[0] ? image->architecture : "no architecture key");
    printf("%-14s %s\n", "interleave:", HalvInterleave2Str((int32_t)h->interleave));
    printf("%-14s %s\n", "compression:", h->compression == 0 ? "none" : HalvComp2Str(h->compression));
    if (h->alignment != 0)
        printf("%-14s %u\n", "alignment:", h->alignment);
    if (h->minimumChunk != 0 || h->preferredChunk != 0)
        printf("%-14s minimum %u, preferred %u\n", "chunks:", h->minimumChunk, h->preferredChunk);
}

int CommandInfo(int argc, char **argv) {
    if (argc != 1)
        return Complain("usage: halvern info FILE"), kExitUsage;
    Image image;
    if (ImageOpen(&image, argv[0]) != kExitOk)
        return kExitFailed;
    printf("%-14s %s", "file:", image.path);
    if (image.fileBytes != 0)
        printf(" (%llu bytes)", (unsigned long long)image.fileBytes);
    printf("\n%-14s %s\n%-14s %s\n", "format:", image.format, "version:", image.version);
    PrintRaster(&image);
    PrintTree(image.header->userData);
    ImageClose(&image);
    return kExitOk;
}
