/*
 * demo_wavelengths.c - the demo's spectra: the reflectance of four colour
 * patches from 400 to 700 nm, written as a "spectral" "1.0-ascii" file
 * through its manager, read back by the same road as any input, shown as
 * a table and plotted to an SVG file beside it.
 */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "host.h"

enum { kSamples = 31, kPatches = 4, kPathMax = 4096 };
static const float kStart = 400.0f, kStep = 10.0f;

/* In this order the plot's first three colours match the patches. */
static const char *const kPatchNames[kPatches] = {"blue", "red", "green", "grey"};

/* Smooth curves of the kind such patches have, rounded to what the text
 * keeps: a blue and a green have a hump, a red rises past 600 nm, a grey
 * is flat. */
static float Reflectance(int patch, double nm) {
    double r;
    switch (patch) {
    case 0:
        r = 0.05 + 0.6 * exp(-pow((nm - 450) / 40, 2));
        break;
    case 1:
        r = 0.05 + 0.8 / (1 + exp(-(nm - 600) / 15));
        break;
    case 2:
        r = 0.05 + 0.5 * exp(-pow((nm - 530) / 45, 2));
        break;
    default:
        r = 0.18;
    }
    return (float)(floor(r * 10000 + 0.5) / 10000);
}

static int WriteSpectra(const char *path) {
    HVHdrManager manager;
    HalvHeaderStruct *header = NULL;
    if (HVHdrGetManager_Str("spectral", "1.0-ascii", &manager) != 1 || HVHdrCreateHeader(manager, &header) != 1)
        return Complain("this build can't write spectra");
    HalvSpectralHeader *s = (HalvSpectralHeader *)header;
    header->parts[0] = 1;
    header->dims[0] = kSamples;
    header->dims[1] = kPatches;
    for (uint32_t i = 0; i < HALV_MAX_SEPARATIONS; ++i)
        header->bitsPerSample[i] = 32;
    s->bytesPerMeasurement = kSamples * sizeof(float);
    s->startWaveLength = kStart;
    s->samplingInterval = kStep;
    s->wavelengths[0] = HALV_SPECTRAL_NONE;
    s->spectrumType = HALV_SPECTRUM_REFLECTANCE;
    float values[kPatches * kSamples];
    for (int p = 0; p < kPatches; ++p)
        for (int i = 0; i < kSamples; ++i)
            values[p * kSamples + i] = Reflectance(p, kStart + i * kStep);
    HalvChunk chunk = {HALV_CHUNK_END, 0, kPatches, sizeof values, sizeof values, 0, values};
    return OutputWholeFile(path, header, manager, &chunk);
}

/* Every fifth sample of each patch, from the file as read back. */
static void PrintTable(const Spectrum *s) {
    printf("%6s", "nm");
    for (uint32_t m = 0; m < s->measurements && m < kPatches; ++m)
        printf(" %7s", kPatchNames[m]);
    printf("\n");
    for (uint32_t i = 0; i < s->samples; i += 5) {
        printf("%6.0f", (double)s->wavelengths[i]);
        for (uint32_t m = 0; m < s->measurements; ++m)
            printf(" %7.4f", (double)s->values[(size_t)m * s->samples + i]);
        printf("\n");
    }
}

int DemoSpectra(const char *dir, char **created, int *createdCount) {
    char path[kPathMax], plot[kPathMax];
    snprintf(path, sizeof path, "%s/patches.hvs", dir);
    snprintf(plot, sizeof plot, "%s/patches.svg", dir);
    if (WriteSpectra(path) != kExitOk)
        return kExitFailed;
    created[(*createdCount)++] = strdup(path);
    Image image;
    Spectrum spectrum;
    if (ImageOpen(&image, path) != kExitOk)
        return kExitFailed;
    int status = SpectrumLoad(&image, &spectrum);
    ImageClose(&image);
    if (status != kExitOk)
        return status;
    printf("\nMade %s: the reflectance of %d colour patches, %d samples from %.0f to %.0f nm in\n"
           "steps of %.0f nm, stored as spectral 1.0-ascii, and read it back:\n\n",
           path, kPatches, kSamples, (double)kStart, (double)(kStart + (kSamples - 1) * kStep), (double)kStep);
    PrintTable(&spectrum);
    SpectrumFree(&spectrum);
    /* The plot by the road "halvern export" takes. */
    status = ExportSpectrum(path, plot);
    if (status == kExitOk) {
        created[(*createdCount)++] = strdup(plot);
        printf("\nPlotted all four to %s, as \"halvern export patches.hvs patches.svg\" does.\n", plot);
    }
    return status;
}
