/*
 * wavelength_data.c - stored spectra in the host: what a spectral header says,
 * all measurements read into memory, and export as CSV (one row per
 * wavelength, one column per measurement) or as an SVG plot.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "host.h"

/* Samples an export holds in memory at most: CSV and the plot need every
 * measurement at once. */
static const uint64_t kMaxExportBytes = 256u << 20;

static const HalvSpectralHeader *AsSpectral(const HalvHeaderStruct *header) {
    return (const HalvSpectralHeader *)header;
}

int FloatText(char *text, size_t size, float value) {
    int length = 0;
    for (int digits = 6; digits <= 9; ++digits) {
        length = snprintf(text, size, "%.*g", digits, (double)value);
        if (strtof(text, NULL) == value)
            break;
    }
    return length;
}

void SpectrumPrintInfo(const HalvHeaderStruct *header) {
    const HalvSpectralHeader *s = AsSpectral(header);
    char a[32], b[32];
    printf("%-14s %s\n", "spectrum type:", __HVHdrSpectralTypeName(s->spectrumType));
    printf("%-14s %u per measurement\n", "samples:", header->dims[0]);
    if (header->dims[1] != 0)
        printf("%-14s %u\n", "measurements:", header->dims[1]);
    else
        printf("%-14s not given: as many as the data hold\n", "measurements:");
    if (s->wavelengths[0] == HALV_SPECTRAL_NONE) {
        FloatText(a, sizeof a, s->startWaveLength);
        FloatText(b, sizeof b, s->samplingInterval);
        printf("%-14s from %s nm in steps of %s nm", "wavelengths:", a, b);
        if (header->dims[0] > 1) {
            FloatText(a, sizeof a, __HVHdrSpectralWavelength(header, header->dims[0] - 1));
            printf(", to %s nm", a);
        }
        printf("\n");
        return;
    }
    printf("%-14s a table of %u, in nm:", "wavelengths:", header->dims[0]);
    for (uint32_t i = 0; i < header->dims[0] && i < HALV_SPECTRAL_MAX_WAVELENGTHS; ++i) {
        FloatText(a, sizeof a, s->wavelengths[i]);
        printf("%s%s", i % 10 == 0 ? "\n    " : " ", a);
    }
    printf("\n");
}

void SpectrumFree(Spectrum *spectrum) {
    free(spectrum->wavelengths);
    free(spectrum->values);
    memset(spectrum, 0, sizeof *spectrum);
}

/* Appends a chunk's measurements to the spectrum's values. */
static int Append(Spectrum *spectrum, const Image *image, const HalvChunk *chunk, uint64_t *capacity) {
    uint64_t have = (uint64_t)spectrum->measurements * image->lineBytes;
    if (have + chunk->bytes > kMaxExportBytes)
        return Complain("%s is too large to export: its samples take more than %llu MiB", image->path,
                        (unsigned long long)(kMaxExportBytes >> 20));
    if (have + chunk->bytes > *capacity) {
        uint64_t grown = (*capacity == 0 ? 1u << 16 : *capacity * 2);
        while (grown < have + chunk->bytes)
            grown *= 2;
        float *more = realloc(spectrum->values, grown);
        if (more == NULL)
            return Complain("no memory for the samples of %s", image->path);
        spectrum->values = more;
        *capacity = grown;
    }
    memcpy((char *)spectrum->values + have, chunk->data, chunk->bytes);
    spectrum->measurements += chunk->lines;
    return kExitOk;
}

int SpectrumLoad(Image *image, Spectrum *spectrum) {
    memset(spectrum, 0, sizeof *spectrum);
    if (ImageCheckSpectrum(image) != kExitOk)
        return kExitFailed;
    const HalvHeaderStruct *h = image->header;
    spectrum->name = image->path;
    spectrum->samples = h->dims[0];
    spectrum->type = AsSpectral(h)->spectrumType;
    spectrum->wavelengths = malloc((size_t)h->dims[0] * sizeof(float));
    if (spectrum->wavelengths == NULL)
        return Complain("no memory for %u wavelengths", h->dims[0]);
    for (uint32_t i = 0; i < h->dims[0]; ++i)
        spectrum->wavelengths[i] = __HVHdrSpectralWavelength(h, i);
    uint64_t capacity = 0;
    HalvChunk chunk = {0};
    int status = kExitOk;
    while (status == kExitOk && !(chunk.flags & HALV_CHUNK_END)) {
        status = ImageNextChunk(image, &chunk);
        if (status == kExitOk && chunk.lines > 0)
            status = Append(spectrum, image, &chunk, &capacity);
    }
    if (status == kExitOk && spectrum->measurements == 0)
        status = Complain("%s holds no measurements", image->path);
    if (status != kExitOk)
        SpectrumFree(spectrum);
    return status;
}

/* One row a wavelength, one column a measurement. */
static void WriteCsv(const Spectrum *s, FILE *text) {
    char number[32];
    fputs("wavelength (nm)", text);
    for (uint32_t m = 0; m < s->measurements; ++m)
        fprintf(text, ",measurement %u", m + 1);
    fputc('\n', text);
    for (uint32_t i = 0; i < s->samples; ++i) {
        FloatText(number, sizeof number, s->wavelengths[i]);
        fputs(number, text);
        for (uint32_t m = 0; m < s->measurements; ++m) {
            FloatText(number, sizeof number, s->values[(size_t)m * s->samples + i]);
            fprintf(text, ",%s", number);
        }
        fputc('\n', text);
    }
}

typedef struct ExportKind {
    const char *extension;
    void (*write)(const Spectrum *spectrum, FILE *text);
} ExportKind;

static const ExportKind kExports[] = {{".csv", WriteCsv}, {".svg", SpectrumWriteSvg}};

/* The export that path's extension names, or null. */
static const ExportKind *ExportOf(const char *path) {
    size_t length = strlen(path);
    for (size_t i = 0; i < sizeof kExports / sizeof kExports[0]; ++i)
        if (length > 4 && strcasecmp(path + length - 4, kExports[i].extension) == 0)
            return &kExports[i];
    return NULL;
}

int IsSpectrumExport(const char *path) { return ExportOf(path) != NULL; }

/* The text that write makes, written to OUTPUT whole. */
static int WriteText(const Spectrum *spectrum, const ExportKind *kind, const char *path) {
    char *bytes = NULL;
    size_t size = 0;
    FILE *text = open_memstream(&bytes, &size);
    if (text == NULL)
        return Complain("no memory");
    kind->write(spectrum, text);
    int failed = ferror(text);
    fclose(text);
    Output out;
    int status = failed || size > UINT32_MAX ? Complain("no memory for %s", path) : OutputOpen(&out, path);
    if (status == kExitOk)
        status = OutputFinish(&out, OutputWriteBytes(&out, bytes, (uint32_t)size));
    free(bytes);
    return status;
}

int ExportSpectrum(const char *input, const char *output) {
    const ExportKind *kind = ExportOf(output);
    if (kind == NULL)
        return Complain("spectra are exported to .csv or .svg files, not %s", output), kExitUsage;
    Image image;
    if (ImageOpen(&image, input) != kExitOk)
        return kExitFailed;
    Spectrum spectrum;
    int status = SpectrumLoad(&image, &spectrum);
    ImageClose(&image);
    if (status != kExitOk)
        return status;
    status = WriteText(&spectrum, kind, output);
    SpectrumFree(&spectrum);
    return status;
}
