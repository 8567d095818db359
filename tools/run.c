/*
 * run.c - one stored image through one processing function: open, read
 * the header, init the function, pass every chunk through it, write the
 * output header and chunks, end.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#include "host.h"

/* Whether the description's "label: w1 w2 ..." format line allows word:
 * 1 yes (or "any"), 0 no, -1 there is no such line. */
static int FormatLineAllows(const HalvFuncDesc *desc, const char *label, const char *word) {
    size_t labelLength = strlen(label);
    for (uint32_t i = 0; desc->formats != NULL && desc->formats[i] != NULL; ++i) {
        const char *line = desc->formats[i];
        if (line == HalvArrayEmptySlot() || strncasecmp(line, label, labelLength) != 0 || line[labelLength] != ':')
            continue;
        const char *cursor = line + labelLength + 1;
        size_t wordLength = strlen(word);
        while (*cursor != '\0') {
            cursor += strspn(cursor, " \t");
            size_t n = strcspn(cursor, " \t");
            if ((n == wordLength && strncasecmp(cursor, word, n) == 0) || (n == 3 && strncasecmp(cursor, "any", 3) == 0))
                return 1;
            cursor += n;
        }
        return 0;
    }
    return -1;
}

static int DeclaredBitsAllow(const HalvFuncDesc *desc, uint32_t bits) {
    if (desc->bits == NULL)
        return 1;
    for (uint32_t i = 0; desc->bits[i] != -1; ++i)
        if ((uint32_t)desc->bits[i] == bits)
            return 1;
    return 0;
}

/* What the description says the function takes, against the image. */
static int CheckFunctionFits(const HalvFuncDesc *desc, const Image *image) {
    if (desc->inputs != 1 || desc->outputs != 1)
        return Complain("%s takes %d inputs and gives %d outputs; run drives functions of one input and one output",
                        desc->name, desc->inputs, desc->outputs);
    uint32_t bits = ImageCommonBits(image);
    char bitsWord[16];
    snprintf(bitsWord, sizeof bitsWord, "%u", bits);
    if (bits == 0 || !DeclaredBitsAllow(desc, bits) || FormatLineAllows(desc, "bits", bitsWord) == 0) {
        if (bits == 0)
            return Complain("%s: its separations differ in depth, and %s works on one depth", image->path,
                            desc->name);
        return Complain("%s doesn't take %u-bit samples, which %s has", desc->name, bits, image->path);
    }
    const char *interleave = HalvInterleave2Str((int32_t)image->header->interleave);
    if (!(desc->interleave & (1 << image->header->interleave)) || FormatLineAllows(desc, "interleave", interleave) == 0)
        return Complain("%s doesn't take images of %s interleave, which %s has", desc->name, interleave, image->path);
    return kExitOk;
}

/* The function's own text, without the line end its messages carry. */
static const char *StateMessage(HalvState *state, char *buffer, size_t size) {
    const char *text = state != NULL ? HalvGetErrorMsg(state) : NULL;
    snprintf(buffer, size, "%s", text != NULL && text[0] != '\0' ? text : "no reason given");
    size_t n = strlen(buffer);
    while (n > 0 && (buffer[n - 1] == '\n' || buffer[n - 1] == '\r'))
        buffer[--n] = '\0';
    return buffer;
}

/* The init call from flat data alone: the arguments as binary records, the
 * input header as a block in this machine's order, the function as a
 * bundle module with its init point. */
static int CallInitBinary(const HalvFuncDesc *desc, const Image *image, const FnArgs *args, HalvState **state) {
    FnBinArgs binary;
    if (BinaryFnArgs(args, &binary) != kExitOk)
        return 0;
    void *block = NULL;
    int result = 0;
    if (HalvBinHdrFromHdr(image->header, HalvIdentifyEndian(), &block, 0) < 0)
        Complain("%s: its header can't be made into a block", image->path);
    else {
        HalvBundleModule module = {.name = desc->name, .inputs = 1, .outputs = 1, .init = desc->initPoint};
        result = HalvCallInitBin(&module, binary.count, binary.args, 1, &block, 0, state);
    }
    halv_internal_free(block);
    FreeBinaryFnArgs(&binary);
    return result;
}

static HalvState *StartFunction(const HalvFuncDesc *desc, const Image *image, char *const *pairs, int pairCount,
                                int lenient, int binary) {
    if (desc->initPoint == NULL) {
        Complain("%s has no init point in its bundle", desc->name);
        return NULL;
    }
    char bitsFact[32];
    snprintf(bitsFact, sizeof bitsFact, "bits=%u", ImageCommonBits(image));
    char *facts[] = {bitsFact};
    FnArgs args;
    if (BuildFnArgs(&args, desc, pairs, pairCount, facts, 1, lenient) != kExitOk)
        return NULL;
    HalvState *state = NULL;
    int started = binary ? CallInitBinary(desc, image, &args, &state) : HalvCallInit(desc->initPoint, args.words, &state);
    FreeFnArgs(&args);
    if (started == 1 || started == 2) {
        if (state != NULL && state->inputChunkFn(state, 0) != NULL)
            return state;
        Complain("%s gave no state with an input chunk", desc->name);
    } else {
        char message[1024];
        Complain("%s did not start: %s", desc->name, StateMessage(state, message, sizeof message));
    }
    if (state != NULL)
        HalvAbsoluteCallEnd(state);
    return NULL;
}

/* The output header: the function's own if it gives one, else the input's.
 * Asked after the first pass, when a function knows it at the latest. */
