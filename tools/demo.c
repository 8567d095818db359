/*
 * demo.c - the first thing to run: with no set-up, makes a small sample
 * image in a temporary directory, runs every registered function over it
 * by the same road as "halvern run", and shows the first scanline of each
 * result; then makes a few spectra and shows them (demo_wavelengths.c).
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "host.h"

enum { kWidth = 16, kHeight = 4, kPathMax = 4096 };

/* Arguments for the functions that need one; others leave them unread. */
static char *kDemoArgs[] = {"factor=1.5", "level=128"};

static void Ramp(unsigned char *line, uint32_t row) {
    for (uint32_t i = 0; i < kWidth; ++i)
        line[i] = (unsigned char)(row % 2 == 0 ? i * 17 : 255 - i * 17);
}

/* The sample: 16 x 4 8-bit grey, rising ramps on even rows, falling on odd. */
static int WriteSample(const char *path) {
    HVHdrManager manager;
    HalvHeaderStruct *header = NULL;
    if (HVHdrGetManager_Str("internal", "2.1", &manager) != 1 || HVHdrCreateHeader(manager, &header) != 1)
        return Complain("this build can't write internal images");
    header->parts[0] = 1;
    header->bitsPerSample[0] = 8;
    header->dims[0] = kWidth;
    header->dims[1] = kHeight;
    header->color = HalvStr2Clr("grayLinear");
    HalvHeaderFillInBytes(header);
    unsigned char pixels[kWidth * kHeight];
    for (uint32_t row = 0; row < kHeight; ++row)
        Ramp(pixels + row * kWidth, row);
    HalvChunk chunk = {HALV_CHUNK_END, 0, kHeight, sizeof pixels, sizeof pixels, 0, pixels};
    return OutputWholeFile(path, header, manager, &chunk);
}

static void PrintSamples(const char *label, const unsigned char *samples, uint32_t count) {
    printf("%-10s", label);
    for (uint32_t i = 0; i < count; ++i)
        printf(" %3u", samples[i]);
    printf("\n");
}

static int PrintFirstLine(const char *label, const char *path) {
    Image image;
    if (ImageOpen(&image, path) != kExitOk)
        return kExitFailed;
    HalvChunk chunk;
    int status = ImageNextChunk(&image, &chunk);
    if (status == kExitOk && chunk.bytes >= kWidth)
        PrintSamples(label, chunk.data, kWidth);
    else if (status == kExitOk)
        status = Complain("%s holds no scanline", path);
    ImageClose(&image);
    return status;
}

/* Each result also as a picture beside it, for any viewer. */
static int ExportResult(const char *output, char **created, int *createdCount) {
    char picture[kPathMax + 64];
    snprintf(picture, sizeof picture, "%.*s.png", (int)(strlen(output) - 3), output);
    if (ExportPicture(output, picture, 90) != kExitOk)
        return kExitFailed;
    created[(*createdCount)++] = strdup(picture);
    return kExitOk;
}

static int RunAll(const char dir[kPathMax / 2], const char *sample, char **created, int *createdCount) {
    HalvFuncDesc **descs = NULL;
    if (HalvFindAllFuncDesc(&descs) != 1 || descs == NULL || descs[0] == NULL) {
        HalvFreeSmartArray(descs);
        return Complain("no processing functions are registered (is hvregistry.dot beside halvern?)");
    }
    int status = kExitOk;
    for (uint32_t i = 0; descs[i] != NULL && *createdCount < 128; ++i) {
        char output[kPathMax + 64];
        snprintf(output, sizeof output, "%s/%s.hv", dir, descs[i]->name);
        if (RunFunction(descs[i]->name, sample, output, kDemoArgs, 2, 1, 0) != kExitOk) {
            status = kExitFailed;
            continue;
        }
        created[(*createdCount)++] = strdup(output);
        status |= PrintFirstLine(descs[i]->name, output);
        status |= ExportResult(output, created, createdCount);
    }
    HalvFreeSmartArray(descs);
    return status;
}

int CommandDemo(int argc, char **argv) {
    int keep = argc == 1 && strcmp(argv[0], "--keep") == 0;
    if (argc > 1 || (argc == 1 && !keep))
        return Complain("usage: halvern demo [--keep]"), kExitUsage;
    const char *tmp = getenv("TMPDIR");
    char dir[kPathMax / 2];
    snprintf(dir, sizeof dir, "%s/halvern-demo-XXXXXX", tmp != NULL && tmp[0] != '\0' ? tmp : "/tmp");
    if (mkdtemp(dir) == NULL)
        return Complain("can't make a directory for the demo in %s", tmp != NULL ? tmp : "/tmp");
    char sample[kPathMax];
    snprintf(sample, sizeof sample, "%s/sample.hv", dir);
    char *created[136]; /* 64 results and their pictures, the sample, the spectra and their plot */
    int createdCount = 0;
    int status = WriteSample(sample);
    if (status == kExitOk) {
        created[createdCount++] = strdup(sample);
        printf("Made %s: %u x %u pixels, 8-bit grey, stored as an internal image.\n", sample, kWidth, kHeight);
        printf("Ran every registered function over it, as \"halvern run NAME sample.hv NAME.hv %s %s\" does,\n"
               "and read each result back.  The first scanline of each:\n\n",
               kDemoArgs[0], kDemoArgs[1]);
        unsigned char ramp[kWidth];
        Ramp(ramp, 0);
        PrintSamples("input", ramp, kWidth);
        status = RunAll(dir, sample, created, &createdCount);
        status |= DemoSpectra(dir, created, &createdCount);
    }
    if (keep) {
        printf("\nEach result is also a PNG beside it, as \"halvern export NAME.hv NAME.png\" writes it:\n");
        for (int i = 0; i < createdCount; ++i) {
            size_t length = created[i] != NULL ? strlen(created[i]) : 0;
            if (length > 4 && strcmp(created[i] + length - 4, ".png") == 0)
                printf("  %s\n", created[i]);
        }
        printf("\nThe files are in %s.\n", dir);
    } else {
        for (int i = 0; i < createdCount; ++i)
            if (created[i] != NULL)
                unlink(created[i]);
        rmdir(dir);
    }
    for (int i = 0; i < createdCount; ++i)
        free(created[i]);
    return status;
}
