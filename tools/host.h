/*
 * host.h - the pieces of the halvern command-line host.
 *
 * Every command reports its own failures on standard error as one line
 * "halvern: ..." and gives back an exit status: 0 done, 1 failed, 2 the
 * command line was wrong.
 */
#ifndef HALVERN_HOST_H
#define HALVERN_HOST_H

#include <stdint.h>
#include <stdio.h>

#include "dpk_hvsup.h"

enum { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

/* ------------------------------------------------------------------------
 * Starting the engine (startup.c)
 * ------------------------------------------------------------------------ */

/* HalvernInit.  kExitOk, or kExitFailed after naming on standard error the
 * registry file and every required bundle that failed, with its reason.
 * Either way the engine owes a HalvernEnd. */
int StartEngine(void);
/* Prints "<prefix><bundle> (optional|required): <reason>" on standard
 * output for each bundle the registry step failed to load; their count. */
int PrintFailedBundles(const char *prefix);

/* ------------------------------------------------------------------------
 * Interrupts (interrupt.c): the first SIGINT, SIGTERM or SIGHUP asks the
 * command in progress to stop between two chunks; a second one ends the
 * process at once, removing the unfinished output first.
 * ------------------------------------------------------------------------ */

/* Installs the handlers; once per process. */
void InterruptGuardInstall(void);
/* 0 while no stop was asked; else the exit status to give, 128 + the
 * signal (130 for Ctrl-C), after saying on standard error that it stopped. */
int InterruptStatus(void);
/* Outputs that a second signal can remove at once, at most. */
enum { kInterruptSlots = 256 };
/* Names a temporary file that a second signal removes before the process
 * dies; the slot to drop it by, or -1 when path is too long or every slot
 * is taken.  Any thread may add and drop its own files. */
int InterruptAddPendingFile(const char *path);
void InterruptDropPendingFile(int slot);

/* Prints "halvern: " and the message with a line end on standard error,
 * as one line even when threads complain at once; gives kExitFailed so
 * that callers can return it. */
int Complain(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* ------------------------------------------------------------------------
 * Reading a stored image: its header, then its chunks.
 * ------------------------------------------------------------------------ */

typedef struct Image {
    const char *path;
    HalvIO *io;
    HVHdrManager manager;
    HalvHeaderStruct *header;
    char format[32];
    char version[32];
    char architecture[32]; /* as stored; empty when absent */
    uint32_t storedSeps;   /* separations side by side in a line: 1 with pixel interleave */
    uint32_t lineBytes;    /* bytes of one scanline (of a spectrum: one measurement); 0 for compressed data */
    uint32_t height;       /* scanlines, 0 when the header doesn't know */
    uint32_t width;        /* pixels of a scanline; of a pixel stream, its Raster pixels or 1 */
    const char *unit;      /* what a line is: "scanline", or "measurement" in a spectrum */
    uint64_t fileBytes;    /* size on disk, 0 when unknown */
    uint64_t linesRead;
    uint64_t bytesRead;
    int ended;
} Image;

/* Opens path and reads its header.  kExitOk, or kExitFailed after saying
 * why (the image is then closed). */
int ImageOpen(Image *image, const char *path);
/* Closes the stream and frees the header; safe on a closed image. */
void ImageClose(Image *image);
/* Checks that the header describes plain raster data whose lines can be
 * handled sample by sample: known layout, pixels, no compression, sizes
 * that agree.  kExitOk or kExitFailed with the reason said. */
int ImageCheckRaster(const Image *image);
/* Checks that the header describes a spectrum whose measurements can be
 * read: samples, a measurement of a size this host holds, a binary file
 * that holds what its header promises.  kExitOk or kExitFailed with the
 * reason said. */
int ImageCheckSpectrum(const Image *image);
/* The common sample depth of all separations, or 0 when they differ. */
uint32_t ImageCommonBits(const Image *image);
/* The number of samples of each pixel: the sum of the header's parts. */
uint32_t ImageSamples(const Image *image);
/* Loads the next chunk.  kExitOk with *chunk filled (its flags carry
 * HALV_CHUNK_END on the last one, which may be empty); kExitFailed after
 * saying what is wrong with the data; InterruptStatus() when a signal asked
 * the command to stop.  The data stay valid up to the next load.  Samples
 * come in this machine's byte order whatever the format, and a chunk's
 * lines are scanlines of width pixels, a pixel stream's pixels grouped. */
int ImageNextChunk(Image *image, HalvChunk *chunk);
/* "little" gives 0 and "big" 1 in *order; 0 for any other word. */
int ParseByteOrder(const char *word, int *order);
/* The whole of path (a file or a URL), at most limit bytes, in a new
 * buffer the caller frees.  kExitOk, or kExitFailed after saying why. */
int ReadWholeFile(const char *path, unsigned char **bytes, uint32_t *size, uint32_t limit);

/* A pixel stream's scanline geometry, which the format itself doesn't
 * carry: this host keeps it in the header's Raster section, pixels and
 * scanlines, which the pixel stream leaves in its tree.  *width is 1 and
 * *height 0 (not known) when the keys are absent or 0. */
void PixelStreamGeometry(const HalvHeaderStruct *header, uint32_t *width, uint32_t *height);

/* Name of the colour space, "unknown" for code 0. */
const char *ImageColorName(const HalvHeaderStruct *header);

/* ------------------------------------------------------------------------
 * Writing: OUTPUT is made under a temporary name beside it, renamed into
 * place by OutputCommit, removed by OutputAbort or when the process is
 * interrupted.
 * ------------------------------------------------------------------------ */

typedef struct Output {
    const char *path;
    char *tempPath;
    HalvIO *io;
    HVHdrManager manager;
    HalvHeaderStruct *header; /* owned once OutputWriteHeader took it */
    int swapBytes;            /* reverse samples wider than 8 bits */
    uint32_t pixelsPerLine;   /* a pixel stream's chunks count pixels: a scanline's; 0 for other formats */
    void *scratch;
    uint32_t scratchCapacity;
    int pendingSlot; /* of InterruptAddPendingFile, -1 when none */
} Output;

int OutputOpen(Output *out, const char *path);
/* Takes header (freed with the output), writes it through manager and
 * keeps both for the chunks.  swapBytes asks for samples to be reversed
 * on the way out. */
int OutputWriteHeader(Output *out, HalvHeaderStruct *header, HVHdrManager manager, int swapBytes);
/* Writes one chunk behind the header.  Empty chunks are left out. */
int OutputWriteChunk(Output *out, const HalvChunk *chunk);
/* Writes raw bytes (formats the library doesn't know). */
int OutputWriteBytes(Output *out, const void *bytes, uint32_t count);
int OutputCommit(Output *out);
void OutputAbort(Output *out);
/* Commits the output when status is kExitOk, else removes it (saying so
 * when an interrupt was the reason); gives the command's status. */
int OutputFinish(Output *out, int status);

/* A whole stored file at path in one go: header (taken, as by
 * OutputWriteHeader, and freed on every path) and the one chunk that holds
 * all its data; gives the command's status. */
int OutputWholeFile(const char *path, HalvHeaderStruct *header, HVHdrManager manager, const HalvChunk *chunk);

/* The version of format that this host writes: version itself when it is
 * one (null: the format's default), else null. */
const char *WritableVersion(const char *format, const char *version);
/* A new header of the stored format name ("internal", "image-ext",
 * "pixr", "pixelstream" or "spectral") and version (null: its default)
 * with the description of source; its manager in *manager.  Null after
 * saying why. */
HalvHeaderStruct *MakeHeaderAs(const HalvHeaderStruct *source, const char *format, const char *version,
                               HVHdrManager *manager);

/* ------------------------------------------------------------------------
 * Spectra (wavelength_data.c, wavelength_svg.c)
 * ------------------------------------------------------------------------ */

/* A whole spectrum in memory. */
typedef struct Spectrum {
    const char *name;     /* what the plot's title calls it */
    uint32_t type;        /* the header's spectrumType */
    uint32_t samples;     /* per measurement */
    uint32_t measurements;
    float *wavelengths;   /* samples entries, in nm */
    float *values;        /* measurement after measurement */
} Spectrum;

/* Prints the spectral part of a header: type, samples, measurements and
 * the wavelengths, as start and step or as the table. */
void SpectrumPrintInfo(const HalvHeaderStruct *header);
/* Checks image (ImageCheckSpectrum) and reads all its measurements, at
 * most 256 MiB of samples.  kExitOk, or kExitFailed after saying why. */
int SpectrumLoad(Image *image, Spectrum *spectrum);
void SpectrumFree(Spectrum *spectrum);
/* The shortest "%g" text of 6 to 9 digits that reads back as value. */
int FloatText(char *text, size_t size, float value);
/* The plot as SVG text. */
void SpectrumWriteSvg(const Spectrum *spectrum, FILE *svg);
/* 1 when path names an export of a spectrum: .csv or .svg. */
int IsSpectrumExport(const char *path);
/* halvern export of a spectrum: OUTPUT.csv, one row a wavelength and one
 * column a measurement, or OUTPUT.svg, the plot. */
int ExportSpectrum(const char *input, const char *output);

/* ------------------------------------------------------------------------
 * Processing functions
 * ------------------------------------------------------------------------ */

/* The description of a registered function, or null after saying that
 * there is none.  Free with HalvFreeFuncDesc. */
HalvFuncDesc *FindFunction(const char *name);

/* An argument list built from key=value texts against the arguments that
 * desc declares.  facts are key=value texts that the host knows from the
 * image (bits=8): they are used when the function declares the key, and a
 * user's value for them must agree.  With lenient set, keys the function
 * doesn't declare are left out instead of refused. */
typedef struct FnArgs {
    intptr_t *words;
    void **values; /* separately allocated value storage */
    uint32_t valueCount;
} FnArgs;

int BuildFnArgs(FnArgs *args, const HalvFuncDesc *desc, char *const *pairs, int pairCount, char *const *facts,
                int factCount, int lenient);
void FreeFnArgs(FnArgs *args);

/* The same arguments as binary records (HalvBinArg): integers as type 0
 * and doubles as type 3 in arrays of their own, strings as type 1. */
typedef struct FnBinArgs {
    HalvBinArg *args;
    int32_t count;
    void **storage;
    uint32_t storageCount;
} FnBinArgs;

int BinaryFnArgs(const FnArgs *args, FnBinArgs *out);
void FreeBinaryFnArgs(FnBinArgs *binary);

/* One image through one described function: input into output, with the
 * user's key=value pairs (lenient: keys the function doesn't declare are
 * left out), binary as below; its progress adds to shared when that isn't
 * null.  Everything but desc, pairs and shared is the run's own, so runs of
 * different images may go on at once on different threads. */
typedef struct RunRequest {
    const HalvFuncDesc *desc;
    const char *input;
    const char *output;
    char *const *pairs;
    int pairCount;
    int lenient;
    int binary;
    struct Progress *shared;
} RunRequest;

int RunDescribed(const RunRequest *request);

/* halvern run NAME IN... --out DIR [--jobs N] [key=value ...] (batch.c). */
int CommandRunBatch(int argc, char **argv);

/* Runs function name over input into output.  pairs are the user's
 * key=value texts; with lenient set, keys the function doesn't declare are
 * left out.  With binary set the function starts from flat data alone: its
 * arguments as HalvBinArg records and the input header as a 'B' 'H' block,
 * through HalvCallInitBin. */
int RunFunction(const char *name, const char *input, const char *output, char *const *pairs, int pairCount,
                int lenient, int binary);

/* ------------------------------------------------------------------------
 * Progress on standard error, for long jobs on a terminal.
 * ------------------------------------------------------------------------ */

typedef struct Progress {
    int enabled;
    uint64_t total;
    uint64_t done;
    int shown; /* per mille last drawn, -1 before the first */
    const char *label;
    /* Null, or the one bar of a batch that this progress adds to (from any
     * thread) instead of drawing its own. */
    struct Progress *shared;
} Progress;

/* Starts a bar of its own (shared null). */
void ProgressStart(Progress *progress, const char *label, uint64_t total);
void ProgressAdvance(Progress *progress, uint64_t amount);
void ProgressFinish(Progress *progress);

/* ------------------------------------------------------------------------
 * Commands: argc and argv start behind the command word.
 * ------------------------------------------------------------------------ */

int CommandList(int argc, char **argv);
int CommandDescribe(int argc, char **argv);
int CommandInfo(int argc, char **argv);
int CommandRun(int argc, char **argv);
int CommandConvert(int argc, char **argv);
int CommandExport(int argc, char **argv);
int CommandImport(int argc, char **argv);
/* halvern export of a stored image as the picture that output's name
 * says (picture.h); quality for JPEG. */
int ExportPicture(const char *input, const char *output, int quality);
int CommandDemo(int argc, char **argv);
/* The demo's spectra, made in dir; the files made are added to created. */
int DemoSpectra(const char *dir, char **created, int *createdCount);
int CommandStatus(int argc, char **argv);
int CommandPack(int argc, char **argv);

/* Info tables (table_*.c): the table part of halvern info for an open
 * table (order says its byte order); the export of a table as CSV; the
 * import-table command. */
int TableInfo(Image *image, const char *order);
int ExportTable(const char *input, const char *output);
int CommandImportTable(int argc, char **argv);

#endif