static HalvHeaderStruct *OutputHeader(HalvState *state, const Image *image) {
    HalvHeaderStruct *given = state->outputHeaderFn != NULL ? state->outputHeaderFn(state, 0) : NULL;
    HalvHeaderStruct *source = given != NULL && given->copy != NULL ? given : image->header;
    HalvHeaderStruct *copy = source->copy(source);
    if (copy == NULL)
        Complain("no memory for the output header");
    return copy;
}

/* Seconds spent loading, processing and writing, told on standard error
 * when HALVERN_TIMING is set: where the time of a run goes. */
typedef struct PhaseTimes {
    double load, process, write;
} PhaseTimes;

static double Now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec * 1e-9;
}

/* One pass: the chunk goes into the state whole (its flags, aux word,
 * lines, bytes and data), one call of the process point, and output chunk
 * 0 comes back whole and is written, behind the output header before the
 * first.  Only the process call counts as processing time. */
static int Pass(HalvState *state, Image *image, Output *out, const HalvChunk *chunk, int first, PhaseTimes *times) {
    HalvChunk *input = state->inputChunkFn(state, 0);
    if (input == NULL)
        return Complain("%s has no input chunk", state->name ? state->name : "the function");
    *input = *chunk;
    double start = Now();
    int result = HalvCallProcess(state);
    times->process += Now() - start;
    if (result != 1 && result != 2) {
        char message[1024];
        return Complain("%s failed on %s after %llu scanlines: %s", state->name ? state->name : "the function",
                        image->path, (unsigned long long)(image->linesRead - chunk->lines),
                        StateMessage(state, message, sizeof message));
    }
    const HalvChunk *produced = state->outputChunkFn(state, 0);
    if (produced == NULL)
        return Complain("%s gave no output chunk", state->name ? state->name : "the function");
    start = Now();
    int status = kExitOk;
    if (first) {
        HalvHeaderStruct *header = OutputHeader(state, image);
        status = header != NULL ? OutputWriteHeader(out, header, image->manager, 0) : kExitFailed;
    }
    if (status == kExitOk)
        status = OutputWriteChunk(out, produced);
    times->write += Now() - start;
    return status;
}

static int Drive(HalvState *state, Image *image, Output *out, Progress *shared) {
    Progress progress;
    ProgressStart(&progress, state->name, image->fileBytes);
    progress.shared = shared;
    HalvChunk chunk;
    PhaseTimes times = {0, 0, 0};
    int status = kExitOk;
    for (int first = 1; status == kExitOk; first = 0) {
        double start = Now();
        status = ImageNextChunk(image, &chunk);
        times.load += Now() - start;
        if (status == kExitOk)
            status = Pass(state, image, out, &chunk, first, &times);
        ProgressAdvance(&progress, chunk.bytes);
        if (chunk.flags & HALV_CHUNK_END)
            break;
    }
    ProgressFinish(&progress);
    if (getenv("HALVERN_TIMING") != NULL)
        fprintf(stderr, "halvern: %s: load %.3f s, process %.3f s, write %.3f s\n", state->name ? state->name : "",
                times.load, times.process, times.write);
    if (status == kExitOk && image->linesRead == 0)
        status = Complain("%s holds no scanlines", image->path);
    return status;
}

int RunDescribed(const RunRequest *request) {
    const HalvFuncDesc *desc = request->desc;
    Image image;
    int status = ImageOpen(&image, request->input);
    if (status == kExitOk && (ImageCheckRaster(&image) != kExitOk || CheckFunctionFits(desc, &image) != kExitOk))
        status = kExitFailed;
    HalvState *state = status == kExitOk ? StartFunction(desc, &image, request->pairs, request->pairCount,
                                                         request->lenient, request->binary)
                                         : NULL;
    if (status == kExitOk && state == NULL)
        status = kExitFailed;
    Output out;
    if (status == kExitOk)
        status = OutputOpen(&out, request->output);
    if (status == kExitOk && image.header->managerType == HALV_HDR_PIXELSTREAM)
        out.pixelsPerLine = image.width; /* written back as the pixel stream it came as */
    if (status == kExitOk)
        status = OutputFinish(&out, Drive(state, &image, &out, request->shared));
    if (state != NULL && HalvAbsoluteCallEnd(state) != 1 && status == kExitOk)
        Complain("%s did not end cleanly", desc->name); /* the output is complete all the same */
    ImageClose(&image);
    return status;
}

int RunFunction(const char *name, const char *input, const char *output, char *const *pairs, int pairCount,
                int lenient, int binary) {
    HalvFuncDesc *desc = FindFunction(name);
    if (desc == NULL)
        return kExitFailed;
    RunRequest request = {desc, input, output, pairs, pairCount, lenient, binary, NULL};
    int status = RunDescribed(&request);
    HalvFreeFuncDesc(desc);
    return status;
}

int CommandRun(int argc, char **argv) {
    for (int i = 0; i < argc; ++i)
        if (strcmp(argv[i], "--out") == 0)
            return CommandRunBatch(argc, argv);
    int binary = argc > 0 && strcmp(argv[0], "--binary") == 0;
    if (argc - binary < 3)
        return Complain("usage: halvern run [--binary] NAME INPUT OUTPUT [key=value ...], or NAME INPUT... --out DIR "
                        "[--jobs N] [key=value ...]"),
               kExitUsage;
    argv += binary;
    argc -= binary;
    return RunFunction(argv[0], argv[1], argv[2], argv + 3, argc - 3, 0, binary);
}
