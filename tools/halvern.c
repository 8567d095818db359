/*
 * halvern - the command-line host of the Halvern engine.
 *
 *   halvern list           every processing function of every registered bundle
 *   halvern describe NAME  one function's description
 *   halvern demo           (the default) runs every function on a sample scanline
 *
 * It uses the public interface only, as any host would: start the engine
 * (which reads hvregistry.dot and opens the bundles it names), find the
 * functions, build an argument list, drive each state through its chunks,
 * end it, stop the engine.
 */
#include <stdio.h>
#include <string.h>

#include "dpk_hvsup.h"

enum { kSampleWidth = 16 };

static void PrintList(const char *label, char **items) {
    if (items == NULL)
        return;
    for (uint32_t i = 0; items[i] != NULL; ++i)
        if (items[i] != HalvArrayEmptySlot())
            printf("  %-12s %s\n", i == 0 ? label : "", items[i]);
}

static int ListFunctions(void) {
    HalvFuncDesc **descs = NULL;
    if (HalvFindAllFuncDesc(&descs) != 1 || descs == NULL) {
        fprintf(stderr, "halvern: no processing functions are registered\n");
        return 1;
    }
    for (uint32_t i = 0; descs[i] != NULL; ++i)
        printf("%-12s %s\n", descs[i]->name, descs[i]->description ? descs[i]->description : "");
    HalvFreeSmartArray(descs);
    return 0;
}

static int DescribeFunction(const char *name) {
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    if (desc == NULL)
        return 1;
    int found = HalvFindAndReadFuncDesc(name, desc);
    if (found != 1) {
        fprintf(stderr, "halvern: unknown function %s\n", name);
        HalvFreeFuncDesc(desc);
        return 1;
    }
    printf("%s: %s\n", desc->name, desc->description ? desc->description : "");
    printf("  inputs %d, outputs %d\n", desc->inputs, desc->outputs);
    PrintList("arguments", desc->args);
    PrintList("formats", desc->formats);
    PrintList("categories", desc->categories);
    PrintList("tests", desc->tests);
    if (desc->documentation)
        printf("\n%s\n", desc->documentation);
    HalvFreeFuncDesc(desc);
    return 0;
}

/* Runs one function over a ramp of 8-bit samples, as two chunks, and prints
 * what came out.  Arguments a function doesn't ask for are left unread. */
static int RunOnSample(const char *name) {
    int32_t bits = 8, level = 128;
    double factor = 1.5;
    intptr_t args[16];
    HalvBuildArgs(args, HALV_ARG("bits:i"), HALV_ARG(&bits), HALV_ARG_NULL, HALV_ARG("level:i"), HALV_ARG(&level),
                  HALV_ARG_NULL, HALV_ARG("factor:d"), HALV_ARG(&factor), HALV_ARG_NULL, HALV_ARG_END);
    HalvState *state = NULL;
    int result = HalvCallInitByName(name, args, &state);
    if (result != 1 && result != 2) {
        fprintf(stderr, "halvern: %s did not start: %s\n", name,
                state && HalvGetErrorMsg(state) ? HalvGetErrorMsg(state) : "no state");
        if (state)
            HalvAbsoluteCallEnd(state);
        return 1;
    }
    unsigned char line[kSampleWidth];
    for (int i = 0; i < kSampleWidth; ++i)
        line[i] = (unsigned char)(i * 17);
    printf("%-10s", name);
    for (int pass = 0; pass < 2; ++pass) {
        void *out = NULL;
        uint32_t bytes = 0, lines = 0;
        HalvSetChunkFlags(state->inputChunks, 0, pass == 1 ? HALV_CHUNK_END : 0);
        result = HalvProcessSISO(state, line + pass * 8, 8, 1, &out, &bytes, &lines);
        if (result != 1 && result != 2) {
            fprintf(stderr, "\nhalvern: %s failed: %s\n", name, HalvGetErrorMsg(state) ? HalvGetErrorMsg(state) : "");
            HalvAbsoluteCallEnd(state);
            return 1;
        }
        for (uint32_t i = 0; i < bytes; ++i)
            printf(" %3u", ((const unsigned char *)out)[i]);
    }
    printf("\n");
    return HalvAbsoluteCallEnd(state) == 1 ? 0 : 1;
}

static int Demo(void) {
    HalvFuncDesc **descs = NULL;
    if (HalvFindAllFuncDesc(&descs) != 1 || descs == NULL || descs[0] == NULL) {
        fprintf(stderr, "halvern: no processing functions are registered (is hvregistry.dot beside halvern?)\n");
        return 1;
    }
    printf("%-10s", "input");
    for (int i = 0; i < kSampleWidth; ++i)
        printf(" %3d", i * 17);
    printf("\n");
    int status = 0;
    for (uint32_t i = 0; descs[i] != NULL; ++i)
        status |= RunOnSample(descs[i]->name);
    HalvFreeSmartArray(descs);
    return status;
}

int main(int argc, char **argv) {
    if (HalvernInit() != 1) {
        fprintf(stderr, "halvern: the engine did not start\n");
        HalvernEnd();
        return 1;
    }
    int status;
    if (argc < 2 || strcmp(argv[1], "demo") == 0)
        status = Demo();
    else if (strcmp(argv[1], "list") == 0)
        status = ListFunctions();
    else if (strcmp(argv[1], "describe") == 0 && argc == 3)
        status = DescribeFunction(argv[2]);
    else {
        fprintf(stderr, "usage: halvern [demo | list | describe NAME]\n");
        status = 2;
    }
    HalvernEnd();
    return status;
}
